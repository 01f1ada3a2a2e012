#pragma once

#include <functional>
#include <string>
#include <vector>

namespace brenloft_test {

/// What a terminal shows, as far as the tool's control sequences go.
class Screen {
 public:
  Screen(std::size_t rows, std::size_t columns) : rows_(rows), columns_(columns), lines_(1) {}

  void feed(const std::string& text);
  /// Breaks the lines anew, as terminals do.
  void resize(std::size_t rows, std::size_t columns);

  /// How many lines begin with this text, and how many hold it.
  std::size_t linesBeginning(const std::string& text) const;
  std::size_t linesWith(const std::string& text) const;
  /// How often the cursor was sent to the top.
  std::size_t restarts() const { return restarts_; }
  bool isCursorShown() const { return isCursorShown_; }
  /// Whether any text was coloured, ever, and whether there was any control sequence.
  bool hadColour() const { return hadColour_; }
  bool hadSequences() const { return hadSequences_; }

 private:
  void control(const std::string& sequence);
  void put(char c);

  std::size_t rows_;
  std::size_t columns_;
  std::vector<std::string> lines_;  // all that was scrolled away stays before the last rows
  std::size_t row_ = 0;
  std::size_t column_ = 0;
  std::size_t restarts_ = 0;
  bool isCursorShown_ = true;
  bool hadColour_ = false;
  bool hadSequences_ = false;
  std::string pending_;  // a sequence that is not complete yet
};

/// A program, found in PATH, on a terminal of its own.
class TerminalProgram {
 public:
  TerminalProgram(std::vector<std::string> command, std::size_t rows, std::size_t columns);
  ~TerminalProgram();
  TerminalProgram(const TerminalProgram&) = delete;
  TerminalProgram& operator=(const TerminalProgram&) = delete;

  Screen& screen() { return screen_; }
  /// Takes what it writes until the screen is as wanted; false when it ends before.
  bool waitFor(const std::function<bool()>& isAsWanted);
  /// The same up to the end of the tool's next whole table, or of the one that begins a new screen.
  bool waitForTable();
  bool waitForNewScreen();
  void type(const std::string& keys) const;
  void resize(std::size_t rows, std::size_t columns);
  /// Stops it as Ctrl-Z does, and lets it go on as `fg` does.
  void stop() const;
  void goOn() const;
  /// Takes everything up to the end; the exit status as in `Ended`.
  int wait();

 private:
  bool take();

  int pid_ = -1;
  int terminal_ = -1;
  std::size_t tables_ = 0;
  Screen screen_;
};

}  // namespace brenloft_test

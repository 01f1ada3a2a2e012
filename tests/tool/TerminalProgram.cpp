#include "tests/tool/TerminalProgram.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <csignal>
#include <stdexcept>
#include <utility>

#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/tool/RunTool.h"

namespace brenloft_test {
namespace {

winsize sizeOf(std::size_t rows, std::size_t columns) {
  return {static_cast<unsigned short>(rows), static_cast<unsigned short>(columns), 0, 0};
}

}  // namespace

void Screen::feed(const std::string& text) {
  for (const char c : text) {
    if (c == '\x1b' || !pending_.empty()) {
      pending_ += c;
      const bool isWhole = pending_.size() > 2 && c >= '@';
      if (isWhole) control(std::exchange(pending_, {}));
    } else {
      put(c);
    }
  }
}

void Screen::put(char c) {
  if (c == '\r') {
    column_ = 0;
    return;
  }
  if (c == '\n' || column_ == columns_) {
    ++row_;
    column_ = c == '\n' ? column_ : 0;
    if (row_ == lines_.size()) lines_.emplace_back();
  }
  if (c == '\n') return;
  std::string& line = lines_[row_];
  if (line.size() <= column_) line.resize(column_ + 1, ' ');
  line[column_++] = c;
}

void Screen::control(const std::string& sequence) {
  hadSequences_ = true;
  const char kind = sequence.back();
  const std::string parameter = sequence.substr(2, sequence.size() - 3);
  const std::size_t top = lines_.size() > rows_ ? lines_.size() - rows_ : 0;
  if (kind == 'h' || kind == 'l') {
    isCursorShown_ = kind == 'h';
  } else if (kind == 'm') {
    hadColour_ = hadColour_ || parameter != "0";
  } else if (kind == 'A') {
    row_ = std::max(top, row_ - std::min(row_, static_cast<std::size_t>(std::stoul(parameter))));
  } else if (kind == 'H') {
    row_ = top;
    column_ = 0;
    ++restarts_;
  } else if (kind == 'K' || kind == 'J') {
    lines_[row_].resize(std::min(lines_[row_].size(), column_));
    if (kind == 'J') lines_.resize(row_ + 1);
  } else {
    throw std::runtime_error("an unknown control sequence: " + sequence.substr(1));
  }
}

void Screen::resize(std::size_t rows, std::size_t columns) {
  rows_ = rows;
  columns_ = columns;
  std::vector<std::string> broken;
  for (std::string line : lines_) {
    for (; line.size() > columns; line.erase(0, columns)) broken.push_back(line.substr(0, columns));
    broken.push_back(line);
  }
  lines_ = broken;
  row_ = lines_.size() - 1;
  column_ = lines_.back().size();
}

std::size_t Screen::linesBeginning(const std::string& text) const {
  return static_cast<std::size_t>(std::count_if(lines_.begin(), lines_.end(),
                                                [&](const auto& line) { return line.rfind(text, 0) == 0; }));
}

std::size_t Screen::linesWith(const std::string& text) const {
  return static_cast<std::size_t>(std::count_if(
      lines_.begin(), lines_.end(), [&](const auto& line) { return line.find(text) != std::string::npos; }));
}

TerminalProgram::TerminalProgram(std::vector<std::string> command, std::size_t rows, std::size_t columns)
    : screen_(rows, columns) {
  const winsize size = sizeOf(rows, columns);
  std::vector<char*> argv;
  for (std::string& argument : command) argv.push_back(argument.data());
  argv.push_back(nullptr);
  pid_ = ::forkpty(&terminal_, nullptr, nullptr, &size);
  if (pid_ < 0) throw std::runtime_error("forkpty");
  if (pid_ > 0) return;
  ::execvp(argv[0], argv.data());
  ::_exit(127);
}

TerminalProgram::~TerminalProgram() {
  if (pid_ >= 0) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  ::close(terminal_);
}

bool TerminalProgram::take() {
  std::array<char, 4096> buffer;
  const ssize_t count = ::read(terminal_, buffer.data(), buffer.size());
  if (count <= 0) return false;
  const std::string text(buffer.data(), static_cast<std::size_t>(count));
  screen_.feed(text);
  // Each table ends by showing the cursor.
  tables_ += static_cast<std::size_t>(std::count(text.begin(), text.end(), 'h'));
  return true;
}

bool TerminalProgram::waitFor(const std::function<bool()>& isAsWanted) {
  while (!isAsWanted())
    if (!take()) return false;
  return true;
}

bool TerminalProgram::waitForTable() {
  const std::size_t before = tables_;
  return waitFor([&] { return tables_ > before && screen_.isCursorShown(); });
}

bool TerminalProgram::waitForNewScreen() {
  const std::size_t before = screen_.restarts();
  return waitFor([&] { return screen_.restarts() > before && screen_.isCursorShown(); });
}

void TerminalProgram::type(const std::string& keys) const {
  if (::write(terminal_, keys.data(), keys.size()) < 0) throw std::runtime_error("write");
}

void TerminalProgram::resize(std::size_t rows, std::size_t columns) {
  const winsize size = sizeOf(rows, columns);
  screen_.resize(rows, columns);
  ::ioctl(terminal_, TIOCSWINSZ, &size);
}

void TerminalProgram::stop() const {
  ::kill(pid_, SIGSTOP);
  int status = 0;
  ::waitpid(pid_, &status, WUNTRACED);
}

void TerminalProgram::goOn() const {
  ::kill(pid_, SIGCONT);
}

int TerminalProgram::wait() {
  while (take()) {
  }
  return statusOf(std::exchange(pid_, -1));
}

}  // namespace brenloft_test

#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tests/foundation/TemporaryFolder.h"

namespace brenloft_test {

/// How a command ended and what it wrote.
struct Ended {
  int status = -1;  ///< exit status, or 128 and the signal that killed it
  std::string out;
  std::string err;

  std::vector<std::string> lines() const;
};

/// The built tool, which a test may run through a shell.
std::string toolPath();
/// The built tool with these arguments and standard input.
Ended runTool(const std::vector<std::string>& arguments, const std::string& input = {});
/// Any program of this machine, found in PATH.
Ended runProgram(const std::vector<std::string>& command, const std::string& input = {});
/// The tool, sent a signal once it has written so many lines.
Ended runToolUntil(std::ptrdiff_t lines, const std::vector<std::string>& arguments, int signal);

/// Every octet that a shell's command writes to a terminal, and its status.
Ended runOnTerminal(const std::string& command);

std::size_t countOf(const std::string& text, const std::string& part);
/// The value of a key in a JSON line, up to the next comma or end; "" without it.
std::string valueOf(const std::string& line, const std::string& key);

/// A program that runs beside a test.
class RunningProgram {
 public:
  RunningProgram(const std::vector<std::string>& command, const std::string& input);
  /// Kills what still runs.
  ~RunningProgram();
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;

  /// Reads standard output until it holds so many lines, or ends; what was read so far.
  const std::string& readLines(std::ptrdiff_t lines);
  /// Waits, without reading, until the program can write no more to standard output.
  void fillOutput();
  /// Goes away as the reader of standard output.
  void closeOutput();
  void signal(int number) const;
  /// Waits for the end, without reading; the exit status as in `Ended`.
  int end();
  Ended readToEnd();

 private:
  int pid_ = -1;
  int out_ = -1;
  const int err_;
  std::string text_;
};

class RunningTool : public RunningProgram {
 public:
  explicit RunningTool(const std::vector<std::string>& arguments);
};

bool hasProgram(const std::string& name);

using test::contentsOf;
using test::TemporaryFolder;
using test::writeFile;

}  // namespace brenloft_test

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

/// The exit status of an ended child, as in `Ended`.
int statusOf(int pid);

/// The value of a key in a JSON line, up to the next comma or end; "" without it.
std::string valueOf(const std::string& line, const std::string& key);

/// The tool as it runs beside a test.
class RunningTool {
 public:
  explicit RunningTool(const std::vector<std::string>& arguments);
  /// Kills what still runs.
  ~RunningTool();
  RunningTool(const RunningTool&) = delete;
  RunningTool& operator=(const RunningTool&) = delete;

  /// Reads standard output until it holds so many lines, or ends; what was read so far.
  const std::string& readLines(std::ptrdiff_t lines);
  /// Waits, without reading, until the tool can write no more to standard output.
  void fillOutput();
  /// Goes away as the reader of standard output.
  void closeOutput();
  void signal(int number) const;
  /// Waits for the end; the exit status as in `Ended`.
  int wait();

 private:
  int pid_ = -1;
  int out_ = -1;
  std::string text_;
};

bool hasProgram(const std::string& name);

using test::contentsOf;
using test::TemporaryFolder;
using test::writeFile;

}  // namespace brenloft_test

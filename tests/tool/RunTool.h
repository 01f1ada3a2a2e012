#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace brenloft_test {

/// How a command ended and what it wrote.
struct Ended {
  int status = -1;  ///< exit status, or 128 and the signal that killed it
  std::string out;
  std::string err;

  std::vector<std::string> lines() const;
};

/// The built tool with these arguments and standard input.
Ended runTool(const std::vector<std::string>& arguments, const std::string& input = {});
/// Any program of this machine, found in PATH.
Ended runProgram(const std::vector<std::string>& command, const std::string& input = {});
/// The tool, sent a signal once it has written so many lines.
Ended runToolUntil(std::ptrdiff_t lines, const std::vector<std::string>& arguments, int signal);

/// The value of a key in a JSON line, up to the next comma or end; "" without it.
std::string valueOf(const std::string& line, const std::string& key);

bool hasProgram(const std::string& name);

/// A folder that goes away with the object.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::string file(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

std::string contentsOf(const std::string& file);
void writeFile(const std::string& file, const std::string& contents);

}  // namespace brenloft_test

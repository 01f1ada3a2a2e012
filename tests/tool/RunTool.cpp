#include "tests/tool/RunTool.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace brenloft_test {
namespace {

std::vector<std::string> toolCommand(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), toolPath());
  return arguments;
}

int fileInMemory(const std::string& contents) {
  const int file = ::memfd_create("test", MFD_CLOEXEC);
  if (::pwrite(file, contents.data(), contents.size(), 0) < 0) throw std::runtime_error("memfd");
  return file;
}

}  // namespace

std::vector<std::string> Ended::lines() const {
  std::vector<std::string> result;
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);) result.push_back(line);
  return result;
}

std::string toolPath() {
  return BRENLOFT_TOOL;
}

Ended runProgram(const std::vector<std::string>& command, const std::string& input) {
  return RunningProgram(command, input).readToEnd();
}

Ended runTool(const std::vector<std::string>& arguments, const std::string& input) {
  return runProgram(toolCommand(arguments), input);
}

Ended runToolUntil(std::ptrdiff_t lines, const std::vector<std::string>& arguments, int signal) {
  RunningTool tool(arguments);
  tool.readLines(lines);
  tool.signal(signal);
  return tool.readToEnd();
}

Ended runOnTerminal(const std::string& command) {
  return runProgram({"script", "-qec", "env TERM=xterm " + command, "/dev/null"});
}

std::size_t countOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

std::string valueOf(const std::string& line, const std::string& key) {
  const std::size_t at = line.find('"' + key + "\":");
  if (at == std::string::npos) return "";
  const std::size_t begin = at + key.size() + 3;
  return line.substr(begin, line.find_first_of(",}]", begin) - begin);
}

bool hasProgram(const std::string& name) {
  return runProgram({"sh", "-c", "command -v " + name}).status == 0;
}

RunningProgram::RunningProgram(const std::vector<std::string>& command, const std::string& input)
    : err_(fileInMemory("")) {
  const int in = fileInMemory(input);
  std::array<int, 2> out{};
  if (::pipe2(out.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  ::fcntl(out[0], F_SETPIPE_SZ, 8192);  // soon full
  pid_ = ::fork();
  if (pid_ == 0) {
    ::dup2(in, STDIN_FILENO);
    ::dup2(out[1], STDOUT_FILENO);
    ::dup2(err_, STDERR_FILENO);
    std::vector<std::string> arguments = command;
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    ::execvp(argv[0], argv.data());
    ::_exit(127);
  }
  ::close(in);
  ::close(out[1]);
  out_ = out[0];
}

RunningProgram::~RunningProgram() {
  closeOutput();
  ::close(err_);
  if (pid_ < 0) return;
  signal(SIGKILL);
  end();
}

const std::string& RunningProgram::readLines(std::ptrdiff_t lines) {
  std::ptrdiff_t seen = std::count(text_.begin(), text_.end(), '\n');
  while (out_ >= 0 && seen < lines) {
    std::array<char, 4096> buffer;
    const ssize_t count = ::read(out_, buffer.data(), buffer.size());
    if (count <= 0) break;
    seen += std::count(buffer.data(), buffer.data() + count, '\n');
    text_.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return text_;
}

void RunningProgram::fillOutput() {
  constexpr int kPage = 4096;
  const int room = ::fcntl(out_, F_GETPIPE_SZ);
  int waiting = 0;
  // A pipe whose last page has something in it is full to `poll`.
  while (waiting <= room - kPage && ::ioctl(out_, FIONREAD, &waiting) == 0) ::usleep(1000);
}

void RunningProgram::closeOutput() {
  if (out_ >= 0) ::close(std::exchange(out_, -1));
}

void RunningProgram::signal(int number) const {
  ::kill(pid_, number);
}

int RunningProgram::end() {
  int status = 0;
  ::waitpid(std::exchange(pid_, -1), &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

Ended RunningProgram::readToEnd() {
  Ended ended{.out = readLines(std::numeric_limits<std::ptrdiff_t>::max())};
  ended.status = end();
  ended.err.resize(static_cast<std::size_t>(::lseek(err_, 0, SEEK_END)));
  if (::pread(err_, ended.err.data(), ended.err.size(), 0) < 0) throw std::runtime_error("pread");
  return ended;
}

RunningTool::RunningTool(const std::vector<std::string>& arguments)
    : RunningProgram(toolCommand(arguments), {}) {}

}  // namespace brenloft_test

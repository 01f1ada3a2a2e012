#include "tests/tool/RunTool.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace brenloft_test {
namespace {

struct Pipe {
  std::array<int, 2> ends{-1, -1};
  Pipe() {
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  }
};

struct Child {
  pid_t pid = -1;
  int in = -1;
  int out = -1;
  int err = -1;
};

Child spawn(const std::vector<std::string>& command) {
  const Pipe in;
  const Pipe out;
  const Pipe err;
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::dup2(in.ends[0], STDIN_FILENO);
    ::dup2(out.ends[1], STDOUT_FILENO);
    ::dup2(err.ends[1], STDERR_FILENO);
    std::vector<char*> argv;
    for (const std::string& argument : command) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    ::execvp(argv[0], argv.data());
    ::_exit(127);
  }
  ::close(in.ends[0]);
  ::close(out.ends[1]);
  ::close(err.ends[1]);
  return {pid, in.ends[1], out.ends[0], err.ends[0]};
}

// Both outputs at once, so that neither fills its pipe; `onLines` once, after so many lines.
template <typename OnLines>
Ended collect(const Child& child, std::ptrdiff_t lines, OnLines onLines) {
  Ended ended;
  std::array<pollfd, 2> polled{{{child.out, POLLIN, 0}, {child.err, POLLIN, 0}}};
  std::array<std::string*, 2> texts{&ended.out, &ended.err};
  bool hasLines = false;
  while (polled[0].fd >= 0 || polled[1].fd >= 0) {
    ::poll(polled.data(), polled.size(), -1);
    for (std::size_t i = 0; i < polled.size(); ++i) {
      if (polled.at(i).fd < 0 || polled.at(i).revents == 0) continue;
      std::array<char, 65536> buffer;
      const ssize_t count = ::read(polled.at(i).fd, buffer.data(), buffer.size());
      if (count > 0)
        texts.at(i)->append(buffer.data(), static_cast<std::size_t>(count));
      else
        ::close(std::exchange(polled.at(i).fd, -1));
    }
    if (!hasLines && std::count(ended.out.begin(), ended.out.end(), '\n') >= lines) {
      hasLines = true;
      onLines();
    }
  }
  ended.status = statusOf(child.pid);
  return ended;
}

std::vector<std::string> toolCommand(const std::vector<std::string>& arguments) {
  std::vector<std::string> command{BRENLOFT_TOOL};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

}  // namespace

int statusOf(int pid) {
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::vector<std::string> Ended::lines() const {
  std::vector<std::string> result;
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);) result.push_back(line);
  return result;
}

Ended runProgram(const std::vector<std::string>& command, const std::string& input) {
  std::signal(SIGPIPE, SIG_IGN);
  const Child child = spawn(command);
  // Inputs of tests fit a pipe.
  if (::write(child.in, input.data(), input.size()) < 0) return {};
  ::close(child.in);
  return collect(child, 0, [] {});
}

Ended runTool(const std::vector<std::string>& arguments, const std::string& input) {
  return runProgram(toolCommand(arguments), input);
}

Ended runToolUntil(std::ptrdiff_t lines, const std::vector<std::string>& arguments, int signal) {
  const Child child = spawn(toolCommand(arguments));
  ::close(child.in);
  return collect(child, lines, [&] { ::kill(child.pid, signal); });
}

std::string valueOf(const std::string& line, const std::string& key) {
  const std::size_t at = line.find('"' + key + "\":");
  if (at == std::string::npos) return "";
  const std::size_t begin = at + key.size() + 3;
  return line.substr(begin, line.find_first_of(",}]", begin) - begin);
}

std::string toolPath() {
  return BRENLOFT_TOOL;
}

RunningTool::RunningTool(const std::vector<std::string>& arguments) {
  const Child child = spawn(toolCommand(arguments));
  pid_ = child.pid;
  out_ = child.out;
  ::fcntl(out_, F_SETPIPE_SZ, 8192);
  ::close(child.in);
  ::close(child.err);
}

RunningTool::~RunningTool() {
  closeOutput();
  if (pid_ < 0) return;
  signal(SIGKILL);
  wait();
}

const std::string& RunningTool::readLines(std::ptrdiff_t lines) {
  while (std::count(text_.begin(), text_.end(), '\n') < lines) {
    std::array<char, 4096> buffer;
    const ssize_t count = ::read(out_, buffer.data(), buffer.size());
    if (count <= 0) break;
    text_.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return text_;
}

void RunningTool::fillOutput() {
  constexpr int kPage = 4096;
  const int room = ::fcntl(out_, F_GETPIPE_SZ);
  int waiting = 0;
  // A pipe whose last page has something in it is full to `poll`.
  while (waiting <= room - kPage && ::ioctl(out_, FIONREAD, &waiting) == 0) ::usleep(1000);
}

void RunningTool::closeOutput() {
  if (out_ >= 0) ::close(std::exchange(out_, -1));
}

void RunningTool::signal(int number) const {
  ::kill(pid_, number);
}

int RunningTool::wait() {
  return statusOf(std::exchange(pid_, -1));
}

bool hasProgram(const std::string& name) {
  return runProgram({"sh", "-c", "command -v " + name}).status == 0;
}

}  // namespace brenloft_test

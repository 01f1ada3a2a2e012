#include "tests/support/Btvirt.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/bluetooth/hci/H4Decoder.h"
#include "platform/bluetooth/hci/HCIPackets.h"

namespace support {

using namespace platform;
using namespace platform::hci;

namespace {

constexpr char kProgram[] = "/usr/bin/btvirt";
constexpr uint16_t kLESetAdvertisingParameters = 0x2006;
constexpr uint16_t kLESetAdvertisingData = 0x2008;
constexpr uint16_t kLESetAdvertiseEnable = 0x200A;

FileDescriptor connectTo(const std::string& path) {
  FileDescriptor line(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  path.copy(name.sun_path, sizeof name.sun_path - 1);
  if (::connect(line.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0) line.reset();
  return line;
}

int spawn(const std::string& folder) {
  std::string program = kProgram;
  std::string option = "-s";
  std::string preload = "LD_PRELOAD=" BRENLOFT_AF_ALG_SHIM;
  std::string where = "BTVIRT_DIR=" + folder;
  std::array<char*, 3> arguments{program.data(), option.data(), nullptr};
  std::array<char*, 3> environment{preload.data(), where.data(), nullptr};
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  int process = -1;
  const int error =
      ::posix_spawn(&process, kProgram, &actions, nullptr, arguments.data(), environment.data());
  ::posix_spawn_file_actions_destroy(&actions);
  return error == 0 ? process : -1;
}

}  // namespace

std::unique_ptr<Btvirt> Btvirt::start(std::string& whyNot) {
  if (::access(kProgram, X_OK) != 0) {
    whyNot = "btvirt is not installed (package bluez-test-tools)";
    return nullptr;
  }
  std::unique_ptr<Btvirt> btvirt(new Btvirt);
  std::string folder = std::filesystem::temp_directory_path() / "btvirt-XXXXXX";
  if (::mkdtemp(folder.data()) == nullptr) throw std::runtime_error("no folder for btvirt");
  btvirt->folder_ = folder;
  btvirt->process_ = spawn(folder);
  for (int i = 0; i < 1000; ++i) {
    if (btvirt->process_ < 0 || ::waitpid(btvirt->process_, nullptr, WNOHANG) != 0) break;
    if (connectTo(btvirt->socketPath())) return btvirt;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  whyNot = "btvirt does not start";
  return nullptr;
}

Btvirt::~Btvirt() {
  if (process_ > 0) {
    ::kill(process_, SIGTERM);
    ::waitpid(process_, nullptr, 0);
  }
  std::filesystem::remove_all(folder_);
}

BtvirtAdvertiser::BtvirtAdvertiser(const Btvirt& btvirt) : line_(connectTo(btvirt.socketPath())) {
  command(opcode::kReset, {});
  command(opcode::kSetEventMask, parameters({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x1F, 0, 0x20}));
  // 100 ms, non-connectable, public address, all channels.
  command(kLESetAdvertisingParameters, parameters({0xA0, 0, 0xA0, 0, 3, 0, 0, 0, 0, 0, 0, 0, 0, 7, 0}));
}

void BtvirtAdvertiser::advertise(DataView data) {
  command(kLESetAdvertiseEnable, parameters({0}));
  Data content(32);
  content[0] = static_cast<std::byte>(data.size());
  std::copy(data.begin(), data.end(), content.begin() + 1);
  command(kLESetAdvertisingData, content);
  command(kLESetAdvertiseEnable, parameters({1}));
}

void BtvirtAdvertiser::command(uint16_t opcode, DataView parameters) {
  const Data packet = commandPacket(opcode, parameters);
  if (::write(line_.get(), packet.data(), packet.size()) < 0) throw std::runtime_error("btvirt hung up");
  H4Decoder decoder;
  std::array<std::byte, 512> buffer{};
  for (bool answered = false; !answered;) {
    const ssize_t count = ::read(line_.get(), buffer.data(), buffer.size());
    if (count <= 0) throw std::runtime_error("btvirt hung up");
    decoder.feed(DataView(buffer).first(static_cast<std::size_t>(count)), [&](DataView event) {
      if (octetAt(event, 1) != event::kCommandComplete && octetAt(event, 1) != event::kCommandStatus) return;
      const auto answer = CommandAnswer::read(event);
      answered = answered || (answer && answer->opcode == opcode);
    });
  }
}

}  // namespace support

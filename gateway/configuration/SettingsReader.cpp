#include "gateway/configuration/SettingsReader.h"

#include <cerrno>
#include <optional>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

namespace brenloft {
namespace {

constexpr std::size_t kLargestFile = 1'048'576;

std::string reasonOf(int error) {
  return std::generic_category().message(error);
}

// What the descriptor gives, or why it gives nothing.
std::string readOpened(int descriptor, std::string& text) {
  struct stat about {};
  if (::fstat(descriptor, &about) != 0) return reasonOf(errno);
  // A pipe would be waited for and is empty the second time; a device such as /dev/null is a way to say
  // "none".
  if (!S_ISREG(about.st_mode) && !S_ISCHR(about.st_mode)) return "it is not a file";
  char chunk[16'384];
  while (true) {
    const ssize_t count = ::read(descriptor, chunk, sizeof chunk);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return reasonOf(errno);
    if (count == 0) return {};
    text.append(chunk, static_cast<std::size_t>(count));
    if (text.size() > kLargestFile) return "it is too large for a settings file";
  }
}

}  // namespace

SettingsReader::SettingsReader(std::filesystem::path file, Absence absence, CommandVocabulary vocabulary)
    : file_(std::move(file)), absence_(absence), vocabulary_(std::move(vocabulary)) {}

SettingsReader::Outcome SettingsReader::read() const {
  std::string text;
  const int descriptor = ::open(file_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  const bool isAbsent = descriptor < 0 && (errno == ENOENT || errno == ENOTDIR);
  if (isAbsent && absence_ == Absence::isAllowed) return {.settings = std::make_shared<Settings>()};
  const std::string reason = descriptor < 0 ? reasonOf(errno) : readOpened(descriptor, text);
  if (descriptor >= 0) ::close(descriptor);
  if (!reason.empty()) return {.complaints = {fmt::format("{}: {}", file_.string(), reason)}};

  auto parsed = parseSettings(text, vocabulary_);
  if (auto* settings = std::get_if<Settings>(&parsed))
    return {.settings = std::make_shared<Settings>(std::move(*settings)), .text = std::move(text)};
  Outcome outcome;
  for (const Complaint& one : std::get<std::vector<Complaint>>(parsed))
    outcome.complaints.push_back(fmt::format("{}:{}: {}", file_.string(), one.line, one.reason));
  return outcome;
}

}  // namespace brenloft

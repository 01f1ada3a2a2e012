#include <array>
#include <cerrno>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include "BrenloftSDK/BRLCoreDataManager.h"
#include "BrenloftSDK/BRLDataManager.h"
#include "platform/Platform.h"
#include "platform/foundation/Hex.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/JsonLine.h"
#include "tools/brenloft/Output.h"
#include "tools/brenloft/Store.h"
#include "tools/brenloft/Texts.h"

namespace brenloft {
namespace {

using Manager = BRLDataManager::Class;

[[noreturn]] void failToRead(const std::string& name) {
  throw Failure(ExitStatus::failed, fmt::format("{}: {}", name, std::generic_category().message(errno)));
}

std::string octetsFrom(int descriptor, const std::string& name) {
  std::string octets;
  std::array<char, 65'536> buffer;
  while (true) {
    const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
    if (count == 0) return octets;
    if (count > 0)
      octets.append(buffer.data(), static_cast<std::size_t>(count));
    else if (errno != EINTR)
      failToRead(name);
  }
}

std::string octetsOf(const std::string& file) {
  if (file.empty()) return octetsFrom(STDIN_FILENO, "standard input");
  const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) failToRead(file);
  std::string octets = octetsFrom(descriptor, file);
  ::close(descriptor);
  return octets;
}

void set(const std::string& key, std::string_view octets) {
  Manager::setBeaconTagWithData_key(platform::viewOf(octets), key);
}

// What the library tells is nothing when the store cannot be read, and a list without tags when there are
// none.
BRLDataManager::Tags allTags() {
  std::optional<BRLDataManager::Tags> all;
  Manager::getBeaconTagListWithCompletionBlock([&](const auto& tags) { all = tags; });
  if (!all)
    throw Failure(ExitStatus::storeUnusable,
                  BRLCoreDataManager::Class::storeFile().string() + ": the tags cannot be read");
  return *all;
}

void get(const TagOptions& options) {
  std::optional<platform::Data> found;
  // Found, it is here when the call returns; otherwise nothing comes later.
  if (storeIn(options.container)) {
    Manager::getBeaconTag_completionBlock(options.key, [&](auto data) { found = std::move(data); });
    if (!found) allTags();
  }
  if (!found) throw Failure(ExitStatus::failed, fmt::format("no tag under the key {}", options.key));
  Output out(Output::Buffering::blocks);
  out.write(platform::textOf(*found));
  out.finish();
}

void list(const TagOptions& options) {
  const auto tags = storeIn(options.container) ? allTags() : BRLDataManager::Tags();
  Output out(Output::Buffering::blocks);
  JsonLine line;
  if (options.format == Format::table) out.write(fmt::format("{:>8}  {}\n", "octets", "key"));
  for (const auto& tag : tags) {
    const platform::Data data = tag->userData().value_or(platform::Data());
    if (options.format == Format::table) {
      out.write(fmt::format("{:>8}  {}\n", data.size(), printable(tag->uuid().value_or("-"))));
      continue;
    }
    line.beginObject()
        .key("key")
        .textOrNull(tag->uuid())
        .key("data")
        .text(platform::hexText(data))
        .endObject();
    out.write(line.take());
  }
  out.finish();
}

void clear(const TagOptions& options) {
  // Clearing nothing would make a store where there is none.
  const bool isEmpty = !storeIn(options.container) || allTags().empty();
  if (!confirmed("Delete every tag?", options.yes) || isEmpty) return;
  Manager::clearBeaconTag();
  // Left alone, the deletion would end with this process.
  Manager::shareInstance()->coreDataManager()->saveContext();
}

}  // namespace

ExitStatus runTag(const TagOptions& options) {
  // Before anything is made, so that bad input changes nothing.
  const bool isSet = options.action == TagOptions::Action::set;
  const std::string octets = isSet ? octetsOf(options.file) : std::string();
  installForStore(options.container);
  switch (options.action) {
    case TagOptions::Action::set:
      set(options.key, octets);
      break;
    case TagOptions::Action::get:
      get(options);
      break;
    case TagOptions::Action::list:
      list(options);
      break;
    case TagOptions::Action::clear:
      clear(options);
      break;
  }
  return ExitStatus::done;
}

}  // namespace brenloft

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include "BrenloftSDK/BRLDataManager.h"
#include "platform/Platform.h"
#include "platform/foundation/Hex.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/JsonLine.h"
#include "tools/brenloft/Output.h"
#include "tools/brenloft/Store.h"
#include "tools/brenloft/TagReader.h"
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

std::vector<StoredTag> tagsIn(const TagOptions& options) {
  const auto store = storeIn(options.container);
  return store ? readTags(*store) : std::vector<StoredTag>();
}

void get(const TagOptions& options) {
  const auto tags = tagsIn(options);
  const auto found = std::ranges::find(tags, options.key, &StoredTag::key);
  if (found == tags.end())
    throw Failure(ExitStatus::failed, fmt::format("no tag under the key {}", options.key));
  Output out(Output::Buffering::blocks);
  out.write(platform::textOf(found->data));
  out.finish();
}

void list(const TagOptions& options) {
  const auto tags = tagsIn(options);
  Output out(Output::Buffering::blocks);
  JsonLine line;
  if (options.format == Format::table) out.write(fmt::format("{:>8}  {}\n", "octets", "key"));
  for (const auto& tag : tags) {
    if (options.format == Format::table) {
      out.write(fmt::format("{:>8}  {}\n", tag.data.size(), printable(tag.key.value_or("-"))));
      continue;
    }
    line.beginObject()
        .key("key")
        .textOrNull(tag.key)
        .key("data")
        .text(platform::hexText(tag.data))
        .endObject();
    out.write(line.take());
  }
  out.finish();
}

void clear(const TagOptions& options) {
  // Clearing nothing would make a store where there is none.
  const bool isEmpty = tagsIn(options).empty();
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

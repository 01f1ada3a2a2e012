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
#include <sys/stat.h>
#include <unistd.h>

#include "BrenloftSDK/BRLDataManager.h"
#include "gateway/Texts.h"
#include "platform/Platform.h"
#include "platform/coredata/NSPersistentStoreCoordinator.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/JsonLine.h"
#include "tools/brenloft/Output.h"
#include "tools/brenloft/Store.h"
#include "tools/brenloft/TagReader.h"

namespace brenloft {
namespace {

using Manager = BRLDataManager::Class;

[[noreturn]] void failToRead(const std::string& name) {
  throw Failure(ExitStatus::failed, fmt::format("{}: {}", name, std::generic_category().message(errno)));
}

void refuseTooLong(const std::string& name, uint64_t size, std::size_t most) {
  if (size > most)
    throw Failure(ExitStatus::failed,
                  fmt::format("{}: a tag under this key has {} octets at most", name, most));
}

std::string octetsFrom(int descriptor, const std::string& name, std::size_t most) {
  struct stat status {};
  if (::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode))
    refuseTooLong(name, static_cast<uint64_t>(status.st_size), most);
  std::string octets;
  std::array<char, 65'536> buffer;
  while (true) {
    const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
    if (count == 0) return octets;
    if (count > 0)
      octets.append(buffer.data(), static_cast<std::size_t>(count));
    else if (errno != EINTR)
      failToRead(name);
    refuseTooLong(name, octets.size(), most);
  }
}

std::string octetsOf(const std::string& file, std::size_t most) {
  if (file.empty()) return octetsFrom(STDIN_FILENO, "standard input", most);
  const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) failToRead(file);
  std::string octets = octetsFrom(descriptor, file, most);
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
  const std::string absent = fmt::format("no tag under the key {}", options.key);
  if (!storeIn(options.container))
    throw Failure(ExitStatus::failed,
                  fmt::format("{}: no store in {}", absent, folderOfContainer(options.container).string()));
  const auto tags = tagsIn(options);
  const auto found = std::ranges::find(tags, options.key, &StoredTag::key);
  if (found == tags.end()) throw Failure(ExitStatus::failed, absent);
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
    line.beginObject().plainKey("key").textOrNull(tag.key).plainKey("data").hex(tag.data).endObject();
    out.write(line.take());
  }
  out.finish();
  if (tags.empty()) printEmpty("no tags", options.container);
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
  const std::size_t most = platform::NSSQLiteMaximumObjectSize - options.key.size();
  const std::string octets = isSet ? octetsOf(options.file, most) : std::string();
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
  printSettingsProblems();
  return ExitStatus::done;
}

}  // namespace brenloft

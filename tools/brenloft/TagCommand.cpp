#include <cerrno>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <system_error>

#include <fmt/format.h>

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

std::string octetsOf(const std::string& file) {
  const auto all = [](std::istream& in) {
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  };
  if (file.empty()) return all(std::cin);
  errno = 0;
  std::ifstream in(file, std::ios::binary);
  std::string octets = in ? all(in) : std::string();
  if (!in || in.bad() || errno != 0)
    throw Failure(ExitStatus::failed,
                  fmt::format("{}: {}", file, std::generic_category().message(errno == 0 ? EIO : errno)));
  return octets;
}

void set(const TagOptions& options) {
  const std::string octets = octetsOf(options.file);
  Manager::setBeaconTagWithData_key(platform::viewOf(std::string_view(octets)), options.key);
}

void get(const TagOptions& options) {
  std::optional<platform::Data> found;
  // Found, it is here when the call returns; otherwise nothing comes later.
  Manager::getBeaconTag_completionBlock(options.key, [&](auto data) { found = std::move(data); });
  if (!found) throw Failure(ExitStatus::failed, fmt::format("no tag under the key {}", options.key));
  Output out(Output::Buffering::blocks);
  out.write(platform::textOf(*found));
  out.finish();
}

void list(const TagOptions& options) {
  Output out(Output::Buffering::blocks);
  JsonLine line;
  if (options.format == Format::table) out.write(fmt::format("{:>8}  {}\n", "octets", "key"));
  Manager::getBeaconTagListWithCompletionBlock([&](const std::optional<BRLDataManager::Tags>& tags) {
    if (!tags) return;
    for (const auto& tag : *tags) {
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
  });
  out.finish();
}

void clear(const TagOptions& options) {
  if (!confirmed("Delete every tag?", options.yes)) return;
  Manager::clearBeaconTag();
  // Left alone, the deletion would end with this process.
  Manager::shareInstance()->coreDataManager()->saveContext();
}

}  // namespace

ExitStatus runTag(const TagOptions& options) {
  installForStore(options.container);
  requireStore();
  switch (options.action) {
    case TagOptions::Action::set:
      set(options);
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

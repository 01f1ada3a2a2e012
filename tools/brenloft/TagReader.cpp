#include "tools/brenloft/TagReader.h"

#include "BrenloftSDK/BRLCoreDataManager.h"
#include "platform/coredata/StoreReader.h"
#include "tools/brenloft/ExitStatus.h"

namespace brenloft {
namespace {

StoredTag tagFrom(const platform::NSEntityDescription& entity, const platform::StoredRow& row) {
  StoredTag tag;
  const auto value = [&](std::string_view name) { return row.values[*entity.indexOfAttribute(name)]; };
  const auto key = value("uuid");
  if (const auto* text = std::get_if<std::string_view>(&key)) tag.key = *text;
  const auto data = value("userData");
  if (const auto* octets = std::get_if<platform::DataView>(&data)) tag.data = platform::toData(*octets);
  return tag;
}

}  // namespace

std::vector<StoredTag> readTags(const std::filesystem::path& store) {
  const auto refuse = [&](const platform::Error& error) {
    throw Failure(ExitStatus::storeUnusable, error.in(store.string()).text);
  };
  const auto opened = platform::StoreReader::open(BRLCoreDataManager::Class::serviceModel(), store);
  if (!opened) refuse(opened.error());
  platform::StoreReader& reader = **opened;
  const auto& entity = *reader.model().entityNamed("BRLUserDataModel");
  std::vector<StoredTag> tags;
  const auto add = [&](const platform::StoredRow& row) { return tags.push_back(tagFrom(entity, row)), true; };
  if (!reader.rowsAfter(entity, 0, add)) refuse({.text = "the tags cannot be read"});
  return tags;
}

}  // namespace brenloft

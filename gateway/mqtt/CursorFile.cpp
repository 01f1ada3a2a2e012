#include "gateway/mqtt/CursorFile.h"

#include <cstdint>
#include <string>

#include "platform/foundation/FolderAccess.h"
#include "platform/foundation/SettingsFile.h"

namespace brenloft {
namespace {

using platform::Error;
using platform::NSNumber;

constexpr const char* kStore = "store";
constexpr const char* kUrgent = "urgent";
constexpr const char* kCalm = "calm";
constexpr const char* kBatches = "batches";

}  // namespace

platform::Result<Cursor> CursorFile::read() const {
  const platform::StoredSettings stored = platform::readSettings(file_);
  if (!stored.problem.empty()) return Error{Error::Kind::failed, stored.problem};
  if (stored.values.empty()) return Error{Error::Kind::absent, "nothing was published yet"};
  const auto* store = platform::find<std::string>(stored.values, kStore);
  const auto* urgent = platform::find<NSNumber>(stored.values, kUrgent);
  const auto* calm = platform::find<NSNumber>(stored.values, kCalm);
  const auto* batches = platform::find<NSNumber>(stored.values, kBatches);
  if (store == nullptr || urgent == nullptr || calm == nullptr || batches == nullptr)
    return Error{Error::Kind::failed, "it does not say how far the history was published"};
  return Cursor{*store, urgent->integerValue(), calm->integerValue(), batches->integerValue()};
}

platform::Result<> CursorFile::write(const Cursor& cursor) const {
  const platform::Dictionary values{{kStore, cursor.store},
                                    {kUrgent, NSNumber(cursor.urgent)},
                                    {kCalm, NSNumber(cursor.calm)},
                                    {kBatches, NSNumber(cursor.batches)}};
  const auto error = platform::writeSettings(file_, values, platform::FolderAccess::ownerOnly);
  if (error) return Error{Error::Kind::failed, error.message()};
  return {};
}

}  // namespace brenloft

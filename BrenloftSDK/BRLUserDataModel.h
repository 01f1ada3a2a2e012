#pragma once

#include <optional>
#include <string>

#include "platform/coredata/NSManagedObject.h"
#include "platform/foundation/Export.h"
#include "platform/foundation/TextArgument.h"

/// A tag: data that the application attached to a beacon, under a key of its choice. Several tags may have
/// the same key. Thread safety: as NSManagedObject.
class BRL_EXPORT BRLUserDataModel : public platform::NSManagedObject {
 public:
  std::optional<platform::Data> userData() const { return stored<platform::Data>({"userData", 0}); }
  void setUserData(std::optional<platform::Data> data) { setStored(std::move(data), {"userData", 0}); }
  /// The key.
  std::optional<std::string> uuid() const { return stored<std::string>({"uuid", 1}); }
  void setUuid(platform::TextArgument uuid) { setStored(std::move(uuid.text), {"uuid", 1}); }
};

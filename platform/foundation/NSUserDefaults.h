#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/foundation/Export.h"
#include "platform/foundation/FolderAccess.h"
#include "platform/foundation/NSLog.h"
#include "platform/foundation/Value.h"

namespace platform {

/// A persistent store of small settings, key texts to values.
///
/// Threads: every operation may be called from any thread.
/// Implementers: `synchronize` returns once everything set before is in storage; a reader never sees half of
/// a value. What cannot be stored is logged once and kept in memory.
class BRL_EXPORT NSUserDefaults {
 public:
  virtual ~NSUserDefaults() = default;

  virtual std::optional<Value> objectForKey(std::string_view key) const = 0;
  virtual void setObject_forKey(Value value, std::string_view key) = 0;
  void setObject_forKey(std::nullptr_t, std::string_view key) = delete;
  virtual void removeObjectForKey(std::string_view key) = 0;
  /// True when everything set so far has reached the storage.
  virtual bool synchronize() = 0;

  /// 0.0 when the key is absent or holds no number; a text gives the number at its start.
  double doubleForKey(std::string_view key) const;
  void setDouble_forKey(double value, std::string_view key);
  /// False when the key is absent or holds no number.
  bool boolForKey(std::string_view key) const;
  void setBool_forKey(bool value, std::string_view key);
};

/// Settings that live as long as the object.
BRL_EXPORT std::shared_ptr<NSUserDefaults> makeInMemoryUserDefaults();

/// Settings in one JSON file. A change is written to a new file that then takes the old one's name, so that a
/// kill at any moment leaves either the old settings or the new ones. Several processes may share the file: a
/// change is applied to what it holds by then, key by key; others' changes are seen after the next own one.
/// An unreadable file counts as empty, with one line in the log; the first change sets it aside under its
/// name and ".bad". A failure to write is logged once.
BRL_EXPORT std::shared_ptr<NSUserDefaults> makeFileUserDefaults(std::filesystem::path file, LogSink log = {},
                                                                FolderAccess access = FolderAccess::byUmask);

}  // namespace platform

#include <map>
#include <mutex>
#include <utility>

#include "platform/foundation/NSUserDefaults.h"
#include "platform/foundation/SettingsFile.h"

namespace platform {
namespace {

class FileUserDefaults final : public NSUserDefaults {
 public:
  FileUserDefaults(std::filesystem::path file, LogSink log, FolderAccess access)
      : file_(std::move(file)), log_(std::move(log)), access_(access) {
    StoredSettings stored = readSettings(file_);
    values_ = std::move(stored.values);
    if (!stored.problem.empty() && log_)
      log_("settings cannot be read: " + file_.string() + ": " + stored.problem);
  }

  std::optional<Value> objectForKey(std::string_view key) const override;
  void setObject_forKey(Value value, std::string_view key) override { change(key, std::move(value)); }
  void removeObjectForKey(std::string_view key) override { change(key, std::nullopt); }
  bool synchronize() override;

 private:
  // What a key is to become; nothing removes it.
  using Changes = std::map<std::string, std::optional<Value>, std::less<>>;

  static void apply(const Changes& changes, Dictionary& values);
  void change(std::string_view key, std::optional<Value> value);
  std::error_code setAside() const;
  std::error_code store();

  const std::filesystem::path file_;
  const LogSink log_;
  const FolderAccess access_;
  std::mutex storing_;  // taken before mutex_
  mutable std::mutex mutex_;
  Dictionary values_;           // guarded by mutex_
  Changes pending_;             // guarded by mutex_
  bool failureLogged_ = false;  // guarded by mutex_
};

std::optional<Value> FileUserDefaults::objectForKey(std::string_view key) const {
  const std::scoped_lock lock(mutex_);
  const auto known = values_.find(key);
  if (known == values_.end()) return std::nullopt;
  return known->second;
}

void FileUserDefaults::change(std::string_view key, std::optional<Value> value) {
  {
    const std::scoped_lock lock(mutex_);
    const auto& kept = pending_.insert_or_assign(std::string(key), std::move(value)).first;
    apply({*kept}, values_);
  }
  synchronize();
}

void FileUserDefaults::apply(const Changes& changes, Dictionary& values) {
  for (const auto& [key, value] : changes) {
    if (value)
      values.insert_or_assign(key, *value);
    else
      values.erase(key);
  }
}

bool FileUserDefaults::synchronize() {
  const std::error_code error = store();
  if (!error) return true;
  {
    const std::scoped_lock lock(mutex_);
    if (std::exchange(failureLogged_, true)) return false;
  }
  if (log_) log_("settings cannot be stored: " + file_.string() + ": " + error.message());
  return false;
}

// Somebody's slip of the pen must not cost them the rest of their settings.
std::error_code FileUserDefaults::setAside() const {
  std::filesystem::path aside = file_;
  aside += ".bad";
  std::error_code error;
  std::filesystem::rename(file_, aside, error);
  if (!error && log_) log_("settings that cannot be read are kept as " + aside.string());
  return error;
}

std::error_code FileUserDefaults::store() {
  const std::scoped_lock storing(storing_);
  Changes changes;
  {
    const std::scoped_lock lock(mutex_);
    if (pending_.empty()) return {};
    changes.swap(pending_);
  }
  const SettingsLock others(file_, access_);
  const StoredSettings stored = readSettings(file_);
  Dictionary settings = stored.values;
  apply(changes, settings);
  std::error_code error;
  if (!stored.problem.empty()) error = setAside();
  if (!error && settings != stored.values) error = writeSettings(file_, settings, access_);
  const std::scoped_lock lock(mutex_);
  if (error) {
    pending_.merge(changes);  // what was changed again meanwhile stays
  } else {
    values_ = std::move(settings);
    apply(pending_, values_);
  }
  return error;
}

}  // namespace

std::shared_ptr<NSUserDefaults> makeFileUserDefaults(std::filesystem::path file, LogSink log,
                                                     FolderAccess access) {
  return std::make_shared<FileUserDefaults>(std::move(file), std::move(log), access);
}

}  // namespace platform

#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "BrenloftSDK/BRLCoreDataManager.h"
#include "BrenloftSDK/BRLDataModel.h"
#include "BrenloftSDK/BRLUserDataModel.h"
#include "platform/foundation/Data.h"
#include "platform/foundation/Export.h"
#include "platform/foundation/TextArgument.h"

template <class Receiver>
struct BRLDataManagerClassOperations;

/// The sensor log and the tags, kept in the store of BRLCoreDataManager.
///
/// Every completion block may be absent (an empty function). Unless said otherwise it runs on the calling
/// thread before the operation returns, with no lock held, and an exception that leaves it reaches the
/// caller.
///
/// Reads, deletions and logging take turns. So a select of a large log holds up the logging, and with it the
/// scan, until the log is read. SensorLogReader, in this process or another, holds up nobody.
///
/// Thread safety: every operation may be called from any thread. A record is inserted, filled and saved as
/// one step; a select, a count and a deletion see whole records only.
class BRL_EXPORT BRLDataManager {
 public:
  struct Class;
  using Records = std::vector<std::shared_ptr<BRLBeaconDataModel>>;
  using Tags = std::vector<std::shared_ptr<BRLUserDataModel>>;
  using RecordsBlock = std::function<void(std::optional<Records> records)>;
  using DataBlock = std::function<void(std::optional<platform::Data> data)>;
  using CountBlock = std::function<void(uint64_t count)>;
  using TagsBlock = std::function<void(std::optional<Tags> tags)>;

  /// -[BRLDataManager init]
  BRLDataManager();
  virtual ~BRLDataManager() = default;
  BRLDataManager(const BRLDataManager&) = delete;
  BRLDataManager& operator=(const BRLDataManager&) = delete;

  /// -[BRLDataManager load]
  /// Attaches the shared store owner.
  void load();

  /// -[BRLDataManager loggingForSensor:]
  /// Writes the record as one row and saves it at once, whatever `isLogSave` says. A save that fails ends the
  /// process. Without a store owner it throws platform::NSInvalidArgumentException.
  void loggingForSensor(const BRLBeaconDataModel& record);

  /// -[BRLDataManager selectBeaconLogAllWithCompletionBlock:]
  /// The whole log as records, oldest first, each with its date as text "yyyy-MM-dd HH:mm:ss" in local time.
  /// A row's values behind its first absent one are missing (order: BRLBeaconSnapshot, but status and date
  /// right behind rssi). For an empty or unreadable log the block gets nothing, later, on the main queue.
  void selectBeaconLogAllWithCompletionBlock(RecordsBlock completion);
  /// -[BRLDataManager selectBeaconLogAllJSONWithCompletionBlock:]
  /// The same as a pretty-printed JSON document (RFC 8259): an array of objects, dates as "yyyyMMddHHmmss".
  /// Octets of a text that are not UTF-8 come out as U+FFFD.
  void selectBeaconLogAllJSONWithCompletionBlock(DataBlock completion);
  /// -[BRLDataManager selectBeaconLogAllCountWithCompletionBlock:]
  /// The number of rows. The block gets it before the operation returns, also when it is 0.
  void selectBeaconLogAllCountWithCompletionBlock(const CountBlock& completion);
  /// -[BRLDataManager deleteBeaconLog]
  /// Deletes every row and saves.
  void deleteBeaconLog();

  /// -[BRLDataManager setBeaconTagWithData:key:]
  /// Adds a tag and saves. Earlier tags of the key stay. Fails as `loggingForSensor` does.
  void setBeaconTagWithData_key(std::optional<platform::DataView> data, platform::TextArgument key);
  /// -[BRLDataManager getBeaconTag:completionBlock:]
  /// The data of the oldest tag of the key; an absent key is a key, too. Without such a tag the block gets
  /// nothing, later, on the main queue.
  void getBeaconTag_completionBlock(platform::TextArgument key, DataBlock completion);
  /// -[BRLDataManager getBeaconTagListWithCompletionBlock:]
  /// All tags, oldest first: the store's own objects. Nothing when the store cannot be read.
  void getBeaconTagListWithCompletionBlock(const TagsBlock& completion);
  /// -[BRLDataManager clearBeaconTag]
  /// Deletes every tag. The next save of anything else writes that to the store.
  void clearBeaconTag();

  // -[BRLDataManager isLogSave]
  bool isLogSave() const { return isLogSave_.load(std::memory_order_relaxed); }
  void setIsLogSave(bool isLogSave) { isLogSave_.store(isLogSave, std::memory_order_relaxed); }
  // -[BRLDataManager coreDataManager], not owned.
  BRLCoreDataManager* coreDataManager() const { return coreDataManager_.load(std::memory_order_acquire); }
  void setCoreDataManager(BRLCoreDataManager* manager) {
    coreDataManager_.store(manager, std::memory_order_release);
  }

 protected:
  /// What `shareInstance` does for any receiving class: the one instance of the process, made by the first
  /// caller's `allocInit`; whoever asks meanwhile waits for it.
  static BRLDataManager* shareInstanceOfClass(BRLDataManager* (*allocInit)());

 private:
  std::shared_ptr<platform::NSManagedObjectContext> context() const;

  std::atomic<bool> isLogSave_{false};
  std::atomic<BRLCoreDataManager*> coreDataManager_{nullptr};
};

/// The class operations, each sent on to the instance operation of the same name of `Receiver::Class`'s
/// `shareInstance`; `Receiver::Class` derives from this.
template <class Receiver>
struct BRLDataManagerClassOperations {
  using Base = BRLDataManager;

  // +[BRLDataManager selectBeaconLogAllWithCompletionBlock:]
  static void selectBeaconLogAllWithCompletionBlock(Base::RecordsBlock completion) {
    instance().selectBeaconLogAllWithCompletionBlock(std::move(completion));
  }
  // +[BRLDataManager selectBeaconLogAllJSONWithCompletionBlock:]
  static void selectBeaconLogAllJSONWithCompletionBlock(Base::DataBlock completion) {
    instance().selectBeaconLogAllJSONWithCompletionBlock(std::move(completion));
  }
  // +[BRLDataManager selectBeaconLogAllCountWithCompletionBlock:]
  static void selectBeaconLogAllCountWithCompletionBlock(const Base::CountBlock& completion) {
    instance().selectBeaconLogAllCountWithCompletionBlock(completion);
  }
  // +[BRLDataManager deleteBeaconLog]
  static void deleteBeaconLog() { instance().deleteBeaconLog(); }
  // +[BRLDataManager setBeaconTagWithData:key:]
  static void setBeaconTagWithData_key(std::optional<platform::DataView> data, platform::TextArgument key) {
    instance().setBeaconTagWithData_key(data, std::move(key));
  }
  // +[BRLDataManager getBeaconTag:completionBlock:]
  static void getBeaconTag_completionBlock(platform::TextArgument key, Base::DataBlock completion) {
    instance().getBeaconTag_completionBlock(std::move(key), std::move(completion));
  }
  // +[BRLDataManager getBeaconTagListWithCompletionBlock:]
  static void getBeaconTagListWithCompletionBlock(const Base::TagsBlock& completion) {
    instance().getBeaconTagListWithCompletionBlock(completion);
  }
  // +[BRLDataManager clearBeaconTag]
  static void clearBeaconTag() { instance().clearBeaconTag(); }

 private:
  static BRLDataManager& instance() { return *Receiver::Class::shareInstance(); }
};

struct BRLDataManager::Class : BRLDataManagerClassOperations<BRLDataManager> {
  /// +[BRLDataManager shareInstance]
  /// Made on first use; lives to the end of the process.
  BRL_EXPORT static BRLDataManager* shareInstance();
};

#include "BrenloftSDK/BRLDataManager.h"

#include <utility>

#include "BrenloftSDK/SensorLog.h"
#include "BrenloftSDK/SensorLogJSON.h"
#include "BrenloftSDK/SensorLogRecords.h"
#include "platform/Platform.h"

using platform::Data;
using platform::NSEntityDescription;
using platform::NSFetchRequest;
using platform::NSManagedObjectContext;

namespace {

constexpr std::string_view kSensorLog = "SensorLog";
constexpr std::string_view kTag = "BRLUserDataModel";

const NSFetchRequest& allReadings() {
  static const auto& request = *new auto(NSFetchRequest::fetchRequestWithEntityName(kSensorLog));
  return request;
}

const NSEntityDescription& sensorLogOf(const NSManagedObjectContext& context) {
  return *context.persistentStoreCoordinator()->managedObjectModel()->entityNamed(kSensorLog);
}

void appendPiece(Data& document, std::string_view piece) {
  const auto octets = platform::viewOf(piece);
  document.insert(document.end(), octets.begin(), octets.end());
}

template <typename Block>
void deliverNothingLater(Block completion) {
  platform::Platform::installed().dispatch->mainQueue()->async([completion = std::move(completion)] {
    if (completion) completion(std::nullopt);
  });
}

}  // namespace

BRLDataManager::BRLDataManager() {
  load();
}

void BRLDataManager::load() {
  setCoreDataManager(BRLCoreDataManager::Class::sharedManager());
}

BRLDataManager* BRLDataManager::Class::shareInstance() {
  return shareInstanceOfClass([] { return new BRLDataManager; });
}

BRLDataManager* BRLDataManager::shareInstanceOfClass(BRLDataManager* (*allocInit)()) {
  static BRLDataManager* const shared = allocInit();
  return shared;
}

std::shared_ptr<NSManagedObjectContext> BRLDataManager::context() const {
  BRLCoreDataManager* manager = coreDataManager();
  return manager != nullptr ? manager->managedObjectContext() : nullptr;
}

void BRLDataManager::loggingForSensor(const BRLBeaconDataModel& record) {
  const auto context = this->context();
  if (!context) throw platform::NSInvalidArgumentException("there is no context to log into");
  context->performBlockAndWait([&] {
    const auto row = NSEntityDescription::insertNewObjectForEntityForName_inManagedObjectContext(
        kSensorLog, context.get());
    dynamic_cast<SensorLog&>(*row).fill(record.snapshot());
    coreDataManager()->saveContext();
  });
}

void BRLDataManager::selectBeaconLogAllWithCompletionBlock(RecordsBlock completion) {
  Records records;
  platform::Result<> read;
  if (const auto context = this->context()) {
    SensorLogRecords rows(sensorLogOf(*context));
    read = context->enumerateRows(allReadings(), [&](const platform::StoredRow& row) {
      records.push_back(rows.recordOf(row));
      return true;
    });
  }
  if (!read || records.empty()) return deliverNothingLater(std::move(completion));
  if (completion) completion(std::move(records));
}

void BRLDataManager::selectBeaconLogAllJSONWithCompletionBlock(DataBlock completion) {
  Data document;
  platform::Result<> read;
  bool empty = true;
  if (const auto context = this->context()) {
    SensorLogJSON json(sensorLogOf(*context), [&](std::string_view piece) { appendPiece(document, piece); });
    read = context->enumerateRows(allReadings(), [&](const platform::StoredRow& row) {
      empty = false;
      json.add(row);
      return true;
    });
    json.finish();
  }
  if (!read || empty) return deliverNothingLater(std::move(completion));
  if (completion) completion(std::move(document));
}

void BRLDataManager::selectBeaconLogAllCountWithCompletionBlock(const CountBlock& completion) {
  const auto context = this->context();
  const uint64_t count = context ? context->countForFetchRequest_error(allReadings()).value_or(0) : 0;
  if (completion) completion(count);
}

void BRLDataManager::deleteBeaconLog() {
  const auto context = this->context();
  if (!context) return;
  context->performBlockAndWait([&] {
    context->deleteAllObjects(kSensorLog);
    coreDataManager()->saveContext();
  });
}

void BRLDataManager::setBeaconTagWithData_key(std::optional<platform::DataView> data,
                                              platform::TextArgument key) {
  const auto context = this->context();
  if (!context) throw platform::NSInvalidArgumentException("there is no context to put a tag into");
  context->performBlockAndWait([&] {
    const auto object =
        NSEntityDescription::insertNewObjectForEntityForName_inManagedObjectContext(kTag, context.get());
    auto& tag = dynamic_cast<BRLUserDataModel&>(*object);
    tag.setUserData(data ? std::optional(platform::toData(*data)) : std::nullopt);
    tag.setUuid(std::move(key.text));
    coreDataManager()->saveContext();
  });
}

void BRLDataManager::getBeaconTag_completionBlock(platform::TextArgument key, DataBlock completion) {
  auto request = NSFetchRequest::fetchRequestWithEntityName(kTag);
  request.setPredicate(platform::NSPredicate::predicateWithFormat("uuid = %@", std::move(key.text)));
  const auto context = this->context();
  const auto tags = context ? context->executeFetchRequest_error(request).toOptional() : std::nullopt;
  if (!tags || tags->empty()) return deliverNothingLater(std::move(completion));
  if (completion) completion(dynamic_cast<BRLUserDataModel&>(*tags->front()).userData());
}

void BRLDataManager::getBeaconTagListWithCompletionBlock(const TagsBlock& completion) {
  const auto context = this->context();
  const auto request = NSFetchRequest::fetchRequestWithEntityName(kTag);
  const auto objects = context ? context->executeFetchRequest_error(request).toOptional() : std::nullopt;
  if (!completion) return;
  if (!objects) return completion(std::nullopt);
  Tags tags;
  for (const auto& object : *objects) tags.push_back(std::static_pointer_cast<BRLUserDataModel>(object));
  completion(std::move(tags));
}

void BRLDataManager::clearBeaconTag() {
  if (const auto context = this->context()) context->deleteAllObjects(kTag);
}

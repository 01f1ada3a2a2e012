#include "platform/coredata/NSPersistentStoreCoordinator.h"

#include <utility>

#include "platform/coredata/SQLiteStore.h"

namespace platform {
namespace {

SQLiteStoreOptions optionsFrom(const Dictionary* options) {
  if (options == nullptr) return {};
  SQLiteStoreOptions result;
  const auto* ownerOnly = find<NSNumber>(*options, NSSQLiteOwnerOnlyOption);
  result.ownerOnly = ownerOnly != nullptr && ownerOnly->boolValue();
  const auto* synchronous = find<std::string>(*options, NSSQLiteSynchronousOption);
  result.synchronousFull = synchronous != nullptr && *synchronous == "FULL";
  if (synchronous == nullptr || result.synchronousFull || *synchronous == "NORMAL") return result;
  throw SQLiteFailure(0, "unknown synchronous setting " + *synchronous);
}

}  // namespace

NSPersistentStoreCoordinator::NSPersistentStoreCoordinator(std::shared_ptr<const NSManagedObjectModel> model)
    : model_(std::move(model)) {
  if (!model_) throw NSInvalidArgumentException("a coordinator needs a model");
}

NSPersistentStoreCoordinator::~NSPersistentStoreCoordinator() = default;

Result<> NSPersistentStoreCoordinator::addPersistentStoreWithType_configuration_URL_options_error(
    std::string_view type, std::optional<std::string> configuration, const std::filesystem::path& url,
    const Dictionary* options) {
  return resultOf([&] {
    if (type != NSSQLiteStoreType) throw SQLiteFailure(0, "unknown store type " + std::string(type));
    if (configuration) throw SQLiteFailure(0, "the model has no configuration " + *configuration);
    if (store_) throw SQLiteFailure(0, "there is a store already");
    store_ = std::make_unique<SQLiteStore>(*model_, url, optionsFrom(options));
  });
}

void NSPersistentStoreCoordinator::setTellWaiting(std::function<void()> tell) {
  store_->setOnWaiting(std::move(tell));
}

}  // namespace platform

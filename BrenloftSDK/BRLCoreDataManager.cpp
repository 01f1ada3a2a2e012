#include "BrenloftSDK/BRLCoreDataManager.h"

#include <cstdlib>
#include <utility>

#include "BrenloftSDK/BRLUserDataModel.h"
#include "BrenloftSDK/SensorLog.h"
#include "platform/Platform.h"

using platform::NSManagedObjectContext;
using platform::NSManagedObjectModel;
using platform::NSPersistentStoreCoordinator;
using platform::Platform;

namespace {

constexpr std::string_view kCreateOnce = "CoredataCreateOnce";
constexpr std::string_view kSynchronous = "StoreSynchronous";
constexpr std::string_view kModelName = "ServiceModel";

platform::Dictionary storeOptions() {
  const auto& services = Platform::installed();
  const bool ownerOnly = services.fileManager->folderAccess() == platform::FolderAccess::ownerOnly;
  platform::Dictionary options{
      {std::string(platform::NSSQLiteOwnerOnlyOption), platform::NSNumber(ownerOnly)}};
  const auto setting = services.userDefaults->objectForKey(kSynchronous);
  const auto* text = setting ? std::get_if<std::string>(&*setting) : nullptr;
  if (text != nullptr && (*text == "FULL" || *text == "NORMAL"))
    options.emplace(platform::NSSQLiteSynchronousOption, *text);
  else if (text != nullptr)
    platform::NSLog("StoreSynchronous is neither FULL nor NORMAL but " + *text + "; NORMAL is used");
  return options;
}

platform::Result<> addStore(NSPersistentStoreCoordinator& coordinator, const std::filesystem::path& url) {
  const auto options = storeOptions();
  return coordinator.addPersistentStoreWithType_configuration_URL_options_error(platform::NSSQLiteStoreType,
                                                                                std::nullopt, url, &options);
}

std::filesystem::path documentsDirectory() {
  using platform::NSSearchPathDirectory;
  using platform::NSSearchPathDomainMask;
  return Platform::installed()
      .fileManager
      ->URLsForDirectory_inDomains(NSSearchPathDirectory::NSDocumentDirectory,
                                   NSSearchPathDomainMask::NSUserDomainMask)
      .back();
}

// One for the whole process, whichever instance comes first.
std::once_flag& contextOnce() {
  static auto& flag = *new std::once_flag;
  return flag;
}

platform::LogSink& tellWaiting() {
  static auto& sink = *new platform::LogSink(platform::NSLog);
  return sink;
}

std::atomic<const char*> fatalText{""};

// Running without a store is worse than not running.
[[noreturn]] void endProcess(const platform::Error& error) {
  const auto* text = new std::string(error.in(BRLCoreDataManager::Class::storeFile().string()).text);
  fatalText.store(text->c_str(), std::memory_order_release);
  std::abort();
}

}  // namespace

BRLCoreDataManager::BRLCoreDataManager() {
  platform::NSLog("CoreDataManager initializing");
  auto& defaults = *Platform::installed().userDefaults;
  if (!defaults.boolForKey(kCreateOnce)) defaults.setBool_forKey(true, kCreateOnce);
}

BRLCoreDataManager* BRLCoreDataManager::sharedManagerOfClass(BRLCoreDataManager* (*allocInit)()) {
  static BRLCoreDataManager* const shared = allocInit();
  return shared;
}

std::shared_ptr<NSManagedObjectContext> BRLCoreDataManager::managedObjectContext() {
  if (contextBuilt_.load(std::memory_order_acquire)) return context_;
  platform::NSLog("QQ");  // the exact message is part of the interface, and so is the next
  std::call_once(contextOnce(), [this] { buildContext(); });
  return contextBuilt_.load(std::memory_order_acquire) ? context_ : nullptr;
}

void BRLCoreDataManager::buildContext() {
  platform::NSLog("AA");  // part of the interface, like "QQ"
  auto coordinator = persistentStoreCoordinator();
  context_ = std::make_shared<NSManagedObjectContext>();
  context_->setPersistentStoreCoordinator(std::move(coordinator));
  contextBuilt_.store(true, std::memory_order_release);
}

std::shared_ptr<NSPersistentStoreCoordinator> BRLCoreDataManager::persistentStoreCoordinator() {
  const std::scoped_lock lock(mutex_);
  platform::NSLog("-[BRLCoreDataManager persistentStoreCoordinator]");
  if (coordinator_) return coordinator_;
  coordinator_ = std::make_shared<NSPersistentStoreCoordinator>(managedObjectModel());
  const auto file = Class::storeFile();
  if (const auto added = addStore(*coordinator_, file); !added) endProcess(added.error());
  coordinator_->setTellWaiting(
      [line = file.string() + ": another process is writing; waiting for it"] { tellWaiting()(line); });
  return coordinator_;
}

std::shared_ptr<const NSManagedObjectModel> BRLCoreDataManager::managedObjectModel() {
  const std::scoped_lock lock(mutex_);
  if (!model_) model_ = Class::serviceModel();
  return model_;
}

std::filesystem::path BRLCoreDataManager::applicationDocumentsDirectory() const {
  return documentsDirectory();
}

void BRLCoreDataManager::saveContext() {
  const auto context = managedObjectContext();
  if (!context) return;
  platform::Result<> saved;
  context->performBlockAndWait([&] {
    if (context->hasChanges()) saved = context->save();
  });
  if (!saved) endProcess(saved.error());
}

std::optional<BRLCoreDataManager::Objects> BRLCoreDataManager::fetch(std::string_view entityName) {
  const auto context = managedObjectContext();
  if (!context) return std::nullopt;
  const auto request = platform::NSFetchRequest::fetchRequestWithEntityName(entityName);
  return context->executeFetchRequest_error(request).toOptional();
}

const char* BRLCoreDataManager::Class::fatalProblem() noexcept {
  return fatalText.load(std::memory_order_acquire);
}

void BRLCoreDataManager::Class::setTellWaiting(platform::LogSink sink) {
  tellWaiting() = std::move(sink);
}

std::filesystem::path BRLCoreDataManager::Class::storeFile() {
  return documentsDirectory() / BRLCoreDataManager::kStoreFileName;
}

std::shared_ptr<const NSManagedObjectModel> BRLCoreDataManager::Class::serviceModel() {
  const auto& bundle = *Platform::installed().bundle;
  std::vector<std::shared_ptr<NSManagedObjectModel>> models;
  const auto url = bundle.URLForResource_withExtension(kModelName, "momd");
  models.push_back(url ? NSManagedObjectModel::initWithContentsOfURL(bundle, *url) : nullptr);
  auto model = NSManagedObjectModel::modelByMergingModels(models);
  model->setObjectMaker_forEntityName([] { return std::make_shared<SensorLog>(); }, "SensorLog");
  model->setObjectMaker_forEntityName([] { return std::make_shared<BRLUserDataModel>(); },
                                      "BRLUserDataModel");
  return model;
}

std::optional<platform::Error> BRLCoreDataManager::Class::storeProblem() {
  const auto file = storeFile();
  try {
    NSPersistentStoreCoordinator coordinator(serviceModel());
    const auto added = addStore(coordinator, file);
    return added ? std::nullopt : std::optional(added.error().in(file.string()));
  } catch (const platform::NSInvalidArgumentException& missing) {
    return platform::Error{.text = missing.what()}.in("the library's bundle");
  }
}

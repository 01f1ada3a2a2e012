#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "platform/coredata/NSManagedObjectContext.h"
#include "tests/foundation/TemporaryFolder.h"

namespace test {

/// Runs SQL on a file through SQLite itself; the rows with their columns between bars.
inline std::vector<std::string> sql(const std::filesystem::path& file, const std::string& text) {
  sqlite3* database = nullptr;
  EXPECT_EQ(sqlite3_open(file.c_str(), &database), SQLITE_OK);
  std::vector<std::string> rows;
  const auto collect = [](void* out, int count, char** values, char**) {
    std::string row;
    for (int i = 0; i < count; ++i) {
      row += (i == 0 ? "" : "|") + std::string(values[i] == nullptr ? "NULL" : values[i]);
    }
    static_cast<std::vector<std::string>*>(out)->push_back(row);
    return 0;
  };
  char* problem = nullptr;
  EXPECT_EQ(sqlite3_exec(database, text.c_str(), collect, &rows, &problem), SQLITE_OK) << problem;
  sqlite3_free(problem);
  sqlite3_close(database);
  return rows;
}

inline std::shared_ptr<platform::NSManagedObjectModel> modelOf(std::string_view text) {
  return platform::NSManagedObjectModel::initWithContents(platform::viewOf(text));
}

inline constexpr std::string_view kThings = "entity Thing\nname string\nsize integer\n";

/// Opens a store; without one, says why.
inline std::unique_ptr<platform::NSManagedObjectContext> openContext(
    const std::filesystem::path& file, std::string_view model = kThings, platform::Error* error = nullptr,
    const platform::Dictionary* options = nullptr) {
  auto coordinator = std::make_shared<platform::NSPersistentStoreCoordinator>(modelOf(model));
  const auto added = coordinator->addPersistentStoreWithType_configuration_URL_options_error(
      platform::NSSQLiteStoreType, std::nullopt, file, options);
  if (!added && error != nullptr) *error = added.error();
  if (!added) return nullptr;
  auto context = std::make_unique<platform::NSManagedObjectContext>();
  context->setPersistentStoreCoordinator(coordinator);
  return context;
}

inline std::shared_ptr<platform::NSManagedObject> insertThing(platform::NSManagedObjectContext& context,
                                                              const std::string& name) {
  auto thing = platform::NSEntityDescription::insertNewObjectForEntityForName_inManagedObjectContext(
      "Thing", &context);
  thing->setValue_forKey(name, "name");
  return thing;
}

inline std::vector<std::shared_ptr<platform::NSManagedObject>> things(
    platform::NSManagedObjectContext& context, std::optional<platform::NSPredicate> predicate = {}) {
  auto request = platform::NSFetchRequest::fetchRequestWithEntityName("Thing");
  request.setPredicate(std::move(predicate));
  return *context.executeFetchRequest_error(request);
}

inline std::vector<std::string> names(
    const std::vector<std::shared_ptr<platform::NSManagedObject>>& objects) {
  std::vector<std::string> names;
  for (const auto& object : objects) {
    const auto name = object->valueForKey("name");
    names.push_back(name ? std::get<std::string>(*name) : "NULL");
  }
  return names;
}

}  // namespace test

#include "tools/brenloft/LogLimits.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <system_error>
#include <vector>

#include "BrenloftSDK/BRLCoreDataManager.h"
#include "BrenloftSDK/SensorLog.h"
#include "platform/coredata/NSManagedObjectContext.h"

namespace brenloft {
namespace {

using Rows = std::vector<std::shared_ptr<platform::NSManagedObject>>;

constexpr std::string_view kSensorLog = "SensorLog";

// A date that is wrong because the machine did not know better.
constexpr std::chrono::hours kAhead{1};

// How many of the first rows are older. One of a wrong clock goes with the next good one.
std::size_t olderThan(const Rows& rows, platform::Date earliest, platform::Date now) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const auto date = dynamic_cast<const SensorLog&>(*rows[i]).statusUpdatedDate();
    if (date && *date < earliest)
      count = i + 1;
    else if (date && *date <= now + kAhead)
      break;
  }
  return count;
}

}  // namespace

uint64_t LogLimits::sizeOfFile() const {
  std::error_code error;
  const auto octets = std::filesystem::file_size(BRLCoreDataManager::Class::storeFile(), error);
  return error ? 0 : octets;
}

// What goes is counted by the mean size of a row.
void LogLimits::look() {
  const uint64_t octets = sizeOfFile();
  if (octets <= *bounds_.mostOctets) tolerated_ = 0;
  if (octets <= std::max(*bounds_.mostOctets, tolerated_)) return;
  const auto context = BRLCoreDataManager::Class::sharedManager()->managedObjectContext();
  const auto request = platform::NSFetchRequest::fetchRequestWithEntityName(kSensorLog);
  const auto rows = static_cast<double>(context->countForFetchRequest_error(request).value_or(0));
  const double kept = 0.9 * static_cast<double>(*bounds_.mostOctets) / static_cast<double>(octets);
  left_ = static_cast<uint64_t>(rows * (1 - kept));
  tolerated_ = octets;
}

bool LogLimits::step(platform::Date now) {
  const auto context = BRLCoreDataManager::Class::sharedManager()->managedObjectContext();
  if (!context) return false;
  if (left_ == 0 && bounds_.mostOctets) look();
  if (left_ == 0 && !bounds_.longest) return false;
  auto request = platform::NSFetchRequest::fetchRequestWithEntityName(kSensorLog);
  request.setFetchLimit(kStep);
  std::size_t count = 0;
  context->performBlockAndWait([&] {
    const auto rows = context->executeFetchRequest_error(request).value_or(Rows());
    count = std::min<uint64_t>(left_, rows.size());
    if (bounds_.longest) count = std::max(count, olderThan(rows, now - *bounds_.longest, now));
    for (std::size_t i = 0; i < count; ++i) context->deleteObject(rows[i]);
    if (count != 0) BRLCoreDataManager::Class::sharedManager()->saveContext();
    if (rows.size() < kStep) left_ = 0;
  });
  left_ -= std::min<uint64_t>(left_, count);
  deleted_ += count;
  return count == kStep;
}

}  // namespace brenloft

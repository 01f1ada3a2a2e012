#include "platform/foundation/NSFileManager.h"

#include <cstdlib>
#include <string_view>
#include <system_error>
#include <utility>

namespace platform {
namespace {

namespace fs = std::filesystem;

class OneFolder final : public NSFileManager {
 public:
  explicit OneFolder(fs::path documents) : documents_(std::move(documents)) {}

  std::vector<fs::path> URLsForDirectory_inDomains(NSSearchPathDirectory,
                                                   NSSearchPathDomainMask) const override {
    std::error_code unwritable;  // its first use says so
    fs::create_directories(documents_, unwritable);
    return {documents_};
  }

 private:
  const fs::path documents_;
};

// The XDG rules ignore a folder that is not absolute.
fs::path folderFromEnvironment(const char* name) {
  const char* value = std::getenv(name);
  fs::path folder(value == nullptr ? "" : value);
  return folder.is_absolute() ? folder : fs::path();
}

}  // namespace

std::shared_ptr<const NSFileManager> makeFileManager(fs::path documents) {
  return std::make_shared<OneFolder>(std::move(documents));
}

fs::path applicationDataFolder(std::string_view applicationName) {
  if (const fs::path data = folderFromEnvironment("XDG_DATA_HOME"); !data.empty()) {
    return data / applicationName;
  }
  if (const fs::path home = folderFromEnvironment("HOME"); !home.empty()) {
    return home / ".local" / "share" / applicationName;
  }
  return fs::path("/var/lib") / applicationName;
}

}  // namespace platform

#include "platform/foundation/NSFileManager.h"

#include <cstdlib>
#include <string_view>
#include <utility>

#include "platform/foundation/Folders.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

class OneFolder final : public NSFileManager {
 public:
  OneFolder(fs::path documents, FolderAccess access) : documents_(std::move(documents)), access_(access) {}

  std::vector<fs::path> URLsForDirectory_inDomains(NSSearchPathDirectory,
                                                   NSSearchPathDomainMask) const override {
    makeFolder(documents_, access_);
    return {documents_};
  }
  FolderAccess folderAccess() const override { return access_; }

 private:
  const fs::path documents_;
  const FolderAccess access_;
};

// The XDG rules ignore a folder that is not absolute.
fs::path folderFromEnvironment(const char* name) {
  const char* value = std::getenv(name);
  fs::path folder(value == nullptr ? "" : value);
  return folder.is_absolute() ? folder : fs::path();
}

}  // namespace

std::shared_ptr<const NSFileManager> makeFileManager(fs::path documents, FolderAccess access) {
  return std::make_shared<OneFolder>(std::move(documents), access);
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

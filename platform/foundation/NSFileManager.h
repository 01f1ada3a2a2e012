#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include "platform/foundation/Export.h"
#include "platform/foundation/FolderAccess.h"

namespace platform {

enum class NSSearchPathDirectory : int { NSDocumentDirectory = 9 };
enum class NSSearchPathDomainMask : int { NSUserDomainMask = 1 };

/// Finds the application's folders. Threads: any.
class BRL_EXPORT NSFileManager {
 public:
  virtual ~NSFileManager() = default;

  /// The folders of a kind, the preferred one last. A folder is made, with its parents, when it is asked for;
  /// one that cannot be made is named all the same, and its first use fails.
  virtual std::vector<std::filesystem::path> URLsForDirectory_inDomains(
      NSSearchPathDirectory directory, NSSearchPathDomainMask domain) const = 0;
  /// Who may read what is made there.
  virtual FolderAccess folderAccess() const { return FolderAccess::byUmask; }
};

/// Documents directly in one folder of the application's choice.
BRL_EXPORT std::shared_ptr<const NSFileManager> makeFileManager(std::filesystem::path documents,
                                                                FolderAccess access = FolderAccess::byUmask);

/// The application's data folder by the XDG Base Directory rules: `$XDG_DATA_HOME/NAME`, else
/// `$HOME/.local/share/NAME`, else `/var/lib/NAME`.
BRL_EXPORT std::filesystem::path applicationDataFolder(std::string_view applicationName);

}  // namespace platform

#include "tools/brenloft/ContainerFiles.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <string_view>
#include <system_error>

#include <fmt/format.h>

#include "BrenloftSDK/BRLCoreDataManager.h"
#include "gateway/history/HistoryWriter.h"
#include "platform/NativePlatform.h"
#include "tools/brenloft/ExitStatus.h"
#include "tools/brenloft/Store.h"

namespace brenloft {
namespace {

namespace fs = std::filesystem;

constexpr std::array kNames{BRLCoreDataManager::kStoreFileName, platform::kSettingsFileName,
                            kHistoryFileName};
// SQLite's logs, the writer's lock, and settings that were set aside.
constexpr std::array<std::string_view, 6> kEndings{"", "-wal", "-shm", "-journal", "-lock", ".bad"};

bool isSame(const fs::path& one, const fs::path& other) {
  std::error_code absent;
  return fs::equivalent(one, other, absent);
}

/// What stands beside a file has a longer name. It need not be there yet.
bool isBesideOrSame(const fs::path& file, const fs::path& own) {
  const auto isBeside = [&](const fs::path& path) {
    const std::string name = path.filename().string();
    const std::string begin = own.filename().string();
    return name.starts_with(begin) &&
           std::ranges::find(kEndings, name.substr(begin.size())) != kEndings.end();
  };
  if (isBeside(file) && isSame(file.parent_path(), own.parent_path())) return true;
  std::error_code absent;
  for (fs::directory_iterator entry(own.parent_path(), absent), end; !absent && entry != end;
       entry.increment(absent)) {
    if (isBeside(entry->path()) && isSame(entry->path(), file)) return true;  // another link to it
  }
  return false;
}

bool isOfContainer(const fs::path& file, const fs::path& folder) {
  return std::ranges::any_of(
      kNames, [&](std::string_view name) { return isBesideOrSame(file, behindLinks(folder / name)); });
}

bool isDatabase(const fs::path& file) {
  constexpr std::string_view kMagic{"SQLite format 3\0", 16};
  std::error_code absent;
  if (!fs::is_regular_file(file, absent)) return false;
  std::array<char, kMagic.size()> begin{};
  std::ifstream(file, std::ios::binary).read(begin.data(), begin.size());
  return std::string_view(begin.data(), begin.size()) == kMagic;
}

}  // namespace

fs::path behindLinks(fs::path file) {
  constexpr int kMostLinks = 40;  // as the kernel counts them
  std::error_code none;
  file = fs::absolute(file);
  for (int i = 0; i < kMostLinks && fs::is_symlink(file, none); ++i)
    file = file.parent_path() / fs::read_symlink(file, none);
  return file;
}

void refuseContainerFile(const char* option, const fs::path& file, const fs::path& container) {
  if (file.empty()) return;
  const fs::path target = behindLinks(file);
  const fs::path neighbour = target.parent_path() / BRLCoreDataManager::kStoreFileName;
  std::error_code absent;
  const bool isBesideStore = fs::exists(neighbour, absent) && isOfContainer(target, target.parent_path());
  const bool isOwn = isBesideStore || isOfContainer(target, folderOfContainer(container)) ||
                     isOfContainer(target, folderOfContainer({}));
  if (isOwn || isDatabase(target))
    throw Failure(ExitStatus::usage,
                  fmt::format("{} would overwrite {}: {}", option,
                              isOwn ? "a file of a container" : "a database", file.string()));
}

}  // namespace brenloft

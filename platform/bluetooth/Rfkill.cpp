#include "platform/bluetooth/Rfkill.h"

#include <fstream>
#include <system_error>

namespace platform {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kBlockedByHardware = "blocked by the machine's own radio switch";

std::string firstLine(const fs::path& file) {
  std::ifstream stream(file);
  std::string line;
  std::getline(stream, line);
  return line;
}

}  // namespace

std::string_view rfkillBlockOf(const std::string& adapter, const fs::path& root) {
  std::string_view why;
  std::error_code error;
  for (fs::directory_iterator it(root / "sys/class/rfkill", error), end; !error && it != end;
       it.increment(error)) {
    const fs::path& folder = it->path();
    const std::string name = firstLine(folder / "name");
    const bool isOther = name.starts_with("hci") && name != adapter;
    if (firstLine(folder / "type") != "bluetooth" || isOther) continue;
    if (firstLine(folder / "hard") == "1") return kBlockedByHardware;
    if (firstLine(folder / "soft") == "1") why = kBlockedBySoftware;
  }
  return why;
}

}  // namespace platform

#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>

namespace test {

inline std::string contentsOf(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

inline void writeFile(const std::filesystem::path& file, std::string_view contents) {
  std::ofstream(file, std::ios::binary) << contents;
}

/// A folder that goes with the object.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "brenloft-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp");
    path_ = name;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::filesystem::path operator/(std::string_view name) const { return path_ / name; }
  std::string file(std::string_view name) const { return (path_ / name).string(); }
  const std::filesystem::path& path() const { return path_; }

  /// Every file's octets by its name, to be held against a later moment.
  std::map<std::string, std::string> contents() const {
    std::map<std::string, std::string> contents;
    for (const auto& entry : std::filesystem::directory_iterator(path_))
      if (!entry.is_directory()) contents[entry.path().filename()] = contentsOf(entry.path());
    return contents;
  }

 private:
  std::filesystem::path path_;
};

}  // namespace test

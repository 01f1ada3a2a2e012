#include "platform/foundation/SettingsFile.h"

#include <cerrno>
#include <cmath>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <utility>

#include <fcntl.h>
#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/foundation/Hex.h"

namespace platform {
namespace {

using Writer = rapidjson::PrettyWriter<rapidjson::StringBuffer>;

class ValueWriter {
 public:
  explicit ValueWriter(Writer& json) : json_(json) {}

  void operator()(NSNull) const { json_.Null(); }
  void operator()(bool value) const { json_.Bool(value); }
  void operator()(int64_t value) const { json_.Int64(value); }
  void operator()(const std::string& value) const { json_.String(value); }
  void operator()(const NSNumber& value) const { std::visit(*this, value.storage()); }
  void operator()(int32_t value) const {
    tagged("int32", [&] { json_.Int(value); });
  }
  void operator()(uint32_t value) const {
    tagged("uint32", [&] { json_.Uint(value); });
  }
  void operator()(uint64_t value) const {
    tagged("uint64", [&] { json_.Uint64(value); });
  }
  void operator()(double value) const {
    if (std::isfinite(value))
      json_.Double(value);
    else
      tagged("double", [&] { json_.String(std::to_string(value)); });
  }
  void operator()(Date value) const {
    tagged("date", [&] { json_.Int64(value.time_since_epoch().count()); });
  }
  void operator()(const Data& value) const {
    tagged("data", [&] { json_.String(hexText(value)); });
  }

 private:
  template <typename Content>
  void tagged(const char* kind, const Content& content) const {
    json_.StartObject();
    json_.Key(kind);
    content();
    json_.EndObject();
  }

  Writer& json_;
};

std::string textOf(const rapidjson::Value& json) {
  return {json.GetString(), json.GetStringLength()};
}

std::optional<Value> taggedText(const std::string& kind, const std::string& text) {
  if (kind == "data") {
    if (auto octets = octetsFromHex(text)) return std::move(*octets);
  }
  if (kind != "double") return std::nullopt;
  if (text == "inf") return NSNumber(std::numeric_limits<double>::infinity());
  if (text == "-inf") return NSNumber(-std::numeric_limits<double>::infinity());
  return NSNumber(std::numeric_limits<double>::quiet_NaN());
}

std::optional<Value> taggedValue(const rapidjson::Value& json) {
  if (json.MemberCount() != 1) return std::nullopt;
  const std::string kind = textOf(json.MemberBegin()->name);
  const rapidjson::Value& content = json.MemberBegin()->value;
  if (content.IsString()) return taggedText(kind, textOf(content));
  if (kind == "int32" && content.IsInt()) return NSNumber(content.GetInt());
  if (kind == "uint32" && content.IsUint()) return NSNumber(content.GetUint());
  if (kind == "uint64" && content.IsUint64()) return NSNumber(content.GetUint64());
  if (kind == "date" && content.IsInt64()) return Date(std::chrono::microseconds(content.GetInt64()));
  return std::nullopt;
}

std::optional<Value> valueOf(const rapidjson::Value& json) {
  if (json.IsNull()) return NSNull();
  if (json.IsBool()) return NSNumber(json.GetBool());
  if (json.IsString()) return textOf(json);
  if (json.IsInt64()) return NSNumber(json.GetInt64());
  if (json.IsUint64()) return NSNumber(json.GetUint64());
  if (json.IsDouble()) return NSNumber(json.GetDouble());
  return json.IsObject() ? taggedValue(json) : std::nullopt;
}

std::string jsonText(const Dictionary& settings) {
  rapidjson::StringBuffer buffer;
  Writer json(buffer);
  json.SetIndent(' ', 2);
  json.StartObject();
  for (const auto& [key, value] : settings) {
    json.Key(key);
    std::visit(ValueWriter(json), value);
  }
  json.EndObject();
  return std::string(buffer.GetString(), buffer.GetSize()) + "\n";
}

std::error_code lastError() {
  return {errno, std::generic_category()};
}

std::error_code writeAndFlush(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return lastError();
    text.remove_prefix(static_cast<size_t>(written));
  }
  return fsync(descriptor) == 0 ? std::error_code() : lastError();
}

mode_t modeOf(const std::filesystem::path& file) {
  constexpr mode_t kReadableByAll = 0644;
  struct stat status {};
  return stat(file.c_str(), &status) == 0 ? status.st_mode & 07777 : kReadableByAll;
}

std::error_code writeFile(const std::filesystem::path& file, mode_t mode, std::string_view text) {
  const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
  if (descriptor < 0) return lastError();
  std::error_code error = fchmod(descriptor, mode) == 0 ? std::error_code() : lastError();
  if (!error) error = writeAndFlush(descriptor, text);
  if (close(descriptor) != 0 && !error) return lastError();
  return error;
}

std::filesystem::path folderOf(const std::filesystem::path& file) {
  return file.has_parent_path() ? file.parent_path() : std::filesystem::path(".");
}

int openFolder(const std::filesystem::path& folder) {
  return open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

// The new name is in storage only when the folder is.
std::error_code flushFolder(const std::filesystem::path& folder) {
  const int descriptor = openFolder(folder);
  if (descriptor < 0) return lastError();
  const std::error_code error = fsync(descriptor) == 0 ? std::error_code() : lastError();
  close(descriptor);
  return error;
}

}  // namespace

StoredSettings readSettings(const std::filesystem::path& file) {
  errno = 0;
  std::ifstream stream(file, std::ios::binary);
  if (!stream) return {{}, errno == ENOENT || errno == ENOTDIR ? "" : lastError().message()};
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  rapidjson::Document document;
  document.Parse<rapidjson::kParseFullPrecisionFlag | rapidjson::kParseIterativeFlag>(text);
  if (document.HasParseError()) {
    return {{},
            "octet " + std::to_string(document.GetErrorOffset()) + ": " +
                rapidjson::GetParseError_En(document.GetParseError())};
  }
  if (!document.IsObject()) return {{}, "it holds no JSON object"};
  StoredSettings stored;
  auto member = document.MemberBegin();
  for (auto left = document.MemberCount(); left > 0; --left, ++member) {
    if (auto value = valueOf(member->value))
      stored.values.insert_or_assign(textOf(member->name), std::move(*value));
  }
  return stored;
}

std::error_code writeSettings(const std::filesystem::path& file, const Dictionary& settings) {
  std::filesystem::path next = file;
  next += ".new";
  if (const std::error_code error = writeFile(next, modeOf(file), jsonText(settings))) return error;
  if (std::rename(next.c_str(), file.c_str()) != 0) return lastError();
  return flushFolder(folderOf(file));
}

SettingsLock::SettingsLock(const std::filesystem::path& file) {
  const std::filesystem::path folder = folderOf(file);
  std::error_code unwritable;  // writing says so
  std::filesystem::create_directories(folder, unwritable);
  folder_ = openFolder(folder);
  while (folder_ >= 0 && flock(folder_, LOCK_EX) != 0 && errno == EINTR) {
  }
}

SettingsLock::~SettingsLock() {
  if (folder_ >= 0) close(folder_);
}

}  // namespace platform

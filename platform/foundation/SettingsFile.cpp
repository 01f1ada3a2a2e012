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
#include <sys/file.h>
#include <unistd.h>

#include "platform/foundation/Folders.h"
#include "platform/foundation/Hex.h"
#include "platform/foundation/JSONWriter.h"
#include "platform/foundation/ReplacementFile.h"

namespace platform {
namespace {

class ValueWriter {
 public:
  explicit ValueWriter(JSONWriter& json) : json_(json) {}

  void operator()(NSNull) const { json_.null(); }
  void operator()(bool value) const { json_.boolean(value); }
  void operator()(int64_t value) const { json_.number(value); }
  void operator()(const std::string& value) const { json_.text(value); }
  void operator()(const NSNumber& value) const { std::visit(*this, value.storage()); }
  void operator()(int32_t value) const { tagged("int32").number(value).endObject(); }
  void operator()(uint32_t value) const { tagged("uint32").number(value).endObject(); }
  void operator()(uint64_t value) const { tagged("uint64").number(value).endObject(); }
  void operator()(double value) const {
    if (std::isfinite(value))
      json_.number(value);
    else
      tagged("double").text(std::to_string(value)).endObject();
  }
  void operator()(Date value) const { tagged("date").number(value.time_since_epoch().count()).endObject(); }
  void operator()(const Data& value) const { tagged("data").hex(value).endObject(); }

 private:
  JSONWriter& tagged(std::string_view kind) const { return json_.beginObject().plainKey(kind); }

  JSONWriter& json_;
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
  JSONWriter json(JSONWriter::Layout::indented, JSONWriter::Invalid::kept);
  json.beginObject();
  for (const auto& [key, value] : settings) {
    json.key(key);
    std::visit(ValueWriter(json), value);
  }
  json.endObject().endLine();
  return std::string(json.written());
}

std::string lastErrorText() {
  return std::generic_category().message(errno);
}

}  // namespace

StoredSettings readSettings(const std::filesystem::path& file) {
  errno = 0;
  std::ifstream stream(file, std::ios::binary);
  if (!stream) return {{}, errno == ENOENT || errno == ENOTDIR ? "" : lastErrorText()};
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

std::error_code writeSettings(const std::filesystem::path& file, const Dictionary& settings,
                              FolderAccess access) {
  std::error_code error;
  const auto next = ReplacementFile::create(file, permissionsOfNewFiles(access), error);
  if (!error) error = next->write(jsonText(settings));
  return error ? error : next->finish();
}

SettingsLock::SettingsLock(const std::filesystem::path& file, FolderAccess access) {
  const std::filesystem::path folder = folderOf(file);
  makeFolder(folder, access);  // writing says when it cannot be made
  folder_ = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  while (folder_ >= 0 && flock(folder_, LOCK_EX) != 0 && errno == EINTR) {
  }
}

SettingsLock::~SettingsLock() {
  if (folder_ >= 0) close(folder_);
}

}  // namespace platform

#include "platform/coredata/NSManagedObjectModel.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <utility>

#include "platform/coredata/NSInvalidArgumentException.h"
#include "platform/foundation/NSBundle.h"

namespace platform {
namespace {

using NamedType = std::pair<std::string_view, NSAttributeType>;
constexpr std::array<NamedType, 5> kTypes = {{{"integer", NSAttributeType::Integer64},
                                              {"unsigned", NSAttributeType::UnsignedInteger64},
                                              {"string", NSAttributeType::String},
                                              {"date", NSAttributeType::DateTime},
                                              {"binary", NSAttributeType::BinaryData}}};

std::string_view nameOf(NSAttributeType type) {
  return std::find_if(kTypes.begin(), kTypes.end(), [&](auto& named) { return named.second == type; })->first;
}

// FNV-1a over the names and types, each ended by an octet that no name contains.
class Fingerprint {
 public:
  void add(std::string_view text) {
    for (const char c : text) add(static_cast<unsigned char>(c));
    add(0);
  }
  uint64_t value() const { return hash_; }

 private:
  void add(unsigned char octet) { hash_ = (hash_ ^ octet) * 0x100000001b3; }
  uint64_t hash_ = 0xcbf29ce484222325;
};

uint64_t fingerprintOf(const std::vector<NSEntityDescription>& entities) {
  Fingerprint fingerprint;
  for (const auto& entity : entities) {
    fingerprint.add("entity");
    fingerprint.add(entity.name());
    for (const auto& attribute : entity.attributes()) {
      fingerprint.add(attribute.name);
      fingerprint.add(nameOf(attribute.attributeType));
    }
  }
  return fingerprint.value();
}

// A name becomes a table or a column, so it must be one that no SQL can be confused by.
bool isName(std::string_view text) {
  const auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  const auto digit = [](char c) { return (c >= '0' && c <= '9') || c == '_'; };
  return !text.empty() && letter(text.front()) && text != "rowid" && text != "oid" &&
         std::all_of(text.begin(), text.end(), [&](char c) { return letter(c) || digit(c); });
}

struct Draft {
  std::string name;
  std::vector<NSAttributeDescription> attributes;
};

// One line of a compiled model; false when it is none.
bool readLine(const std::string& line, std::vector<Draft>& drafts) {
  std::istringstream words(line);
  std::string first;
  std::string second;
  std::string more;
  if (!(words >> first >> second) || (words >> more)) return false;
  if (first == "entity") {
    drafts.push_back({second, {}});
    return isName(second);
  }
  const auto* type = std::find_if(kTypes.begin(), kTypes.end(), [&](auto& t) { return t.first == second; });
  if (drafts.empty() || type == kTypes.end()) return false;
  drafts.back().attributes.push_back({first, type->second});
  return isName(first);
}

}  // namespace

NSManagedObjectModel::NSManagedObjectModel(std::vector<NSEntityDescription> entities)
    : entities_(std::move(entities)), fingerprint_(fingerprintOf(entities_)) {
  for (const auto& entity : entities_) {
    if (entityNamed(entity.name()) != &entity) {
      throw NSInvalidArgumentException("two entities named " + entity.name());
    }
    if (entity.attributes().empty()) throw NSInvalidArgumentException(entity.name() + " has no attributes");
  }
}

std::shared_ptr<NSManagedObjectModel> NSManagedObjectModel::initWithContentsOfURL(const NSBundle& bundle,
                                                                                  std::string_view url) {
  const auto contents = bundle.contentsOfURL(url);
  return contents ? initWithContents(*contents) : nullptr;
}

std::shared_ptr<NSManagedObjectModel> NSManagedObjectModel::initWithContents(DataView contents) {
  std::vector<Draft> drafts;
  std::istringstream lines{std::string(textOf(contents))};
  for (std::string line; std::getline(lines, line);) {
    if (!readLine(line, drafts)) return nullptr;
  }
  if (drafts.empty()) return nullptr;
  std::vector<NSEntityDescription> entities;
  try {
    for (auto& draft : drafts) entities.emplace_back(std::move(draft.name), std::move(draft.attributes));
    return std::make_shared<NSManagedObjectModel>(std::move(entities));
  } catch (const NSInvalidArgumentException&) {
    return nullptr;
  }
}

std::shared_ptr<NSManagedObjectModel> NSManagedObjectModel::modelByMergingModels(
    const std::vector<std::shared_ptr<NSManagedObjectModel>>& models) {
  std::vector<NSEntityDescription> entities;
  for (const auto& model : models) {
    if (!model) throw NSInvalidArgumentException("a model to be merged is missing");
    entities.insert(entities.end(), model->entities().begin(), model->entities().end());
  }
  return std::make_shared<NSManagedObjectModel>(std::move(entities));
}

const NSEntityDescription* NSManagedObjectModel::entityNamed(std::string_view name) const {
  const auto it = std::find_if(entities_.begin(), entities_.end(), [&](auto& e) { return e.name() == name; });
  return it == entities_.end() ? nullptr : &*it;
}

void NSManagedObjectModel::setObjectMaker_forEntityName(NSEntityDescription::ObjectMaker maker,
                                                        std::string_view name) {
  const auto it = std::find_if(entities_.begin(), entities_.end(), [&](auto& e) { return e.name() == name; });
  if (it == entities_.end()) throw NSInvalidArgumentException("no entity named " + std::string(name));
  it->setObjectMaker(std::move(maker));
}

}  // namespace platform

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/coredata/NSEntityDescription.h"
#include "platform/foundation/Data.h"

namespace platform {

class NSBundle;

/// The entities that a store holds.
///
/// A compiled model is text, one declaration a line: `entity NAME`, then its attributes as `NAME TYPE` with
/// TYPE one of integer, unsigned, string, date, binary.
///
/// Threads: set up on one thread, then read from any.
class BRL_EXPORT NSManagedObjectModel {
 public:
  explicit NSManagedObjectModel(std::vector<NSEntityDescription> entities);

  /// -[NSManagedObjectModel initWithContentsOfURL:]
  /// Nothing when the bundle has no such resource, or when it is not a compiled model.
  static std::shared_ptr<NSManagedObjectModel> initWithContentsOfURL(const NSBundle& bundle,
                                                                     std::string_view url);
  /// The model that a compiled model's octets spell; nothing when they spell none.
  static std::shared_ptr<NSManagedObjectModel> initWithContents(DataView contents);
  /// +[NSManagedObjectModel modelByMergingModels:]
  /// Throws NSInvalidArgumentException when one is missing, or when two entities have the same name.
  static std::shared_ptr<NSManagedObjectModel> modelByMergingModels(
      const std::vector<std::shared_ptr<NSManagedObjectModel>>& models);

  const std::vector<NSEntityDescription>& entities() const { return entities_; }
  /// Nothing when there is none of that name.
  const NSEntityDescription* entityNamed(std::string_view name) const;
  /// Lets objects of an entity be of a class of their own. Throws NSInvalidArgumentException for an unknown
  /// one.
  void setObjectMaker_forEntityName(NSEntityDescription::ObjectMaker maker, std::string_view name);

  /// Tells models apart: the same entities and attributes, in the same order, give the same number.
  uint64_t fingerprint() const { return fingerprint_; }

 private:
  std::vector<NSEntityDescription> entities_;
  uint64_t fingerprint_ = 0;
};

}  // namespace platform

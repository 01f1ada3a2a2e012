#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/foundation/Data.h"
#include "platform/foundation/Export.h"

namespace platform {

/// The library's own resources, which are compiled into it.
///
/// Threads: any. A bundle does not change after it was made; the octets live as long as the bundle.
class BRL_EXPORT NSBundle {
 public:
  virtual ~NSBundle() = default;

  /// The name under which `contentsOfURL` finds a resource; nothing when the bundle has no such resource.
  virtual std::optional<std::string> URLForResource_withExtension(std::string_view name,
                                                                  std::string_view extension) const = 0;
  virtual std::optional<DataView> contentsOfURL(std::string_view url) const = 0;
};

/// Resources by file name ("ServiceModel.momd").
using BundleResources = std::map<std::string, Data, std::less<>>;

BRL_EXPORT std::shared_ptr<const NSBundle> makeBundle(BundleResources resources);

/// The bundle with everything that was compiled into the library.
BRL_EXPORT std::shared_ptr<const NSBundle> libraryBundle();

}  // namespace platform

#include "platform/foundation/CompiledResources.h"

namespace platform {

std::shared_ptr<const NSBundle> libraryBundle() {
  static const std::shared_ptr<const NSBundle> bundle = makeBundle(compiledResources());
  return bundle;
}

}  // namespace platform

#pragma once

#include "platform/foundation/NSBundle.h"

namespace platform {

/// The resources that were compiled into the library, by file name ("ServiceModel.momd").
///
/// Defined in no source of the platform: the build generates the definition from the files under
/// BrenloftSDK/ServiceModel, and whatever links `libraryBundle` links that too.
BundleResources compiledResources();

}  // namespace platform

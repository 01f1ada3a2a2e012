#include "platform/foundation/NSBundle.h"

#include <utility>

namespace platform {
namespace {

constexpr std::string_view kScheme = "bundle:";

class ResourceBundle final : public NSBundle {
 public:
  explicit ResourceBundle(BundleResources resources) : resources_(std::move(resources)) {}

  std::optional<std::string> URLForResource_withExtension(std::string_view name,
                                                          std::string_view extension) const override {
    std::string file(name);
    if (!extension.empty()) file.append(".").append(extension);
    if (!resources_.contains(file)) return std::nullopt;
    return std::string(kScheme) + file;
  }

  std::optional<DataView> contentsOfURL(std::string_view url) const override {
    if (!url.starts_with(kScheme)) return std::nullopt;
    const auto resource = resources_.find(url.substr(kScheme.size()));
    if (resource == resources_.end()) return std::nullopt;
    return DataView(resource->second);
  }

 private:
  const BundleResources resources_;
};

}  // namespace

std::shared_ptr<const NSBundle> makeBundle(BundleResources resources) {
  return std::make_shared<ResourceBundle>(std::move(resources));
}

}  // namespace platform

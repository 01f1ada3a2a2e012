#include "tools/brenloft/Source.h"

#include <utility>

#include "tools/brenloft/ExitStatus.h"
#include "tools/brenloft/Messages.h"

namespace brenloft {
namespace {

Failure failureFor(const std::string& address, const platform::Error& error) {
  using Kind = platform::Error::Kind;
  if (error.kind == Kind::unsupported) return {ExitStatus::usage, error.text};
  if (address.starts_with("capture:")) return {ExitStatus::failed, error.text};
  if (error.kind == Kind::notPermitted) return {ExitStatus::notPermitted, error.text};
  return {ExitStatus::noRadio, noRadioLine(error.text)};
}

}  // namespace

platform::Source openSource(const std::string& address, platform::SourceOptions options) {
  auto opened = platform::openSource(address, std::move(options));
  if (!opened) throw failureFor(address, opened.error());
  return *std::move(opened);
}

}  // namespace brenloft

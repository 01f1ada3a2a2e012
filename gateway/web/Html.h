#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace brenloft::web {

/// A text from the air, a file or anywhere as it stands in HTML, between tags and in a quoted attribute:
/// nothing of it is markup.
std::string escaped(std::string_view text);
/// JSON as it stands in a script element: nothing of it ends that.
std::string insideScript(std::string_view json);
/// The template with what `valueOf` gives in place of each `{{name}}`.
std::string filled(std::string_view page, const std::function<std::string(std::string_view)>& valueOf);

}  // namespace brenloft::web

#include "gateway/web/Html.h"

#include <algorithm>

#include "gateway/Texts.h"

namespace brenloft::web {

std::string escaped(std::string_view text) {
  std::string html;
  for (const char c : printable(text)) switch (c) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '"':
        html += "&quot;";
        break;
      case '\'':
        html += "&#39;";
        break;
      default:
        html += c;
    }
  return html;
}

std::string insideScript(std::string_view json) {
  std::string text;
  text.reserve(json.size());
  for (const char c : json)
    if (c == '<')
      text += "\\u003c";
    else
      text += c;
  return text;
}

std::string filled(std::string_view page, const std::function<std::string(std::string_view)>& valueOf) {
  std::string text;
  while (true) {
    const std::size_t begin = page.find("{{");
    const std::size_t end = page.find("}}", std::min(begin, page.size()));
    if (end == std::string_view::npos) break;
    text += page.substr(0, begin);
    text += valueOf(page.substr(begin + 2, end - begin - 2));
    page.remove_prefix(end + 2);
  }
  return text += page;
}

}  // namespace brenloft::web

#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace brenloft::web {

/// A text with what it takes to send it to whoever asks.
struct Content {
  std::string type{};
  std::string text{};
  std::string zipped{};  ///< gzip; empty where it would save nothing
  std::string tag{};     ///< its ETag: the same for the same text
};
std::shared_ptr<const Content> makeContent(std::string_view type, std::string text);

struct Answer {
  unsigned status = 200;
  std::shared_ptr<const Content> content{};
  std::vector<std::pair<std::string, std::string>> headers{};  ///< beside those of every answer
};

/// One line of JSON that says what is wrong.
Answer refusal(unsigned status, std::string_view reason);
/// Sends the browser's question for the token along.
Answer askForToken();

/// What stands above every answer: nothing of another place is loaded, framed, told or run.
const std::vector<std::pair<std::string, std::string>>& commonHeaders();

}  // namespace brenloft::web

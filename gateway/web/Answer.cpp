#include "gateway/web/Answer.h"

#include <cstdint>

#include <fmt/format.h>
#include <zlib.h>

#include "platform/foundation/JSONWriter.h"

namespace brenloft::web {
namespace {

constexpr std::size_t kLeastZipped = 1000;  // below it a packet is a packet
constexpr int kZipLevel = 5;
constexpr int kGzipWindow = 15 + 16;

// FNV-1a.
std::string tagOf(std::string_view text) {
  uint64_t hash = 14695981039346656037U;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
  return fmt::format("\"{:016x}\"", hash);
}

std::string zippedText(const std::string& text) {
  z_stream stream{};
  if (::deflateInit2(&stream, kZipLevel, Z_DEFLATED, kGzipWindow, 8, Z_DEFAULT_STRATEGY) != Z_OK) return {};
  std::string zipped(::deflateBound(&stream, text.size()), '\0');
  // NOLINTNEXTLINE(*-const-cast): zlib only reads it
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(zipped.data());
  stream.avail_out = static_cast<uInt>(zipped.size());
  const bool isDone = ::deflate(&stream, Z_FINISH) == Z_STREAM_END;
  zipped.resize(isDone ? stream.total_out : 0);
  ::deflateEnd(&stream);
  return zipped.size() < text.size() ? zipped : std::string();
}

}  // namespace

std::shared_ptr<const Content> makeContent(std::string_view type, std::string text) {
  Content content{.type = std::string(type), .text = std::move(text)};
  content.tag = tagOf(content.text);
  if (content.text.size() >= kLeastZipped) content.zipped = zippedText(content.text);
  return std::make_shared<const Content>(std::move(content));
}

Answer refusal(unsigned status, std::string_view reason) {
  platform::JSONWriter json;
  json.beginObject().plainKey("error").text(reason).plainKey("status").number(status).endObject().endLine();
  return {status, makeContent("application/json", std::string(json.written()))};
}

Answer askForToken() {
  Answer answer = refusal(401, "this needs the token: Authorization: Bearer TOKEN, or the token as password");
  answer.headers.emplace_back("WWW-Authenticate", "Basic realm=\"brenloft\", charset=\"UTF-8\"");
  return answer;
}

const std::vector<std::pair<std::string, std::string>>& commonHeaders() {
  static const std::vector<std::pair<std::string, std::string>> headers{
      {"Content-Security-Policy",
       "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; base-uri 'none'; "
       "form-action 'none'; frame-ancestors 'none'"},
      {"X-Content-Type-Options", "nosniff"},
      {"Referrer-Policy", "no-referrer"},
      {"Cross-Origin-Resource-Policy", "same-origin"},
      {"Cache-Control", "no-cache"}};
  return headers;
}

}  // namespace brenloft::web

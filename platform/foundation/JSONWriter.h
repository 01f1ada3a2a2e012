#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/foundation/Data.h"

namespace platform {

/// Writes JSON (RFC 8259), value after value; what stands between them comes by itself. The caller keeps to
/// the grammar: a key before each value of an object, an end for each beginning.
///
/// Threads: one at a time.
class JSONWriter {
 public:
  enum class Layout {
    line,      ///< no blank anywhere
    indented,  ///< each member and element on a line of its own, two blanks for each level
  };
  /// What becomes of an octet that is no UTF-8.
  enum class Invalid {
    replaced,  ///< U+FFFD
    kept,      ///< for a reader that takes it as it is; the text is no JSON then
  };

  explicit JSONWriter(Layout layout = Layout::line, Invalid invalid = Invalid::replaced)
      : isIndented_(layout == Layout::indented), keepsInvalid_(invalid == Invalid::kept) {}

  JSONWriter& beginObject() { return begin('{'); }
  JSONWriter& endObject() { return end('}'); }
  JSONWriter& beginArray() { return begin('['); }
  JSONWriter& endArray() { return end(']'); }
  JSONWriter& key(std::string_view key);
  /// The same for a name of ASCII letters and digits, which needs no look at each.
  JSONWriter& plainKey(std::string_view key);

  JSONWriter& text(std::string_view text);
  JSONWriter& textOrNull(const std::optional<std::string>& optional) {
    return optional ? text(*optional) : null();
  }
  /// A text of lower-case hexadecimal digits.
  JSONWriter& hex(DataView octets);
  template <std::integral Integer>
  JSONWriter& number(Integer number);
  /// With a point or an exponent, so that it reads back as what it is; must be finite.
  JSONWriter& number(double number);
  JSONWriter& boolean(bool value) {
    return raw(value ? std::string_view("true") : std::string_view("false"));
  }
  JSONWriter& null() { return raw("null"); }
  /// A value that is JSON already.
  JSONWriter& raw(std::string_view json);

  /// What was written since the last `clear`.
  std::string_view written() const { return {buffer_.data(), size_}; }
  /// Goes on with the same document, or after its end with a new one.
  void clear() { size_ = 0; }
  /// The line ends behind a value.
  void endLine() { put("\n"); }

 private:
  static constexpr std::size_t kLongestInteger = 20;
  /// Where the next key or value stands.
  enum class Place { first, next, behindKey };

  JSONWriter& begin(char bracket);
  JSONWriter& end(char bracket);
  /// Parts the next key or value from what stands before it, and makes room for its octets.
  char* part(std::size_t octets);
  char* room(std::size_t octets) {
    if (buffer_.size() - size_ < octets) grow(octets);
    return buffer_.data() + size_;
  }
  void grow(std::size_t octets);
  char* newLine(char* to) const;
  char* quoted(std::string_view text);
  /// Writes the character at the start of a text that does not stand for itself, and says how long it is.
  std::size_t putSpecial(std::string_view text);
  void put(std::string_view octets);
  /// What was written ends here.
  void endAt(const char* end) { size_ = static_cast<std::size_t>(end - buffer_.data()); }
  JSONWriter& endValueAt(const char* end);

  const bool isIndented_;
  const bool keepsInvalid_;
  Place place_ = Place::first;
  std::size_t depth_ = 0;
  std::size_t blanks_ = 0;  // before a key or a value
  std::string buffer_;      // longer than what was written
  std::size_t size_ = 0;    // of what was written
};

inline char* JSONWriter::part(std::size_t octets) {
  char* to = room(octets + blanks_ + 2);
  if (place_ == Place::behindKey) return to;
  if (place_ == Place::next) *to++ = ',';
  return blanks_ == 0 ? to : newLine(to);
}

inline JSONWriter& JSONWriter::endValueAt(const char* end) {
  endAt(end);
  place_ = depth_ == 0 ? Place::first : Place::next;
  return *this;
}

template <std::integral Integer>
JSONWriter& JSONWriter::number(Integer number) {
  static_assert(!std::same_as<Integer, bool>);
  char* to = part(kLongestInteger);
  return endValueAt(std::to_chars(to, to + kLongestInteger, number).ptr);
}

}  // namespace platform

#include "platform/foundation/JSONWriter.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/foundation/Hex.h"
#include "platform/foundation/UTF8.h"

namespace platform {
namespace {

constexpr std::size_t kFirstSize = 1024;
constexpr std::size_t kBlanksPerLevel = 2;
constexpr std::size_t kLongestDouble = 32;
constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

// Whether an octet stands for itself in a JSON string.
constexpr auto kIsPlain = [] {
  std::array<bool, 256> isPlain{};
  for (std::size_t octet = 0x20; octet < 0x80; ++octet) isPlain[octet] = octet != '"' && octet != '\\';
  return isPlain;
}();

// Copies as many octets as a word has where each stands for itself.
template <typename Word>
bool copyPlainWord(char* to, const char* from) {
  constexpr Word kEach = static_cast<Word>(0x0101010101010101);
  Word octets = 0;
  std::memcpy(&octets, from, sizeof octets);
  // The highest bit of an octet is set where that one, or one before it, is below the limit.
  const auto below = [](Word values, Word limit) { return (values - kEach * limit) & ~values; };
  const Word special =
      octets | below(octets, 0x20) | below(octets ^ kEach * '"', 1) | below(octets ^ kEach * '\\', 1);
  if ((special & kEach * 0x80) != 0) return false;
  std::memcpy(to, &octets, sizeof octets);
  return true;
}

// Copies what stands for itself up to the first octet that does not, and says how much that is.
std::size_t copyPlain(char* to, std::string_view text) {
  std::size_t size = 0;
  const auto copy = [&]<typename Word>(Word) {
    if (text.size() - size < sizeof(Word) || !copyPlainWord<Word>(to + size, &text[size])) return false;
    size += sizeof(Word);
    return true;
  };
  while (copy(uint64_t())) {
  }
  copy(uint32_t());
  for (; size < text.size() && kIsPlain[static_cast<unsigned char>(text[size])]; ++size)
    to[size] = text[size];
  return size;
}

char* append(char* to, std::string_view octets) {
  return std::copy(octets.begin(), octets.end(), to);
}

// The backslash and what follows it.
std::string escape(char c) {
  constexpr std::string_view kSpecial = "\"\\\b\f\n\r\t";
  constexpr std::string_view kLetters = "\"\\bfnrt";
  if (const std::size_t i = kSpecial.find(c); i != std::string_view::npos) return {'\\', kLetters[i]};
  std::string text = "\\u00";
  appendHex(text, static_cast<uint8_t>(c), kUpperHexDigits);
  return text;
}

}  // namespace

char* JSONWriter::newLine(char* to) const {
  *to++ = '\n';
  return std::fill_n(to, blanks_, ' ');
}

void JSONWriter::grow(std::size_t octets) {
  buffer_.resize(std::max({kFirstSize, buffer_.size() * 2, size_ + octets}));
}

JSONWriter& JSONWriter::begin(char bracket) {
  char* to = part(1);
  *to++ = bracket;
  endAt(to);
  ++depth_;
  if (isIndented_) blanks_ += kBlanksPerLevel;
  place_ = Place::first;
  return *this;
}

JSONWriter& JSONWriter::end(char bracket) {
  --depth_;
  if (isIndented_) blanks_ -= kBlanksPerLevel;
  char* to = room(blanks_ + 2);
  if (isIndented_ && place_ == Place::next) to = newLine(to);
  *to++ = bracket;
  return endValueAt(to);
}

char* JSONWriter::quoted(std::string_view text) {
  char* to = part(text.size() + 2);
  *to++ = '"';
  while (true) {
    const std::size_t plain = copyPlain(to, text);
    to += plain;
    if (plain == text.size()) break;
    text.remove_prefix(plain);
    endAt(to);
    text.remove_prefix(putSpecial(text));
    to = room(text.size() + 1);
  }
  *to++ = '"';
  return to;
}

std::size_t JSONWriter::putSpecial(std::string_view text) {
  const std::size_t length = characterLength(text);
  if (length == 0) {
    put(keepsInvalid_ ? text.substr(0, 1) : kReplacement);
    return 1;
  }
  if (length == 1)
    put(escape(text.front()));
  else
    put(text.substr(0, length));
  return length;
}

void JSONWriter::put(std::string_view octets) {
  endAt(append(room(octets.size()), octets));
}

JSONWriter& JSONWriter::plainKey(std::string_view key) {
  char* to = part(key.size() + 4);
  *to++ = '"';
  to = append(to, key);
  *to++ = '"';
  *to++ = ':';
  if (isIndented_) *to++ = ' ';
  endAt(to);
  place_ = Place::behindKey;
  return *this;
}

JSONWriter& JSONWriter::key(std::string_view key) {
  endAt(quoted(key));
  put(isIndented_ ? std::string_view(": ") : std::string_view(":"));
  place_ = Place::behindKey;
  return *this;
}

JSONWriter& JSONWriter::text(std::string_view text) {
  return endValueAt(quoted(text));
}

JSONWriter& JSONWriter::hex(DataView octets) {
  char* to = part(octets.size() * 2 + 2);
  *to++ = '"';
  for (const std::byte octet : octets) to = writeHex(to, std::to_integer<uint8_t>(octet), kLowerHexDigits);
  *to++ = '"';
  return endValueAt(to);
}

JSONWriter& JSONWriter::number(double number) {
  std::array<char, kLongestDouble> digits{};
  const auto end = std::to_chars(digits.begin(), digits.end(), number).ptr;
  const std::string_view text(digits.data(), static_cast<std::size_t>(end - digits.data()));
  raw(text);
  if (text.find_first_of(".e") == std::string_view::npos) put(".0");
  return *this;
}

JSONWriter& JSONWriter::raw(std::string_view json) {
  return endValueAt(append(part(json.size()), json));
}

}  // namespace platform

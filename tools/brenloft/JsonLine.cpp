#include "tools/brenloft/JsonLine.h"

#include <algorithm>

#include <fmt/format.h>
#include <rapidjson/encodings.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "tools/brenloft/TimeText.h"

namespace brenloft {
namespace {

using Utf8 = rapidjson::UTF8<>;

// Only what is no UTF-8 takes the slow road.
std::string repaired(std::string_view text) {
  rapidjson::StringBuffer out;
  while (!text.empty()) {
    rapidjson::MemoryStream in(text.data(), text.size());
    unsigned codepoint = 0;
    const bool valid = Utf8::Decode(in, &codepoint) && in.Tell() <= text.size();
    Utf8::Encode(out, valid ? codepoint : 0xFFFDU);
    text.remove_prefix(valid ? in.Tell() : 1);
  }
  return {out.GetString(), out.GetSize()};
}

}  // namespace

struct JsonLine::State {
  using Writer = rapidjson::Writer<rapidjson::StringBuffer, Utf8, Utf8, rapidjson::CrtAllocator,
                                   rapidjson::kWriteValidateEncodingFlag>;

  // The one for the next value; the first after `take` begins a line.
  Writer& next() {
    if (taken) {
      buffer.Clear();
      writer.Reset(buffer);
      taken = false;
    }
    return writer;
  }

  rapidjson::StringBuffer buffer;
  Writer writer{buffer};
  bool taken = false;
  std::optional<TimeText> times;  // absent: numbers
};

JsonLine::JsonLine(TimeForm timeForm) : state_(std::make_unique<State>()) {
  if (timeForm != TimeForm::epoch) state_->times.emplace(timeForm);
}
JsonLine::~JsonLine() = default;

JsonLine& JsonLine::beginObject() {
  state_->next().StartObject();
  return *this;
}

JsonLine& JsonLine::endObject() {
  state_->next().EndObject();
  return *this;
}

JsonLine& JsonLine::beginArray() {
  state_->next().StartArray();
  return *this;
}

JsonLine& JsonLine::endArray() {
  state_->next().EndArray();
  return *this;
}

JsonLine& JsonLine::key(std::string_view key) {
  state_->next().Key(key.data(), static_cast<rapidjson::SizeType>(key.size()));
  return *this;
}

JsonLine& JsonLine::text(std::string_view text) {
  const auto isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
  if (std::all_of(text.begin(), text.end(), isAscii)) {
    state_->next().String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
  } else {
    const std::string whole = repaired(text);
    state_->next().String(whole.data(), static_cast<rapidjson::SizeType>(whole.size()));
  }
  return *this;
}

JsonLine& JsonLine::textOrNull(const std::optional<std::string>& optional) {
  return optional ? text(*optional) : null();
}

JsonLine& JsonLine::number(int64_t number) {
  state_->next().Int64(number);
  return *this;
}

JsonLine& JsonLine::boolean(bool value) {
  state_->next().Bool(value);
  return *this;
}

JsonLine& JsonLine::date(platform::Date date) {
  if (state_->times) return text(state_->times->whole(date));
  const std::string seconds = secondsText(date);
  state_->next().RawValue(seconds.data(), seconds.size(), rapidjson::kNumberType);
  return *this;
}

JsonLine& JsonLine::null() {
  state_->next().Null();
  return *this;
}

std::string_view JsonLine::take() {
  state_->buffer.Put('\n');
  state_->taken = true;
  return {state_->buffer.GetString(), state_->buffer.GetSize()};
}

}  // namespace brenloft

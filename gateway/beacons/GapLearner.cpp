#include "gateway/beacons/GapLearner.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <utility>

#include <fmt/format.h>

namespace brenloft {
namespace {

// "12,34:56" number by number, whatever stands between.
std::optional<int64_t> takeNumber(std::string_view& text) {
  int64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || number < 0) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
  return number;
}

bool take(std::string_view& text, char c) {
  if (text.empty() || text.front() != c) return false;
  text.remove_prefix(1);
  return true;
}

}  // namespace

void GapLearner::heard(Time at) {
  if (last_ && at > *last_) learn(at - *last_, at);
  last_ = at;
}

void GapLearner::learn(Time gap, Time at) {
  std::erase_if(longest_, [at](const Remembered& one) { return one.until <= at; });
  // It was away, which is no habit.
  if (gap > kMost) return;
  if (recent_.size() < kRecent)
    recent_.push_back(gap);
  else
    recent_[next_++ % kRecent] = gap;
  remember(gap, at + memoryOf(gap));
}

void GapLearner::remember(Time gap, Time until) {
  const auto place = std::find_if(longest_.begin(), longest_.end(), [&](const Remembered& one) {
    return std::pair(one.gap, one.until) <= std::pair(gap, until);
  });
  longest_.insert(place, {gap, until});
  if (longest_.size() > kLongest) longest_.pop_back();
}

GapLearner::Time GapLearner::limit() const {
  if (recent_.empty() && longest_.empty())
    return expected_ ? std::clamp(*expected_ * 3, kLeast, kMost) : kUnlearned;
  Time longest = expected_.value_or(Time(0)) * 2;
  if (!recent_.empty()) longest = std::max(longest, *std::max_element(recent_.begin(), recent_.end()));
  if (!longest_.empty()) longest = std::max(longest, longest_.front().gap);
  return std::clamp(longest * 3 / 2, kLeast, kMost);
}

std::optional<GapLearner::Time> GapLearner::usualGap() const {
  if (recent_.empty()) return std::nullopt;
  auto sorted = recent_;
  const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
  std::nth_element(sorted.begin(), middle, sorted.end());
  return *middle;
}

std::string GapLearner::text(Time now) const {
  std::string text;
  for (std::size_t i = 0; i < recent_.size(); ++i)
    text += fmt::format("{}{}", i == 0 ? "" : ",", recent_[(next_ + i) % recent_.size()].count());
  for (const Remembered& one : longest_)
    text += fmt::format(";{}:{}", one.gap.count(), std::max(one.until - now, Time(0)).count());
  return text;
}

void GapLearner::restore(std::string_view text, Time now) {
  recent_.clear();
  longest_.clear();
  next_ = 0;
  while (const auto gap = takeNumber(text)) {
    if (recent_.size() < kRecent && Time(*gap) <= kMost) recent_.emplace_back(*gap);
    if (!take(text, ',')) break;
  }
  while (take(text, ';')) {
    const auto gap = takeNumber(text);
    const auto left = gap && take(text, ':') ? takeNumber(text) : std::nullopt;
    if (left && Time(*gap) <= kMost) remember(Time(*gap), now + std::min(Time(*left), memoryOf(Time(*gap))));
  }
}

}  // namespace brenloft

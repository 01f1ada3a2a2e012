#include "gateway/web/EventRing.h"

#include <algorithm>
#include <utility>

namespace brenloft::web {

void EventRing::add(int64_t seq, std::string text) {
  events_.push_back({seq, std::make_shared<const std::string>(std::move(text))});
  through_ = seq;
  if (events_.size() <= kMostEvents) return;
  before_ = events_.front().seq;
  events_.pop_front();
}

const EventRing::Event* EventRing::after(int64_t seq) const {
  const auto next = std::ranges::upper_bound(events_, seq, {}, &Event::seq);
  return next == events_.end() ? nullptr : &*next;
}

}  // namespace brenloft::web

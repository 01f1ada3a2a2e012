#include "gateway/web/EventStream.h"

#include <algorithm>
#include <utility>

namespace brenloft::web {

EventStream::State EventStream::state() {
  if (!isEmpty()) return State::ready;
  if (notice_) {
    take(std::exchange(notice_, nullptr));
    return State::ready;
  }
  if (isEnded_) return State::ended;
  if (ring_->reaches(after_)) {
    isLive_ = true;
    const EventRing::Event* event = ring_->after(after_);
    if (event == nullptr) return State::waiting;
    after_ = event->seq;
    take(event->text);
    return State::ready;
  }
  // Who was up to date and is not any more, is too slow.
  if (isLive_) return State::ended;
  if (!std::exchange(isAsking_, true)) askMissed_(after_);
  return State::waiting;
}

std::size_t EventStream::read(char* to, std::size_t most) {
  std::size_t done = 0;
  while (done < most && state() == State::ready) {
    const std::size_t part = std::min(most - done, text_->size() - offset_);
    std::copy_n(text_->data() + offset_, part, to + done);
    offset_ += part;
    done += part;
  }
  return done;
}

void EventStream::missed(std::string text, int64_t through) {
  isAsking_ = false;
  if (isEnded_) return;
  if (through <= after_) return end();
  after_ = through;
  take(std::make_shared<const std::string>(std::move(text)));
}

void EventStream::say(const std::string& text) {
  if (isEmpty()) take(std::make_shared<const std::string>(text));
}

void EventStream::take(std::shared_ptr<const std::string> text) {
  text_ = std::move(text);
  offset_ = 0;
}

}  // namespace brenloft::web

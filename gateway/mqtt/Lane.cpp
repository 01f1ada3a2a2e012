#include "gateway/mqtt/Lane.h"

#include <algorithm>

namespace brenloft {

Lane::Ticket Lane::begin(int64_t through) {
  read_ = std::max(read_, through);
  parts_.push_back({read_, false});
  return first_ + parts_.size() - 1;
}

void Lane::skip(int64_t through) {
  read_ = std::max(read_, through);
  advance();
}

void Lane::acknowledge(Ticket ticket) {
  if (ticket < first_ || ticket - first_ >= parts_.size()) return;
  parts_[ticket - first_].isDone = true;
  advance();
}

void Lane::rewind() {
  first_ += parts_.size();
  parts_.clear();
  read_ = cursor_;
}

void Lane::advance() {
  for (; !parts_.empty() && parts_.front().isDone; ++first_) {
    cursor_ = parts_.front().through;
    parts_.pop_front();
  }
  if (parts_.empty()) cursor_ = read_;
}

}  // namespace brenloft

#include "platform/bluetooth/capture/CaptureBuffer.h"

#include <algorithm>
#include <utility>

namespace platform {

CaptureBuffer::CaptureBuffer(std::unique_ptr<ByteSource> source)
    : source_(std::move(source)), octets_(kCapacity) {}

bool CaptureBuffer::fill() {
  const std::size_t count = source_->read(std::span(octets_).subspan(end_));
  end_ += count;
  filled_ += count;
  return count > 0;
}

DataView CaptureBuffer::peek(std::size_t count) {
  if (end_ - begin_ < count) {
    std::copy(octets_.data() + begin_, octets_.data() + end_, octets_.data());
    end_ -= begin_;
    begin_ = 0;
    while (end_ < count && fill()) {
    }
  }
  return DataView(octets_).subspan(begin_, std::min(count, end_ - begin_));
}

uint64_t CaptureBuffer::skip(uint64_t count) {
  uint64_t left = count;
  for (;;) {
    const auto step = static_cast<std::size_t>(std::min<uint64_t>(left, end_ - begin_));
    begin_ += step;
    left -= step;
    if (left == 0) return count;
    begin_ = end_ = 0;
    if (!fill()) return count - left;
  }
}

}  // namespace platform

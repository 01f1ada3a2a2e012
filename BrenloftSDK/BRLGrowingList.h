#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <iterator>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/foundation/Mutex.h"

/// A list that only grows. Elements never move.
///
/// Thread safety:
///  1. Appends are serialised by the list's own lock; readers take none.
///  2. An element is whole before the size that includes it is published.
///  3. A view fixes its length when it is made: elements appended meanwhile are not in it.
template <typename Element>
class BRLGrowingList {
 public:
  class Iterator {
   public:
    using value_type = Element;
    using difference_type = std::ptrdiff_t;
    using iterator_category = std::forward_iterator_tag;
    using reference = const Element&;
    using pointer = const Element*;

    Iterator() = default;
    Iterator(const BRLGrowingList* list, size_t index) : list_(list), index_(index) {}
    reference operator*() const { return list_->at(index_); }
    pointer operator->() const { return &list_->at(index_); }
    Iterator& operator++() {
      ++index_;
      return *this;
    }
    Iterator operator++(int) { return Iterator(list_, index_++); }
    friend bool operator==(const Iterator&, const Iterator&) = default;

   private:
    const BRLGrowingList* list_ = nullptr;
    size_t index_ = 0;
  };

  class View {
   public:
    View(const BRLGrowingList* list, size_t size) : list_(list), size_(size) {}
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    const Element& operator[](size_t index) const { return list_->at(index); }
    Iterator begin() const { return {list_, 0}; }
    Iterator end() const { return {list_, size_}; }

   private:
    const BRLGrowingList* list_;
    size_t size_;
  };

  BRLGrowingList() = default;
  ~BRLGrowingList() {
    for (auto& segment : segments_) delete[] segment.load(std::memory_order_relaxed);
  }
  BRLGrowingList(const BRLGrowingList&) = delete;
  BRLGrowingList& operator=(const BRLGrowingList&) = delete;

  size_t size() const { return size_.load(std::memory_order_acquire); }
  View view() const { return {this, size()}; }
  /// `index` must be below a size that was seen.
  const Element& operator[](size_t index) const { return at(index); }

  /// Returns the index of the new element.
  size_t append(Element element) {
    const std::scoped_lock lock(appendMutex_);
    const size_t index = size_.load(std::memory_order_relaxed);
    const Place place = placeOf(index);
    Element* segment = segments_[place.segment].load(std::memory_order_relaxed);
    if (segment == nullptr) {
      segment = new Element[place.capacity];
      segments_[place.segment].store(segment, std::memory_order_release);
    }
    segment[place.offset] = std::move(element);
    size_.store(index + 1, std::memory_order_release);
    return index;
  }

 private:
  // Segments of 8, 16, 32, … elements.
  static constexpr size_t kFirstSegment = 8;
  static constexpr size_t kSegments = 48;

  struct Place {
    size_t segment;
    size_t offset;
    size_t capacity;  // of the segment
  };

  static Place placeOf(size_t index) {
    const size_t run = std::bit_floor(index / kFirstSegment + 1);
    return {static_cast<size_t>(std::countr_zero(run)), index - kFirstSegment * (run - 1),
            kFirstSegment * run};
  }

  const Element& at(size_t index) const {
    const Place place = placeOf(index);
    return segments_[place.segment].load(std::memory_order_acquire)[place.offset];
  }

  platform::Mutex appendMutex_;
  std::atomic<size_t> size_{0};
  std::array<std::atomic<Element*>, kSegments> segments_{};
};

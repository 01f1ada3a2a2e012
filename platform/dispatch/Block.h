#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace platform {

/// What a queue runs: anything that can be called without arguments and copied. Small captures, such as a
/// weak pointer and a member function, lie in the block itself, so that submitting it takes no memory.
class dispatch_block_t {
 public:
  dispatch_block_t() = default;
  dispatch_block_t(std::nullptr_t) {}  // NOLINT(google-explicit-constructor): as a std::function
  template <class Work>
  requires(!std::same_as<std::remove_cvref_t<Work>, dispatch_block_t> && std::invocable<std::decay_t<Work>&>)
      // NOLINTNEXTLINE(*-explicit-constructor,*-forwarding-reference-overload): as a std::function
      dispatch_block_t(Work&& work) {
    using Kept = std::decay_t<Work>;
    if constexpr (std::same_as<Kept, std::function<void()>>) {
      if (!work) return;
    }
    keep<std::conditional_t<kFits<Kept>, Kept, Boxed<Kept>>>(std::forward<Work>(work));
  }
  dispatch_block_t(const dispatch_block_t& other) : kind_(other.kind_) {
    if (kind_ != nullptr) kind_->copy(other.room_, room_);
  }
  dispatch_block_t(dispatch_block_t&& other) noexcept : kind_(std::exchange(other.kind_, nullptr)) {
    if (kind_ != nullptr) kind_->move(other.room_, room_);
  }
  dispatch_block_t& operator=(dispatch_block_t other) noexcept {
    if (kind_ != nullptr) kind_->drop(room_);
    kind_ = std::exchange(other.kind_, nullptr);
    if (kind_ != nullptr) kind_->move(other.room_, room_);
    return *this;
  }
  ~dispatch_block_t() {
    if (kind_ != nullptr) kind_->drop(room_);
  }

  /// False for one that holds nothing, which must not be called.
  explicit operator bool() const { return kind_ != nullptr; }
  void operator()() const { kind_->run(room_); }

 private:
  struct Kind {
    void (*run)(void* work);
    void (*copy)(const void* from, void* to);
    void (*move)(void* from, void* to) noexcept;  ///< nothing is left behind
    void (*drop)(void* work) noexcept;
  };

  static constexpr std::size_t kRoom = 32;
  // NOLINTBEGIN(misc-redundant-expression): so it reads for some types
  template <class Work>
  static constexpr bool kFits = sizeof(Work) <= kRoom &&
                                alignof(Work) <= alignof(void*) && std::is_nothrow_move_constructible_v<Work>;
  // NOLINTEND(misc-redundant-expression)

  /// Work that has no room in the block.
  template <class Work>
  struct Boxed {
    template <class Given>
    explicit Boxed(std::in_place_t, Given&& given)
        : work(std::make_unique<Work>(std::forward<Given>(given))) {}
    Boxed(const Boxed& other) : work(std::make_unique<Work>(*other.work)) {}
    Boxed(Boxed&&) noexcept = default;
    void operator()() { (*work)(); }

    std::unique_ptr<Work> work;
  };

  template <class Work>
  static constexpr Kind kKind{
      .run = [](void* work) { (*static_cast<Work*>(work))(); },
      .copy = [](const void* from, void* to) { new (to) Work(*static_cast<const Work*>(from)); },
      .move =
          [](void* from, void* to) noexcept {
            auto* const work = static_cast<Work*>(from);
            new (to) Work(std::move(*work));
            work->~Work();
          },
      .drop = [](void* work) noexcept { static_cast<Work*>(work)->~Work(); },
  };

  template <class Work, class Given>
  void keep(Given&& given) {
    if constexpr (std::same_as<Work, std::decay_t<Given>>)
      new (room_) Work(std::forward<Given>(given));
    else
      new (room_) Work(std::in_place, std::forward<Given>(given));
    kind_ = &kKind<Work>;
  }

  const Kind* kind_ = nullptr;
  alignas(void*) mutable std::byte room_[kRoom];
};

}  // namespace platform

#pragma once

#include <concepts>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

namespace platform {

/// Why an operation failed. The kind is what callers tell apart; the text is one clear line for people.
struct Error {
  enum class Kind {
    failed,        ///< it worked, or could have, and did not
    busy,          ///< somebody else has it
    absent,        ///< nothing is there under that name
    off,           ///< it is there and switched off
    notPermitted,  ///< the process lacks a right
    unsupported,   ///< it can never be had here
  };

  Kind kind = Kind::failed;
  std::string text;

  friend bool operator==(const Error&, const Error&) = default;
};

/// What an operation gives, or why it gives nothing. An operation that gives nothing anyway returns
/// `std::optional<Error>`.
template <class T>
class [[nodiscard]] Result {
 public:
  template <std::convertible_to<T> U = T>
  requires(!std::same_as<std::remove_cvref_t<U>, Error> && !std::same_as<std::remove_cvref_t<U>, Result>)
      Result(U&& value)
      : state_(std::in_place_index<0>, std::forward<U>(value)) {}
  Result(Error error) : state_(std::in_place_index<1>, std::move(error)) {}

  /// Whether there is a value.
  explicit operator bool() const { return state_.index() == 0; }
  T& operator*() & { return std::get<0>(state_); }
  const T& operator*() const& { return std::get<0>(state_); }
  T&& operator*() && { return std::get<0>(std::move(state_)); }
  T* operator->() { return &std::get<0>(state_); }
  const T* operator->() const { return &std::get<0>(state_); }
  const Error& error() const { return std::get<1>(state_); }

 private:
  std::variant<T, Error> state_;
};

}  // namespace platform

#pragma once

#include <concepts>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

namespace platform {

/// Why an operation failed. The kind is what callers tell apart; the text is one clear line for people.
struct Error {
  enum class Kind {
    failed,        ///< it was tried, and did not work
    busy,          ///< somebody else has it
    absent,        ///< nothing is there under that name
    off,           ///< it is there and switched off
    notPermitted,  ///< the process lacks a right
    unsupported,   ///< it can never be had here
  };

  Kind kind = Kind::failed;
  std::string text;

  /// The same with its text behind the name of the file or thing it is about.
  Error in(std::string_view place) const { return {kind, std::string(place) + ": " + text}; }
  friend bool operator==(const Error&, const Error&) = default;
};

/// What an operation gives, or why it failed. True when it succeeded. Taking the value of a failed result
/// throws std::runtime_error with the error's text. An operation whose very question is what is wrong returns
/// `std::optional<Error>` instead.
template <class T = void>
class Result {
 public:
  template <std::convertible_to<T> U = T>
  requires(!std::same_as<std::remove_cvref_t<U>, Error> && !std::same_as<std::remove_cvref_t<U>, Result>)
      // NOLINTNEXTLINE(bugprone-forwarding-reference-overload): the line above keeps it from that
      Result(U&& value)
      : state_(std::in_place_index<0>, std::forward<U>(value)) {}
  Result(Error error) : state_(std::in_place_index<1>, std::move(error)) {}

  /// Whether there is a value.
  explicit operator bool() const { return state_.index() == 0; }
  T& operator*() & { return valueOf(*this); }
  const T& operator*() const& { return valueOf(*this); }
  /// A value of its own, so that `for (auto& one : *make())` goes over something that lives.
  T operator*() && { return std::move(valueOf(*this)); }
  T* operator->() { return &valueOf(*this); }
  const T* operator->() const { return &valueOf(*this); }
  T value_or(T other) const { return *this ? **this : std::move(other); }
  std::optional<T> toOptional() && { return *this ? std::optional(*std::move(*this)) : std::nullopt; }
  const Error& error() const { return std::get<1>(state_); }  ///< of a failed result only
  friend bool operator==(const Result& result, const T& value) { return result && *result == value; }

 private:
  template <class Self>
  static auto& valueOf(Self& self) {
    if (!self) throw std::runtime_error(self.error().text);
    return *std::get_if<0>(&self.state_);
  }

  std::variant<T, Error> state_;
};

/// Of an operation that has no value to give.
template <>
class Result<void> {
 public:
  Result() = default;
  Result(Error error) : error_(std::move(error)) {}

  explicit operator bool() const { return !error_; }
  const Error& error() const { return *error_; }  ///< of a failed result only

 private:
  std::optional<Error> error_;
};

}  // namespace platform

#pragma once

#include <utility>
#include <variant>

namespace lumerix {

// A value or the reason there is none. Failures travel as values across
// module boundaries so callers (and UI callbacks) never meet an exception.
template <class T, class E>
class Result {
 public:
  static Result success(T value) { return Result(std::in_place_index<0>, std::move(value)); }
  static Result failure(E error) { return Result(std::in_place_index<1>, std::move(error)); }

  bool ok() const { return state_.index() == 0; }
  explicit operator bool() const { return ok(); }

  T& value() & { return std::get<0>(state_); }
  const T& value() const& { return std::get<0>(state_); }
  T&& value() && { return std::get<0>(std::move(state_)); }
  const E& error() const { return std::get<1>(state_); }

 private:
  template <std::size_t I, class V>
  Result(std::in_place_index_t<I> tag, V&& v) : state_(tag, std::forward<V>(v)) {}

  std::variant<T, E> state_;
};

}  // namespace lumerix

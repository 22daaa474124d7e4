#pragma once
// Results of the host's object system: a value, or an error with a kind, a
// message and the place that raised it. Errors are carried upward by hand.
#include <optional>
#include <source_location>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

namespace zta {

enum class ErrorKind {
  IllegalArgument,
  IllegalState,
  OutOfMemory,
  InputOutput,
  Unexpected,
  NullPointer,
};

const char* ErrorKindName(ErrorKind kind);

class Error {
 public:
  Error(ErrorKind kind, std::string message, std::source_location where = std::source_location::current())
      : kind_(kind), message_(std::move(message)), file_(where.file_name()), line_(where.line()) {}

  ErrorKind GetKind() const { return kind_; }
  const std::string& GetMessage() const { return message_; }
  const char* GetFile() const { return file_; }
  unsigned GetLine() const { return line_; }
  // "message [file:line]", for logs and diagnostics.
  std::string ToString() const;

 private:
  ErrorKind kind_;
  std::string message_;
  const char* file_;
  unsigned line_;
};

inline Error IllegalArgumentError(std::string msg, std::source_location w = std::source_location::current()) {
  return Error(ErrorKind::IllegalArgument, std::move(msg), w);
}
inline Error IllegalStateError(std::string msg, std::source_location w = std::source_location::current()) {
  return Error(ErrorKind::IllegalState, std::move(msg), w);
}
inline Error OutOfMemoryError(std::string msg = {}, std::source_location w = std::source_location::current()) {
  return Error(ErrorKind::OutOfMemory, std::move(msg), w);
}
inline Error IoError(std::string msg, std::source_location w = std::source_location::current()) {
  return Error(ErrorKind::InputOutput, std::move(msg), w);
}
inline Error UnexpectedError(std::string msg, std::source_location w = std::source_location::current()) {
  return Error(ErrorKind::Unexpected, std::move(msg), w);
}
inline Error NullptrError(std::string msg, std::source_location w = std::source_location::current()) {
  return Error(ErrorKind::NullPointer, std::move(msg), w);
}

template <typename T>
class [[nodiscard]] Result {
 public:
  Result(T value) : v_(std::in_place_index<0>, std::move(value)) {}
  Result(Error error) : v_(std::in_place_index<1>, std::move(error)) {}
  template <typename U, typename = std::enable_if_t<std::is_constructible_v<T, U&&> && !std::is_same_v<std::decay_t<U>, Error>>>
  Result(U&& value) : v_(std::in_place_index<0>, T(std::forward<U>(value))) {}

  explicit operator bool() const { return v_.index() == 0; }
  bool IsOk() const { return v_.index() == 0; }
  bool IsError() const { return v_.index() == 1; }

  T& GetValue() & { return std::get<0>(v_); }
  const T& GetValue() const& { return std::get<0>(v_); }
  T&& GetValue() && { return std::get<0>(std::move(v_)); }
  T& operator*() & { return GetValue(); }
  const T& operator*() const& { return GetValue(); }
  T* operator->() { return &GetValue(); }
  const T* operator->() const { return &GetValue(); }

  const Error& GetError() const { return std::get<1>(v_); }

 private:
  std::variant<T, Error> v_;
};

template <>
class [[nodiscard]] Result<void> {
 public:
  Result() = default;
  Result(Error error) : e_(std::move(error)) {}
  template <typename T>
  Result(const Result<T>& other) {
    if (other.IsError()) e_ = other.GetError();
  }

  explicit operator bool() const { return !e_.has_value(); }
  bool IsOk() const { return !e_.has_value(); }
  bool IsError() const { return e_.has_value(); }
  const Error& GetError() const { return *e_; }

 private:
  std::optional<Error> e_;
};

inline Result<void> OK() { return {}; }

}  // namespace zta

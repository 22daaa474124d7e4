#pragma once
// Data: one typed value of the host's object system. DataDictionary: named
// values in insertion order, as metadata of files and commands.
#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "host/core/math.h"

namespace zta {

class Data {
 public:
  using Value = std::variant<std::monostate, bool, int32_t, int64_t, float, double, std::string, IntVector32,
                             Vector32, Vector64, IntVector2d32, Vector2d32, Vector2d64, Matrix4d32, Matrix4d64, Matrix>;

  Data() = default;
  template <typename T, typename = std::enable_if_t<std::is_constructible_v<Value, T&&> &&
                                                    !std::is_same_v<std::decay_t<T>, Data>>>
  Data(T&& v) : v_(std::forward<T>(v)) {}
  Data(const char* s) : v_(std::string(s)) {}

  bool IsEmpty() const { return v_.index() == 0; }
  template <typename T>
  bool Is() const { return std::holds_alternative<T>(v_); }
  template <typename T>
  const T& Get() const { return std::get<T>(v_); }
  template <typename T>
  const T* TryGet() const { return std::get_if<T>(&v_); }
  // The value as a number when it holds any scalar, else the default.
  double GetNumber(double def = 0.0) const;
  const Value& GetValue() const { return v_; }
  // Short name of the held type ("bool", "int32", "vec3s", ...), "none" when empty.
  const char* TypeName() const;

  bool operator==(const Data& o) const { return v_ == o.v_; }

 private:
  Value v_;
};

class DataDictionary {
 public:
  void Set(const std::string& key, Data value);
  // The stored value, or an empty Data.
  const Data& Get(const std::string& key) const;
  bool Contains(const std::string& key) const;
  bool Erase(const std::string& key);
  size_t GetCount() const { return entries_.size(); }

  auto begin() const { return entries_.begin(); }
  auto end() const { return entries_.end(); }
  bool operator==(const DataDictionary&) const = default;

 private:
  std::vector<std::pair<std::string, Data>> entries_;
};

}  // namespace zta

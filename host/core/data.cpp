#include "host/core/data.h"

#include <algorithm>

namespace zta {

double Data::GetNumber(double def) const {
  return std::visit(
      [def](const auto& x) -> double {
        using T = std::decay_t<decltype(x)>;
        if constexpr (std::is_arithmetic_v<T>) return static_cast<double>(x);
        else return def;
      },
      v_);
}

const char* Data::TypeName() const {
  static const char* const names[] = {"none",  "bool",  "int32", "int64", "float", "double", "string", "vec3i",
                                      "vec3s", "vec3d", "vec2i", "vec2s", "vec2d", "mat4s",  "mat4d",  "matrix"};
  return names[v_.index()];
}

void DataDictionary::Set(const std::string& key, Data value) {
  for (auto& e : entries_) {
    if (e.first == key) {
      e.second = std::move(value);
      return;
    }
  }
  entries_.emplace_back(key, std::move(value));
}

const Data& DataDictionary::Get(const std::string& key) const {
  static const Data empty;
  for (const auto& e : entries_)
    if (e.first == key) return e.second;
  return empty;
}

bool DataDictionary::Contains(const std::string& key) const {
  return std::any_of(entries_.begin(), entries_.end(), [&](const auto& e) { return e.first == key; });
}

bool DataDictionary::Erase(const std::string& key) {
  auto it = std::find_if(entries_.begin(), entries_.end(), [&](const auto& e) { return e.first == key; });
  if (it == entries_.end()) return false;
  entries_.erase(it);
  return true;
}

}  // namespace zta

#pragma once
// A registry of the host's core: entries under dotted ids, in insertion order.
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "host/core/result.h"

namespace zta {

template <typename T>
class Registry {
 public:
  explicit Registry(std::string id) : id_(std::move(id)) {}

  Result<void> Insert(const std::string& key, T value) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& e : entries_)
      if (e.first == key) return IllegalStateError("entry " + key + " is already registered in " + id_);
    entries_.emplace_back(key, std::move(value));
    return OK();
  }
  bool Erase(const std::string& key) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = entries_.begin(); it != entries_.end(); ++it) {
      if (it->first == key) {
        entries_.erase(it);
        return true;
      }
    }
    return false;
  }
  const T* Find(const std::string& key) const {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& e : entries_)
      if (e.first == key) return &e.second;
    return nullptr;
  }
  std::vector<std::pair<std::string, T>> GetEntries() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return entries_;
  }

 private:
  std::string id_;
  mutable std::mutex mutex_;
  std::vector<std::pair<std::string, T>> entries_;
};

}  // namespace zta

#include "host/core/data.h"

namespace zta {
// The core registry "net.zelmar.registry.moduleversioninfos": one dictionary per
// library that a module announces.
Registry<DataDictionary>& ModuleVersionInfos();
}  // namespace zta

namespace zta {
// Function tables that modules publish under numeric library ids.
Result<void> RegisterLibrary(int32_t id, const void* table);
void UnregisterLibrary(int32_t id);
const void* FindLibrary(int32_t id);
}  // namespace zta

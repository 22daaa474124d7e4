#include "host/core/registry.h"

namespace zta {

Registry<DataDictionary>& ModuleVersionInfos() {
  static Registry<DataDictionary> r("net.zelmar.registry.moduleversioninfos");
  return r;
}

}  // namespace zta

namespace zta {

namespace {
Registry<const void*>& Libraries() {
  static Registry<const void*> r("net.zelmar.registry.libraries");
  return r;
}
}  // namespace

Result<void> RegisterLibrary(int32_t id, const void* table) {
  if (!table) return NullptrError("library table is null");
  return Libraries().Insert(std::to_string(id), table);
}
void UnregisterLibrary(int32_t id) { Libraries().Erase(std::to_string(id)); }
const void* FindLibrary(int32_t id) {
  const auto* entry = Libraries().Find(std::to_string(id));
  return entry ? *entry : nullptr;
}

}  // namespace zta

#include "host/scene/customdataclass.h"

#include <map>
#include <mutex>

namespace zta {

namespace {
struct Classes {
  std::mutex mutex;
  std::map<Int32, std::unique_ptr<CustomDataTypeClass>> byId;
};

Classes& GetClasses() {
  static Classes c;
  return c;
}

void RegisterHostTypesOnce() {
  static std::once_flag once;
  std::call_once(once, [] { RegisterHostCustomDataTypes(); });
}
}  // namespace

bool RegisterCustomDataTypeClass(std::unique_ptr<CustomDataTypeClass> cls) {
  if (!cls) return false;
  Classes& c = GetClasses();
  std::lock_guard<std::mutex> lock(c.mutex);
  const Int32 id = cls->GetId();
  return c.byId.emplace(id, std::move(cls)).second;
}

const CustomDataTypeClass* FindCustomDataTypeClass(Int32 id) {
  RegisterHostTypesOnce();
  Classes& c = GetClasses();
  std::lock_guard<std::mutex> lock(c.mutex);
  auto it = c.byId.find(id);
  // Classes are never freed while registered; the pointer outlives the lock.
  return it == c.byId.end() ? nullptr : it->second.get();
}

bool UnregisterCustomDataTypeClass(Int32 id) {
  RegisterHostTypesOnce();
  Classes& c = GetClasses();
  std::lock_guard<std::mutex> lock(c.mutex);
  return c.byId.erase(id) > 0;
}

bool OpaqueCustomData::IsEqual(const CustomDataType& other) const {
  const auto* o = dynamic_cast<const OpaqueCustomData*>(&other);
  return o && typeId_ == o->typeId_ && level_ == o->level_ && bytes_ == o->bytes_;
}

}  // namespace zta

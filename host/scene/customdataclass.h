#pragma once
// The registry of custom data types. Each type's class says how its values go
// into a HyperFile and come back, how they are copied, and how their links
// follow a GetClone: a copied field list or item tree then points at the
// copied objects. Containers hold the values; the classes are looked up by
// the value's type id.
#include <memory>
#include <vector>

#include "host/core/types.h"
#include "host/scene/customdata.h"

namespace zta {

class AliasTrans;
class HyperFile;

class CustomDataTypeClass {
 public:
  virtual ~CustomDataTypeClass() = default;
  virtual Int32 GetId() const = 0;
  // A short lower-case name for people ("fieldlist", "spline").
  virtual const char* GetName() const = 0;
  // Raised when the written form changes; Read is given the level that wrote a value.
  virtual Int32 GetDiskLevel() const { return 0; }
  // Writes the value's own data (the stream frames it); false on failure.
  virtual bool Write(const CustomDataType& data, HyperFile& hf) const = 0;
  // A value from what Write wrote at `level`; null when the data are wrong,
  // after failing the stream with what was wrong.
  virtual std::unique_ptr<CustomDataType> Read(HyperFile& hf, Int32 level) const = 0;
  virtual std::unique_ptr<CustomDataType> Copy(const CustomDataType& data) const { return data.Clone(); }
  // A copy whose links to nodes that `trans` cloned point at the clones; null
  // when no link of the value moves.
  virtual std::unique_ptr<CustomDataType> TranslateLinks(const CustomDataType& data, const AliasTrans& trans) const {
    return nullptr;
  }
};

// False when the id is taken or the class is null.
bool RegisterCustomDataTypeClass(std::unique_ptr<CustomDataTypeClass> cls);
// The class of `id`, or null. The host's own types are registered on the first call.
const CustomDataTypeClass* FindCustomDataTypeClass(Int32 id);
// Tests and module end.
bool UnregisterCustomDataTypeClass(Int32 id);

// The host's own custom types (field lists, spline curves, ...); the registry
// calls it once. Defined by the host's services.
void RegisterHostCustomDataTypes();

// A custom value whose class this build does not know: the bytes its class
// wrote, kept so that the value is written back unchanged.
class OpaqueCustomData : public CustomDataType {
 public:
  OpaqueCustomData(Int32 typeId, Int32 level, std::vector<char> bytes)
      : typeId_(typeId), level_(level), bytes_(std::move(bytes)) {}
  Int32 GetCustomTypeId() const override { return typeId_; }
  std::unique_ptr<CustomDataType> Clone() const override { return std::make_unique<OpaqueCustomData>(*this); }
  bool IsEqual(const CustomDataType& other) const override;
  Int32 GetLevel() const { return level_; }
  const std::vector<char>& GetBytes() const { return bytes_; }

 private:
  Int32 typeId_;
  Int32 level_;
  std::vector<char> bytes_;
};

}  // namespace zta

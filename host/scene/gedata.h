#pragma once
// GeData: one typed value of a BaseContainer.
#include <memory>
#include <string>
#include <variant>

#include "host/core/math.h"
#include "host/core/types.h"
#include "host/scene/baselink.h"
#include "host/scene/basetime.h"
#include "host/scene/customdata.h"

namespace zta {

class BaseContainer;

enum class DATATYPE : Int32 {
  NONE = 0,
  INT32 = 1,
  INT64 = 2,
  BOOL = 3,
  FLOAT = 4,
  VECTOR = 5,
  MATRIX = 6,
  STRING = 7,
  TIME = 8,
  LINK = 9,
  CONTAINER = 10,
  CUSTOM = 11,
};

namespace detail {
// A nested container held by value: copies are deep.
class ContainerBox {
 public:
  ContainerBox();
  explicit ContainerBox(const BaseContainer& bc);
  ContainerBox(const ContainerBox& o);
  ContainerBox(ContainerBox&&) noexcept;
  ContainerBox& operator=(const ContainerBox& o);
  ContainerBox& operator=(ContainerBox&&) noexcept;
  ~ContainerBox();
  BaseContainer& Get() const { return *p_; }
  bool operator==(const ContainerBox& o) const;

 private:
  std::unique_ptr<BaseContainer> p_;
};
}  // namespace detail

class GeData {
 public:
  GeData() = default;
  GeData(Int32 v) : v_(v) {}
  GeData(Int64 v) : v_(v) {}
  GeData(bool v) : v_(v) {}
  GeData(Float v) : v_(v) {}
  GeData(const Vector& v) : v_(v) {}
  GeData(const Matrix& v) : v_(v) {}
  GeData(const String& v) : v_(v) {}
  GeData(const char* v) : v_(String(v)) {}
  GeData(const BaseTime& v) : v_(v) {}
  GeData(const BaseLink& v) : v_(v) {}
  GeData(const BaseContainer& v);
  GeData(std::shared_ptr<const CustomDataType> v) : v_(std::move(v)) {}
  // Copies share custom data, except values edited in place, which are cloned.
  GeData(const GeData& o);
  GeData& operator=(const GeData& o);
  GeData(GeData&&) noexcept = default;
  GeData& operator=(GeData&&) noexcept = default;

  DATATYPE GetType() const { return DATATYPE(v_.index()); }
  bool IsEmpty() const { return v_.index() == 0; }
  // For a custom value its registered type id, else 0.
  Int32 GetCustomTypeId() const;

  // Numbers convert among int32, int64, bool and float (bool is an integer to
  // the host); any other mismatch gives the default.
  Int32 GetInt32(Int32 def = 0) const;
  Int64 GetInt64(Int64 def = 0) const;
  bool GetBool(bool def = false) const;
  Float GetFloat(Float def = 0.0) const;
  Vector GetVector(const Vector& def = Vector()) const;
  Matrix GetMatrix(const Matrix& def = Matrix()) const;
  String GetString(const String& def = String()) const;
  BaseTime GetTime(const BaseTime& def = BaseTime()) const;
  // The link itself, empty when this holds no link.
  BaseLink GetBaseLink() const;
  BaseList2D* GetLink(const BaseDocument* doc, Int32 instanceOf = 0) const;
  // The nested container, or null.
  const BaseContainer* GetContainer() const;
  BaseContainer* GetContainerWritable();
  // The custom value when it is of `customTypeId` (any, for 0), else null.
  const CustomDataType* GetCustomData(Int32 customTypeId = 0) const;
  std::shared_ptr<const CustomDataType> GetCustomDataShared(Int32 customTypeId = 0) const;
  // The custom value for editing in place: only for a value of
  // `customTypeId` that is edited in place (never shared), else null.
  CustomDataType* GetCustomDataWritable(Int32 customTypeId);

  // Same type and value; custom values compare with IsEqual.
  bool operator==(const GeData& o) const;
  bool operator!=(const GeData& o) const { return !(*this == o); }

 private:
  void CloneEditedInPlace();
  std::variant<std::monostate, Int32, Int64, bool, Float, Vector, Matrix, String, BaseTime, BaseLink,
               detail::ContainerBox, std::shared_ptr<const CustomDataType>>
      v_;
};

}  // namespace zta

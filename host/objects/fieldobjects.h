#pragma once
// Objects that hold a field list in their parameters: the field object
// (1040449, under id 1000) and the field carrier (1019677, under 440000245).
#include <memory>

#include "host/fields/fieldlist.h"
#include "host/scene/baseobject.h"

namespace zta {

enum : Int32 {
  FIELDOBJECT_FIELDS = 1000,
  FIELDCARRIER_FIELDS = 440000245,
};

class FieldObject : public BaseObject {
 public:
  // An empty list is stored from the start.
  static std::unique_ptr<FieldObject> Alloc(Int32 type = HOST_TYPE_FIELD_OBJECT);
  Int32 GetInfo() const override { return OBJECT_FIELDCARRIER; }
  // The parameter id of the list for this object's type.
  Int32 GetFieldListId() const;
  std::shared_ptr<const FieldList> GetFieldList() const;
  void SetFieldList(const FieldList& list);

 protected:
  explicit FieldObject(Int32 type);
  std::unique_ptr<BaseList2D> AllocSame() const override { return Alloc(GetType()); }
};

// The field list of any field-carrying object (1040449, 1019677), else null.
std::shared_ptr<const FieldList> GetObjectFieldList(const BaseObject* op);

}  // namespace zta

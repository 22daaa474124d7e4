#include "host/objects/fieldobjects.h"

#include <new>

namespace zta {

FieldObject::FieldObject(Int32 type) : BaseObject(type) {
  GetDataInstance()->SetCustomData(GetFieldListId(), std::make_shared<FieldList>());
}

std::unique_ptr<FieldObject> FieldObject::Alloc(Int32 type) {
  if (type != HOST_TYPE_FIELD_OBJECT && type != HOST_TYPE_FIELD_CARRIER) return nullptr;
  struct Make : FieldObject {
    explicit Make(Int32 t) : FieldObject(t) {}
  };
  return std::unique_ptr<FieldObject>(new (std::nothrow) Make(type));
}

Int32 FieldObject::GetFieldListId() const {
  return GetType() == HOST_TYPE_FIELD_CARRIER ? FIELDCARRIER_FIELDS : FIELDOBJECT_FIELDS;
}

std::shared_ptr<const FieldList> FieldObject::GetFieldList() const {
  return GetDataInstance()->GetCustomDataTyped<FieldList>(GetFieldListId());
}

void FieldObject::SetFieldList(const FieldList& list) {
  GetDataInstance()->SetCustomData(GetFieldListId(), std::make_shared<FieldList>(list));
}

std::shared_ptr<const FieldList> GetObjectFieldList(const BaseObject* op) {
  if (!op) return nullptr;
  if (op->GetType() == HOST_TYPE_FIELD_OBJECT)
    return op->GetDataInstance()->GetCustomDataTyped<FieldList>(FIELDOBJECT_FIELDS);
  if (op->GetType() == HOST_TYPE_FIELD_CARRIER)
    return op->GetDataInstance()->GetCustomDataTyped<FieldList>(FIELDCARRIER_FIELDS);
  return nullptr;
}

}  // namespace zta

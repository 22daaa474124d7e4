#pragma once
// Custom data: typed values that a container holds by a registered type id
// (field lists, spline curves, item trees, ...). Containers share them
// immutably; a writer clones, edits and stores the clone. A value that its
// owner edits in place (an item tree, whose items others point at) is copied
// with every copy of its container instead, so that no two share it.
#include <memory>

#include "host/core/types.h"

namespace zta {

class CustomDataType {
 public:
  virtual ~CustomDataType() = default;
  virtual Int32 GetCustomTypeId() const = 0;
  virtual std::unique_ptr<CustomDataType> Clone() const = 0;
  virtual bool IsEqual(const CustomDataType& other) const = 0;
  virtual bool IsEditedInPlace() const { return false; }
};

}  // namespace zta

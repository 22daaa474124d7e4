#pragma once
// DescID names one parameter as a path of ids, the first naming the
// parameter. Description is the parameter list of a node, as the attribute
// panel would show it.
#include <initializer_list>
#include <vector>

#include "host/scene/basecontainer.h"

namespace zta {

class DescID {
 public:
  DescID() = default;
  DescID(Int32 id) : ids_{id} {}
  DescID(std::initializer_list<Int32> ids) : ids_(ids) {}
  Int32 GetDepth() const { return Int32(ids_.size()); }
  // The id at `level`, 0 past the end.
  Int32 operator[](Int32 level) const { return level >= 0 && level < GetDepth() ? ids_[size_t(level)] : 0; }
  // The parameter's own id, the first of the path.
  Int32 GetId() const { return (*this)[0]; }
  void PushId(Int32 id) { ids_.push_back(id); }
  bool operator==(const DescID&) const = default;

 private:
  std::vector<Int32> ids_;
};

enum : Int32 {
  DESCFLAGS_NONE = 0,
  DESCFLAGS_DESC_LOADED = 1,
  DESCFLAGS_GET_PARAM_GET = 2,
  DESCFLAGS_SET_PARAM_SET = 4,
};

class Description {
 public:
  // Loads the parameter list of the description resource of a registered type.
  // False when no such type is registered.
  bool LoadDescription(Int32 type);
  Int32 GetLoadedType() const { return loadedType_; }

  // The one parameter that the caller asks for, or null when it wants all.
  const DescID* GetSingleDescID() const { return single_ ? &singleId_ : nullptr; }
  void SetSingleDescID(const DescID& id) { singleId_ = id; single_ = true; }
  // Whether a parameter with `id` is wanted by the caller.
  bool CheckId(const DescID& id) const { return !single_ || singleId_.GetId() == id.GetId(); }

  // Adds or replaces a parameter; its settings say name, type, limits.
  void SetParameter(const DescID& id, const BaseContainer& settings);
  const BaseContainer* GetParameter(const DescID& id) const;
  // Hides (or shows) a parameter; false when it is not in the list.
  bool Hide(const DescID& id, bool hide = true);
  bool IsHidden(const DescID& id) const;
  Int32 GetCount() const { return Int32(params_.size()); }

 private:
  struct Entry {
    DescID id;
    BaseContainer settings;
    bool hidden = false;
  };
  Entry* Find(const DescID& id);
  const Entry* Find(const DescID& id) const;

  Int32 loadedType_ = 0;
  bool single_ = false;
  DescID singleId_;
  std::vector<Entry> params_;
};

}  // namespace zta

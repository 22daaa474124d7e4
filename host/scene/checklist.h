#pragma once
// Check list (custom data 1018397): named entries, each checked or not, such
// as the grids of a file a person picks from. Shared like other custom data:
// a writer clones, edits and stores the clone.
#include <vector>

#include "host/scene/customdata.h"

namespace zta {

enum : Int32 { CUSTOMDATATYPE_CHECKLIST = 1018397 };

class CheckListData : public CustomDataType {
 public:
  static constexpr Int32 kCustomTypeId = CUSTOMDATATYPE_CHECKLIST;

  Int32 GetCount() const { return Int32(entries_.size()); }
  // The entry's label, "" past the end.
  String GetName(Int32 index) const;
  // False past the end.
  bool IsChecked(Int32 index) const;
  // False (and unchanged) past the end.
  bool SetChecked(Int32 index, bool checked);
  // Replaces the entries by `names`, in order. An entry whose name was listed
  // before keeps its check; a new one comes checked.
  void SetEntries(const std::vector<String>& names);

  Int32 GetCustomTypeId() const override { return kCustomTypeId; }
  std::unique_ptr<CustomDataType> Clone() const override { return std::make_unique<CheckListData>(*this); }
  bool IsEqual(const CustomDataType& other) const override;

 private:
  struct Entry {
    String name;
    bool checked = true;
    bool operator==(const Entry&) const = default;
  };
  std::vector<Entry> entries_;
};

}  // namespace zta

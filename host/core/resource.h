#pragma once
// A module's string resource: numbered texts read from "strings.txt" in a
// resource folder. A line is `<id> "text"`; '#' at the start marks a comment.
#include <map>
#include <string>

#include "host/core/result.h"

namespace zta {

class StringResource {
 public:
  // Replaces the table by the one in `folder`; the old table stays on failure.
  Result<void> Load(const std::string& folder);
  bool IsLoaded() const { return loaded_; }
  // The text for `id`, or "" when the table has none.
  std::string Get(int id) const;
  const std::string& GetFolder() const { return folder_; }

 private:
  bool loaded_ = false;
  std::string folder_;
  std::map<int, std::string> strings_;
};

}  // namespace zta

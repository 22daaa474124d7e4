#include "host/scene/popup.h"

#include <string>

#include "host/scene/baselist2d.h"

namespace zta {

String PopupEntryText(Int32 type, const String& name) { return "&i" + std::to_string(type) + "&" + name; }

String PopupEntryName(const String& text) {
  if (text.rfind("&i", 0) != 0) return text;
  const size_t end = text.find('&', 2);
  return end == String::npos ? text : text.substr(end + 1);
}

std::vector<PopupEntry> GetPopupEntries(BaseList2D* node, const DescID& id, Int32 value) {
  DescriptionPopup popup{id, value, {}};
  if (!node || !node->Message(MSG_DESCRIPTION_POPUP, &popup)) return {};
  return std::move(popup.entries);
}

}  // namespace zta

#pragma once
// Popup buttons of a panel: when a person opens one, the panel asks the node
// for its entries (MSG_DESCRIPTION_POPUP); the choice reaches the node as a
// press of the button (PressButton) whose `values` hold the chosen id under
// the button's id.
#include <utility>
#include <vector>

#include "host/scene/description.h"

namespace zta {

enum : Int32 { MSG_DESCRIPTION_POPUP = 300001046 };

// One entry: the id that a choice sends, and its text. A text "&i<id>&<name>"
// shows the icon of the type <id> before the name.
using PopupEntry = std::pair<Int32, String>;

struct DescriptionPopup {
  DescID id;
  // Which popup of the parameter the panel opens (a parameter may have more).
  Int32 value = 0;
  std::vector<PopupEntry> entries;
};

// The text of an entry with the icon of `type`.
String PopupEntryText(Int32 type, const String& name);
// The name of an entry's text, without its icon part.
String PopupEntryName(const String& text);
// The entries `node` gives for its popup `id`; empty when it gives none.
std::vector<PopupEntry> GetPopupEntries(BaseList2D* node, const DescID& id, Int32 value);

}  // namespace zta

#pragma once
// What the host tells the nodes of a document when the document itself
// changes: events (loaded, saved, undone, an object added), asset
// collection, a new place on disk. Each walks every node of the document
// (scene hooks first, then objects, their tags and branches).
#include <vector>

#include "host/scene/basedocument.h"
#include "host/scene/messages.h"

namespace zta {

// Sends MSG_DOCUMENTINFO with a DocumentInfoData; false when a node's
// HandleMessage gave false (a save then stops).
bool SendDocumentEvent(BaseDocument* doc, Int32 type, Int32 subType = 0, const String& url = String(),
                       BaseList2D* object = nullptr);

// Asks every node for the files it uses (MSG_GETALLASSETS).
std::vector<AssetEntry> CollectAssets(BaseDocument* doc, Int32 flags, const String& targetPath = String());

// Moves the document to another folder or name and tells every node
// (MSG_NAMEORPATH_CHANGED). Nothing is sent when both stay.
void SetDocumentLocation(BaseDocument* doc, const String& folder, const String& name);

// Adds an object as the menu does: the new object hears MSG_MENUPREPARE,
// goes under `parent` (first at the top level when null) in an undo step of
// its own, becomes the only selected object, and the document hears
// DOCUMENTINFO_TYPE_OBJECT_ADDED. Null for a type that cannot be made.
BaseObject* CreateObjectFromMenu(BaseDocument* doc, Int32 type, BaseObject* parent = nullptr);

}  // namespace zta

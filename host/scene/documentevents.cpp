#include "host/scene/documentevents.h"

#include <algorithm>

#include "host/scene/nodewalk.h"
#include "host/scene/undo.h"

namespace zta {

void AssetData::Add(const String& url, BaseList2D* node, Int32 parameterId, Int32 firstFrame, Int32 lastFrame) {
  for (const AssetEntry& a : assets_)
    if (a.url == url && a.node == node && a.firstFrame == firstFrame) return;
  assets_.push_back({url, node, parameterId, firstFrame, lastFrame});
}

bool SendDocumentEvent(BaseDocument* doc, Int32 type, Int32 subType, const String& url, BaseList2D* object) {
  if (!doc) return false;
  DocumentInfoData info{type, subType, doc, url, object};
  bool ok = true;
  // Every node hears it, also after one has refused.
  ForEachNode(doc, [&](BaseList2D* n) {
    ok = n->Message(MSG_DOCUMENTINFO, &info) && ok;
    return false;
  });
  return ok;
}

std::vector<AssetEntry> CollectAssets(BaseDocument* doc, Int32 flags, const String& targetPath) {
  AssetData data(doc, targetPath, flags);
  ForEachNode(doc, [&](BaseList2D* n) {
    n->Message(MSG_GETALLASSETS, &data);
    return false;
  });
  return data.GetAssets();
}

void SetDocumentLocation(BaseDocument* doc, const String& folder, const String& name) {
  if (!doc || (doc->GetDocumentPath() == folder && doc->GetDocumentName() == name)) return;
  doc->SetDocumentPath(folder);
  doc->SetDocumentName(name);
  ForEachNode(doc, [](BaseList2D* n) {
    n->Message(MSG_NAMEORPATH_CHANGED);
    return false;
  });
}

BaseObject* CreateObjectFromMenu(BaseDocument* doc, Int32 type, BaseObject* parent) {
  if (!doc) return nullptr;
  std::unique_ptr<BaseObject> made = BaseObject::Alloc(type);
  if (!made) return nullptr;
  made->Message(MSG_MENUPREPARE);
  BaseObject* op = made.release();
  doc->StartUndo();
  doc->InsertObject(op, parent && parent->GetDocument() == doc ? parent : nullptr);
  doc->AddUndo(UNDOTYPE::NEWOBJ, op);
  doc->EndUndo();
  doc->SetActiveObject(op, SELECTION_NEW);
  SendDocumentEvent(doc, DOCUMENTINFO_TYPE_OBJECT_ADDED, 0, String(), op);
  doc->EventAdd();
  return op;
}

}  // namespace zta

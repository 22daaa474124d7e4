#include "host/scene/nodewalk.h"

#include <algorithm>
#include <vector>

#include "host/scene/nodedata.h"

namespace zta {

bool ForEachNode(BaseDocument* doc, const std::function<bool(BaseList2D*)>& visit) {
  if (!doc) return false;
  for (BaseList2D* hook = doc->GetFirstSceneHook(); hook; hook = static_cast<BaseList2D*>(hook->GetNext()))
    if (visit(hook)) return true;
  // Heads still to walk: the document's objects, then every branch met.
  std::vector<GeListHead*> heads{doc->GetObjectListHead()};
  while (!heads.empty()) {
    GeListHead* head = heads.back();
    heads.pop_back();
    for (GeListNode* n = head->GetFirst(); n; n = n->GetNextInTree(head)) {
      auto* node = static_cast<BaseList2D*>(n);
      if (visit(node)) return true;
      if (auto* op = dynamic_cast<BaseObject*>(node))
        for (BaseTag* tag = op->GetFirstTag(); tag; tag = tag->GetNext())
          if (visit(tag)) return true;
      if (NodeData* data = node->GetNodeData()) {
        BranchInfo branches[8];
        const Int32 count = std::min<Int32>(data->ListBranches(node, branches, 8, 0), 8);
        for (Int32 i = 0; i < count; ++i)
          if (branches[i].head) heads.push_back(branches[i].head);
      }
    }
  }
  return false;
}

BaseList2D* FindNode(BaseDocument* doc, UInt64 marker) {
  BaseList2D* found = nullptr;
  if (marker != 0) ForEachNode(doc, [&](BaseList2D* n) { return (found = n->GetMarker() == marker ? n : nullptr) != nullptr; });
  return found;
}

}  // namespace zta

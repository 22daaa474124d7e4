#pragma once
// Every node of a document: its scene hooks, its objects with their tags, and
// the nodes that objects keep in their branches (ListBranches), with theirs.
// Caches are not part of it: they are what evaluation made, not the scene.
#include <functional>

#include "host/scene/basedocument.h"

namespace zta {

// Calls `visit` for each node until it returns true; gives whether it did.
bool ForEachNode(BaseDocument* doc, const std::function<bool(BaseList2D*)>& visit);
// The node of the document with that marker, or null.
BaseList2D* FindNode(BaseDocument* doc, UInt64 marker);

}  // namespace zta

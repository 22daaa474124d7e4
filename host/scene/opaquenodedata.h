#pragma once
// The plug-in data of a node whose type no plug-in of this build registers:
// the bytes of its block in a scene file, with the disk level they were
// written at. The node keeps its place, parameters and tags; its plug-in data
// are written back unchanged, and a copy of the node copies them.
#include <vector>

#include "host/scene/nodedata.h"

namespace zta {

class OpaqueNodeData : public NodeData {
 public:
  OpaqueNodeData() = default;
  OpaqueNodeData(Int32 level, std::vector<char> bytes) : level_(level), bytes_(std::move(bytes)) {}

  bool CopyNode(NodeData* dest, const GeListNode* snode, GeListNode* dnode, Int32 flags,
                AliasTrans* trans) const override {
    auto* d = dynamic_cast<OpaqueNodeData*>(dest);
    if (!d) return false;
    d->level_ = level_;
    d->bytes_ = bytes_;
    return true;
  }

  void Set(Int32 level, std::vector<char> bytes) {
    level_ = level;
    bytes_ = std::move(bytes);
  }
  Int32 GetLevel() const { return level_; }
  const std::vector<char>& GetBytes() const { return bytes_; }

 private:
  Int32 level_ = 0;
  std::vector<char> bytes_;
};

}  // namespace zta

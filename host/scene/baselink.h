#pragma once
// BaseLink: a weak reference to a node. It names the node by its marker, so it
// survives a copy of the link and a reload of the scene, and it yields null
// once the node is gone or lives in another document than the one asked.
#include <memory>

#include "host/core/types.h"

namespace zta {

class BaseList2D;
class BaseDocument;

namespace detail {
// Shared between a node and the links to it; the node clears `node` as it dies.
struct NodeAnchor {
  BaseList2D* node = nullptr;
};
}  // namespace detail

class BaseLink {
 public:
  BaseLink() = default;
  explicit BaseLink(const BaseList2D* node) { SetLink(node); }

  void SetLink(const BaseList2D* node);
  // The node when it is alive and belongs to `doc` (any document, or none, when
  // doc is null), else the node of `doc` with the same marker, else null. A
  // non-zero `instanceOf` also demands that type.
  BaseList2D* GetLink(const BaseDocument* doc, Int32 instanceOf = 0) const;
  // The node while it lives, wherever it is.
  BaseList2D* ForceGetLink() const;
  bool IsEmpty() const { return marker_ == 0; }
  // A link to whatever node carries `marker`: how readers that know nodes by
  // their persistent ids (scene files) make links before or without the node.
  static BaseLink FromMarker(UInt64 marker) {
    BaseLink link;
    link.marker_ = marker;
    return link;
  }
  UInt64 GetMarker() const { return marker_; }

  bool operator==(const BaseLink& o) const { return marker_ == o.marker_; }

 private:
  friend class HyperFile;
  std::weak_ptr<detail::NodeAnchor> anchor_;
  UInt64 marker_ = 0;
};

}  // namespace zta

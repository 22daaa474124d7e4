#pragma once
// The node base. GeListNode is a position in a doubly linked tree; a node owns
// its children, a GeListHead owns the top level of a tree. BaseList2D adds
// the type id, name, parameter container, bits, dirty counters, the marker
// that links use, and the plug-in instance of the node's registered class.
#include <array>
#include <memory>
#include <unordered_map>

#include "host/core/types.h"
#include "host/scene/basecontainer.h"
#include "host/scene/hosttypes.h"

namespace zta {

class BaseDocument;
class GeListHead;
class NodeData;
class AliasTrans;

class GeListNode {
 public:
  GeListNode(const GeListNode&) = delete;
  GeListNode& operator=(const GeListNode&) = delete;
  // Frees the children; a node still in a tree is taken out first.
  virtual ~GeListNode();

  GeListNode* GetNext() const { return next_; }
  GeListNode* GetPrev() const { return prev_; }
  // The parent node; null at the top level of a list head.
  GeListNode* GetUp() const;
  GeListNode* GetDown() const { return down_; }
  GeListNode* GetDownLast() const;
  // The head whose tree holds this node, or null.
  GeListHead* GetListHead() const;
  bool IsInTree() const { return up_ != nullptr || prev_ != nullptr || next_ != nullptr; }

  // Insertion takes ownership of `this`, which must be free (released from
  // its unique_ptr, or taken out with Remove). Inserting a node under itself
  // or its own descendant is refused and returns false.
  bool InsertUnder(GeListNode* parent);
  bool InsertUnderLast(GeListNode* parent);
  bool InsertBefore(GeListNode* next);
  bool InsertAfter(GeListNode* prev);
  // Takes the node (with its children) out of its tree and hands it back.
  [[nodiscard]] std::unique_ptr<GeListNode> Remove();
  // Takes the node out and deletes it; null is allowed.
  static void Free(GeListNode* node);

  // The depth-first successor within the subtree of `root`, or null.
  GeListNode* GetNextInTree(const GeListNode* root) const;

  // Moves on with every insertion and removal of a node anywhere, and with
  // every change of a cache or a persistent id: what was found in a tree is
  // still there while the stamp stands.
  static UInt64 GetTreeStamp();
  static void TouchTreeStamp();

 protected:
  GeListNode() = default;
  virtual bool IsListHead() const { return false; }
  // Called on the node whose children were inserted or taken out (not while
  // a tree is being freed).
  virtual void ChildrenChanged() {}
  // What holds a node that tops a free tree: a generator holds its cache.
  virtual const GeListNode* GetHolder() const { return nullptr; }
  // The document above this node through heads, owners and holders.
  BaseDocument* FindDocument() const;
  // Deletes the children; derived destructors call it while they are whole.
  void FreeChildren();

 private:
  friend class GeListHead;
  bool CanInsert(const GeListNode* target) const;
  void Link(GeListNode* up, GeListNode* prev, GeListNode* next);
  void Unlink();

  GeListNode* up_ = nullptr;
  GeListNode* down_ = nullptr;
  GeListNode* next_ = nullptr;
  GeListNode* prev_ = nullptr;
};

// The root of a tree: owns the top-level nodes, knows its document and the
// node that owns it (an object, for its tag list).
class GeListHead : public GeListNode {
 public:
  GeListHead() = default;
  ~GeListHead() override;
  GeListNode* GetFirst() const { return GetDown(); }
  // Deletes every node of the tree.
  void FlushAll();

  BaseDocument* GetDocument() const { return document_; }
  void SetDocument(BaseDocument* doc) { document_ = doc; }
  GeListNode* GetOwner() const { return owner_; }
  void SetOwner(GeListNode* owner) { owner_ = owner; }

 protected:
  bool IsListHead() const override { return true; }
  // The document's or the owner's children counter moves.
  void ChildrenChanged() override;

 private:
  BaseDocument* document_ = nullptr;
  GeListNode* owner_ = nullptr;
};

class BaseList2D : public GeListNode {
 public:
  ~BaseList2D() override;

  Int32 GetType() const { return type_; }
  // The type itself, or a base type that the node's class belongs to
  // (HOST_TYPE_OBJECT for any object, HOST_TYPE_POINT for point objects, ...).
  virtual bool IsInstanceOf(Int32 type) const { return type == type_; }

  const String& GetName() const { return name_; }
  void SetName(const String& name);

  BaseContainer* GetDataInstance() { return &data_; }
  const BaseContainer* GetDataInstance() const { return &data_; }

  // The plug-in instance of the class registered for the node's type, or null.
  NodeData* GetNodeData() const { return nodeData_.get(); }
  template <typename T>
  T* GetNodeData() const { return dynamic_cast<T*>(nodeData_.get()); }

  // The document the node lives in: through its list head, the object that
  // owns its list, or the object whose cache it is. Null for a free node.
  virtual BaseDocument* GetDocument() const;

  // Sends a message to the node's plug-in; true when no plug-in stopped it.
  bool Message(Int32 id, void* data = nullptr);

  UInt32 GetBit(UInt32 mask) const { return bits_ & mask; }
  UInt32 GetAllBits() const { return bits_; }
  void SetBit(UInt32 mask) { bits_ |= mask; }
  void DelBit(UInt32 mask) { bits_ &= ~mask; }

  // Numbered node bits 0 to 127, copied with the node. Out-of-range numbers
  // read as clear and cannot be changed.
  bool GetNBit(Int32 bit) const;
  // Returns the bit's value before the change; false for a bad number.
  bool ChangeNBit(Int32 bit, NBITCONTROL control);

  // The sum of the counters of every flag bit set; DATA includes every change
  // of the parameter container.
  UInt32 GetDirty(UInt32 flags) const;
  // GetDirty over the node and everything below it (children, tags, caches).
  UInt32 GetHDirty(UInt32 flags) const;
  // Raises the counter of every flag bit set, and the document's change count.
  void SetDirty(UInt32 flags);

  // The node's identity for links; stays with the node for its life.
  UInt64 GetMarker() const { return marker_; }
  std::shared_ptr<detail::NodeAnchor> GetAnchor() const { return anchor_; }

  // A copy of the node, its parameters, plug-in data and (unless
  // COPYFLAGS_NO_HIERARCHY) its children. `trans` records old to new nodes.
  std::unique_ptr<BaseList2D> GetClone(Int32 flags = COPYFLAGS_NONE, AliasTrans* trans = nullptr) const;

 protected:
  explicit BaseList2D(Int32 type);
  // A blank node of the same class and type, for GetClone.
  virtual std::unique_ptr<BaseList2D> AllocSame() const = 0;
  // Copies what the class adds into `dest`, a blank of the same class.
  virtual bool CopyTo(BaseList2D* dest, Int32 flags, AliasTrans* trans) const;
  // The extra dirty sum of GetHDirty below this node.
  virtual UInt32 GetHDirtyBelow(UInt32 flags) const;
  // Attaches the plug-in instance, fills the container with the defaults of
  // the type's description and runs InitNode; false when InitNode refuses.
  bool AttachNodeData(std::unique_ptr<NodeData> data);
  void ChildrenChanged() override { SetDirty(DIRTYFLAGS_CHILDREN); }
  void SetMarker(UInt64 marker) {
    marker_ = marker;
    TouchTreeStamp();
  }

 private:
  friend class BaseDocument;
  friend class HyperFile;
  friend class SceneJsonReader;
  // Raises the counter of new markers past `marker`: nodes made after a load
  // never take an id that a loaded node carries.
  static void ReserveMarker(UInt64 marker);
  Int32 type_;
  String name_;
  BaseContainer data_;
  UInt32 bits_ = 0;
  std::array<UInt64, 2> nbits_{};
  std::array<UInt32, 7> dirty_{};  // bits 1 to 7 of the flag word
  UInt64 marker_;
  std::shared_ptr<detail::NodeAnchor> anchor_;
  std::unique_ptr<NodeData> nodeData_;
};

// Records the clones of a GetClone pass so that links among the copied nodes
// can be pointed at the copies.
class AliasTrans {
 public:
  void Add(const BaseList2D* original, BaseList2D* clone);
  // The clone of `original`, or null.
  BaseList2D* Translate(const BaseList2D* original) const;
  // The clone of a link's node as a link, or the link unchanged.
  BaseLink Translate(const BaseLink& link) const;

 private:
  // Hash maps: a clone of many thousands of nodes translates each link at
  // once. Links read from a file know their node by its id alone.
  std::unordered_map<const BaseList2D*, BaseList2D*> pairs_;
  std::unordered_map<UInt64, BaseList2D*> byMarker_;
};

// Clones `first` and each sibling after it, in order, as the last children of
// `parent` (a node or a list head). False when a clone fails; the clones made
// until then stay under `parent`.
bool CloneSiblingsUnder(const GeListNode* first, GeListNode* parent, Int32 flags, AliasTrans* trans);

// Walks `root` and everything below it without recursion: pop, push the next
// sibling (not of the root), push the first child.
template <typename F>
void WalkTree(GeListNode* root, F&& visit) {
  for (GeListNode* n = root; n; n = n->GetNextInTree(root)) visit(n);
}

}  // namespace zta

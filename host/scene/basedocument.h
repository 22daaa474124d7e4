#pragma once
// BaseDocument: the scene. It owns its object tree and its scene hooks, and
// holds the time, the frame rate and range, the active object, where it was
// loaded from, and the change count that every SetDirty raises. Its settings
// (its unit under DOCUMENT_DOCUNIT, see unitscale.h) stand in its container.
#include <functional>
#include <memory>
#include <shared_mutex>
#include <unordered_map>
#include <vector>

#include "host/scene/basetime.h"
#include "host/scene/baseobject.h"
#include "host/scene/undo.h"

namespace zta {

enum : Int32 { SELECTION_NEW = 0, SELECTION_ADD = 1, SELECTION_SUB = 2 };
enum : Int32 { GETACTIVEOBJECTFLAGS_NONE = 0, GETACTIVEOBJECTFLAGS_CHILDREN = 1 };

class BaseDocument : public BaseList2D {
 public:
  static std::unique_ptr<BaseDocument> Alloc();
  ~BaseDocument() override;

  BaseDocument* GetDocument() const override { return const_cast<BaseDocument*>(this); }

  BaseObject* GetFirstObject() const { return static_cast<BaseObject*>(objects_.GetFirst()); }
  GeListHead* GetObjectListHead() { return &objects_; }
  // Inserts under `parent` after `pred` (first when null; at the top level
  // when parent is null). The document takes ownership.
  void InsertObject(BaseObject* op, BaseObject* parent = nullptr, BaseObject* pred = nullptr);
  // The first object with that name, depth first.
  BaseObject* SearchObject(const String& name) const;
  // The node of the document's objects, tags, caches, plug-in branches and
  // scene hooks with that marker. An index keeps it from walking the scene for
  // each link; the index is made again when the trees have changed.
  BaseList2D* FindByMarker(UInt64 marker) const;
  // Visits every node of the document: the objects depth first, each with its
  // tags, the nodes of its plug-in branches (ListBranches) and, with `caches`,
  // its caches; then the scene hooks. `visit` returns true to stop.
  void ForEachNode(const std::function<bool(BaseList2D*)>& visit, bool caches = true) const;

  BaseTime GetTime() const { return time_; }
  void SetTime(const BaseTime& t);
  Int32 GetFps() const { return fps_; }
  // Frame rates below 1 are refused.
  bool SetFps(Int32 fps);
  BaseTime GetMinTime() const { return minTime_; }
  BaseTime GetMaxTime() const { return maxTime_; }
  // A range whose end lies before its start is refused.
  bool SetTimeRange(const BaseTime& min, const BaseTime& max);

  // Selection. The active object is the one selected last; BIT_ACTIVE marks
  // every selected object. NEW selects `op` alone (null clears), ADD adds it,
  // SUB takes it out.
  BaseObject* GetActiveObject() const;
  void SetActiveObject(BaseObject* op, Int32 mode = SELECTION_NEW);
  // The selected objects in tree order; without GETACTIVEOBJECTFLAGS_CHILDREN
  // a selected object's selected descendants are left out.
  std::vector<BaseObject*> GetActiveObjects(Int32 flags = GETACTIVEOBJECTFLAGS_NONE) const;

  const String& GetDocumentPath() const { return path_; }
  void SetDocumentPath(const String& folder) { path_ = folder; }
  const String& GetDocumentName() const { return docName_; }
  void SetDocumentName(const String& name) { docName_ = name; }

  // Scene hooks: one node per registered hook, made on first request.
  BaseList2D* FindSceneHook(Int32 id);
  BaseList2D* GetFirstSceneHook() const { return static_cast<BaseList2D*>(hooks_.GetFirst()); }
  GeListHead* GetSceneHookListHead() { return &hooks_; }
  // Appends a hook node of `id` run by `data`, registered or not: how a scene
  // file keeps the hook of a plug-in that is missing. Null when InitNode fails.
  BaseList2D* InsertSceneHook(Int32 id, std::unique_ptr<NodeData> data);

  // Undo (undo.h): a step groups the AddUndo calls between Start and End.
  // DoUndo and DoRedo send DOCUMENTINFO_TYPE_UNDO and _REDO when they did something.
  bool StartUndo();
  bool AddUndo(UNDOTYPE type, BaseList2D* node);
  bool EndUndo();
  Int32 GetUndoCount() const;
  Int32 GetRedoCount() const;
  bool DoUndo();
  bool DoRedo();

  // Something changed that the views and the evaluation pass should see.
  void EventAdd() { ++events_; }
  UInt32 GetEventCount() const { return events_; }
  // Raised by every SetDirty of a node in the document.
  UInt32 GetChangeCount() const { return changes_; }
  void NoteChange() { ++changes_; }

 protected:
  BaseDocument();
  std::unique_ptr<BaseList2D> AllocSame() const override;
  bool CopyTo(BaseList2D* dest, Int32 flags, AliasTrans* trans) const override;
  UInt32 GetHDirtyBelow(UInt32 flags) const override;

 private:
  GeListHead objects_;
  GeListHead hooks_;
  BaseTime time_;
  Int32 fps_ = 30;
  BaseTime minTime_{0, 1};
  BaseTime maxTime_{90, 30};
  BaseLink active_;
  String path_;
  String docName_ = "Untitled 1";
  UInt32 events_ = 0;
  UInt32 changes_ = 0;
  std::unique_ptr<UndoBuffer> undo_;
  // FindByMarker's index: weak anchors, so an entry never outlives its node.
  mutable std::shared_mutex markerMutex_;
  mutable std::unordered_map<UInt64, std::weak_ptr<detail::NodeAnchor>> markerIndex_;
  mutable UInt64 markerStamp_ = 0;
};

inline std::unique_ptr<BaseDocument> AllocDocument() { return BaseDocument::Alloc(); }

}  // namespace zta

#pragma once
// Plug-in classes that the host tests register: a generator that counts its
// builds, a modifier, and an object that records its place in the priority
// list. Registered once per process under ids of their own.
#include <string>
#include <vector>

#include "host/objects/polygonobject.h"
#include "host/scene/basedocument.h"
#include "host/scene/execution.h"
#include "host/scene/plugins.h"

namespace hosttest {

using namespace zta;

enum : Int32 {
  ID_COUNTING_GENERATOR = 1999101,
  ID_OFFSET_MODIFIER = 1999102,
  ID_RECORDING_OBJECT = 1999103,
  ID_RECORDING_TAG = 1999104,
  ID_LINKING_GENERATOR = 1999105,
  ID_PLAIN_VOLUME = 1999106,
};

// Parameters of the test classes.
enum : Int32 {
  TEST_SIZE = 1000,    // float
  TEST_FAIL = 1001,    // bool: the build gives null
  TEST_LINK = 1002,    // link: the object a linking generator reads
  TEST_OFFSET = 1003,  // vector: the modifier's shift
};

// Where calls land, in order, as "name:what".
inline std::vector<std::string>& Journal() {
  static std::vector<std::string> j;
  return j;
}

// A generator that consumes its children through hierarchy clones and puts
// the copies under a Null, with a polygon of TEST_SIZE points first. It builds
// whenever it is asked, so the count is the host's doing.
class CountingGenerator : public ObjectData {
 public:
  BaseObject* BuildVirtualObjects(BaseObject* op, const HierarchyHelp* hh) override {
    ++builds;
    Journal().push_back(op->GetName() + ":build");
    if (stopOnBuild && hh->GetThread()) hh->GetThread()->End();
    if (op->GetDataInstance()->GetBool(TEST_FAIL)) return nullptr;
    auto root = BaseObject::Alloc(HOST_TYPE_NULL);
    auto marker = PolygonObject::Alloc(Int32(op->GetDataInstance()->GetFloat(TEST_SIZE, 1.0)), 0);
    marker->SetName(op->GetName() + ".points");
    marker.release()->InsertUnderLast(root.get());
    BeginDependenceList(op);
    lastDirty.clear();
    for (BaseObject* c = op->GetDown(); c; c = c->GetNext()) {
      bool dirty = false;
      auto clone = GetHierarchyClone(hh, c, HIERARCHYCLONEFLAGS_ASPOLY | HIERARCHYCLONEFLAGS_ASSPLINE, &dirty);
      lastDirty.push_back(dirty);
      if (clone) clone.release()->InsertUnderLast(root.get());
    }
    return root.release();
  }
  int builds = 0;
  bool stopOnBuild = false;
  std::vector<bool> lastDirty;
};

// A generator that reads one linked object (TEST_LINK) where it stands in
// the world and keeps its cache while that object does not change.
class LinkingGenerator : public ObjectData {
 public:
  BaseObject* BuildVirtualObjects(BaseObject* op, const HierarchyHelp* hh) override {
    ++builds;
    BeginDependenceList(op);
    auto* linked = static_cast<BaseObject*>(op->GetDataInstance()->GetLink(TEST_LINK, hh->GetDocument(), HOST_TYPE_OBJECT));
    auto root = BaseObject::Alloc(HOST_TYPE_NULL);
    if (linked) {
      AddDependence(op, linked);
      lastDifferences = CheckDependenceList(op);
      root->SetMl(MatrixMove(linked->GetMg().off));
    }
    return root.release();
  }
  int builds = 0;
  Int32 lastDifferences = -1;
};

// Shifts every point of what it deforms by TEST_OFFSET. CheckDirtyState marks
// the modifier dirty when `external` moved, as a modifier reading something
// outside the scene would.
class OffsetModifier : public ObjectData {
 public:
  bool ModifyObject(BaseObject* mod, BaseDocument*, BaseObject* op, const Matrix&, const Matrix&, Float, Int32,
                    ZTAThread*) override {
    ++modifies;
    auto* poly = dynamic_cast<PolygonObject*>(op);
    if (!poly) return true;
    const Vector d = mod->GetDataInstance()->GetVector(TEST_OFFSET);
    for (Int32 i = 0; i < poly->GetPointCount(); ++i) poly->GetPointW()[i] += d;
    return true;
  }
  void CheckDirtyState(BaseObject* op, BaseDocument*) override {
    if (external != seen) {
      seen = external;
      op->SetDirty(DIRTYFLAGS_DATA);
    }
  }
  int modifies = 0;
  int external = 0, seen = 0;
};

// Enters the priority list at the priorities in `priorities` and journals
// each call; priority 2500 frees the object named in TEST_LINK.
class RecordingObject : public ObjectData {
 public:
  bool AddToExecution(BaseObject* op, PriorityList* list) override {
    for (Int32 p : priorities) list->Add(op, p);
    return !priorities.empty();
  }
  EXECUTIONRESULT ExecuteObject(BaseObject* op, BaseDocument* doc, ZTAThread*, Int32 priority, Int32) override {
    Journal().push_back(op->GetName() + ":" + std::to_string(priority));
    if (priority == 2500) GeListNode::Free(op->GetDataInstance()->GetLink(TEST_LINK, doc));
    return breakAt == priority ? EXECUTIONRESULT::USERBREAK : EXECUTIONRESULT::OK;
  }
  std::vector<Int32> priorities;
  Int32 breakAt = -1;
};

// An expression tag that does not enter itself: the host runs it at the
// expression priority.
class RecordingTag : public TagData {
 public:
  EXECUTIONRESULT ExecuteTag(BaseTag* tag, BaseDocument*, BaseObject* op, ZTAThread*, Int32 priority, Int32) override {
    Journal().push_back(op->GetName() + ".tag:" + std::to_string(priority));
    return EXECUTIONRESULT::OK;
  }
};

inline void RegisterTestPlugins() {
  static const bool done = [] {
    RegisterObjectPlugin(ID_COUNTING_GENERATOR, "Counting generator", OBJECT_GENERATOR | OBJECT_INPUT,
                         [] { return std::make_unique<CountingGenerator>(); }, "", 0);
    RegisterObjectPlugin(ID_LINKING_GENERATOR, "Linking generator", OBJECT_GENERATOR,
                         [] { return std::make_unique<LinkingGenerator>(); }, "", 0);
    RegisterObjectPlugin(ID_OFFSET_MODIFIER, "Offset modifier", OBJECT_MODIFIER,
                         [] { return std::make_unique<OffsetModifier>(); }, "", 0);
    RegisterObjectPlugin(ID_RECORDING_OBJECT, "Recording object", 0, [] { return std::make_unique<RecordingObject>(); },
                         "", 0);
    RegisterObjectPlugin(ID_PLAIN_VOLUME, "Plain volume", 0, [] { return std::make_unique<ObjectData>(); }, "", 0);
    RegisterTagPlugin(ID_RECORDING_TAG, "Recording tag", TAG_EXPRESSION, [] { return std::make_unique<RecordingTag>(); },
                      "", 0);
    return true;
  }();
  (void)done;
}

// A new object of `type` named `name`, inserted under `parent` (top level
// when null) as its last child.
inline BaseObject* Add(BaseDocument* doc, Int32 type, const std::string& name, BaseObject* parent = nullptr) {
  BaseObject* op = BaseObject::Alloc(type).release();
  op->SetName(name);
  if (parent) op->InsertUnderLast(parent);
  else op->InsertUnderLast(doc->GetObjectListHead());
  return op;
}

template <typename T>
T* Data(BaseObject* op) {
  return op->GetNodeData<T>();
}

}  // namespace hosttest

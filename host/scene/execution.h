#pragma once
// The evaluation of a document: the priority list, the generator and modifier
// pass that fills caches, hierarchy clones and dependence lists. The contract
// between the pass and the generators is written in docs/host.md; the short
// form stands beside each operation below.
#include <memory>
#include <vector>

#include "host/scene/basedocument.h"
#include "host/scene/nodedata.h"

namespace zta {

// Priorities of the list. The caches are built between the entries below
// EXECUTIONPRIORITY_GENERATOR and those at or above it.
enum : Int32 {
  EXECUTIONPRIORITY_INITIAL = 1000,
  EXECUTIONPRIORITY_ANIMATION = 2000,
  EXECUTIONPRIORITY_EXPRESSION = 3000,
  EXECUTIONPRIORITY_DYNAMICS = 4000,
  EXECUTIONPRIORITY_GENERATOR = 5000,
};

// Which passes ExecutePasses runs. ExecuteObject and ExecuteTag get them, with
// the flags their entry was added with.
enum : Int32 {
  EXECUTIONFLAGS_NONE = 0,
  EXECUTIONFLAGS_EXPRESSION = 4,     // the priority list
  EXECUTIONFLAGS_CACHEBUILDING = 8,  // generators and modifiers
  EXECUTIONFLAGS_ALL = EXECUTIONFLAGS_EXPRESSION | EXECUTIONFLAGS_CACHEBUILDING,
};

// What a build is for, as HierarchyHelp::GetBuildFlags tells it. Zero is the
// editor's view.
enum : Int32 {
  BUILDFLAGS_NONE = 0,
  BUILDFLAGS_INTERNALRENDERER = 2,
  BUILDFLAGS_EXTERNALRENDERER = 4,
  BUILDFLAGS_ISOPARM = 8,
};

// What GetHierarchyClone gives. ASIS copies the objects as they are; any
// other flag gives the current state, each generator replaced by its cache and
// each deformed object by its deform cache, and keeps the kinds asked for:
// polygon objects (ASPOLY), splines (ASSPLINE, or as line objects with ASLINE
// alone) and every other object (ASVOLUME). What is not asked for becomes a
// Null, so that the hierarchy and its matrices stay.
enum : Int32 {
  HIERARCHYCLONEFLAGS_NONE = 0,
  HIERARCHYCLONEFLAGS_ASIS = 1,
  HIERARCHYCLONEFLAGS_ASPOLY = 2,
  HIERARCHYCLONEFLAGS_ASLINE = 4,
  HIERARCHYCLONEFLAGS_ASSPLINE = 8,
  HIERARCHYCLONEFLAGS_ASVOLUME = 16,
};

// The list that AddToExecution and AddTagToExecution fill. Entries run by
// priority, and in document order among equal priorities.
class PriorityList {
 public:
  // Enters an object or a tag; `flags` reach its ExecuteObject/ExecuteTag.
  void Add(BaseList2D* node, Int32 priority, Int32 flags = EXECUTIONFLAGS_NONE);

 private:
  friend class PassRunner;
  struct Entry {
    BaseList2D* node;
    std::weak_ptr<detail::NodeAnchor> anchor;
    Int32 priority;
    Int32 flags;
  };
  std::vector<Entry> entries_;
};

// Evaluates `doc` on the calling thread: the priority list entries below
// EXECUTIONPRIORITY_GENERATOR, then generators and modifiers in tree order,
// then the remaining entries. `thread` (null for none) is polled between
// entries and after every build; a stop request ends the pass at once and
// keeps every cache that stood. False when stopped or without a document.
bool ExecutePasses(BaseDocument* doc, const ThreadRef& thread, Int32 flags = EXECUTIONFLAGS_ALL,
                   Int32 buildFlags = BUILDFLAGS_NONE);

// Builds the caches of `op` and its hierarchy as a pass would, with these
// build flags, and stores them on the objects. The object may be outside a
// document. False when stopped.
bool BuildCaches(BaseObject* op, const ThreadRef& thread, Int32 buildFlags = BUILDFLAGS_NONE);

// The build flags of the last build that `op`'s cache came from, -1 before any.
Int32 GetCacheBuildFlags(const BaseObject* op);

// For a generator inside BuildVirtualObjects: evaluates `op` and everything
// below it, and gives a copy of it as `flags` ask (see above); the caller
// owns it, null when `op` is null or memory ran out. `op` joins the
// generator's dependence list. `dirty` (may be null) tells whether `op`'s
// hierarchy changed since the generator's last successful build. `trans`
// records originals and copies.
std::unique_ptr<BaseObject> GetHierarchyClone(const HierarchyHelp* hh, BaseObject* op, Int32 flags, bool* dirty,
                                              AliasTrans* trans = nullptr);

// A generator's dependence list: the objects its cache was made from. The
// list of the last successful build is kept; Begin starts a new one, which
// GetHierarchyClone and AddDependence fill.
void BeginDependenceList(BaseObject* generator);
// Adds an object that the generator reads without cloning it, such as a
// linked reference: its hierarchy and where it stands in the world count.
void AddDependence(BaseObject* generator, BaseObject* op);
// The number of differences between the new list and the last build's: objects
// that joined, left, or changed since then. Zero means the inputs stand.
Int32 CheckDependenceList(BaseObject* generator);
// Takes the new list as the generator's inputs now: they are no longer drawn
// or walked by the pass on their own. The pass does this after every
// successful build.
void TouchDependenceList(BaseObject* generator);

// Whether a generator consumes `op` (it is in a dependence list): an input is
// neither drawn nor exported, and the pass leaves it to its generator.
bool IsInputObject(const BaseObject* op);

// What a document shows: every object that is drawn or exported, with its
// global matrix. Generators give their (deformed) caches, deformed objects
// their deform caches; inputs, modifiers, Nulls and hidden objects give
// nothing. `render` reads the render visibility instead of the editor's.
struct VisibleObject {
  const BaseObject* op;
  Matrix mg;
};
std::vector<VisibleObject> GetVisibleObjects(const BaseDocument* doc, bool render = false);

}  // namespace zta

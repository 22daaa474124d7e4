#include "host/scene/execution.h"

#include <algorithm>
#include <unordered_set>

namespace zta {

namespace detail {

// One object a generator's cache was made from, with the checksum it had.
struct DependenceEntry {
  BaseLink link;
  UInt64 sum = 0;
  // Inside the generator: only its place below the generator counts, so that
  // moving the generator rebuilds nothing.
  bool relative = true;
};

struct EvalRecord {
  // The last successful build of a generator.
  bool built = false;
  UInt64 selfSum = 0;
  UInt64 childSum = 0;
  BaseTime time;
  Int32 buildFlags = -1;
  // Set while the object's build runs, so that a cycle of links ends.
  bool building = false;
  std::vector<DependenceEntry> committed;
  std::vector<DependenceEntry> pending;
  // The deform cache and what it was made from.
  UInt64 deformSum = 0;
  // How many generators list this object as an input.
  Int32 consumers = 0;

  ~EvalRecord();
};

void EvalRecordDelete::operator()(EvalRecord* record) const { delete record; }

}  // namespace detail

detail::EvalRecord& BaseObject::MakeEvalRecord() {
  if (!eval_) eval_.reset(new detail::EvalRecord());
  return *eval_;
}

namespace {

using detail::DependenceEntry;
using detail::EvalRecord;

// Checksums. Dirty counters only grow, so a node's counter sum changes with
// every change of the node; mixing it with the node's marker in walk order
// also catches nodes that came, went or moved.
inline UInt64 Mix(UInt64 h, UInt64 v) { return h ^ (v + 0x9e3779b97f4a7c15ull + (h << 6) + (h >> 2)); }

// A node's own state: parameters and description. Its matrix and its cache
// are the generator's own business and rebuild nothing.
constexpr UInt32 kOwnFlags = DIRTYFLAGS_DATA | DIRTYFLAGS_DESCRIPTION;
// Everything of a node that a generator reading it may see.
constexpr UInt32 kTreeFlags =
    DIRTYFLAGS_MATRIX | DIRTYFLAGS_DATA | DIRTYFLAGS_CACHE | DIRTYFLAGS_CHILDREN | DIRTYFLAGS_DESCRIPTION;

UInt64 NodeSum(UInt64 h, const BaseList2D* n, UInt32 flags) { return Mix(Mix(h, n->GetMarker()), n->GetDirty(flags)); }

UInt64 TagsSum(UInt64 h, const BaseList2D* n) {
  if (const auto* op = dynamic_cast<const BaseObject*>(n))
    for (const BaseTag* t = op->GetFirstTag(); t; t = t->GetNext()) h = NodeSum(h, t, kOwnFlags);
  return h;
}

// A node and everything below it, caches counted by their counters alone:
// a cache is never edited once it is set.
UInt64 TreeSum(UInt64 h, const BaseList2D* root) {
  for (const GeListNode* n = root; n; n = n->GetNextInTree(root)) {
    const auto* node = static_cast<const BaseList2D*>(n);
    h = TagsSum(NodeSum(h, node, kTreeFlags), node);
  }
  return h;
}

ObjectData* DataOf(const BaseObject* op) { return op->GetNodeData() ? op->GetObjectData() : nullptr; }

bool IsActiveGenerator(const BaseObject* op) {
  return (op->GetInfo() & OBJECT_GENERATOR) && op->GetDeformMode() && DataOf(op);
}

bool IsActiveModifier(const BaseObject* op) {
  return (op->GetInfo() & OBJECT_MODIFIER) && op->GetDeformMode() && DataOf(op);
}

// The generator's parameters, tags and branches (the lists of nodes it owns
// beside its children).
UInt64 SelfSum(BaseObject* gen, ObjectData* od) {
  UInt64 h = TagsSum(NodeSum(0, gen, kOwnFlags), gen);
  BranchInfo branches[8];
  const Int32 count = std::min<Int32>(od->ListBranches(gen, branches, 8, 0), 8);
  for (Int32 i = 0; i < count; ++i)
    if (branches[i].head)
      for (GeListNode* n = branches[i].head->GetFirst(); n; n = n->GetNext()) h = TreeSum(h, static_cast<BaseList2D*>(n));
  return h;
}

UInt64 ChildSum(const BaseObject* gen) {
  UInt64 h = Mix(0, gen->GetDirty(DIRTYFLAGS_CHILDREN));
  for (const BaseObject* c = gen->GetDown(); c; c = c->GetNext()) h = TreeSum(h, c);
  return h;
}

bool IsConsumedChild(const BaseObject* op) {
  const BaseObject* up = op->GetUp();
  return IsInputObject(op) && up && (up->GetInfo() & OBJECT_INPUT) && IsActiveGenerator(up);
}

bool IsBelow(const BaseObject* op, const BaseObject* ancestor) {
  for (const BaseObject* a = op->GetUp(); a; a = a->GetUp())
    if (a == ancestor) return true;
  return false;
}

UInt64 EntrySum(const BaseObject* op, bool relative) {
  UInt64 h = TreeSum(0, op);
  if (!relative)
    for (const BaseObject* a = op->GetUp(); a; a = a->GetUp()) h = Mix(h, a->GetDirty(DIRTYFLAGS_MATRIX));
  return h;
}

// The entry's object when it still lives in `doc` (any place when doc is null).
BaseObject* Resolve(const DependenceEntry& e, const BaseDocument* doc) {
  auto* op = static_cast<BaseObject*>(e.link.ForceGetLink());
  if (!op || (doc && op->GetDocument() != doc)) return nullptr;
  return op;
}

void ChangeConsumers(BaseObject* op, Int32 delta) {
  EvalRecord& r = op->MakeEvalRecord();
  r.consumers = std::max(0, r.consumers + delta);
  if (r.consumers > 0) op->SetBit(BIT_CONTROLOBJECT);
  else op->DelBit(BIT_CONTROLOBJECT);
}

DependenceEntry* FindEntry(std::vector<DependenceEntry>& list, UInt64 marker) {
  for (DependenceEntry& e : list)
    if (e.link.GetMarker() == marker) return &e;
  return nullptr;
}

void AddEntry(BaseObject* gen, BaseObject* op, bool relative) {
  EvalRecord& r = gen->MakeEvalRecord();
  const UInt64 sum = EntrySum(op, relative);
  if (DependenceEntry* e = FindEntry(r.pending, op->GetMarker())) {
    e->link.SetLink(op);
    e->sum = sum;
    return;
  }
  r.pending.push_back({BaseLink(op), sum, relative});
}

// Differences between the entries of `now` (summed live) and `before`.
Int32 CountDifferences(std::vector<DependenceEntry>& now, std::vector<DependenceEntry>& before, const BaseDocument* doc) {
  Int32 diff = 0;
  std::unordered_set<UInt64> seen;
  for (const DependenceEntry& e : now) {
    seen.insert(e.link.GetMarker());
    DependenceEntry* old = FindEntry(before, e.link.GetMarker());
    BaseObject* op = Resolve(e, doc);
    if (!old || !op || old->link.ForceGetLink() != op || EntrySum(op, e.relative) != old->sum) ++diff;
  }
  for (const DependenceEntry& e : before)
    if (!seen.count(e.link.GetMarker())) ++diff;
  return diff;
}

// Whether an object of the last build's list changed, or went.
bool CommittedChanged(const EvalRecord& r, const BaseDocument* doc) {
  for (const DependenceEntry& e : r.committed) {
    BaseObject* op = Resolve(e, doc);
    if (!op || EntrySum(op, e.relative) != e.sum) return true;
  }
  return false;
}

}  // namespace

detail::EvalRecord::~EvalRecord() {
  // Inputs that outlive their generator are free again.
  for (const DependenceEntry& e : committed)
    if (auto* op = static_cast<BaseObject*>(e.link.ForceGetLink())) ChangeConsumers(op, -1);
}

// ---- dependence lists

void BeginDependenceList(BaseObject* generator) {
  if (generator) generator->MakeEvalRecord().pending.clear();
}

void AddDependence(BaseObject* generator, BaseObject* op) {
  if (!generator || !op || op == generator) return;
  AddEntry(generator, op, IsBelow(op, generator));
}

Int32 CheckDependenceList(BaseObject* generator) {
  if (!generator) return 0;
  EvalRecord& r = generator->MakeEvalRecord();
  return CountDifferences(r.pending, r.committed, generator->GetDocument());
}

void TouchDependenceList(BaseObject* generator) {
  if (!generator) return;
  EvalRecord& r = generator->MakeEvalRecord();
  const BaseDocument* doc = generator->GetDocument();
  std::vector<DependenceEntry> next;
  next.reserve(r.pending.size());
  for (const DependenceEntry& e : r.pending)
    if (BaseObject* op = Resolve(e, doc)) next.push_back({BaseLink(op), EntrySum(op, e.relative), e.relative});
  // Consumers move by node, not by marker: a node that undo put back in the
  // place of another is a new input.
  std::unordered_set<const BaseList2D*> before, after;
  for (const DependenceEntry& e : r.committed)
    if (BaseList2D* n = e.link.ForceGetLink()) before.insert(n);
  for (const DependenceEntry& e : next) after.insert(e.link.ForceGetLink());
  for (const BaseList2D* n : before)
    if (!after.count(n)) ChangeConsumers(const_cast<BaseObject*>(static_cast<const BaseObject*>(n)), -1);
  for (const BaseList2D* n : after)
    if (!before.count(n)) ChangeConsumers(const_cast<BaseObject*>(static_cast<const BaseObject*>(n)), +1);
  r.committed = next;
  r.pending = std::move(next);
}

bool IsInputObject(const BaseObject* op) { return op && op->GetBit(BIT_CONTROLOBJECT); }

Int32 GetCacheBuildFlags(const BaseObject* op) {
  const EvalRecord* r = op ? op->GetEvalRecord() : nullptr;
  return r && r->built ? r->buildFlags : -1;
}

// ---- the pass

void PriorityList::Add(BaseList2D* node, Int32 priority, Int32 flags) {
  if (node) entries_.push_back({node, node->GetAnchor(), priority, flags});
}

// One evaluation: the document, the thread and what the build is for.
class PassRunner {
 public:
  PassRunner(BaseDocument* doc, ThreadRef thread, Int32 flags, Int32 buildFlags)
      : doc_(doc), thread_(std::move(thread)), flags_(flags), buildFlags_(buildFlags),
        time_(doc ? doc->GetTime() : BaseTime()) {}

  bool Break() const { return thread_ && thread_->TestBreak(); }

  bool Run() {
    PriorityList list;
    if (flags_ & EXECUTIONFLAGS_EXPRESSION) Collect(list);
    std::stable_sort(list.entries_.begin(), list.entries_.end(),
                     [](const PriorityList::Entry& a, const PriorityList::Entry& b) { return a.priority < b.priority; });
    auto split = std::partition_point(list.entries_.begin(), list.entries_.end(), [](const PriorityList::Entry& e) {
      return e.priority < EXECUTIONPRIORITY_GENERATOR;
    });
    for (auto it = list.entries_.begin(); it != split; ++it)
      if (!Execute(*it)) return false;
    if (flags_ & EXECUTIONFLAGS_CACHEBUILDING)
      for (BaseObject* op = doc_->GetFirstObject(); op; op = op->GetNext())
        if (!EvaluateHierarchy(op)) return false;
    for (auto it = split; it != list.entries_.end(); ++it)
      if (!Execute(*it)) return false;
    return !Break();
  }

  // Builds what `root` and the objects below it need. Children that a
  // generator consumes are left to it: it evaluates them when it builds.
  // Linked inputs elsewhere are evaluated where they stand, so that a cycle of
  // links cannot leave both sides unevaluated.
  bool EvaluateHierarchy(BaseObject* root) {
    std::vector<BaseObject*> stack{root};
    while (!stack.empty()) {
      if (Break()) return false;
      BaseObject* op = stack.back();
      stack.pop_back();
      if (op != root && op->GetNext()) stack.push_back(op->GetNext());
      if (op != root && IsConsumedChild(op)) continue;
      if (!EvaluateObject(op)) return false;
      if (op->GetDown()) stack.push_back(op->GetDown());
    }
    return true;
  }

 private:
  // Every object and tag of the document may enter the list; expression tags
  // that do not enter themselves run at EXECUTIONPRIORITY_EXPRESSION.
  void Collect(PriorityList& list) {
    GeListHead* head = doc_->GetObjectListHead();
    for (GeListNode* n = head->GetFirst(); n; n = n->GetNextInTree(head)) {
      auto* op = static_cast<BaseObject*>(n);
      if (ObjectData* od = DataOf(op)) od->AddToExecution(op, &list);
      for (BaseTag* tag = op->GetFirstTag(); tag; tag = tag->GetNext()) {
        auto* td = tag->GetNodeData() ? dynamic_cast<TagData*>(tag->GetNodeData()) : nullptr;
        if (!td) continue;
        if (!td->AddTagToExecution(tag, &list) && (tag->GetInfo() & TAG_EXPRESSION))
          list.Add(tag, EXECUTIONPRIORITY_EXPRESSION);
      }
    }
  }

  bool Execute(const PriorityList::Entry& e) {
    if (Break()) return false;
    // An earlier entry may have freed or moved this node.
    auto anchor = e.anchor.lock();
    if (!anchor || anchor->node != e.node || e.node->GetDocument() != doc_) return true;
    EXECUTIONRESULT result = EXECUTIONRESULT::OK;
    const Int32 flags = e.flags | (flags_ & EXECUTIONFLAGS_ALL);
    if (auto* tag = dynamic_cast<BaseTag*>(e.node)) {
      if (auto* td = dynamic_cast<TagData*>(tag->GetNodeData()))
        result = td->ExecuteTag(tag, doc_, tag->GetObject(), thread_.get(), e.priority, flags);
    } else if (auto* op = dynamic_cast<BaseObject*>(e.node)) {
      if (ObjectData* od = DataOf(op)) result = od->ExecuteObject(op, doc_, thread_.get(), e.priority, flags);
    }
    return result != EXECUTIONRESULT::USERBREAK;
  }

  bool EvaluateObject(BaseObject* op) {
    const Int32 info = op->GetInfo();
    // Modifiers are run by the object they deform.
    if (info & OBJECT_MODIFIER) return true;
    if (ObjectData* od = DataOf(op)) {
      od->CheckDirtyState(op, doc_);
      if ((info & OBJECT_GENERATOR) && op->GetDeformMode()) {
        if (!Build(op, od)) return false;
      } else if (EvalRecord* r = op->GetEvalRecord(); r && !r->committed.empty()) {
        // A generator switched off gives its inputs back to the scene.
        r->pending.clear();
        TouchDependenceList(op);
        r->built = false;
      }
    }
    return Deform(op);
  }

  bool NeedsBuild(BaseObject* op, ObjectData* od, const EvalRecord& r) const {
    if (!op->GetCache() || !r.built) return true;
    if (!(r.time == time_) || r.buildFlags != buildFlags_) return true;
    if (SelfSum(op, od) != r.selfSum) return true;
    if ((op->GetInfo() & OBJECT_INPUT) && ChildSum(op) != r.childSum) return true;
    return CommittedChanged(r, doc_);
  }

  // The cache contract: null keeps the last cache and asks again next pass;
  // the present cache back means unchanged; anything else becomes the cache,
  // owned by the object. A stopped build keeps what stood.
  bool Build(BaseObject* op, ObjectData* od) {
    EvalRecord& r = op->MakeEvalRecord();
    // Generators that copy generators linking back to them would nest without
    // end; past this depth an object stays as it is.
    constexpr int kMaxNesting = 32;
    static thread_local int nesting = 0;
    if (r.building || nesting >= kMaxNesting || !NeedsBuild(op, od, r)) return true;
    // Until the new cache and what it holds are evaluated, the object counts as
    // building: a link back to it (from its inputs or its own cache) takes the
    // object as it stands instead of building it again.
    struct Building {
      EvalRecord& r;
      explicit Building(EvalRecord& rec) : r(rec) {
        r.building = true;
        ++nesting;
      }
      ~Building() {
        r.building = false;
        --nesting;
      }
    } building(r);
    const HierarchyHelp hh(doc_, thread_, buildFlags_, op);
    BaseObject* result = od->BuildVirtualObjects(op, &hh);
    const bool fresh = result && result != op->GetCache();
    if (Break()) {
      if (fresh) delete result;
      return false;
    }
    if (!result) return true;
    if (fresh) {
      op->SetCache(std::unique_ptr<BaseObject>(result));
      // A cache may hold generators of its own.
      if (!EvaluateHierarchy(result)) return false;
    }
    r.built = true;
    r.time = time_;
    r.buildFlags = buildFlags_;
    r.selfSum = SelfSum(op, od);
    r.childSum = (op->GetInfo() & OBJECT_INPUT) ? ChildSum(op) : 0;
    TouchDependenceList(op);
    return true;
  }

  // Modifier children deform their parent: a copy of the object (or of its
  // cache) passes through each in child order and becomes the deform cache.
  bool Deform(BaseObject* op) {
    std::vector<BaseObject*> mods;
    for (BaseObject* c = op->GetDown(); c; c = c->GetNext())
      if (IsActiveModifier(c)) mods.push_back(c);
    const BaseObject* source = nullptr;
    if (!mods.empty())
      source = IsActiveGenerator(op) ? op->GetCache() : (op->GetNodeData() || op->IsInstanceOf(HOST_TYPE_POINT) ? op : nullptr);
    if (!source) {
      if (op->GetDeformCache()) op->SetDeformCache(nullptr);
      return true;
    }
    for (BaseObject* m : mods) DataOf(m)->CheckDirtyState(m, doc_);
    auto sum = [&] {
      UInt64 h = NodeSum(0, op, kOwnFlags | DIRTYFLAGS_CACHE);
      for (BaseObject* m : mods) h = NodeSum(h, m, kOwnFlags | DIRTYFLAGS_MATRIX);
      return h;
    };
    EvalRecord& r = op->MakeEvalRecord();
    if (op->GetDeformCache() && sum() == r.deformSum) return true;

    std::unique_ptr<BaseList2D> copy = source->GetClone(source == op ? COPYFLAGS_NO_HIERARCHY : COPYFLAGS_NONE);
    if (!copy) return true;
    auto* root = static_cast<BaseObject*>(copy.get());
    // The copy stands in the object's own space, as a cache does.
    if (source == op) root->SetMl(Matrix());
    const Matrix opMg = op->GetMg();
    std::vector<std::pair<BaseObject*, Matrix>> stack{{root, opMg * root->GetMl()}};
    while (!stack.empty()) {
      auto [n, mg] = stack.back();
      stack.pop_back();
      for (BaseObject* m : mods) {
        if (Break()) return false;
        // A modifier that fails leaves the last deform cache standing.
        if (!DataOf(m)->ModifyObject(m, doc_, n, mg, m->GetMg(), 1.0, flags_, thread_.get())) return true;
      }
      for (BaseObject* c = n->GetDown(); c; c = c->GetNext()) stack.emplace_back(c, mg * c->GetMl());
    }
    copy.release();
    op->SetDeformCache(std::unique_ptr<BaseObject>(root));
    r.deformSum = sum();
    return true;
  }

  BaseDocument* doc_;
  ThreadRef thread_;
  Int32 flags_;
  Int32 buildFlags_;
  BaseTime time_;
};

bool ExecutePasses(BaseDocument* doc, const ThreadRef& thread, Int32 flags, Int32 buildFlags) {
  if (!doc) return false;
  return PassRunner(doc, thread, flags, buildFlags).Run();
}

bool BuildCaches(BaseObject* op, const ThreadRef& thread, Int32 buildFlags) {
  if (!op) return false;
  PassRunner runner(op->GetDocument(), thread, EXECUTIONFLAGS_CACHEBUILDING, buildFlags);
  return runner.EvaluateHierarchy(op) && !runner.Break();
}

// ---- hierarchy clones

namespace {

bool Wanted(const BaseObject* op, Int32 flags) {
  if (op->GetType() == HOST_TYPE_NULL) return true;
  if (op->IsInstanceOf(HOST_TYPE_POLYGON)) return flags & HIERARCHYCLONEFLAGS_ASPOLY;
  if (op->GetInfo() & OBJECT_ISSPLINE) return flags & HIERARCHYCLONEFLAGS_ASSPLINE;
  return flags & HIERARCHYCLONEFLAGS_ASVOLUME;
}

// Replaces what `flags` do not ask for by Nulls in the tree under `root`;
// gives the new root.
std::unique_ptr<BaseObject> KeepKinds(std::unique_ptr<BaseObject> root, Int32 flags) {
  std::vector<BaseObject*> stack{root.get()};
  while (!stack.empty()) {
    BaseObject* n = stack.back();
    stack.pop_back();
    if (!Wanted(n, flags)) {
      std::unique_ptr<BaseObject> null = BaseObject::Alloc(HOST_TYPE_NULL);
      if (!null) return nullptr;
      null->SetName(n->GetName());
      null->SetMl(n->GetMl());
      for (GeListNode* c; (c = n->GetDownLast());) c->Remove().release()->InsertUnder(null.get());
      BaseObject* replacement = null.release();
      if (n == root.get()) {
        root.reset(replacement);
      } else {
        replacement->InsertAfter(n);
        GeListNode::Free(n);
      }
      n = replacement;
    }
    for (BaseObject* c = n->GetDown(); c; c = c->GetNext()) stack.push_back(c);
  }
  return root;
}

// A copy of `op` alone as it shows now: its deform cache, its cache, or itself.
std::unique_ptr<BaseObject> CopyShown(const BaseObject* op, Int32 flags, AliasTrans* trans) {
  const BaseObject* shown = nullptr;
  if (!(flags & HIERARCHYCLONEFLAGS_ASIS))
    shown = op->GetDeformCache() ? op->GetDeformCache() : (IsActiveGenerator(op) ? op->GetCache() : nullptr);
  std::unique_ptr<BaseList2D> copy = shown ? shown->GetClone(COPYFLAGS_NONE, trans) : op->GetClone(COPYFLAGS_NO_HIERARCHY, trans);
  auto out = std::unique_ptr<BaseObject>(static_cast<BaseObject*>(copy.release()));
  if (out && shown) out->SetMl(op->GetMl() * shown->GetMl());
  return out;
}

}  // namespace

std::unique_ptr<BaseObject> GetHierarchyClone(const HierarchyHelp* hh, BaseObject* op, Int32 flags, bool* dirty,
                                              AliasTrans* trans) {
  if (dirty) *dirty = true;
  if (!op) return nullptr;
  BaseObject* gen = hh ? hh->GetGenerator() : nullptr;
  if (hh) {
    PassRunner runner(hh->GetDocument(), hh->GetThread(), EXECUTIONFLAGS_CACHEBUILDING, hh->GetBuildFlags());
    runner.EvaluateHierarchy(op);
  }
  if (gen && op != gen) {
    EvalRecord& r = gen->MakeEvalRecord();
    const bool relative = IsBelow(op, gen);
    if (dirty) {
      DependenceEntry* old = FindEntry(r.committed, op->GetMarker());
      *dirty = !old || old->link.ForceGetLink() != op || old->sum != EntrySum(op, relative);
    }
    AddEntry(gen, op, relative);
  }

  // The copy: each node as it shows, its children below it, except the
  // modifiers (already in the deform caches) and the inputs of generators
  // (already in the caches).
  std::unique_ptr<BaseObject> root = CopyShown(op, flags, trans);
  if (!root) return nullptr;
  std::vector<std::pair<const BaseObject*, BaseObject*>> stack{{op, root.get()}};
  while (!stack.empty()) {
    auto [src, dst] = stack.back();
    stack.pop_back();
    for (const BaseObject* c = src->GetDown(); c; c = c->GetNext()) {
      if (!(flags & HIERARCHYCLONEFLAGS_ASIS) && (IsActiveModifier(c) || (IsActiveGenerator(src) && IsInputObject(c))))
        continue;
      std::unique_ptr<BaseObject> copy = CopyShown(c, flags, trans);
      if (!copy) return nullptr;
      BaseObject* placed = copy.release();
      placed->InsertUnderLast(dst);
      stack.emplace_back(c, placed);
    }
  }
  if (!(flags & HIERARCHYCLONEFLAGS_ASIS)) root = KeepKinds(std::move(root), flags);
  return root;
}

// ---- what shows

std::vector<VisibleObject> GetVisibleObjects(const BaseDocument* doc, bool render) {
  std::vector<VisibleObject> out;
  if (!doc) return out;
  struct Item {
    const BaseObject* op;
    Matrix parentMg;
    bool inCache;
  };
  std::vector<Item> stack;
  for (const BaseObject* op = doc->GetFirstObject(); op; op = op->GetNext()) {
    stack.push_back({op, Matrix(), false});
    while (!stack.empty()) {
      auto [n, parentMg, inCache] = stack.back();
      stack.pop_back();
      const Int32 mode = render ? n->GetRenderMode() : n->GetEditorMode();
      if (mode == MODE_OFF || (n->GetInfo() & OBJECT_MODIFIER) || (!inCache && IsInputObject(n))) continue;
      const Matrix mg = parentMg * n->GetMl();
      const BaseObject* shown = n->GetDeformCache() ? n->GetDeformCache() : (IsActiveGenerator(n) ? n->GetCache() : nullptr);
      // Children come after, so the stack takes them first.
      for (const BaseObject* c = n->GetDownLast() ? static_cast<const BaseObject*>(n->GetDownLast()) : nullptr; c;
           c = c->GetPrev())
        stack.push_back({c, mg, inCache});
      if (shown) stack.push_back({shown, mg, true});
      // A generator without its cache shows nothing of its own.
      else if (n->GetType() != HOST_TYPE_NULL && !(n->GetInfo() & OBJECT_GENERATOR)) out.push_back({n, mg});
    }
  }
  return out;
}

}  // namespace zta

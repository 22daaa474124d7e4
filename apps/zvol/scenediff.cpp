#include "scenediff.h"

#include <cstring>
#include <memory>
#include <optional>
#include <unordered_map>

#include "host/scene/basedocument.h"
#include "host/scene/baseobject.h"
#include "host/scene/basetag.h"
#include "host/scene/customdataclass.h"
#include "host/scene/hyperfile.h"
#include "host/scene/nodedata.h"

namespace zvol {

namespace {

using zta::BaseContainer;
using zta::BaseObject;
using zta::BaseTag;
using zta::GeData;

// One object in the three documents.
struct Triple {
  const BaseObject* loaded;
  const BaseObject* fresh;
  BaseObject* shown;
  std::string path;
};

bool SameTagTypes(const BaseObject* a, const BaseObject* b) {
  const BaseTag* x = a->GetFirstTag();
  const BaseTag* y = b->GetFirstTag();
  for (; x && y; x = x->GetNext(), y = y->GetNext())
    if (x->GetType() != y->GetType()) return false;
  return !x && !y;
}

// Pairs the siblings from `l`, `f` and `s` and their children; false at the
// first difference of shape. The shown document's tags are not compared:
// evaluation may give objects tags of their own (a default Phong).
bool Pair(const BaseObject* l, const BaseObject* f, BaseObject* s, const std::string& prefix, std::vector<Triple>& out) {
  for (; l || f || s; l = l ? l->GetNext() : nullptr, f = f ? f->GetNext() : nullptr, s = s ? s->GetNext() : nullptr) {
    if (!l || !f || !s) return false;
    if (l->GetType() != f->GetType() || s->GetType() != l->GetType()) return false;
    if (l->GetName() != f->GetName() || s->GetName() != l->GetName()) return false;
    if (!SameTagTypes(l, f)) return false;
    const std::string path = prefix.empty() ? l->GetName() : prefix + "/" + l->GetName();
    out.push_back({l, f, s, path});
    if (!Pair(l->GetDown(), f->GetDown(), s->GetDown(), path, out)) return false;
  }
  return true;
}

// What a node's plug-in writes of itself; none when it cannot be written,
// which counts as a change.
std::optional<std::vector<char>> OwnBytes(const zta::BaseList2D& node) {
  const zta::NodeData* data = node.GetNodeData();
  if (!data) return std::vector<char>();
  auto hf = zta::HyperFile::OpenWrite(zta::HYPERFILE_KIND_MEMORY);
  if (!hf || !data->WriteNode(&node, hf.get())) return std::nullopt;
  return hf->TakeMemory();
}

bool SameOwnData(const zta::BaseList2D& a, const zta::BaseList2D& b) {
  const auto x = OwnBytes(a), y = OwnBytes(b);
  return x && y && *x == *y;
}

bool SameRecords(const BaseTag& a, const BaseTag& b) {
  const auto* x = dynamic_cast<const zta::VariableTag*>(&a);
  const auto* y = dynamic_cast<const zta::VariableTag*>(&b);
  if (!x || !y) return !x && !y;
  if (x->GetDataCount() != y->GetDataCount() || x->GetDataSize() != y->GetDataSize()) return false;
  const size_t bytes = size_t(x->GetDataCount()) * size_t(x->GetDataSize());
  return bytes == 0 || std::memcmp(x->GetLowlevelDataAddressR(), y->GetLowlevelDataAddressR(), bytes) == 0;
}

// Points the links of `bc` through `trans`, in nested containers and custom
// values too.
void TranslateLinks(BaseContainer& bc, const zta::AliasTrans& trans) {
  std::vector<std::pair<zta::Int32, GeData>> changes;
  for (const auto& [id, data] : bc) {
    if (data.GetType() == zta::DATATYPE::LINK) {
      const zta::BaseLink moved = trans.Translate(data.GetBaseLink());
      if (!(moved == data.GetBaseLink())) changes.emplace_back(id, GeData(moved));
    } else if (data.GetType() == zta::DATATYPE::CONTAINER) {
      BaseContainer inner = *data.GetContainer();
      TranslateLinks(inner, trans);
      if (inner != *data.GetContainer()) changes.emplace_back(id, GeData(inner));
    } else if (const zta::CustomDataType* custom = data.GetCustomData()) {
      const zta::CustomDataTypeClass* cls = zta::FindCustomDataTypeClass(custom->GetCustomTypeId());
      if (std::unique_ptr<zta::CustomDataType> moved = cls ? cls->TranslateLinks(*custom, trans) : nullptr)
        changes.emplace_back(id, GeData(std::shared_ptr<const zta::CustomDataType>(std::move(moved))));
    }
  }
  for (auto& c : changes) bc.SetData(c.first, std::move(c.second));
}

// Links name nodes by their ids, which a file without ids gives anew at
// every reading: the new file's containers are compared and applied with
// their links pointed at the same objects of the other document.
class Differ {
 public:
  explicit Differ(const std::vector<Triple>& triples) {
    for (const Triple& t : triples) {
      toLoaded_.Add(t.fresh, const_cast<BaseObject*>(t.loaded));
      toShown_.Add(t.fresh, t.shown);
      const BaseTag* l = t.loaded->GetFirstTag();
      const BaseTag* s = t.shown->GetFirstTag();
      for (const BaseTag* f = t.fresh->GetFirstTag(); f && l; f = f->GetNext(), l = l->GetNext()) {
        toLoaded_.Add(f, const_cast<BaseTag*>(l));
        if (s && s->GetType() == f->GetType()) toShown_.Add(f, const_cast<BaseTag*>(s));
        s = s ? s->GetNext() : nullptr;
      }
    }
  }

  BaseContainer AsLoaded(const BaseContainer& fresh) const {
    BaseContainer bc = fresh;
    TranslateLinks(bc, toLoaded_);
    return bc;
  }

  // Sets on `shown` the entries of the new file's `after` that differ from
  // `before` (as last read); true when one did. Values the evaluation wrote
  // itself stay.
  bool Apply(const BaseContainer& before, const BaseContainer& after, BaseContainer& shown) const {
    const BaseContainer compared = AsLoaded(after);
    BaseContainer applied = after;
    TranslateLinks(applied, toShown_);
    bool any = false;
    for (const auto& [id, value] : compared) {
      const GeData* old = before.GetDataPointer(id);
      if (old && *old == value) continue;
      shown.SetData(id, *applied.GetDataPointer(id));
      any = true;
    }
    for (const auto& [id, value] : before) {
      (void)value;
      if (!after.GetDataPointer(id)) any = shown.RemoveData(id) || any;
    }
    return any;
  }

  // A copy of a new file's object, its links pointed at the shown objects.
  void PointAtShown(BaseObject& copy) const {
    TranslateLinks(*copy.GetDataInstance(), toShown_);
    for (BaseTag* tag = copy.GetFirstTag(); tag; tag = tag->GetNext()) TranslateLinks(*tag->GetDataInstance(), toShown_);
  }

  // Whether the tags' own data (records, a plug-in's data) are the same in
  // both files and every tag has its twin, by type and place, on the shown
  // object: then their parameters can be set in place.
  bool TagsEditable(const BaseObject& loaded, const BaseObject& fresh, const BaseObject& shown) const {
    const BaseTag* s = shown.GetFirstTag();
    for (const BaseTag *x = loaded.GetFirstTag(), *y = fresh.GetFirstTag(); x && y;
         x = x->GetNext(), y = y->GetNext(), s = s->GetNext())
      if (!s || s->GetType() != y->GetType() || !SameRecords(*x, *y) || !SameOwnData(*x, *y)) return false;
    return true;
  }

  // Sets the tags' changed parameters on the shown object's; true when one changed.
  bool ApplyTags(const BaseObject& loaded, const BaseObject& fresh, BaseObject& shown) const {
    bool any = false;
    BaseTag* s = shown.GetFirstTag();
    for (const BaseTag *x = loaded.GetFirstTag(), *y = fresh.GetFirstTag(); x && y && s;
         x = x->GetNext(), y = y->GetNext(), s = s->GetNext())
      any = Apply(*x->GetDataInstance(), *y->GetDataInstance(), *s->GetDataInstance()) || any;
    return any;
  }

 private:
  zta::AliasTrans toLoaded_;
  zta::AliasTrans toShown_;
};

}  // namespace

bool ApplySceneChanges(const zta::BaseDocument& loaded, const zta::BaseDocument& fresh, zta::BaseDocument& shown,
                       SceneChanges& changes) {
  changes = {};
  if (loaded.GetFps() != fresh.GetFps()) return false;
  std::vector<Triple> triples;
  if (!Pair(loaded.GetFirstObject(), fresh.GetFirstObject(), shown.GetFirstObject(), "", triples)) return false;
  const Differ differ(triples);

  // Objects whose own data changed are replaced; they are found first so
  // that nothing is half changed when a copy cannot be made.
  std::vector<std::pair<const Triple*, std::unique_ptr<BaseObject>>> replacements;
  for (const Triple& t : triples) {
    if (SameOwnData(*t.loaded, *t.fresh) && differ.TagsEditable(*t.loaded, *t.fresh, *t.shown)) continue;
    std::unique_ptr<BaseObject> copy(static_cast<BaseObject*>(
        t.fresh->GetClone(zta::COPYFLAGS_NO_HIERARCHY | zta::COPYFLAGS_KEEP_MARKERS).release()));
    if (!copy) return false;
    differ.PointAtShown(*copy);
    replacements.emplace_back(&t, std::move(copy));
  }

  differ.Apply(*loaded.GetDataInstance(), *fresh.GetDataInstance(), *shown.GetDataInstance());
  size_t next = 0;
  for (const Triple& t : triples) {
    if (next < replacements.size() && replacements[next].first == &t) {
      ++next;
      continue;
    }
    bool edited = differ.Apply(*t.loaded->GetDataInstance(), *t.fresh->GetDataInstance(), *t.shown->GetDataInstance());
    edited = differ.ApplyTags(*t.loaded, *t.fresh, *t.shown) || edited;
    if (!(t.loaded->GetMl() == t.fresh->GetMl())) t.shown->SetMl(t.fresh->GetMl()), edited = true;
    if (!(t.loaded->GetFrozenMatrix() == t.fresh->GetFrozenMatrix()))
      t.shown->SetFrozenMatrix(t.fresh->GetFrozenMatrix()), edited = true;
    if (t.loaded->GetEditorMode() != t.fresh->GetEditorMode())
      t.shown->SetEditorMode(t.fresh->GetEditorMode()), edited = true;
    if (t.loaded->GetRenderMode() != t.fresh->GetRenderMode())
      t.shown->SetRenderMode(t.fresh->GetRenderMode()), edited = true;
    if (t.loaded->GetDeformMode() != t.fresh->GetDeformMode())
      t.shown->SetDeformMode(t.fresh->GetDeformMode()), edited = true;
    if (edited) changes.edited.push_back(t.path);
  }
  // The copy takes the old object's place and children; the old one goes.
  for (auto& [t, copy] : replacements) {
    BaseObject* old = t->shown;
    BaseObject* placed = copy.release();
    placed->InsertBefore(old);
    while (BaseObject* child = old->GetDown()) {
      std::unique_ptr<zta::GeListNode> taken = child->Remove();
      static_cast<BaseObject*>(taken.release())->InsertUnderLast(placed);
    }
    zta::GeListNode::Free(old);
    changes.replaced.push_back(t->path);
  }
  return true;
}

}  // namespace zvol

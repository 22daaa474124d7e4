// The classes of the host's own custom data types: field lists, spline
// curves, item trees, check lists and unit scales in scene files, and the
// links of field layers and item-tree rows through a clone.
#include "host/scene/checklist.h"
#include "host/scene/itemtree.h"
#include "host/scene/unitscale.h"
#include "host/core/format.h"
#include "host/fields/fieldlist.h"
#include "host/fields/splinedata.h"
#include "host/scene/baselist2d.h"
#include "host/scene/customdataclass.h"
#include "host/scene/hyperfile.h"

namespace zta {

namespace {

class FieldListClass : public CustomDataTypeClass {
 public:
  Int32 GetId() const override { return FieldList::kCustomTypeId; }
  const char* GetName() const override { return "fieldlist"; }

  bool Write(const CustomDataType& data, HyperFile& hf) const override {
    const auto& list = static_cast<const FieldList&>(data);
    hf.WriteInt32(list.GetLayerCount());
    for (Int32 i = 0; i < list.GetLayerCount(); ++i) {
      const FieldLayer& layer = *list.GetLayer(i);
      hf.WriteInt32(layer.GetLayerType());
      hf.WriteBool(layer.IsEnabled());
      hf.WriteFloat(layer.GetStrength());
      hf.WriteInt32(Int32(layer.GetBlend()));
      hf.WriteMatrix(layer.GetMatrix());
      hf.WriteLink(layer.GetLinkedObject());
      if (const auto* s = dynamic_cast<const SphericalFieldLayer*>(&layer)) {
        hf.WriteFloat(s->GetRadius());
        hf.WriteFloat(s->GetInner());
      } else if (const auto* l = dynamic_cast<const LinearFieldLayer*>(&layer)) {
        hf.WriteFloat(l->GetLength());
      } else if (const auto* b = dynamic_cast<const BoxFieldLayer*>(&layer)) {
        hf.WriteVector(b->GetSize());
        hf.WriteFloat(b->GetFalloff());
      } else if (const auto* n = dynamic_cast<const NoiseFieldLayer*>(&layer)) {
        hf.WriteFloat(n->GetScale());
        hf.WriteInt32(n->GetSeed());
      } else {
        return hf.SetError(FormatString("a field layer of type @ cannot be written", layer.GetLayerType()));
      }
    }
    return !hf.HasError();
  }

  std::unique_ptr<CustomDataType> Read(HyperFile& hf, Int32 level) const override {
    auto list = std::make_unique<FieldList>();
    Int32 count = 0;
    if (!hf.ReadInt32(&count)) return nullptr;
    for (Int32 i = 0; i < count; ++i) {
      Int32 type = 0, blend = 0;
      bool enabled = true;
      Float strength = 1.0;
      Matrix mg;
      BaseLink link;
      if (!hf.ReadInt32(&type) || !hf.ReadBool(&enabled) || !hf.ReadFloat(&strength) || !hf.ReadInt32(&blend) ||
          !hf.ReadMatrix(&mg) || !hf.ReadLink(&link))
        return nullptr;
      std::unique_ptr<FieldLayer> layer;
      switch (type) {
        case FIELDLAYER_SPHERICAL: {
          Float radius = 0, inner = 0;
          if (!hf.ReadFloat(&radius) || !hf.ReadFloat(&inner)) return nullptr;
          layer = std::make_unique<SphericalFieldLayer>(radius, inner);
          break;
        }
        case FIELDLAYER_LINEAR: {
          Float length = 0;
          if (!hf.ReadFloat(&length)) return nullptr;
          layer = std::make_unique<LinearFieldLayer>(length);
          break;
        }
        case FIELDLAYER_BOX: {
          Vector size;
          Float falloff = 0;
          if (!hf.ReadVector(&size) || !hf.ReadFloat(&falloff)) return nullptr;
          layer = std::make_unique<BoxFieldLayer>(size, falloff);
          break;
        }
        case FIELDLAYER_NOISE: {
          Float scale = 0;
          Int32 seed = 0;
          if (!hf.ReadFloat(&scale) || !hf.ReadInt32(&seed)) return nullptr;
          layer = std::make_unique<NoiseFieldLayer>(scale, seed);
          break;
        }
        default: hf.SetError(FormatString("a field layer of unknown type @", type)); return nullptr;
      }
      if (blend < Int32(FIELDBLEND::NORMAL) || blend > Int32(FIELDBLEND::MIN)) {
        hf.SetError(FormatString("a field layer blends by unknown mode @", blend));
        return nullptr;
      }
      layer->SetEnabled(enabled);
      layer->SetStrength(strength);
      layer->SetBlend(FIELDBLEND(blend));
      layer->SetMatrix(mg);
      layer->SetLinkedObject(link);
      list->InsertLayer(std::move(layer));
    }
    return list;
  }

  std::unique_ptr<CustomDataType> TranslateLinks(const CustomDataType& data, const AliasTrans& trans) const override {
    const auto& list = static_cast<const FieldList&>(data);
    std::unique_ptr<FieldList> moved;
    for (Int32 i = 0; i < list.GetLayerCount(); ++i) {
      const BaseLink& link = list.GetLayer(i)->GetLinkedObject();
      const BaseLink to = trans.Translate(link);
      if (to == link) continue;
      if (!moved) moved = std::make_unique<FieldList>(list);
      moved->GetLayerWritable(i)->SetLinkedObject(to);
    }
    return moved;
  }
};

class SplineDataClass : public CustomDataTypeClass {
 public:
  Int32 GetId() const override { return SplineData::kCustomTypeId; }
  const char* GetName() const override { return "spline"; }

  bool Write(const CustomDataType& data, HyperFile& hf) const override {
    const auto& spline = static_cast<const SplineData&>(data);
    hf.WriteFloat(spline.GetXMin());
    hf.WriteFloat(spline.GetXMax());
    hf.WriteFloat(spline.GetYMin());
    hf.WriteFloat(spline.GetYMax());
    hf.WriteInt32(spline.GetKnotCount());
    for (Int32 i = 0; i < spline.GetKnotCount(); ++i) {
      const SplineKnot* k = spline.GetKnot(i);
      hf.WriteFloat(k->pos.x);
      hf.WriteFloat(k->pos.y);
      hf.WriteInt32(Int32(k->interpolation));
    }
    return !hf.HasError();
  }

  std::unique_ptr<CustomDataType> Read(HyperFile& hf, Int32 level) const override {
    auto spline = std::make_unique<SplineData>();
    Float xmin = 0, xmax = 1, ymin = 0, ymax = 1;
    Int32 count = 0;
    if (!hf.ReadFloat(&xmin) || !hf.ReadFloat(&xmax) || !hf.ReadFloat(&ymin) || !hf.ReadFloat(&ymax) ||
        !hf.ReadInt32(&count))
      return nullptr;
    spline->SetRange(xmin, xmax, ymin, ymax);
    Float lastX = -std::numeric_limits<Float>::infinity();
    for (Int32 i = 0; i < count; ++i) {
      Float x = 0, y = 0;
      Int32 interpolation = 0;
      if (!hf.ReadFloat(&x) || !hf.ReadFloat(&y) || !hf.ReadInt32(&interpolation)) return nullptr;
      if (interpolation < 0 || interpolation > Int32(CURVEINTERPOLATION::STEP) || !(x >= lastX)) {
        hf.SetError(FormatString("knot @ of a spline curve is not valid", i));
        return nullptr;
      }
      lastX = x;
      spline->InsertKnot(x, y, CURVEINTERPOLATION(interpolation));
    }
    return spline;
  }
};

// A document's unit travels in its container.
class UnitScaleClass : public CustomDataTypeClass {
 public:
  Int32 GetId() const override { return UnitScaleData::kCustomTypeId; }
  const char* GetName() const override { return "unitscale"; }

  bool Write(const CustomDataType& data, HyperFile& hf) const override {
    const auto& unit = static_cast<const UnitScaleData&>(data);
    hf.WriteFloat(unit.GetScale());
    hf.WriteInt32(Int32(unit.GetUnit()));
    return !hf.HasError();
  }

  std::unique_ptr<CustomDataType> Read(HyperFile& hf, Int32 level) const override {
    Float scale = 0;
    Int32 unit = 0;
    if (!hf.ReadFloat(&scale) || !hf.ReadInt32(&unit)) return nullptr;
    auto value = std::make_unique<UnitScaleData>(scale, DOCUMENTUNIT(unit));
    if (!value->IsValid()) {
      hf.SetError(FormatString("the unit @ at scale @ is not valid", unit, scale));
      return nullptr;
    }
    return value;
  }
};

// Rows in tree order, each with its depth, so that no tree needs recursion to
// be written or read. Rows nest no deeper than containers do.
class ItemTreeClass : public CustomDataTypeClass {
 public:
  Int32 GetId() const override { return ItemTree::kCustomTypeId; }
  const char* GetName() const override { return "itemtree"; }

  bool Write(const CustomDataType& data, HyperFile& hf) const override {
    const auto& tree = static_cast<const ItemTree&>(data);
    Int32 count = 0;
    for (const ItemTreeItem* i = tree.GetFirst(); i; i = tree.GetNextInTree(i)) ++count;
    hf.WriteInt32(count);
    for (const ItemTreeItem* i = tree.GetFirst(); i; i = tree.GetNextInTree(i)) {
      Int32 depth = 0;
      for (const ItemTreeItem* up = i->GetUp(); up; up = up->GetUp()) ++depth;
      hf.WriteInt32(depth);
      hf.WriteInt32(i->GetFlags());
      if (!hf.WriteGeData(i->GetData())) return false;
      hf.WriteLink(i->GetLink());
    }
    return !hf.HasError();
  }

  std::unique_ptr<CustomDataType> Read(HyperFile& hf, Int32 level) const override {
    auto tree = std::make_unique<ItemTree>();
    Int32 count = 0;
    if (!hf.ReadInt32(&count)) return nullptr;
    if (count < 0) {
      hf.SetError(FormatString("an item tree with @ rows", count));
      return nullptr;
    }
    // The last row read at each depth: the next row at that depth follows it.
    std::vector<ItemTreeItem*> last;
    for (Int32 n = 0; n < count; ++n) {
      Int32 depth = 0, flags = 0;
      GeData value;
      BaseLink link;
      if (!hf.ReadInt32(&depth)) return nullptr;
      if (depth < 0 || size_t(depth) > last.size() || depth >= HyperFile::kMaxNesting) {
        hf.SetError(FormatString("row @ of an item tree at depth @ follows one at depth @", n, depth,
                                 Int64(last.size()) - 1));
        return nullptr;
      }
      if (!hf.ReadInt32(&flags) || !hf.ReadGeData(&value) || !hf.ReadLink(&link)) return nullptr;
      ItemTreeItem* parent = depth > 0 ? last[size_t(depth - 1)] : nullptr;
      ItemTreeItem* pred = size_t(depth) < last.size() ? last[size_t(depth)] : nullptr;
      ItemTreeItem* row = tree->InsertItem(parent, pred, flags, value, link);
      if (!row) {
        hf.SetError("out of memory reading an item tree");
        return nullptr;
      }
      last.resize(size_t(depth));
      last.push_back(row);
    }
    return tree;
  }

  std::unique_ptr<CustomDataType> TranslateLinks(const CustomDataType& data, const AliasTrans& trans) const override {
    const auto& tree = static_cast<const ItemTree&>(data);
    bool moves = false;
    for (const ItemTreeItem* i = tree.GetFirst(); i && !moves; i = tree.GetNextInTree(i))
      moves = !(trans.Translate(i->GetLink()) == i->GetLink());
    if (!moves) return nullptr;
    // The copy walks in step with the original: rows of both trees in the same order.
    auto moved = std::make_unique<ItemTree>(tree);
    for (ItemTreeItem *i = moved->GetFirst(); i; i = moved->GetNextInTree(i)) i->SetLink(trans.Translate(i->GetLink()));
    return moved;
  }
};

class CheckListClass : public CustomDataTypeClass {
 public:
  Int32 GetId() const override { return CheckListData::kCustomTypeId; }
  const char* GetName() const override { return "checklist"; }

  bool Write(const CustomDataType& data, HyperFile& hf) const override {
    const auto& list = static_cast<const CheckListData&>(data);
    hf.WriteInt32(list.GetCount());
    for (Int32 i = 0; i < list.GetCount(); ++i) {
      hf.WriteString(list.GetName(i));
      hf.WriteBool(list.IsChecked(i));
    }
    return !hf.HasError();
  }

  std::unique_ptr<CustomDataType> Read(HyperFile& hf, Int32 level) const override {
    Int32 count = 0;
    if (!hf.ReadInt32(&count)) return nullptr;
    if (count < 0) {
      hf.SetError(FormatString("a check list with @ entries", count));
      return nullptr;
    }
    std::vector<String> names;
    std::vector<bool> checks;
    for (Int32 i = 0; i < count; ++i) {
      String name;
      bool checked = true;
      if (!hf.ReadString(&name) || !hf.ReadBool(&checked)) return nullptr;
      names.push_back(std::move(name));
      checks.push_back(checked);
    }
    auto list = std::make_unique<CheckListData>();
    list->SetEntries(names);
    for (Int32 i = 0; i < count; ++i) list->SetChecked(i, checks[size_t(i)]);
    return list;
  }
};

}  // namespace

void RegisterHostCustomDataTypes() {
  RegisterCustomDataTypeClass(std::make_unique<UnitScaleClass>());
  RegisterCustomDataTypeClass(std::make_unique<FieldListClass>());
  RegisterCustomDataTypeClass(std::make_unique<SplineDataClass>());
  RegisterCustomDataTypeClass(std::make_unique<ItemTreeClass>());
  RegisterCustomDataTypeClass(std::make_unique<CheckListClass>());
}

}  // namespace zta

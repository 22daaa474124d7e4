// The classes of the host's own custom data types: field lists and spline
// curves in scene files, and the links of field layers through a clone.
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

}  // namespace

void RegisterHostCustomDataTypes() {
  RegisterCustomDataTypeClass(std::make_unique<UnitScaleClass>());
  RegisterCustomDataTypeClass(std::make_unique<FieldListClass>());
  RegisterCustomDataTypeClass(std::make_unique<SplineDataClass>());
}

}  // namespace zta

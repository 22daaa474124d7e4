#include "host/modeling/join.h"

#include <algorithm>
#include <new>
#include <string>

#include "host/objects/uvwtag.h"
#include "host/objects/vertexmaptag.h"

namespace zta {

Result<std::unique_ptr<PolygonObject>> JoinPolygonObjects(const std::vector<const PolygonObject*>& objects) {
  Int64 points = 0, polys = 0;
  bool anyUvw = false;
  for (size_t i = 0; i < objects.size(); ++i) {
    if (!objects[i]) return NullptrError("object to join is null");
    points += objects[i]->GetPointCount();
    polys += objects[i]->GetPolygonCount();
    anyUvw = anyUvw || objects[i]->GetTag(HOST_TAG_UVW);
  }
  if (points > INT32_MAX || polys > INT32_MAX) return IllegalArgumentError("joined object would be too large");
  auto out = PolygonObject::Alloc(Int32(points), Int32(polys));
  if (!out) return OutOfMemoryError("joined object");
  std::unique_ptr<UVWTag> uvw;
  if (anyUvw) {
    uvw = UVWTag::Alloc(Int32(polys));
    if (!uvw) return OutOfMemoryError("joined uvw tag");
  }
  Vector* pts = out->GetPointW();
  CPolygon* pls = out->GetPolygonW();
  Int32 pointBase = 0, polyBase = 0;
  for (const PolygonObject* op : objects) {
    const Matrix mg = op->GetMg();
    const Vector* src = op->GetPointR();
    for (Int32 i = 0; i < op->GetPointCount(); ++i) pts[pointBase + i] = mg.TransformPoint(src[i]);
    const CPolygon* sp = op->GetPolygonR();
    for (Int32 i = 0; i < op->GetPolygonCount(); ++i)
      pls[polyBase + i] = CPolygon(sp[i].a + pointBase, sp[i].b + pointBase, sp[i].c + pointBase, sp[i].d + pointBase);
    if (uvw)
      if (auto* t = static_cast<const UVWTag*>(op->GetTag(HOST_TAG_UVW)))
        for (Int32 i = 0; i < op->GetPolygonCount() && i < t->GetDataCount(); ++i) uvw->Set(polyBase + i, t->Get(i));
    pointBase += op->GetPointCount();
    polyBase += op->GetPolygonCount();
  }
  if (uvw) out->InsertTag(uvw.release(), out->GetTag(HOST_TAG_POLYGON));

  // Vertex maps join by name, in the order the names first appear; points of
  // sources without a map of that name weigh zero.
  std::vector<String> names;
  for (const PolygonObject* op : objects)
    for (const BaseTag* t = op->GetFirstTag(); t; t = t->GetNext())
      if (t->GetType() == HOST_TAG_VERTEXMAP && std::find(names.begin(), names.end(), t->GetName()) == names.end())
        names.push_back(t->GetName());
  BaseTag* pred = out->GetTag(HOST_TAG_UVW) ? out->GetTag(HOST_TAG_UVW) : out->GetTag(HOST_TAG_POLYGON);
  for (const String& name : names) {
    std::unique_ptr<VertexMapTag> map = VertexMapTag::Alloc(Int32(points));
    if (!map) return OutOfMemoryError("joined vertex map");
    map->SetName(name);
    Float32* weights = map->GetDataAddressW();
    Int32 base = 0;
    for (const PolygonObject* op : objects) {
      const VertexMapTag* source = nullptr;
      for (const BaseTag* t = op->GetFirstTag(); t && !source; t = t->GetNext())
        if (t->GetType() == HOST_TAG_VERTEXMAP && t->GetName() == name) source = static_cast<const VertexMapTag*>(t);
      if (source)
        for (Int32 i = 0; i < op->GetPointCount() && i < source->GetDataCount(); ++i)
          weights[base + i] = source->GetDataAddressR()[i];
      base += op->GetPointCount();
    }
    BaseTag* tag = map.release();
    out->InsertTag(tag, pred);
    pred = tag;
  }
  if (!objects.empty()) out->SetName(objects.front()->GetName());
  return out;
}

}  // namespace zta

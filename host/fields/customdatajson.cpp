// Field lists and spline curves in the JSON scene form. A field layer's
// matrix places it in the world, so it is mirrored like an object's.
#include "host/core/format.h"
#include "host/fields/fieldlist.h"
#include "host/fields/splinedata.h"
#include "host/scene/scenejsonio.h"

namespace zta {

namespace {

const char* LayerName(Int32 type) {
  switch (type) {
    case FIELDLAYER_SPHERICAL: return "spherical";
    case FIELDLAYER_LINEAR: return "linear";
    case FIELDLAYER_BOX: return "box";
    case FIELDLAYER_NOISE: return "noise";
    default: return nullptr;
  }
}

constexpr const char* kBlends[] = {"normal", "add", "subtract", "multiply", "max", "min"};
constexpr const char* kInterpolations[] = {"linear", "smooth", "step"};

template <size_t N>
Int32 IndexOf(const char* const (&names)[N], const Json& j, const String& path, const char* what) {
  const String name = JsonString(j, path);
  for (size_t i = 0; i < N; ++i)
    if (name == names[i]) return Int32(i);
  String known;
  for (size_t i = 0; i < N; ++i) known += (i ? ", " : "") + String(names[i]);
  ThrowJson(path, "'" + name + "' is not " + what + " (" + known + ")");
}

Json FieldListToJson(const FieldList& list, const SceneJsonWriteContext& ctx) {
  Json layers = Json::array();
  for (Int32 i = 0; i < list.GetLayerCount(); ++i) {
    const FieldLayer& l = *list.GetLayer(i);
    Json j = Json::object();
    j["type"] = LayerName(l.GetLayerType());
    j["enabled"] = l.IsEnabled();
    j["strength"] = FloatToJson(l.GetStrength());
    j["blend"] = kBlends[Int32(l.GetBlend())];
    j["matrix"] = MatrixToJson(MirrorZ(l.GetMatrix()));
    j["link"] = ctx.Link(l.GetLinkedObject());
    if (const auto* s = dynamic_cast<const SphericalFieldLayer*>(&l)) {
      j["radius"] = FloatToJson(s->GetRadius());
      j["inner"] = FloatToJson(s->GetInner());
    } else if (const auto* n = dynamic_cast<const LinearFieldLayer*>(&l)) {
      j["length"] = FloatToJson(n->GetLength());
    } else if (const auto* b = dynamic_cast<const BoxFieldLayer*>(&l)) {
      j["size"] = VectorToJson(b->GetSize());
      j["falloff"] = FloatToJson(b->GetFalloff());
    } else if (const auto* z = dynamic_cast<const NoiseFieldLayer*>(&l)) {
      j["scale"] = FloatToJson(z->GetScale());
      j["seed"] = z->GetSeed();
    }
    layers.push_back(std::move(j));
  }
  return layers;
}

std::unique_ptr<FieldList> FieldListFromJson(const Json& j, const String& path, SceneJsonReadContext& ctx) {
  JsonArray(j, path);
  auto list = std::make_unique<FieldList>();
  for (size_t i = 0; i < j.size(); ++i) {
    const String at = JsonIndex(path, i);
    const Json& l = JsonObject(j[i], at);
    if (!l.contains("type")) ThrowJson(JsonKey(at, "type"), "the type is missing");
    auto num = [&](const char* key, Float def) { return l.contains(key) ? JsonFloat(l[key], JsonKey(at, key)) : def; };
    const std::vector<const char*> common = {"type", "enabled", "strength", "blend", "matrix", "link"};
    auto keys = [&](std::initializer_list<const char*> own) {
      std::vector<const char*> k = common;
      k.insert(k.end(), own);
      CheckJsonKeys(l, at, k);
    };
    const String type = JsonString(l["type"], JsonKey(at, "type"));
    std::unique_ptr<FieldLayer> layer;
    if (type == "spherical") {
      keys({"radius", "inner"});
      layer = std::make_unique<SphericalFieldLayer>(num("radius", 1.0), num("inner", 0.0));
    } else if (type == "linear") {
      keys({"length"});
      layer = std::make_unique<LinearFieldLayer>(num("length", 1.0));
    } else if (type == "box") {
      keys({"size", "falloff"});
      const Vector size = l.contains("size") ? JsonVector(l["size"], JsonKey(at, "size")) : Vector(1.0);
      layer = std::make_unique<BoxFieldLayer>(size, num("falloff", 0.0));
    } else if (type == "noise") {
      keys({"scale", "seed"});
      layer = std::make_unique<NoiseFieldLayer>(num("scale", 1.0), l.contains("seed") ? JsonInt32(l["seed"], JsonKey(at, "seed")) : 0);
    } else {
      ThrowJson(JsonKey(at, "type"), "'" + type + "' is not a field layer (spherical, linear, box, noise)");
    }
    if (l.contains("enabled")) layer->SetEnabled(JsonBool(l["enabled"], JsonKey(at, "enabled")));
    layer->SetStrength(num("strength", 1.0));
    if (l.contains("blend")) layer->SetBlend(FIELDBLEND(IndexOf(kBlends, l["blend"], JsonKey(at, "blend"), "a blend mode")));
    if (l.contains("matrix")) layer->SetMatrix(MirrorZ(JsonMatrix(l["matrix"], JsonKey(at, "matrix"))));
    if (l.contains("link")) layer->SetLinkedObject(ctx.Link(l["link"], JsonKey(at, "link")));
    list->InsertLayer(std::move(layer));
  }
  return list;
}

Json SplineToJson(const SplineData& s) {
  Json j = Json::object();
  j["range"] = Json::array({FloatToJson(s.GetXMin()), FloatToJson(s.GetXMax()), FloatToJson(s.GetYMin()),
                            FloatToJson(s.GetYMax())});
  Json knots = Json::array();
  for (Int32 i = 0; i < s.GetKnotCount(); ++i) {
    const SplineKnot* k = s.GetKnot(i);
    knots.push_back(Json::array({FloatToJson(k->pos.x), FloatToJson(k->pos.y), kInterpolations[Int32(k->interpolation)]}));
  }
  j["knots"] = std::move(knots);
  return j;
}

std::unique_ptr<SplineData> SplineFromJson(const Json& j, const String& path) {
  JsonObject(j, path);
  CheckJsonKeys(j, path, {"range", "knots"});
  auto spline = std::make_unique<SplineData>();
  if (j.contains("range")) {
    const String at = JsonKey(path, "range");
    const Json& r = j["range"];
    if (!r.is_array() || r.size() != 4) ThrowJson(at, "expected [x min, x max, y min, y max]");
    spline->SetRange(JsonFloat(r[0], JsonIndex(at, 0)), JsonFloat(r[1], JsonIndex(at, 1)), JsonFloat(r[2], JsonIndex(at, 2)),
                     JsonFloat(r[3], JsonIndex(at, 3)));
  }
  if (j.contains("knots")) {
    const String at = JsonKey(path, "knots");
    const Json& knots = JsonArray(j["knots"], at);
    for (size_t i = 0; i < knots.size(); ++i) {
      const String k = JsonIndex(at, i);
      const Json& knot = knots[i];
      if (!knot.is_array() || (knot.size() != 2 && knot.size() != 3)) ThrowJson(k, "expected a knot: [x, y] or [x, y, interpolation]");
      const Int32 interpolation =
          knot.size() == 3 ? IndexOf(kInterpolations, knot[2], JsonIndex(k, 2), "an interpolation") : Int32(CURVEINTERPOLATION::SMOOTH);
      spline->InsertKnot(JsonFloat(knot[0], JsonIndex(k, 0)), JsonFloat(knot[1], JsonIndex(k, 1)),
                         CURVEINTERPOLATION(interpolation));
    }
  }
  return spline;
}

}  // namespace

const char* HostCustomDataJsonName(Int32 typeId) {
  switch (typeId) {
    case CUSTOMDATATYPE_FIELDLIST: return "fieldlist";
    case CUSTOMDATATYPE_SPLINE: return "spline";
    default: return nullptr;
  }
}

bool HostCustomDataToJson(const CustomDataType& data, const SceneJsonWriteContext& ctx, String* name, Json* out) {
  if (const auto* list = dynamic_cast<const FieldList*>(&data)) {
    for (Int32 i = 0; i < list->GetLayerCount(); ++i)
      if (!LayerName(list->GetLayer(i)->GetLayerType())) return false;
    *name = "fieldlist";
    *out = FieldListToJson(*list, ctx);
    return true;
  }
  if (const auto* spline = dynamic_cast<const SplineData*>(&data)) {
    *name = "spline";
    *out = SplineToJson(*spline);
    return true;
  }
  return false;
}

std::unique_ptr<CustomDataType> HostCustomDataFromJson(const String& name, const Json& j, const String& path,
                                                       SceneJsonReadContext& ctx) {
  if (name == "fieldlist") return FieldListFromJson(j, path, ctx);
  if (name == "spline") return SplineFromJson(j, path);
  return nullptr;
}

}  // namespace zta

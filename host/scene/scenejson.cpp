#include "host/scene/scenejson.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <map>
#include <unordered_map>
#include <unordered_set>

#include "host/core/format.h"
#include "host/scene/basedocument.h"
#include "host/scene/checklist.h"
#include "host/scene/customdataclass.h"
#include "host/scene/hyperfile.h"
#include "host/scene/itemtree.h"
#include "host/scene/opaquenodedata.h"
#include "host/scene/parameters.h"
#include "host/scene/plugins.h"
#include "host/scene/scenefile.h"
#include "host/scene/scenejsonio.h"
#include "host/scene/unitscale.h"

namespace zta {

// ---- shared helpers (scenejsonio.h)

void ThrowJson(const String& path, const String& what) { throw SceneJsonError{path, what}; }

Json FloatToJson(Float v) {
  if (std::isnan(v)) return "nan";
  if (std::isinf(v)) return v > 0 ? "inf" : "-inf";
  return v;
}

Json VectorToJson(const Vector& v) { return Json::array({FloatToJson(v.x), FloatToJson(v.y), FloatToJson(v.z)}); }

Json MatrixToJson(const Matrix& m) {
  Json j = Json::object();
  j["off"] = VectorToJson(m.off);
  j["v1"] = VectorToJson(m.v1);
  j["v2"] = VectorToJson(m.v2);
  j["v3"] = VectorToJson(m.v3);
  return j;
}

Float JsonFloat(const Json& j, const String& path) {
  if (j.is_number()) return j.get<Float>();
  if (j.is_string()) {
    const auto& s = j.get_ref<const std::string&>();
    if (s == "nan") return std::numeric_limits<Float>::quiet_NaN();
    if (s == "inf") return std::numeric_limits<Float>::infinity();
    if (s == "-inf") return -std::numeric_limits<Float>::infinity();
  }
  ThrowJson(path, "expected a number");
}

Int64 JsonInt64(const Json& j, const String& path) {
  if (j.is_number_integer() && !j.is_number_unsigned()) return j.get<Int64>();
  if (j.is_number_unsigned()) {
    const UInt64 u = j.get<UInt64>();
    if (u <= UInt64(std::numeric_limits<Int64>::max())) return Int64(u);
  }
  if (j.is_number_float()) {
    const double d = j.get<double>();
    if (d == std::floor(d) && std::abs(d) < 9.2e18) return Int64(d);
  }
  ThrowJson(path, "expected a whole number");
}

Int32 JsonInt32(const Json& j, const String& path) {
  const Int64 v = JsonInt64(j, path);
  if (v < std::numeric_limits<Int32>::min() || v > std::numeric_limits<Int32>::max())
    ThrowJson(path, FormatString("@ is out of the range of a 32-bit whole number", v));
  return Int32(v);
}

bool JsonBool(const Json& j, const String& path) {
  if (!j.is_boolean()) ThrowJson(path, "expected true or false");
  return j.get<bool>();
}

String JsonString(const Json& j, const String& path) {
  if (!j.is_string()) ThrowJson(path, "expected a string");
  return j.get<std::string>();
}

const Json& JsonArray(const Json& j, const String& path) {
  if (!j.is_array()) ThrowJson(path, "expected an array");
  return j;
}

const Json& JsonObject(const Json& j, const String& path) {
  if (!j.is_object()) ThrowJson(path, "expected an object");
  return j;
}

Vector JsonVector(const Json& j, const String& path) {
  if (!j.is_array() || j.size() != 3) ThrowJson(path, "expected [x, y, z]");
  return {JsonFloat(j[0], JsonIndex(path, 0)), JsonFloat(j[1], JsonIndex(path, 1)), JsonFloat(j[2], JsonIndex(path, 2))};
}

Matrix JsonMatrix(const Json& j, const String& path) {
  JsonObject(j, path);
  CheckJsonKeys(j, path, {"off", "v1", "v2", "v3"});
  Matrix m;
  if (j.contains("off")) m.off = JsonVector(j["off"], JsonKey(path, "off"));
  if (j.contains("v1")) m.v1 = JsonVector(j["v1"], JsonKey(path, "v1"));
  if (j.contains("v2")) m.v2 = JsonVector(j["v2"], JsonKey(path, "v2"));
  if (j.contains("v3")) m.v3 = JsonVector(j["v3"], JsonKey(path, "v3"));
  return m;
}

void CheckJsonKeys(const Json& j, const String& path, const std::vector<const char*>& keys) {
  for (const auto& [key, value] : j.items()) {
    bool known = false;
    for (const char* k : keys) known = known || key == k;
    if (!known) ThrowJson(JsonKey(path, key), "unknown key");
  }
}

namespace {
constexpr char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
}

String EncodeBase64(const char* data, size_t size) {
  String out;
  out.reserve((size + 2) / 3 * 4);
  const auto* p = reinterpret_cast<const unsigned char*>(data);
  for (size_t i = 0; i < size; i += 3) {
    const UInt32 n = UInt32(p[i]) << 16 | (i + 1 < size ? UInt32(p[i + 1]) << 8 : 0) | (i + 2 < size ? p[i + 2] : 0);
    out += kBase64[(n >> 18) & 63];
    out += kBase64[(n >> 12) & 63];
    out += i + 1 < size ? kBase64[(n >> 6) & 63] : '=';
    out += i + 2 < size ? kBase64[n & 63] : '=';
  }
  return out;
}

bool DecodeBase64(const String& text, std::vector<char>* out) {
  if (text.size() % 4 != 0) return false;
  out->clear();
  out->reserve(text.size() / 4 * 3);
  auto value = [](char c) -> int {
    const char* at = c ? std::strchr(kBase64, c) : nullptr;
    return at ? int(at - kBase64) : -1;
  };
  for (size_t i = 0; i < text.size(); i += 4) {
    int v[4];
    int pad = 0;
    for (int k = 0; k < 4; ++k) {
      const char c = text[i + size_t(k)];
      if (c == '=' && i + 4 == text.size() && k >= 2) {
        v[k] = 0;
        ++pad;
      } else if (pad > 0 || (v[k] = value(c)) < 0) {
        return false;
      }
    }
    const UInt32 n = UInt32(v[0]) << 18 | UInt32(v[1]) << 12 | UInt32(v[2]) << 6 | UInt32(v[3]);
    out->push_back(char(n >> 16));
    if (pad < 2) out->push_back(char((n >> 8) & 255));
    if (pad < 1) out->push_back(char(n & 255));
  }
  return true;
}

bool IsJsonScenePath(const String& path) {
  return std::filesystem::path(path).extension() == String(".") + kSceneJsonSuffix;
}

namespace {

constexpr Int32 kFormatVersion = 1;
// Values nest no deeper than the native form lets them below a tag's list.
constexpr Int32 kMaxValueNesting = HyperFile::kMaxNesting - 4;
constexpr const char* kFormatName = "zelmar-scene";

// The host's node types that have a name of their own, for the reader.
constexpr Int32 kHostObjectTypes[] = {
    HOST_TYPE_POLYGON,  HOST_TYPE_SPLINE, HOST_TYPE_EMITTER,       HOST_TYPE_LINE,   HOST_TYPE_NULL,
    HOST_TYPE_SPHERE,   HOST_TYPE_CUBE,   HOST_TYPE_PARTICLE_GROUP, HOST_TYPE_CLONER, HOST_TYPE_SUBDIVISION,
    HOST_TYPE_MATRIX,   HOST_TYPE_FIELD_CARRIER, HOST_TYPE_FIELD_OBJECT};
constexpr Int32 kHostTagTypes[] = {HOST_TAG_POINT, HOST_TAG_POLYGON, HOST_TAG_PHONG, HOST_TAG_UVW, HOST_TAG_VERTEXMAP};

const char* ClassWord(NODECLASS cls) {
  return cls == NODECLASS::OBJECT ? "object" : cls == NODECLASS::TAG ? "tag" : "scene hook";
}

PLUGINTYPE PluginTypeOf(NODECLASS cls) {
  return cls == NODECLASS::OBJECT ? PLUGINTYPE::OBJECT : cls == NODECLASS::TAG ? PLUGINTYPE::TAG : PLUGINTYPE::SCENEHOOK;
}

// A type's name: its description resource, or the plug-in's registered name
// when it has none; the number for a type nobody registered.
Json TypeToJson(Int32 type) {
  if (const char* name = HostDescriptionName(type)) return name;
  if (const PluginInfo* info = FindPlugin(type)) return info->description.empty() ? info->name : info->description;
  return type;
}

// The type a name stands for in a list of `cls`, or 0.
Int32 TypeByName(const String& name, NODECLASS cls) {
  if (cls == NODECLASS::OBJECT)
    for (Int32 t : kHostObjectTypes)
      if (name == HostDescriptionName(t)) return t;
  if (cls == NODECLASS::TAG)
    for (Int32 t : kHostTagTypes)
      if (name == HostDescriptionName(t)) return t;
  for (const PluginInfo& p : GetPlugins(PluginTypeOf(cls)))
    if (name == p.description || name == p.name) return p.id;
  return 0;
}

// The short names of document units, as the JSON form writes them.
const char* UnitName(DOCUMENTUNIT unit) {
  static const char* names[] = {"", "km", "m", "cm", "mm", "um", "nm", "mi", "yd", "ft", "in"};
  const Int32 u = Int32(unit);
  return u >= 1 && u <= 10 ? names[u] : nullptr;
}

// The document's own parameters as a description: its unit.
const Description& DocumentDescription() {
  static const Description d = [] {
    Description desc;
    BaseContainer unit;
    unit.SetInt32(DESC_KIND, Int32(DESCKIND::CUSTOM));
    unit.SetString(DESC_IDENT, "DOCUMENT_DOCUNIT");
    unit.SetString(DESC_NAME, "Unit");
    unit.SetInt32(DESC_CUSTOMTYPE, CUSTOMDATATYPE_UNITSCALE);
    desc.SetParameter(DOCUMENT_DOCUNIT, unit);
    return desc;
  }();
  return d;
}

// The names of the readable custom forms of the scene layer's own types.
const char* SceneCustomName(Int32 typeId) {
  switch (typeId) {
    case CUSTOMDATATYPE_ITEMTREE: return "itemtree";
    case CUSTOMDATATYPE_CHECKLIST: return "checklist";
    case CUSTOMDATATYPE_UNITSCALE: return "unitscale";
    default: return nullptr;
  }
}

const char* CustomJsonName(Int32 typeId) {
  if (const char* n = SceneCustomName(typeId)) return n;
  return HostCustomDataJsonName(typeId);
}

// The keys of a typed value: {"<type>": value}.
const std::vector<const char*>& TypedKeys() {
  static const std::vector<const char*> keys = {"int32",  "int64",     "bool",     "float",     "vector",
                                                "matrix", "string",    "time",     "link",      "container",
                                                "custom", "fieldlist", "spline",   "itemtree",  "checklist",
                                                "unitscale"};
  return keys;
}

bool IsTyped(const Json& j) {
  if (!j.is_object() || j.size() != 1) return false;
  const String& key = j.begin().key();
  for (const char* k : TypedKeys())
    if (key == k) return true;
  return false;
}

Json TimeToJson(const BaseTime& t) { return Json::array({t.GetNumerator(), t.GetDenominator()}); }

BaseTime JsonTime(const Json& j, const String& path) {
  if (j.is_number()) {
    const Float s = JsonFloat(j, path);
    if (!std::isfinite(s) || std::abs(s) > 9e12) ThrowJson(path, "a time out of range");
    return BaseTime(s);
  }
  if (!j.is_array() || j.size() != 2) ThrowJson(path, "expected a time: seconds, or [numerator, denominator]");
  const Int64 num = JsonInt64(j[0], JsonIndex(path, 0));
  const Int64 den = JsonInt64(j[1], JsonIndex(path, 1));
  if (den <= 0 || num == std::numeric_limits<Int64>::min())
    ThrowJson(path, FormatString("a time of @/@ seconds is not valid", num, den));
  return BaseTime(num, den);
}

// A parameter's key: its symbol when the description has one that names it
// alone, else its id.
String ParameterKey(const Description* desc, Int32 id) {
  if (desc)
    if (const BaseContainer* s = desc->GetParameter(id)) {
      const auto kind = DESCKIND(s->GetInt32(DESC_KIND));
      if (kind == DESCKIND::GROUP || kind == DESCKIND::SEPARATOR || kind == DESCKIND::BUTTON) return std::to_string(id);
      const String ident = s->GetString(DESC_IDENT);
      const DescID* back = ident.empty() ? nullptr : desc->FindIdent(ident);
      if (back && back->GetId() == id) return ident;
    }
  return std::to_string(id);
}

bool ParseInt32(const String& s, Int32* out) {
  if (s.empty()) return false;
  const char* end = s.data() + s.size();
  auto r = std::from_chars(s.data(), end, *out);
  return r.ec == std::errc() && r.ptr == end;
}

// A plug-in stream in memory: the header of `kind` and what `write` wrote.
std::vector<char> StreamBytes(Int32 kind, BaseDocument* doc, const std::function<bool(HyperFile&)>& write,
                              String* error) {
  auto hf = HyperFile::OpenWrite(kind);
  hf->SetDocument(doc);
  if (!write(*hf) || hf->HasError()) {
    *error = hf->GetErrorText();
    return {};
  }
  return hf->TakeMemory();
}

// ================================================================ writing

class Writer : public SceneJsonWriteContext {
 public:
  Writer(const BaseDocument& doc, Int32 kind) : doc_(doc), kind_(kind) {}

  Json Document() {
    auto& d = const_cast<BaseDocument&>(doc_);
    IndexPaths();
    Json j = Json::object();
    j["format"] = kFormatName;
    j["version"] = kFormatVersion;
    Json settings = Json::object();
    settings["id"] = doc_.GetMarker();
    settings["fps"] = doc_.GetFps();
    settings["time"] = TimeToJson(doc_.GetTime());
    settings["min_time"] = TimeToJson(doc_.GetMinTime());
    settings["max_time"] = TimeToJson(doc_.GetMaxTime());
    BaseLink active;
    active.SetLink(doc_.GetActiveObject());
    settings["active"] = Link(active);
    settings["parameters"] = Parameters(*doc_.GetDataInstance(), &DocumentDescription(), nullptr);
    if (doc_.GetDataInstance()->GetId() != 0) settings["container_id"] = doc_.GetDataInstance()->GetId();
    j["document"] = std::move(settings);
    j["objects"] = Objects(d.GetObjectListHead()->GetFirst());
    Json hooks = Json::array();
    for (GeListNode* h = d.GetSceneHookListHead()->GetFirst(); h; h = h->GetNext())
      hooks.push_back(Node(*static_cast<BaseList2D*>(h), NODECLASS::SCENEHOOK));
    j["hooks"] = std::move(hooks);
    return j;
  }

  Json Link(const BaseLink& link) const override {
    if (link.IsEmpty()) return nullptr;
    const BaseList2D* node = link.GetLink(&doc_);
    if (!node) {
      Json missing = Json::object();
      missing["missing"] = link.GetMarker();
      return missing;
    }
    auto it = pathOf_.find(node);
    if (it != pathOf_.end() && paths_.at(it->second) == 1) return it->second;
    return "#" + std::to_string(node->GetMarker());
  }

  Json Value(const GeData& v) const override { return Typed(v); }

 private:
  // Every object of the tree by its path; a path that two objects share, or
  // a name with a slash, is written by id instead.
  void IndexPaths() {
    auto& d = const_cast<BaseDocument&>(doc_);
    GeListHead* head = d.GetObjectListHead();
    for (GeListNode* n = head->GetFirst(); n; n = n->GetNextInTree(head)) {
      const auto* node = static_cast<const BaseList2D*>(n);
      String path;
      bool plain = true;
      for (const GeListNode* u = n; u; u = u->GetUp()) {
        const String& name = static_cast<const BaseList2D*>(u)->GetName();
        plain = plain && name.find('/') == String::npos;
        path = path.empty() ? name : name + "/" + path;
      }
      if (!plain || path.empty() || path[0] == '#') continue;
      pathOf_[node] = path;
      ++paths_[path];
    }
  }

  Json Objects(GeListNode* first) {
    // Siblings with their children, without recursion: each entry is an
    // array still to fill and the next node that goes into it.
    Json top = Json::array();
    struct Frame {
      Json* list;
      GeListNode* node;
    };
    std::vector<Frame> stack;
    if (first) stack.push_back({&top, first});
    while (!stack.empty()) {
      Frame& f = stack.back();
      if (!f.node) {
        stack.pop_back();
        continue;
      }
      GeListNode* n = f.node;
      f.node = n->GetNext();
      f.list->push_back(Node(*static_cast<BaseList2D*>(n), NODECLASS::OBJECT));
      if (n->GetDown()) {
        Json& obj = f.list->back();
        obj["children"] = Json::array();
        Json* children = &obj["children"];
        stack.push_back({children, n->GetDown()});
      }
    }
    return top;
  }

  Json Node(const BaseList2D& node, NODECLASS cls) {
    Json j = Json::object();
    j["type"] = TypeToJson(node.GetType());
    // A plug-in's type goes by name and by number, so that a reader without
    // the plug-in keeps the node.
    if (j["type"].is_string() && !HostDescriptionName(node.GetType())) j["type_id"] = node.GetType();
    j["name"] = node.GetName();
    j["id"] = node.GetMarker();
    if (node.GetAllBits()) j["bits"] = node.GetAllBits();
    const NodeData* data = node.GetNodeData();
    const auto* opaque = dynamic_cast<const OpaqueNodeData*>(data);
    const auto* op = cls == NODECLASS::OBJECT ? dynamic_cast<const BaseObject*>(&node) : nullptr;
    if (op) {
      if (opaque) j["info"] = op->GetInfo();
      // A move alone is a position, else the whole matrix.
      const Matrix rel = op->GetRelMl();
      auto isPlain = [](const Vector& v, const Vector& axis) {
        return v == axis && !std::signbit(v.x) && !std::signbit(v.y) && !std::signbit(v.z);
      };
      if (isPlain(rel.v1, {1, 0, 0}) && isPlain(rel.v2, {0, 1, 0}) && isPlain(rel.v3, {0, 0, 1})) {
        if (!(rel.off == Vector()) || std::signbit(rel.off.x) || std::signbit(rel.off.y) || std::signbit(rel.off.z))
          j["position"] = VectorToJson(MirrorZ(rel.off));
      } else {
        j["matrix"] = MatrixToJson(MirrorZ(rel));
      }
      if (!(op->GetFrozenMatrix() == Matrix())) j["frozen"] = MatrixToJson(MirrorZ(op->GetFrozenMatrix()));
      static const char* modes[] = {"on", "off", "default"};
      if (op->GetEditorMode() != MODE_UNDEF)
        j["editor"] = op->GetEditorMode() >= 0 && op->GetEditorMode() <= 2 ? Json(modes[op->GetEditorMode()])
                                                                           : Json(op->GetEditorMode());
      if (op->GetRenderMode() != MODE_UNDEF)
        j["render"] = op->GetRenderMode() >= 0 && op->GetRenderMode() <= 2 ? Json(modes[op->GetRenderMode()])
                                                                           : Json(op->GetRenderMode());
      if (!op->GetDeformMode()) j["enabled"] = false;
    }

    // Parameters against those of a fresh node of the type.
    Description desc;
    const bool described = GetNodeDescription(const_cast<BaseList2D*>(&node), desc);
    std::unique_ptr<BaseList2D> blank;
    if (cls == NODECLASS::OBJECT) blank = BaseObject::Alloc(node.GetType());
    else if (cls == NODECLASS::TAG) blank = BaseTag::Alloc(node.GetType());
    const BaseContainer& bc = *node.GetDataInstance();
    // A name that a fresh node has as well goes unsaid.
    if (blank && node.GetName().empty() && blank->GetName().empty()) j.erase("name");
    bool exact = false;
    Json params = Parameters(bc, described ? &desc : nullptr, blank ? blank->GetDataInstance() : nullptr, &exact);
    if (!params.empty() || exact) j["parameters"] = std::move(params);
    if (exact) j["parameters_exact"] = true;
    if (bc.GetId() != 0) j["container_id"] = bc.GetId();

    bool recordsSaid = WriteHostNodeJson(node, j, *this);
    if (const auto* tag = dynamic_cast<const VariableTag*>(&node); tag && !recordsSaid) {
      Json records = Json::object();
      records["size"] = tag->GetDataSize();
      records["base64"] = EncodeBase64(static_cast<const char*>(tag->GetLowlevelDataAddressR()),
                                       size_t(tag->GetDataCount()) * size_t(tag->GetDataSize()));
      j["records"] = std::move(records);
    }

    if (op) {
      Json tags = Json::array();
      for (BaseTag* t = op->GetFirstTag(); t; t = t->GetNext()) tags.push_back(Node(*t, NODECLASS::TAG));
      if (!tags.empty()) j["tags"] = std::move(tags);
    }
    if (data) PluginData(node, *data, opaque, j);
    return j;
  }

  // What only the native form can say: the plug-in's own stream, in base64.
  void PluginData(const BaseList2D& node, const NodeData& data, const OpaqueNodeData* opaque, Json& j) {
    String error;
    std::vector<char> bytes;
    Int32 level = 0;
    if (opaque) {
      bytes = StreamBytes(kind_, nullptr, [](HyperFile&) { return true; }, &error);
      bytes.insert(bytes.end(), opaque->GetBytes().begin(), opaque->GetBytes().end());
      level = opaque->GetLevel();
    } else {
      const PluginInfo* info = FindPlugin(node.GetType());
      level = info ? info->diskLevel : 0;
      bytes = StreamBytes(kind_, const_cast<BaseDocument*>(&doc_),
                          [&](HyperFile& hf) { return data.WriteNode(&node, &hf); }, &error);
      if (!error.empty() || bytes.empty())
        throw SceneJsonError{"", "the plug-in data of '" + node.GetName() + "' could not be written" +
                                     (error.empty() ? String() : ": " + error)};
      // A class that writes nothing says nothing.
      if (bytes.size() <= size_t(HyperFile::kHeaderSize)) return;
    }
    Json p = Json::object();
    p["level"] = level;
    p["base64"] = EncodeBase64(bytes.data(), bytes.size());
    j["plugin_data"] = std::move(p);
  }

  // The entries of `bc`: those that differ from `defaults` when the reader
  // would rebuild the same container from them (the listed ones in order,
  // then the remaining defaults), else all of them.
  // `exact` is set when the node lacks a default that a reader would add:
  // the listed entries are then the whole container.
  Json Parameters(const BaseContainer& bc, const Description* desc, const BaseContainer* defaults,
                  bool* exact = nullptr) const {
    std::vector<Int32> listed;
    if (defaults && exact)
      for (const auto& [id, v] : *defaults) *exact = *exact || !bc.GetDataPointer(id);
    if (defaults) {
      for (const auto& [id, v] : bc) {
        const GeData* def = defaults->GetDataPointer(id);
        if (!def || !(*def == v)) listed.push_back(id);
      }
      BaseContainer rebuilt(bc.GetId());
      for (Int32 id : listed) rebuilt.SetData(id, *bc.GetDataPointer(id));
      for (const auto& [id, v] : *defaults)
        if (!rebuilt.GetDataPointer(id)) rebuilt.SetData(id, v);
      if (!(rebuilt == bc)) listed.clear(), defaults = nullptr;
    }
    if (!defaults)
      for (const auto& [id, v] : bc) listed.push_back(id);
    Json out = Json::object();
    for (Int32 id : listed) {
      const BaseContainer* settings = desc ? desc->GetParameter(id) : nullptr;
      out[ParameterKey(desc, id)] = settings ? Plain(*bc.GetDataPointer(id), *settings) : Typed(*bc.GetDataPointer(id));
    }
    return out;
  }

  // A described parameter's value in the plain form of its kind, or typed
  // when it holds another type than the description says.
  Json Plain(const GeData& v, const BaseContainer& settings) const {
    const auto kind = DESCKIND(settings.GetInt32(DESC_KIND));
    switch (kind) {
      case DESCKIND::BOOL:
        if (v.GetType() == DATATYPE::BOOL) return v.GetBool();
        break;
      case DESCKIND::LONG:
        if (v.GetType() == DATATYPE::INT32) {
          if (const BaseContainer* idents = settings.GetContainerInstance(DESC_CYCLEIDENT))
            if (const GeData* ident = idents->GetDataPointer(v.GetInt32())) return ident->GetString();
          return v.GetInt32();
        }
        break;
      case DESCKIND::REAL:
        if (v.GetType() == DATATYPE::FLOAT) return FloatToJson(v.GetFloat());
        break;
      case DESCKIND::VECTOR:
        if (v.GetType() == DATATYPE::VECTOR) return VectorToJson(v.GetVector());
        break;
      case DESCKIND::STRING:
      case DESCKIND::STATICTEXT:
      case DESCKIND::FILENAME:
        if (v.GetType() == DATATYPE::STRING) return v.GetString();
        break;
      case DESCKIND::LINK:
        if (v.GetType() == DATATYPE::LINK) return Link(v.GetBaseLink());
        break;
      case DESCKIND::TIME:
        if (v.GetType() == DATATYPE::TIME) return TimeToJson(v.GetTime());
        break;
      case DESCKIND::CUSTOM:
        if (v.GetType() == DATATYPE::CUSTOM && v.GetCustomTypeId() == settings.GetInt32(DESC_CUSTOMTYPE)) {
          Json c = Custom(*v.GetCustomData());
          const char* name = CustomJsonName(v.GetCustomTypeId());
          if (name && c.begin().key() == name) return c.begin().value();
          return c;
        }
        break;
      default: break;
    }
    return Typed(v);
  }

  Json Typed(const GeData& v) const {
    Json j = Json::object();
    switch (v.GetType()) {
      case DATATYPE::NONE: return nullptr;
      case DATATYPE::INT32: return v.GetInt32();
      case DATATYPE::INT64: j["int64"] = v.GetInt64(); return j;
      case DATATYPE::BOOL: return v.GetBool();
      case DATATYPE::FLOAT: {
        // A whole float prints as "2.0" and reads back as a float; one that
        // is not finite needs its type said.
        if (!std::isfinite(v.GetFloat())) {
          j["float"] = FloatToJson(v.GetFloat());
          return j;
        }
        return v.GetFloat();
      }
      case DATATYPE::VECTOR: return VectorToJson(v.GetVector());
      case DATATYPE::MATRIX: j["matrix"] = MatrixToJson(v.GetMatrix()); return j;
      case DATATYPE::STRING: return v.GetString();
      case DATATYPE::TIME: j["time"] = TimeToJson(v.GetTime()); return j;
      case DATATYPE::LINK: j["link"] = Link(v.GetBaseLink()); return j;
      case DATATYPE::CONTAINER: {
        const BaseContainer& bc = *v.GetContainer();
        Json c = Json::object();
        if (bc.GetId() != 0) c["id"] = bc.GetId();
        Json values = Json::object();
        for (const auto& [id, value] : bc) values[std::to_string(id)] = Typed(value);
        c["values"] = std::move(values);
        j["container"] = std::move(c);
        return j;
      }
      case DATATYPE::CUSTOM: return Custom(*v.GetCustomData());
    }
    return nullptr;
  }

  // {"<name>": readable form}, or {"custom": {"type", "base64"}} for a type
  // that has no readable form.
  Json Custom(const CustomDataType& c) const {
    Json j = Json::object();
    String name;
    Json value;
    if (const auto* tree = dynamic_cast<const ItemTree*>(&c)) {
      j["itemtree"] = ItemRows(*tree);
    } else if (const auto* list = dynamic_cast<const CheckListData*>(&c)) {
      Json rows = Json::array();
      for (Int32 i = 0; i < list->GetCount(); ++i) {
        Json row = Json::object();
        row["name"] = list->GetName(i);
        row["checked"] = list->IsChecked(i);
        rows.push_back(std::move(row));
      }
      j["checklist"] = std::move(rows);
    } else if (const auto* unit = dynamic_cast<const UnitScaleData*>(&c); unit && UnitName(unit->GetUnit())) {
      Json u = Json::object();
      u["unit"] = UnitName(unit->GetUnit());
      u["scale"] = FloatToJson(unit->GetScale());
      j["unitscale"] = std::move(u);
    } else if (!dynamic_cast<const OpaqueCustomData*>(&c) && HostCustomDataToJson(c, *this, &name, &value)) {
      j[name] = std::move(value);
    } else {
      String error;
      std::vector<char> bytes =
          StreamBytes(kind_, const_cast<BaseDocument*>(&doc_), [&](HyperFile& hf) { return hf.WriteCustomData(c); }, &error);
      if (!error.empty()) throw SceneJsonError{"", "custom data of type " + std::to_string(c.GetCustomTypeId()) + ": " + error};
      Json o = Json::object();
      o["type"] = c.GetCustomTypeId();
      o["base64"] = EncodeBase64(bytes.data(), bytes.size());
      j["custom"] = std::move(o);
    }
    return j;
  }

  // Rows with their children, without recursion.
  Json ItemRows(const ItemTree& tree) const {
    Json top = Json::array();
    std::vector<std::pair<Json*, const ItemTreeItem*>> stack;
    if (tree.GetFirst()) stack.emplace_back(&top, tree.GetFirst());
    while (!stack.empty()) {
      auto& [list, item] = stack.back();
      if (!item) {
        stack.pop_back();
        continue;
      }
      const ItemTreeItem* i = item;
      item = i->GetNext();
      Json row = Json::object();
      row["flags"] = i->GetFlags();
      if (!i->GetData().IsEmpty()) row["data"] = Typed(i->GetData());
      if (!i->GetLink().IsEmpty()) row["link"] = Link(i->GetLink());
      Json* target = list;
      target->push_back(std::move(row));
      if (i->GetDown()) {
        Json& added = target->back();
        added["children"] = Json::array();
        stack.emplace_back(&added["children"], i->GetDown());
      }
    }
    return top;
  }

  const BaseDocument& doc_;
  Int32 kind_;
  std::unordered_map<const BaseList2D*, String> pathOf_;
  std::unordered_map<String, Int32> paths_;
};

// ================================================================ reading

// Keys of a node's JSON object that the reader knows besides the host's.
const std::vector<const char*>& NodeKeys(NODECLASS cls) {
  static const std::vector<const char*> object = [] {
    std::vector<const char*> k = {"type",   "type_id", "name",   "id",      "bits",       "info",        "matrix",
                                  "frozen", "position", "editor", "render",     "enabled",     "parameters",
                                  "parameters_exact", "container_id", "tags", "children", "plugin_data", "records"};
    for (const char* h : HostNodeJsonKeys()) k.push_back(h);
    return k;
  }();
  static const std::vector<const char*> tag = [] {
    std::vector<const char*> k = {"type", "type_id", "name", "id", "bits", "parameters", "parameters_exact", "container_id", "plugin_data", "records"};
    for (const char* h : HostNodeJsonKeys()) k.push_back(h);
    return k;
  }();
  static const std::vector<const char*> hook = {"type", "type_id", "name", "id", "bits", "parameters", "parameters_exact", "container_id",
                                                "plugin_data"};
  return cls == NODECLASS::OBJECT ? object : cls == NODECLASS::TAG ? tag : hook;
}

}  // namespace

// Friend of BaseList2D: it gives nodes the ids the file names.
class SceneJsonReader : public SceneJsonReadContext {
 public:
  SceneJsonReader(const SceneJsonReadOptions& options, const ThreadRef& thread) : options_(options), thread_(thread) {}

  void Read(const Json& root, BaseDocument* doc) {
    doc_ = doc;
    JsonObject(root, "");
    CheckJsonKeys(root, "", {"format", "version", "document", "objects", "hooks"});
    if (root.contains("format") && !(root["format"].is_string() && root["format"].get<std::string>() == kFormatName))
      ThrowJson("format", String("expected \"") + kFormatName + "\"");
    if (root.contains("version")) {
      const Int32 v = JsonInt32(root["version"], "version");
      if (v < 1) ThrowJson("version", FormatString("version @ is not valid", v));
      if (v > kFormatVersion)
        ThrowJson("version", FormatString("scene format version @ is newer than this program reads (@)", v, kFormatVersion));
    }
    ReserveIds(root);
    const Json empty = Json::object();
    const Json& settings = root.contains("document") ? JsonObject(root["document"], "document") : empty;
    Settings(settings);
    if (root.contains("objects")) Objects(JsonArray(root["objects"], "objects"));
    if (root.contains("hooks")) Hooks(JsonArray(root["hooks"], "hooks"));
    // Every node is there: what links name can be found now.
    for (Pending& p : pending_) Fill(p);
    if (settings.contains("active")) {
      const BaseLink active = Link(settings["active"], "document.active");
      BaseList2D* node = active.IsEmpty() ? nullptr : doc_->FindByMarker(active.GetMarker());
      if (!active.IsEmpty() && !dynamic_cast<BaseObject*>(node)) ThrowJson("document.active", "the active node is not an object");
      doc_->SetActiveObject(static_cast<BaseObject*>(node));
    }
    Validate();
  }

  // ---- SceneJsonReadContext

  BaseLink Link(const Json& j, const String& path) override {
    if (j.is_null()) return BaseLink();
    if (j.is_object()) {
      CheckJsonKeys(j, path, {"missing"});
      if (!j.contains("missing")) ThrowJson(path, "expected a link: an object path, \"#id\", {\"missing\": id} or null");
      const UInt64 marker = Marker(j["missing"], JsonKey(path, "missing"));
      return BaseLink::FromMarker(marker);
    }
    if (!j.is_string()) ThrowJson(path, "expected a link: an object path, \"#id\", {\"missing\": id} or null");
    const String text = j.get<std::string>();
    if (!text.empty() && text[0] == '#') {
      UInt64 marker = 0;
      const char* end = text.data() + text.size();
      auto r = std::from_chars(text.data() + 1, end, marker);
      if (r.ec != std::errc() || r.ptr != end || marker == 0) ThrowJson(path, "'" + text + "' is not a node id");
      idLinks_.emplace_back(marker, path);
      return BaseLink::FromMarker(marker);
    }
    auto it = paths_.find(text);
    if (it == paths_.end()) ThrowJson(path, "the link names '" + text + "', which is no object of the scene");
    if (!it->second) ThrowJson(path, "the link names '" + text + "', which more than one object has as its path");
    return BaseLink(it->second);
  }

  GeData Value(const Json& j, const String& path) override {
    if (j.is_null()) return GeData();
    if (j.is_boolean()) return GeData(j.get<bool>());
    if (j.is_number_float()) return GeData(j.get<Float>());
    if (j.is_number_integer()) {
      const Int64 v = JsonInt64(j, path);
      if (v >= std::numeric_limits<Int32>::min() && v <= std::numeric_limits<Int32>::max()) return GeData(Int32(v));
      return GeData(v);
    }
    if (j.is_string()) return GeData(j.get<std::string>());
    if (j.is_array()) return GeData(JsonVector(j, path));
    if (!IsTyped(j)) ThrowJson(path, "expected a value: a number, true or false, a string, [x, y, z], null or {\"<type>\": value}");
    const String type = j.begin().key();
    const Json& v = j.begin().value();
    const String at = JsonKey(path, type);
    if (type == "int32") return GeData(JsonInt32(v, at));
    if (type == "int64") return GeData(JsonInt64(v, at));
    if (type == "bool") return GeData(JsonBool(v, at));
    if (type == "float") return GeData(JsonFloat(v, at));
    if (type == "vector") return GeData(JsonVector(v, at));
    if (type == "matrix") return GeData(JsonMatrix(v, at));
    if (type == "string") return GeData(JsonString(v, at));
    if (type == "time") return GeData(JsonTime(v, at));
    if (type == "link") return GeData(Link(v, at));
    if (type == "container") return GeData(Container(v, at));
    return GeData(std::shared_ptr<const CustomDataType>(Custom(type, v, at)));
  }

  const SceneJsonReadOptions& GetOptions() const override { return options_; }
  const ThreadRef& GetThread() const override { return thread_; }
  Float GetUnitMeters() const override { return GetDocumentUnit(doc_).GetMeters(); }

 private:
  struct Pending {
    BaseList2D* node;
    const Json* json;
    String path;
    NODECLASS cls;
  };

  void CheckStop() {
    if (thread_ && thread_->TestBreak()) throw SceneJsonError{"", "interrupted"};
  }

  UInt64 Marker(const Json& j, const String& path) {
    if (!j.is_number_unsigned() && !(j.is_number_integer() && j.get<Int64>() > 0)) ThrowJson(path, "expected a node id: a whole number above 0");
    const UInt64 m = j.get<UInt64>();
    if (m == 0) ThrowJson(path, "expected a node id: a whole number above 0");
    return m;
  }

  // Ids the file gives are reserved before any node is made, so that a node
  // without one never takes an id that a later node names.
  void ReserveIds(const Json& root) {
    std::vector<const Json*> stack;
    auto pushList = [&](const Json& list) {
      if (list.is_array())
        for (const Json& n : list) stack.push_back(&n);
    };
    if (root.contains("objects")) pushList(root["objects"]);
    if (root.contains("hooks")) pushList(root["hooks"]);
    if (root.contains("document") && root["document"].is_object() && root["document"].contains("id"))
      stack.push_back(&root["document"]);
    while (!stack.empty()) {
      const Json& n = *stack.back();
      stack.pop_back();
      if (!n.is_object()) continue;
      if (n.contains("id") && n["id"].is_number_unsigned()) BaseList2D::ReserveMarker(n["id"].get<UInt64>());
      if (n.contains("children")) pushList(n["children"]);
      if (n.contains("tags")) pushList(n["tags"]);
    }
  }

  void Settings(const Json& s) {
    const String path = "document";
    CheckJsonKeys(s, path, {"id", "fps", "time", "min_time", "max_time", "active", "parameters", "container_id"});
    if (s.contains("id")) SetId(doc_, s["id"], JsonKey(path, "id"));
    if (s.contains("container_id")) doc_->GetDataInstance()->SetId(JsonInt32(s["container_id"], JsonKey(path, "container_id")));
    if (s.contains("parameters"))
      Parameters(doc_, s["parameters"], JsonKey(path, "parameters"), &DocumentDescription(), nullptr);
    if (s.contains("fps")) {
      const Int32 fps = JsonInt32(s["fps"], JsonKey(path, "fps"));
      if (!doc_->SetFps(fps)) ThrowJson(JsonKey(path, "fps"), FormatString("a frame rate of @ is not valid", fps));
    }
    BaseTime minTime = doc_->GetMinTime(), maxTime = doc_->GetMaxTime();
    if (s.contains("min_time")) minTime = JsonTime(s["min_time"], JsonKey(path, "min_time"));
    if (s.contains("max_time")) maxTime = JsonTime(s["max_time"], JsonKey(path, "max_time"));
    if (!doc_->SetTimeRange(minTime, maxTime)) ThrowJson(JsonKey(path, "max_time"), "the time range ends before it starts");
    if (s.contains("time")) doc_->SetTime(JsonTime(s["time"], JsonKey(path, "time")));
  }

  void SetId(BaseList2D* node, const Json& j, const String& path) {
    const UInt64 marker = Marker(j, path);
    if (!ids_.insert(marker).second) ThrowJson(path, FormatString("the node id @ is used twice", marker));
    node->SetMarker(marker);
    BaseList2D::ReserveMarker(marker);
  }

  // The type of a node's JSON object: by name or number; a name that no
  // plug-in of this build has stands for the number beside it ("type_id"),
  // whose node is kept with its plug-in data as bytes.
  Int32 Type(const Json& node, const String& nodePath, NODECLASS cls) {
    const String path = JsonKey(nodePath, "type");
    const Json& j = node["type"];
    const bool hasId = node.contains("type_id");
    const Int32 id = hasId ? JsonInt32(node["type_id"], JsonKey(nodePath, "type_id")) : 0;
    if (j.is_string()) {
      const String name = j.get<std::string>();
      const Int32 t = TypeByName(name, cls);
      if (t && hasId && t != id)
        ThrowJson(JsonKey(nodePath, "type_id"), FormatString("'@' is type @ here, not @", name, t, id));
      if (t) return t;
      if (hasId && !FindPlugin(id)) return id;
      ThrowJson(path, "unknown " + String(ClassWord(cls)) + " type '" + name + "'");
    }
    const bool opaqueAllowed = node.contains("plugin_data");
    const Int32 t = JsonInt32(j, path);
    const PluginInfo* plugin = FindPlugin(t);
    const bool host = cls == NODECLASS::OBJECT ? AllocHostObject(t) != nullptr
                      : cls == NODECLASS::TAG   ? AllocHostTag(t) != nullptr
                                                : false;
    if (!host && !(plugin && plugin->type == PluginTypeOf(cls)) && !opaqueAllowed)
      ThrowJson(path, FormatString("unknown @ type @", ClassWord(cls), t));
    return t;
  }

  // Makes a node of a JSON object: of its class when the type is known, or
  // one that keeps its plug-in data as bytes (a type given by number, with
  // "plugin_data").
  std::unique_ptr<BaseList2D> Make(const Json& j, const String& path, NODECLASS cls) {
    JsonObject(j, path);
    CheckJsonKeys(j, path, NodeKeys(cls));
    if (cls != NODECLASS::OBJECT && j.contains("file"))
      ThrowJson(JsonKey(path, "file"), "only objects read files");
    const bool hasFile = cls == NODECLASS::OBJECT && j.contains("file");
    if (!j.contains("type") && !hasFile) ThrowJson(JsonKey(path, "type"), "the type is missing");
    const Int32 type = j.contains("type") ? Type(j, path, cls) : HOST_TYPE_POLYGON;
    if (hasFile && type != HOST_TYPE_POLYGON && type != HOST_TYPE_SPLINE && type != HOST_TYPE_LINE &&
        type != HOST_TYPE_PARTICLE_GROUP && !FileParameterOf(type))
      ThrowJson(JsonKey(path, "file"),
                "only polygon objects, splines, lines, particle groups and objects with a file parameter read files");
    std::unique_ptr<BaseList2D> node;
    if (cls == NODECLASS::OBJECT) {
      node = BaseObject::Alloc(type);
      if (!node && FindPlugin(type)) ThrowJson(path, FormatString("an object of type @ could not be made", type));
      if (!node) {
        const Int32 info = j.contains("info") ? JsonInt32(j["info"], JsonKey(path, "info")) : 0;
        node = BaseObject::AllocWithData(type, std::make_unique<OpaqueNodeData>(), info);
      }
    } else {
      node = BaseTag::Alloc(type);
      if (!node && FindPlugin(type)) ThrowJson(path, FormatString("a tag of type @ could not be made", type));
      if (!node) node = BaseTag::AllocWithData(type, std::make_unique<OpaqueNodeData>());
    }
    if (!node) ThrowJson(path, FormatString("out of memory making a node of type @", type));
    Header(*node, j, path);
    return node;
  }

  // What every node has: name, id, bits.
  void Header(BaseList2D& node, const Json& j, const String& path) {
    if (j.contains("name")) node.SetName(JsonString(j["name"], JsonKey(path, "name")));
    if (j.contains("id")) SetId(&node, j["id"], JsonKey(path, "id"));
    if (j.contains("bits")) {
      const Int64 bits = JsonInt64(j["bits"], JsonKey(path, "bits"));
      if (bits < 0 || bits > Int64(std::numeric_limits<UInt32>::max())) ThrowJson(JsonKey(path, "bits"), "expected a 32-bit flag word");
      node.bits_ = UInt32(bits);
    }
  }

  static Int32 Mode(const Json& j, const String& path) {
    if (j.is_string()) {
      const String m = j.get<std::string>();
      if (m == "on") return MODE_ON;
      if (m == "off") return MODE_OFF;
      if (m == "default") return MODE_UNDEF;
      ThrowJson(path, "expected \"on\", \"off\" or \"default\"");
    }
    return JsonInt32(j, path);
  }

  void ObjectState(BaseObject& op, const Json& j, const String& path) {
    if (j.contains("matrix") && j.contains("position")) ThrowJson(JsonKey(path, "position"), "give either a matrix or a position");
    if (j.contains("frozen")) op.SetFrozenMatrix(MirrorZ(JsonMatrix(j["frozen"], JsonKey(path, "frozen"))));
    if (j.contains("matrix")) op.SetRelMl(MirrorZ(JsonMatrix(j["matrix"], JsonKey(path, "matrix"))));
    if (j.contains("position")) op.SetRelMl(MatrixMove(MirrorZ(JsonVector(j["position"], JsonKey(path, "position")))));
    if (j.contains("editor")) op.SetEditorMode(Mode(j["editor"], JsonKey(path, "editor")));
    if (j.contains("render")) op.SetRenderMode(Mode(j["render"], JsonKey(path, "render")));
    if (j.contains("enabled")) op.SetDeformMode(JsonBool(j["enabled"], JsonKey(path, "enabled")));
  }

  // The tags of an object in the file's order. Tags that the object's class
  // made (a polygon object's point and polygon tags) are taken up by the
  // first entries of their type; those that no entry names stay in front.
  void Tags(BaseObject& op, const Json& list, const String& path) {
    std::vector<std::unique_ptr<BaseTag>> own;
    while (BaseTag* t = op.GetFirstTag()) own.emplace_back(static_cast<BaseTag*>(t->Remove().release()));
    std::vector<std::unique_ptr<BaseTag>> ordered;
    std::vector<std::pair<size_t, size_t>> pendingAt;  // entry index, position in `ordered`
    for (size_t i = 0; i < list.size(); ++i) {
      const String at = JsonIndex(path, i);
      const Json& j = list[i];
      JsonObject(j, at);
      std::unique_ptr<BaseTag> tag;
      if (j.contains("type") && (j["type"].is_string() || j["type"].is_number())) {
        // Only to find the object's own tag; Make says what is wrong with a type.
        Int32 type = 0;
        if (j["type"].is_string()) {
          type = TypeByName(j["type"].get<std::string>(), NODECLASS::TAG);
        } else if (j["type"].is_number_integer() && !j["type"].is_number_unsigned()) {
          const Int64 t = j["type"].get<Int64>();
          type = t > 0 && t <= std::numeric_limits<Int32>::max() ? Int32(t) : 0;
        } else if (j["type"].is_number_unsigned()) {
          const UInt64 t = j["type"].get<UInt64>();
          type = t <= UInt64(std::numeric_limits<Int32>::max()) ? Int32(t) : 0;
        }
        for (auto& o : own)
          if (o && o->GetType() == type) {
            tag = std::move(o);
            CheckJsonKeys(j, at, NodeKeys(NODECLASS::TAG));
            Header(*tag, j, at);
            break;
          }
      }
      if (!tag) tag.reset(static_cast<BaseTag*>(Make(j, at, NODECLASS::TAG).release()));
      ordered.push_back(std::move(tag));
      pendingAt.emplace_back(i, ordered.size() - 1);
    }
    BaseTag* pred = nullptr;
    for (auto& o : own)
      if (o) {
        BaseTag* t = o.release();
        op.InsertTag(t, pred);
        pred = t;
      }
    for (size_t k = 0; k < ordered.size(); ++k) {
      BaseTag* t = ordered[k].release();
      op.InsertTag(t, pred);
      pred = t;
      pending_.push_back({t, &list[pendingAt[k].first], JsonIndex(path, pendingAt[k].first), NODECLASS::TAG});
    }
  }

  void Objects(const Json& top) {
    struct Frame {
      const Json* list;
      size_t next;
      String path;
      GeListNode* parent;
      Int32 depth;
    };
    std::vector<Frame> stack{{&top, 0, "objects", doc_->GetObjectListHead(), 0}};
    std::unordered_map<String, BaseList2D*> seen;
    while (!stack.empty()) {
      Frame& f = stack.back();
      if (f.next >= f.list->size()) {
        stack.pop_back();
        continue;
      }
      CheckStop();
      const size_t i = f.next++;
      const String at = JsonIndex(f.path, i);
      const Json& j = (*f.list)[i];
      auto made = Make(j, at, NODECLASS::OBJECT);
      auto* op = static_cast<BaseObject*>(made.get());
      if (!made.release()->InsertUnderLast(f.parent)) ThrowJson(at, "the object could not be put into its tree");
      ObjectState(*op, j, at);
      // Its path, for links: names from the top down.
      String objectPath;
      bool plain = true;
      for (const GeListNode* u = op; u; u = u->GetUp()) {
        const String& name = static_cast<const BaseList2D*>(u)->GetName();
        plain = plain && name.find('/') == String::npos;
        objectPath = objectPath.empty() ? name : name + "/" + objectPath;
      }
      if (plain) {
        auto [it, fresh] = paths_.emplace(objectPath, op);
        if (!fresh) it->second = nullptr;  // two objects share the path
      }
      pending_.push_back({op, &j, at, NODECLASS::OBJECT});
      if (j.contains("tags")) Tags(*op, JsonArray(j["tags"], JsonKey(at, "tags")), JsonKey(at, "tags"));
      if (j.contains("children")) {
        const Json& children = JsonArray(j["children"], JsonKey(at, "children"));
        if (f.depth + 1 >= HyperFile::kMaxTreeDepth)
          ThrowJson(JsonKey(at, "children"), FormatString("objects are nested deeper than @", HyperFile::kMaxTreeDepth));
        const Int32 depth = f.depth + 1;
        stack.push_back({&children, 0, JsonKey(at, "children"), op, depth});
      }
    }
  }

  void Hooks(const Json& list) {
    for (size_t i = 0; i < list.size(); ++i) {
      const String at = JsonIndex("hooks", i);
      const Json& j = list[i];
      JsonObject(j, at);
      CheckJsonKeys(j, at, NodeKeys(NODECLASS::SCENEHOOK));
      if (!j.contains("type")) ThrowJson(JsonKey(at, "type"), "the type is missing");
      const Int32 type = Type(j, at, NODECLASS::SCENEHOOK);
      const PluginInfo* plugin = FindPlugin(type);
      BaseList2D* node = nullptr;
      if (plugin && plugin->type == PLUGINTYPE::SCENEHOOK) {
        node = doc_->FindSceneHook(type);
        if (!node) ThrowJson(at, FormatString("the scene hook @ (@) could not be made", type, plugin->name));
      } else {
        node = doc_->InsertSceneHook(type, std::make_unique<OpaqueNodeData>());
        if (!node) ThrowJson(at, FormatString("out of memory making a scene hook of type @", type));
      }
      Header(*node, j, at);
      pending_.push_back({node, &j, at, NODECLASS::SCENEHOOK});
    }
  }

  // Parameters, host data, records and plug-in data of a node made before.
  void Fill(Pending& p) {
    CheckStop();
    const Json& j = *p.json;
    BaseList2D& node = *p.node;
    if (j.contains("container_id")) node.GetDataInstance()->SetId(JsonInt32(j["container_id"], JsonKey(p.path, "container_id")));
    if (j.contains("parameters")) {
      Description desc;
      const bool described = GetNodeDescription(&node, desc);
      const bool exact = j.contains("parameters_exact") && JsonBool(j["parameters_exact"], JsonKey(p.path, "parameters_exact"));
      Parameters(&node, j["parameters"], JsonKey(p.path, "parameters"), described ? &desc : nullptr, &node, exact);
    }
    ReadHostNodeJson(node, j, p.path, *this);
    if (j.contains("records")) Records(node, j["records"], JsonKey(p.path, "records"));
    if (j.contains("plugin_data")) PluginData(node, j["plugin_data"], JsonKey(p.path, "plugin_data"));
  }

  void Records(BaseList2D& node, const Json& j, const String& path) {
    auto* tag = dynamic_cast<VariableTag*>(&node);
    if (!tag) ThrowJson(path, "only a tag of records takes records");
    JsonObject(j, path);
    CheckJsonKeys(j, path, {"size", "base64"});
    if (!j.contains("size") || !j.contains("base64")) ThrowJson(path, "expected {\"size\", \"base64\"}");
    const Int32 size = JsonInt32(j["size"], JsonKey(path, "size"));
    if (size != tag->GetDataSize())
      ThrowJson(JsonKey(path, "size"), FormatString("this tag holds records of @ bytes, not @", tag->GetDataSize(), size));
    std::vector<char> bytes;
    if (!DecodeBase64(JsonString(j["base64"], JsonKey(path, "base64")), &bytes))
      ThrowJson(JsonKey(path, "base64"), "not base64");
    if (bytes.size() % size_t(size) != 0 || bytes.size() / size_t(size) > size_t(std::numeric_limits<Int32>::max()))
      ThrowJson(JsonKey(path, "base64"), FormatString("@ bytes are no whole number of records of @ bytes", bytes.size(), size));
    if (!tag->Resize(Int32(bytes.size() / size_t(size)))) ThrowJson(path, "out of memory");
    if (!bytes.empty()) std::memcpy(tag->GetLowlevelDataAddressW(), bytes.data(), bytes.size());
  }

  std::unique_ptr<HyperFile> OpenStream(const Json& j, const String& path, std::vector<char>* bytes) {
    if (!DecodeBase64(JsonString(j, path), bytes)) ThrowJson(path, "not base64");
    auto opened = HyperFile::OpenRead(bytes->data(), Int64(bytes->size()));
    if (!opened) ThrowJson(path, opened.GetError().GetMessage());
    std::unique_ptr<HyperFile> hf = std::move(opened.GetValue());
    hf->SetDocument(doc_);
    hf->SetThread(thread_);
    return hf;
  }

  void PluginData(BaseList2D& node, const Json& j, const String& path) {
    JsonObject(j, path);
    CheckJsonKeys(j, path, {"level", "base64"});
    if (!j.contains("base64")) ThrowJson(JsonKey(path, "base64"), "the data are missing");
    const Int32 level = j.contains("level") ? JsonInt32(j["level"], JsonKey(path, "level")) : 0;
    NodeData* data = node.GetNodeData();
    if (!data) ThrowJson(path, "a node of type " + std::to_string(node.GetType()) + " has no plug-in data");
    std::vector<char> bytes;
    auto hf = OpenStream(j["base64"], JsonKey(path, "base64"), &bytes);
    if (auto* opaque = dynamic_cast<OpaqueNodeData*>(data)) {
      opaque->Set(level, std::vector<char>(bytes.begin() + HyperFile::kHeaderSize, bytes.end()));
      return;
    }
    if (!data->ReadNode(&node, hf.get(), level) || hf->HasError())
      ThrowJson(JsonKey(path, "base64"), hf->HasError() ? hf->GetErrorText()
                                                        : FormatString("the plug-in data at level @ could not be read", level));
  }

  // A node's or the document's parameters: the listed ones in the file's
  // order, then those of the node's defaults that the file does not list.
  void Parameters(BaseList2D* node, const Json& j, const String& path, const Description* desc, BaseList2D* owner,
                  bool exact = false) {
    JsonObject(j, path);
    BaseContainer* bc = node->GetDataInstance();
    BaseContainer rebuilt(bc->GetId());
    for (const auto& [key, value] : j.items()) {
      const String at = JsonKey(path, key);
      Int32 id = 0;
      if (!ParseInt32(key, &id)) {
        const DescID* found = desc ? desc->FindIdent(key) : nullptr;
        if (!found) ThrowJson(at, "unknown parameter");
        id = found->GetId();
      }
      if (owner && IsBuiltinParameter(owner, id))
        ThrowJson(at, "the node keeps this parameter itself: give \"name\", \"matrix\", \"editor\", \"render\" or \"enabled\"");
      if (rebuilt.GetDataPointer(id)) ThrowJson(at, FormatString("parameter @ is given twice", id));
      const BaseContainer* settings = desc ? desc->GetParameter(id) : nullptr;
      rebuilt.SetData(id, settings ? Described(value, *settings, at) : Value(value, at));
    }
    if (!exact)
      for (const auto& [id, v] : *bc)
        if (!rebuilt.GetDataPointer(id)) rebuilt.SetData(id, v);
    *bc = std::move(rebuilt);
  }

  // A value in the plain form of its parameter's kind (or typed).
  GeData Described(const Json& j, const BaseContainer& settings, const String& path) {
    if (IsTyped(j) || j.is_null()) return Value(j, path);
    switch (DESCKIND(settings.GetInt32(DESC_KIND))) {
      case DESCKIND::BOOL:
        if (j.is_number_integer()) return GeData(JsonInt64(j, path) != 0);
        return GeData(JsonBool(j, path));
      case DESCKIND::LONG: {
        if (j.is_string()) {
          const String ident = j.get<std::string>();
          if (const BaseContainer* idents = settings.GetContainerInstance(DESC_CYCLEIDENT))
            for (const auto& [value, name] : *idents)
              if (name.GetString() == ident) return GeData(value);
          ThrowJson(path, "'" + ident + "' is not a value of " + settings.GetString(DESC_IDENT));
        }
        if (!j.is_number()) ThrowJson(path, "expected a whole number");
        return GeData(JsonInt32(j, path));
      }
      case DESCKIND::REAL: return GeData(JsonFloat(j, path));
      case DESCKIND::VECTOR: return GeData(JsonVector(j, path));
      case DESCKIND::STRING:
      case DESCKIND::STATICTEXT:
      case DESCKIND::FILENAME: return GeData(JsonString(j, path));
      case DESCKIND::LINK: return GeData(Link(j, path));
      case DESCKIND::TIME: return GeData(JsonTime(j, path));
      case DESCKIND::CUSTOM: {
        const Int32 type = settings.GetInt32(DESC_CUSTOMTYPE);
        const char* name = CustomJsonName(type);
        if (!name) ThrowJson(path, FormatString("custom data of type @ are given as {\"custom\": {\"type\", \"base64\"}}", type));
        return GeData(std::shared_ptr<const CustomDataType>(Custom(name, j, path)));
      }
      default: return Value(j, path);
    }
  }

  BaseContainer Container(const Json& j, const String& path) {
    JsonObject(j, path);
    CheckJsonKeys(j, path, {"id", "values"});
    if (++nesting_ > kMaxValueNesting) ThrowJson(path, FormatString("values are nested deeper than @", kMaxValueNesting));
    BaseContainer bc(j.contains("id") ? JsonInt32(j["id"], JsonKey(path, "id")) : 0);
    if (j.contains("values")) {
      const Json& values = JsonObject(j["values"], JsonKey(path, "values"));
      for (const auto& [key, value] : values.items()) {
        const String at = JsonKey(JsonKey(path, "values"), key);
        Int32 id = 0;
        if (!ParseInt32(key, &id)) ThrowJson(at, "a container's keys are whole numbers");
        bc.SetData(id, Value(value, at));
      }
    }
    --nesting_;
    return bc;
  }

  std::unique_ptr<CustomDataType> Custom(const String& type, const Json& j, const String& path) {
    if (++nesting_ > kMaxValueNesting) ThrowJson(path, FormatString("values are nested deeper than @", kMaxValueNesting));
    std::unique_ptr<CustomDataType> out;
    if (type == "itemtree") {
      out = ItemRows(j, path);
    } else if (type == "checklist") {
      JsonArray(j, path);
      std::vector<String> names;
      std::vector<bool> checks;
      for (size_t i = 0; i < j.size(); ++i) {
        const String at = JsonIndex(path, i);
        JsonObject(j[i], at);
        CheckJsonKeys(j[i], at, {"name", "checked"});
        if (!j[i].contains("name")) ThrowJson(JsonKey(at, "name"), "the name is missing");
        names.push_back(JsonString(j[i]["name"], JsonKey(at, "name")));
        checks.push_back(j[i].contains("checked") ? JsonBool(j[i]["checked"], JsonKey(at, "checked")) : true);
      }
      auto list = std::make_unique<CheckListData>();
      list->SetEntries(names);
      for (size_t i = 0; i < checks.size(); ++i) list->SetChecked(Int32(i), checks[i]);
      out = std::move(list);
    } else if (type == "unitscale") {
      JsonObject(j, path);
      CheckJsonKeys(j, path, {"unit", "scale"});
      const String name = j.contains("unit") ? JsonString(j["unit"], JsonKey(path, "unit")) : "cm";
      Int32 unit = 0;
      for (Int32 u = 1; u <= 10; ++u)
        if (name == UnitName(DOCUMENTUNIT(u))) unit = u;
      if (!unit) ThrowJson(JsonKey(path, "unit"), "'" + name + "' is not a unit (km, m, cm, mm, um, nm, mi, yd, ft, in)");
      const Float scale = j.contains("scale") ? JsonFloat(j["scale"], JsonKey(path, "scale")) : 1.0;
      auto value = std::make_unique<UnitScaleData>(scale, DOCUMENTUNIT(unit));
      if (!value->IsValid()) ThrowJson(JsonKey(path, "scale"), "a unit's scale is a positive number");
      out = std::move(value);
    } else if (type == "custom") {
      JsonObject(j, path);
      CheckJsonKeys(j, path, {"type", "base64"});
      if (!j.contains("base64")) ThrowJson(JsonKey(path, "base64"), "the data are missing");
      std::vector<char> bytes;
      auto hf = OpenStream(j["base64"], JsonKey(path, "base64"), &bytes);
      std::shared_ptr<const CustomDataType> value;
      if (!hf->ReadCustomData(&value)) ThrowJson(JsonKey(path, "base64"), hf->GetErrorText());
      if (j.contains("type") && JsonInt32(j["type"], JsonKey(path, "type")) != value->GetCustomTypeId())
        ThrowJson(JsonKey(path, "type"), FormatString("the data hold custom type @", value->GetCustomTypeId()));
      out = value->Clone();
    } else {
      out = HostCustomDataFromJson(type, j, path, *this);
      if (!out) ThrowJson(path, "unknown custom data type '" + type + "'");
    }
    --nesting_;
    return out;
  }

  std::unique_ptr<ItemTree> ItemRows(const Json& j, const String& path) {
    auto tree = std::make_unique<ItemTree>();
    struct Frame {
      const Json* list;
      size_t next;
      String path;
      ItemTreeItem* parent;
      ItemTreeItem* pred;
    };
    JsonArray(j, path);
    std::vector<Frame> stack{{&j, 0, path, nullptr, nullptr}};
    while (!stack.empty()) {
      Frame& f = stack.back();
      if (f.next >= f.list->size()) {
        stack.pop_back();
        continue;
      }
      const size_t i = f.next++;
      const String at = JsonIndex(f.path, i);
      const Json& row = (*f.list)[i];
      JsonObject(row, at);
      CheckJsonKeys(row, at, {"flags", "data", "link", "children"});
      const Int32 flags = row.contains("flags") ? JsonInt32(row["flags"], JsonKey(at, "flags")) : 0;
      const GeData data = row.contains("data") ? Value(row["data"], JsonKey(at, "data")) : GeData();
      const BaseLink link = row.contains("link") ? Link(row["link"], JsonKey(at, "link")) : BaseLink();
      ItemTreeItem* item = tree->InsertItem(f.parent, f.pred, flags, data, link);
      if (!item) ThrowJson(at, "out of memory");
      f.pred = item;
      if (row.contains("children")) {
        if (stack.size() >= size_t(HyperFile::kMaxNesting))
          ThrowJson(JsonKey(at, "children"), FormatString("rows are nested deeper than @", HyperFile::kMaxNesting));
        const Json& children = JsonArray(row["children"], JsonKey(at, "children"));
        stack.push_back({&children, 0, JsonKey(at, "children"), item, nullptr});
      }
    }
    return tree;
  }

  // Links by id lead to nodes of the document; ids are unique across it,
  // nodes read from plug-in data included.
  void Validate() {
    std::unordered_set<UInt64> all{doc_->GetMarker()};
    String twice;
    doc_->ForEachNode(
        [&](BaseList2D* n) {
          if (!all.insert(n->GetMarker()).second) twice = FormatString("the node id @ is used twice", n->GetMarker());
          return !twice.empty();
        },
        false);
    if (!twice.empty()) ThrowJson("", twice);
    // The branches of a node whose plug-in is missing are bytes the reader
    // cannot see: a link by id may lead there, as in the native form.
    bool opaque = false;
    doc_->ForEachNode([&](BaseList2D* n) { return opaque = dynamic_cast<OpaqueNodeData*>(n->GetNodeData()) != nullptr; }, false);
    if (opaque) return;
    for (const auto& [marker, path] : idLinks_)
      if (!all.count(marker)) ThrowJson(path, FormatString("the link names #@, which is no node of the scene", marker));
  }

  SceneJsonReadOptions options_;
  ThreadRef thread_;
  BaseDocument* doc_ = nullptr;
  std::vector<Pending> pending_;
  std::unordered_set<UInt64> ids_;
  std::unordered_map<String, BaseList2D*> paths_;
  std::vector<std::pair<UInt64, String>> idLinks_;
  Int32 nesting_ = 0;
};

namespace {

String Located(const SceneJsonError& e) { return OneLine(e.path.empty() ? e.what : e.path + ": " + e.what); }

// The text of a parse error without the library's prefix.
String ParseErrorText(const Json::parse_error& e) {
  String what = e.what();
  const size_t close = what.find("] ");
  if (what.rfind("[json.exception", 0) == 0 && close != String::npos) what = what.substr(close + 2);
  return "not valid JSON: " + what;
}

// Arrays of plain values (a point, a matrix axis, a polygon, a knot) on one
// line: a scene of many points then reads as rows, not as a column of numbers.
String Compact(const String& text) {
  // The end of the string that starts at `i` (its closing quote).
  auto stringEnd = [&](size_t i) {
    for (++i; i < text.size(); ++i) {
      if (text[i] == '\\') ++i;
      else if (text[i] == '"') return i;
    }
    return text.size();
  };
  String out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '"') {
      const size_t end = stringEnd(i);
      out.append(text, i, end - i + 1);
      i = end;
      continue;
    }
    if (c != '[') {
      out += c;
      continue;
    }
    // An array without arrays or objects inside goes on one line.
    size_t end = i + 1;
    while (end < text.size() && text[end] != ']' && text[end] != '[' && text[end] != '{')
      end = text[end] == '"' ? stringEnd(end) + 1 : end + 1;
    if (end >= text.size() || text[end] != ']') {
      out += c;
      continue;
    }
    out += '[';
    bool space = false;
    for (size_t k = i + 1; k < end; ++k) {
      const char d = text[k];
      if (d == ' ' || d == '\n' || d == '\t' || d == '\r') continue;
      if (space) out += ' ';
      space = d == ',';
      if (d == '"') {
        const size_t close = stringEnd(k);
        out.append(text, k, close - k + 1);
        k = close;
        continue;
      }
      out += d;
    }
    out += ']';
    i = end;
  }
  return out;
}

Result<String> WriteText(const BaseDocument& doc, Int32 kind) {
  try {
    Writer w(doc, kind);
    return Compact(w.Document().dump(2)) + "\n";
  } catch (const SceneJsonError& e) {
    return IoError(Located(e));
  } catch (const std::bad_alloc&) {
    return OutOfMemoryError("out of memory writing a JSON scene");
  } catch (const Json::type_error& e) {
    // JSON holds UTF-8 text only; a name from elsewhere may not be.
    if (e.id == 316) return IoError("could not write a JSON scene: a text of the scene is not valid UTF-8");
    return IoError(String("could not write a JSON scene: ") + e.what());
  } catch (const Json::exception& e) {
    return IoError(String("could not write a JSON scene: ") + e.what());
  }
}

}  // namespace

Result<String> SaveDocumentJsonToString(const BaseDocument& doc, Int32 kind) { return WriteText(doc, kind); }

Result<std::unique_ptr<BaseDocument>> LoadDocumentJsonFromString(const String& text, const SceneJsonReadOptions& options,
                                                                 const ThreadRef& thread) {
  try {
    Json root = Json::parse(text);
    auto doc = BaseDocument::Alloc();
    if (!doc) return OutOfMemoryError("out of memory loading a scene");
    SceneJsonReader reader(options, thread);
    // A document that failed half way is dropped here, with everything read into it.
    reader.Read(root, doc.get());
    return doc;
  } catch (const Json::parse_error& e) {
    return IoError(OneLine(ParseErrorText(e)));
  } catch (const SceneJsonError& e) {
    if (e.what == "interrupted") return IllegalStateError("interrupted");
    return IoError(Located(e));
  } catch (const std::bad_alloc&) {
    return OutOfMemoryError("out of memory loading a scene");
  } catch (const Json::exception& e) {
    return IoError(OneLine(String("not a scene: ") + e.what()));
  }
}

Result<void> SaveDocumentJson(BaseDocument* doc, const String& path, const ThreadRef& thread) {
  return SaveDocumentThrough(doc, path, thread, [&](std::FILE* file) -> Result<void> {
    auto text = WriteText(*doc, HYPERFILE_KIND_SCENE);
    if (!text) return IoError("could not save " + path + ": " + text.GetError().GetMessage());
    const String& t = text.GetValue();
    if (std::fwrite(t.data(), 1, t.size(), file) != t.size())
      return IoError("could not save " + path + ": " + std::strerror(errno));
    return OK();
  });
}

Result<std::unique_ptr<BaseDocument>> LoadDocumentJson(const String& path, const ThreadRef& thread) {
  auto bytes = ReadWholeFile(path);
  if (!bytes) return bytes.GetError();
  SceneJsonReadOptions options;
  std::error_code ec;
  options.baseFolder = std::filesystem::absolute(path, ec).parent_path().string();
  auto doc = LoadDocumentJsonFromString(String(bytes->begin(), bytes->end()), options, thread);
  if (!doc) return Error(doc.GetError().GetKind(), path + ": " + doc.GetError().GetMessage());
  FinishLoadedDocument(doc.GetValue().get(), path);
  return doc;
}

}  // namespace zta

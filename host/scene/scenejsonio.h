#pragma once
// What the JSON scene form (scenejson.h) shares with the host's services,
// which write and read the data of their own node classes (points, polygons,
// segments, particles, UVW and vertex-map records) and the readable forms of
// their custom types (field lists, spline curves). The scene layer declares
// these; the services define them, as with the native form's host data.
#include <nlohmann/json.hpp>

#include <memory>
#include <vector>

#include "host/core/math.h"
#include "host/core/thread.h"
#include "host/core/types.h"
#include "host/scene/baselink.h"
#include "host/scene/gedata.h"

namespace zta {
class DescID;

class BaseList2D;
class CustomDataType;
struct SceneJsonReadOptions;

using Json = nlohmann::ordered_json;

// A failure at a place of a JSON scene. Thrown inside the reader and writer
// only; the entry points turn it into one error.
struct SceneJsonError {
  String path;
  String what;
};

[[noreturn]] void ThrowJson(const String& path, const String& what);
// "a.b" and "a[3]" for messages.
inline String JsonKey(const String& path, const String& key) { return path.empty() ? key : path + "." + key; }
inline String JsonIndex(const String& path, size_t i) { return path + "[" + std::to_string(i) + "]"; }

// The third axis mirrored: the JSON form is right-handed, the scene left-handed.
// A zero keeps its sign, so that the mirror is its own exact inverse and a
// file does not fill with "-0.0".
inline double Flip(double v) { return v == 0.0 ? v : -v; }
inline Vector MirrorZ(const Vector& v) { return {v.x, v.y, Flip(v.z)}; }
inline Matrix MirrorZ(const Matrix& m) {
  return {MirrorZ(m.off), MirrorZ(m.v1), MirrorZ(m.v2), {Flip(m.v3.x), Flip(m.v3.y), m.v3.z}};
}

// Values as JSON: a float keeps every bit (non-finite ones as "nan", "inf",
// "-inf"); a vector is [x, y, z]; a matrix {"off", "v1", "v2", "v3"}.
Json FloatToJson(Float v);
Json VectorToJson(const Vector& v);
Json MatrixToJson(const Matrix& m);
// The readers throw a SceneJsonError at `path` when the value is not of the kind.
Float JsonFloat(const Json& j, const String& path);
Int32 JsonInt32(const Json& j, const String& path);
Int64 JsonInt64(const Json& j, const String& path);
bool JsonBool(const Json& j, const String& path);
String JsonString(const Json& j, const String& path);
Vector JsonVector(const Json& j, const String& path);
Matrix JsonMatrix(const Json& j, const String& path);
const Json& JsonArray(const Json& j, const String& path);
const Json& JsonObject(const Json& j, const String& path);
// Refuses a key of `j` that `keys` does not list: a misspelt key is an error, not a silence.
void CheckJsonKeys(const Json& j, const String& path, const std::vector<const char*>& keys);

// Base64 (RFC 4648, padded), for bytes that only the native form can say.
String EncodeBase64(const char* data, size_t size);
// False on a character or length that base64 does not have.
bool DecodeBase64(const String& text, std::vector<char>* out);

class SceneJsonWriteContext {
 public:
  virtual ~SceneJsonWriteContext() = default;
  // A link as an object path, "#id", {"missing": id} or null.
  virtual Json Link(const BaseLink& link) const = 0;
  // Any value in its typed form.
  virtual Json Value(const GeData& value) const = 0;
};

class SceneJsonReadContext {
 public:
  virtual ~SceneJsonReadContext() = default;
  virtual BaseLink Link(const Json& j, const String& path) = 0;
  // A value in typed or plain form, without a description to say its type.
  virtual GeData Value(const Json& j, const String& path) = 0;
  virtual const SceneJsonReadOptions& GetOptions() const = 0;
  virtual const ThreadRef& GetThread() const = 0;
  // Metres per scene unit, for mesh files that state their unit.
  virtual Float GetUnitMeters() const = 0;
};

// The data of a host class's node beyond its parameters and tags, into `out`
// (a node's JSON object). True when the node's records are said by this (a
// polygon object's point tag is said by the object's "points").
bool WriteHostNodeJson(const BaseList2D& node, Json& out, const SceneJsonWriteContext& ctx);
// Reads what WriteHostNodeJson wrote, from the keys it owns; an object's own
// data come before its tags'. Throws SceneJsonError.
void ReadHostNodeJson(BaseList2D& node, const Json& j, const String& path, SceneJsonReadContext& ctx);
// The parameter that a "file" key names for a type other than the host's
// mesh and point objects: the first file parameter of its description, or null.
const DescID* FileParameterOf(Int32 type);
// The keys of a node's JSON object that belong to ReadHostNodeJson.
const std::vector<const char*>& HostNodeJsonKeys();

// The readable form of a custom value of the services' types: its name
// ("fieldlist", "spline") and its JSON; false for a type that is not theirs.
bool HostCustomDataToJson(const CustomDataType& data, const SceneJsonWriteContext& ctx, String* name, Json* out);
// A value from its readable form by the name of its type; null for a name
// that is not theirs. Throws SceneJsonError for a value that is wrong.
std::unique_ptr<CustomDataType> HostCustomDataFromJson(const String& name, const Json& j, const String& path,
                                                       SceneJsonReadContext& ctx);
// The name of the services' readable form for a custom type id, or null.
const char* HostCustomDataJsonName(Int32 typeId);

}  // namespace zta

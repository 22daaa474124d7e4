#include "modules/volumes/source/helper/vdbmetadata.h"

namespace zelmar {

namespace {

template <typename T>
const T* As(const openvdb::Metadata& m) {
  return &static_cast<const openvdb::TypedMetadata<T>&>(m).value();
}

template <typename Out, typename VdbMat>
Out ToMat44(const VdbMat& m) {
  Out r;
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) r(i, j) = m(i, j);
  return r;
}

template <typename VdbMat, typename In>
VdbMat FromMat44(const In& m) {
  VdbMat r;
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) r(i, j) = m(i, j);
  return r;
}

Data ToData(const openvdb::Metadata& m) {
  using namespace openvdb;
  const Name t = m.typeName();
  if (t == "string") return *As<std::string>(m);
  if (t == "double") return *As<double>(m);
  if (t == "float") return *As<float>(m);
  if (t == "bool") return *As<bool>(m);
  if (t == "int32") return *As<int32_t>(m);
  if (t == "int64") return *As<int64_t>(m);
  if (t == "mat4d") return ToMat44<zta::Matrix4d64>(*As<Mat4d>(m));
  if (t == "mat4s") return ToMat44<zta::Matrix4d32>(*As<Mat4s>(m));
  if (t == "vec2d") { const auto& v = *As<Vec2d>(m); return zta::Vector2d64{v[0], v[1]}; }
  if (t == "vec2s") { const auto& v = *As<Vec2s>(m); return zta::Vector2d32{v[0], v[1]}; }
  if (t == "vec2i") { const auto& v = *As<Vec2i>(m); return zta::IntVector2d32{v[0], v[1]}; }
  if (t == "vec3d") { const auto& v = *As<Vec3d>(m); return zta::Vector64(v[0], v[1], v[2]); }
  if (t == "vec3s") { const auto& v = *As<Vec3s>(m); return zta::Vector32(v[0], v[1], v[2]); }
  if (t == "vec3i") { const auto& v = *As<Vec3i>(m); return zta::IntVector32(v[0], v[1], v[2]); }
  return Data();
}

openvdb::Metadata::Ptr ToMetadata(const Data& d) {
  using namespace openvdb;
  return std::visit(
      [](const auto& v) -> Metadata::Ptr {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, std::string>) return std::make_shared<StringMetadata>(v);
        else if constexpr (std::is_same_v<T, double>) return std::make_shared<DoubleMetadata>(v);
        else if constexpr (std::is_same_v<T, float>) return std::make_shared<FloatMetadata>(v);
        else if constexpr (std::is_same_v<T, bool>) return std::make_shared<BoolMetadata>(v);
        else if constexpr (std::is_same_v<T, int32_t>) return std::make_shared<Int32Metadata>(v);
        else if constexpr (std::is_same_v<T, int64_t>) return std::make_shared<Int64Metadata>(v);
        else if constexpr (std::is_same_v<T, zta::Matrix4d64>) return std::make_shared<Mat4DMetadata>(FromMat44<Mat4d>(v));
        else if constexpr (std::is_same_v<T, zta::Matrix4d32>) return std::make_shared<Mat4SMetadata>(FromMat44<Mat4s>(v));
        else if constexpr (std::is_same_v<T, zta::Vector2d64>) return std::make_shared<Vec2DMetadata>(Vec2d(v.x, v.y));
        else if constexpr (std::is_same_v<T, zta::Vector2d32>) return std::make_shared<Vec2SMetadata>(Vec2s(v.x, v.y));
        else if constexpr (std::is_same_v<T, zta::IntVector2d32>) return std::make_shared<Vec2IMetadata>(Vec2i(v.x, v.y));
        else if constexpr (std::is_same_v<T, zta::Vector64>) return std::make_shared<Vec3DMetadata>(Vec3d(v.x, v.y, v.z));
        else if constexpr (std::is_same_v<T, zta::Vector32>) return std::make_shared<Vec3SMetadata>(Vec3s(v.x, v.y, v.z));
        else if constexpr (std::is_same_v<T, zta::IntVector32>) return std::make_shared<Vec3IMetadata>(Vec3i(v.x, v.y, v.z));
        else return nullptr;
      },
      d.GetValue());
}

}  // namespace

MetaDataArray MetaMapToArray(const openvdb::MetaMap& map) {
  MetaDataArray out;
  for (auto it = map.beginMeta(); it != map.endMeta(); ++it) {
    if (!it->second) continue;
    Data d = ToData(*it->second);
    if (d.IsEmpty()) continue;
    DataDictionary entry;
    entry.Set(it->first, std::move(d));
    out.push_back(std::move(entry));
  }
  return out;
}

openvdb::MetaMap::Ptr DictionaryToMetaMap(const DataDictionary& dict) {
  auto map = std::make_shared<openvdb::MetaMap>();
  for (const auto& [name, value] : dict) {
    if (auto m = ToMetadata(value)) map->insertMeta(name, *m);
  }
  return map;
}

}  // namespace zelmar

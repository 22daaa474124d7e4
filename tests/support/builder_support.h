#pragma once
// Scenes of Volume Builders for the builder's tests: meshes as children or
// links, a run of the document's passes, and a voxel-by-voxel comparison.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "host/objects/polygonobject.h"
#include "host/objects/primitives.h"
#include "host/scene/basedocument.h"
#include "host/scene/execution.h"
#include "host/scene/hosttypes.h"
#include "host/scene/itemtree.h"
#include "modules/volumes/source/objects/volumebuilder.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "zelmar/volumeaccessors.h"
#include "zelmar/volumecommands.h"
#include "zelmar/volumeiterators.h"

namespace zvtest {

using zelmar::Volume;
using zelmar::VolumeBuilderData;

inline VolumeBuilderData* BuilderOf(zta::BaseObject* op) { return op ? op->GetNodeData<VolumeBuilderData>() : nullptr; }

// A builder at the top of `doc`; type 0 SDF, 1 fog, 2 vector.
inline zta::BaseObject* InsertBuilder(zta::BaseDocument& doc, const std::string& name, zta::Int32 type, double voxel) {
  std::unique_ptr<zta::BaseObject> made = zta::AllocObject(zelmar::ID_VOLUMEBUILDER);
  EXPECT_NE(made, nullptr);
  if (!made) return nullptr;
  made->SetName(name);
  made->GetDataInstance()->SetInt32(zelmar::VOLUMEBUILDER_VOLUMETYPE, type);
  made->GetDataInstance()->SetFloat(zelmar::VOLUMEBUILDER_VOXELSIZE, voxel);
  zta::BaseObject* op = made.release();
  doc.InsertObject(op);
  return op;
}

inline std::unique_ptr<zta::BaseObject> SphereMesh(double radius, const zta::Vector& at) {
  std::unique_ptr<zta::PolygonObject> p = zta::MakeSpherePolygons(radius, 24, zta::PRIM_SPHERE_TYPE_STANDARD);
  EXPECT_NE(p, nullptr);
  p->SetMl(zta::Matrix{at, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}});
  return std::unique_ptr<zta::BaseObject>(p.release());
}

inline std::unique_ptr<zta::BaseObject> CubeMesh(double size, const zta::Vector& at) {
  std::unique_ptr<zta::PolygonObject> p = zta::MakeCubePolygons(zta::Vector(size, size, size), 2, 2, 2);
  EXPECT_NE(p, nullptr);
  p->SetMl(zta::Matrix{at, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}});
  return std::unique_ptr<zta::BaseObject>(p.release());
}

// Puts `object` under the builder (a child row) or at the top (a link row)
// and adds its row at the end of the list (or under `parent`).
inline zta::ItemTreeItem* AddInput(zta::BaseDocument& doc, zta::BaseObject* builder, std::unique_ptr<zta::BaseObject> object,
                                   const std::string& name, bool child, zta::ItemTreeItem* parent = nullptr) {
  zta::BaseObject* raw = object.release();
  raw->SetName(name);
  if (child) raw->InsertUnderLast(builder);
  else raw->InsertUnderLast(doc.GetObjectListHead());
  zta::ItemTree* tree = VolumeBuilderData::GetTree(builder);
  zta::ItemTreeItem* last = parent ? static_cast<zta::ItemTreeItem*>(parent->GetDownLast()) : nullptr;
  if (!parent && tree) {
    for (zta::ItemTreeItem* i = tree->GetFirst(); i; i = i->GetNext()) last = i;
  }
  return BuilderOf(builder)->AddLayer(builder, raw, parent, last, child, false, false);
}

inline zta::ItemTreeItem* AddFolder(zta::BaseObject* builder) {
  zta::ItemTree* tree = VolumeBuilderData::GetTree(builder);
  zta::ItemTreeItem* last = nullptr;
  for (zta::ItemTreeItem* i = tree->GetFirst(); i; i = i->GetNext()) last = i;
  return BuilderOf(builder)->AddLayer(builder, nullptr, nullptr, last, false, false, false);
}

inline void Evaluate(zta::BaseDocument& doc) { EXPECT_TRUE(zta::ExecutePasses(&doc, nullptr)); }

// The volumes of a builder's cache, in order.
inline std::vector<Volume> CacheVolumes(const zta::BaseObject* builder) {
  std::vector<Volume> out;
  const zta::BaseObject* cache = builder->GetCache();
  if (!cache) return out;
  if (cache->GetType() == zelmar::ID_VOLUMEOBJECT) {
    out.push_back(zelmar::VolumeObjectData::GetVolume(cache));
    return out;
  }
  for (const zta::BaseObject* c = cache->GetDown(); c; c = c->GetNext()) out.push_back(zelmar::VolumeObjectData::GetVolume(c));
  return out;
}

// Runs a volume command on `inputs` and gives its first volume.
inline Volume RunCommand(const char* id, const zta::BaseContainer& settings, const std::vector<const zta::BaseObject*>& inputs) {
  auto made = zta::CreateCommandData(zelmar::kVolumeCommandDataClass);
  EXPECT_TRUE(made);
  auto& data = static_cast<zelmar::VolumeCommandData&>(**made);
  data.GetSettings().MergeContainer(settings);
  for (auto* in : inputs) data.AddInput(in);
  auto state = zta::InvokeCommand(id, data);
  EXPECT_TRUE(state) << (state ? "" : state.GetError().GetMessage());
  if (!state || data.GetLegacyDataCount() == 0) return Volume();
  return data.GetLegacyData(0)->volume;
}

// Same active voxels (within `tolerance` in value) of two float volumes.
inline void ExpectSameFloatVolume(const Volume& a, const Volume& b, float tolerance = 1e-4f) {
  ASSERT_TRUE(a.HasGrid());
  ASSERT_TRUE(b.HasGrid());
  EXPECT_EQ(a.GetGridClass(), b.GetGridClass());
  EXPECT_EQ(a.GetGridTransform(), b.GetGridTransform());
  EXPECT_EQ(a.GetActiveVoxelCount(), b.GetActiveVoxelCount());
  auto walk = *zelmar::GridIteratorCreationImpl::Create<float>(zelmar::GRIDITERATORTYPE::ACTIVE);
  auto other = *zelmar::GridAccessorCreationImpl::Create<float>();
  ASSERT_TRUE(walk->Init(a));
  ASSERT_TRUE(other->Init(b, zelmar::VOLUMESAMPLER::NEAREST));
  int64_t differing = 0;
  for (; walk->IsValid(); walk->MoveNext()) {
    const auto c = walk->GetCoords();
    if (std::abs(other->GetValueIntVector32(c) - walk->GetValue()) > tolerance || !other->GetActiveState(c)) ++differing;
  }
  EXPECT_EQ(differing, 0);
}

}  // namespace zvtest

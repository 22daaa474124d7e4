// The function tables: each entry called through its library id, as another
// module would, on the objects it serves and on objects it does not.
#include <gtest/gtest.h>

#include "host/core/registry.h"
#include "host/scene/basedocument.h"
#include "host/scene/basetag.h"
#include "host/scene/execution.h"
#include "host/scene/hosttypes.h"
#include "modules/volumes/source/objects/volumebuilder.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/objects/volumetag.h"
#include "zelmar/volumecommands.h"
#include "zelmar/volumelibraries.h"
#include "zelmar/volumetools.h"

using namespace zelmar;

namespace {

template <typename T>
const T* Library(zta::Int32 id) {
  return static_cast<const T*>(zta::FindLibrary(id));
}

Volume Sphere(double radius) {
  auto r = VolumeToolsInterface::CreateSphereVolume(radius, zta::Vector(), 0.1, 3, nullptr, nullptr);
  EXPECT_TRUE(r.IsOk());
  return *r;
}

}  // namespace

TEST(VolumeLibraries, VolumeObjectTablesReachTheObjectsVolume) {
  const auto* first = Library<VolumeObjectLibrary>(ID_VOLUMEOBJECT_LIBRARY);
  const auto* second = Library<VolumeObjectLibrary2>(ID_VOLUMEOBJECT_LIBRARY2);
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(first->hostHeader, nullptr);

  auto doc = zta::AllocDocument();
  zta::BaseObject* op = VolumeObjectData::MakeObject(Sphere(1.0)).release();
  doc->InsertObject(op);
  const Volume bigger = Sphere(2.0);
  ASSERT_TRUE(first->SetVolume(op, &bigger));
  EXPECT_EQ(first->GetInfoNumber(op, 0), bigger.GetActiveVoxelCount());
  EXPECT_EQ(first->GetInfoNumber(op, 1), bigger.GetMemUsage());
  EXPECT_EQ(first->GetInfoNumber(op, 2), int64_t(GRIDTYPE::FLOAT));
  EXPECT_EQ(first->GetInfoNumber(op, 3), int64_t(GRIDCLASS::SDF));
  EXPECT_EQ(first->GetInfoNumber(op, 4), -1);

  const Volume* held = second->GetVolumePointer(op);
  ASSERT_NE(held, nullptr);
  EXPECT_EQ(held->GetActiveVoxelCount(), bigger.GetActiveVoxelCount());
  Volume copy;
  ASSERT_TRUE(second->CopyVolume(op, &copy));
  EXPECT_TRUE(copy == *held);
  EXPECT_EQ(second->GetGridType(op), GRIDTYPE::FLOAT);
  EXPECT_EQ(second->GetGridClass(op), GRIDCLASS::SDF);

  // Other objects and missing arguments are refused.
  std::unique_ptr<zta::BaseObject> null = zta::AllocObject(zta::HOST_TYPE_NULL);
  EXPECT_FALSE(first->SetVolume(null.get(), &bigger));
  EXPECT_FALSE(first->SetVolume(op, nullptr));
  EXPECT_EQ(first->GetInfoNumber(null.get(), 0), -1);
  EXPECT_EQ(second->GetVolumePointer(null.get()), nullptr);
  EXPECT_FALSE(second->CopyVolume(null.get(), &copy));
  EXPECT_EQ(second->GetGridType(nullptr), GRIDTYPE::NONE);
  EXPECT_EQ(second->GetGridClass(null.get()), GRIDCLASS::NONE);
}

TEST(VolumeLibraries, VolumeTagTableGivesTheVolumesOfItsSlots) {
  const auto* table = Library<VolumeTagLibrary>(ID_VOLUMETAG_LIBRARY);
  ASSERT_NE(table, nullptr);
  auto doc = zta::AllocDocument();
  zta::BaseObject* group = zta::AllocObject(zta::HOST_TYPE_NULL).release();
  doc->InsertObject(group);
  zta::BaseObject* a = VolumeObjectData::MakeObject(Sphere(1.0)).release();
  zta::BaseObject* b = VolumeObjectData::MakeObject(Sphere(2.0)).release();
  a->SetName("a");
  b->SetName("b");
  doc->InsertObject(a, group);
  doc->InsertObject(b, group, a);
  zta::BaseTag* tag = group->MakeTag(ID_VOLUMETAG);
  ASSERT_NE(tag, nullptr);
  // The tag collects the volumes below its object when it executes; then the
  // second one goes into the first slot.
  ASSERT_TRUE(zta::ExecutePasses(doc.get(), nullptr));
  tag->GetDataInstance()->SetInt32(VOLUMETAG_FIRST, 2);
  ASSERT_TRUE(zta::ExecutePasses(doc.get(), nullptr));

  EXPECT_EQ(table->GetVolumeByIndex(tag, 0), a);
  EXPECT_EQ(table->GetVolumeByIndex(tag, 1), b);
  EXPECT_EQ(table->GetVolumeByIndex(tag, 2), nullptr);
  EXPECT_EQ(table->GetSlotObject(tag, 0), b);
  Volume v;
  ASSERT_TRUE(table->GetSlotVolume(tag, 0, &v));
  EXPECT_TRUE(v == VolumeObjectData::GetVolume(b));
  EXPECT_EQ(table->GetSlotObject(tag, 2), nullptr);
  EXPECT_FALSE(table->GetSlotVolume(tag, 2, &v));
  EXPECT_EQ(table->GetSlotObject(nullptr, 0), nullptr);
}

TEST(VolumeLibraries, VolumeBuilderTableWalksAndEditsTheLayerList) {
  const auto* table = Library<VolumeBuilderLibrary>(ID_VOLUMEBUILDER_LIBRARY);
  ASSERT_NE(table, nullptr);
  auto doc = zta::AllocDocument();
  zta::BaseObject* builder = zta::AllocObject(ID_VOLUMEBUILDER).release();
  ASSERT_NE(builder, nullptr);
  doc->InsertObject(builder);
  zta::BaseObject* a = zta::AllocObject(zta::HOST_TYPE_SPHERE).release();
  zta::BaseObject* b = zta::AllocObject(zta::HOST_TYPE_CUBE).release();
  doc->InsertObject(a);
  doc->InsertObject(b, nullptr, a);

  EXPECT_EQ(table->GetInputCount(builder), 0);
  ASSERT_TRUE(table->AddInput(builder, a, nullptr, nullptr));
  ASSERT_TRUE(table->AddInput(builder, b, nullptr, a));
  EXPECT_EQ(table->GetInputCount(builder), 2);
  EXPECT_EQ(table->GetInputObject(builder, 0), a);
  EXPECT_EQ(table->GetInputObject(builder, 1), b);
  EXPECT_EQ(table->GetInputObject(builder, 2), nullptr);

  zta::Int32 flags = 0;
  ASSERT_TRUE(table->GetInputFlagsOf(builder, 0, &flags));
  EXPECT_TRUE(flags & LAYERFLAG_ENABLED);
  ASSERT_TRUE(table->SetEnabled(builder, 1, false));
  EXPECT_FALSE(table->GetEnabled(builder, 1));
  EXPECT_TRUE(table->GetEnabled(builder, 0));

  table->ClearSelection(builder);
  EXPECT_FALSE(table->GetSelected(builder, 0));
  EXPECT_EQ(table->GetSelectedObject(builder), nullptr);
  ASSERT_TRUE(table->SetSelected(builder, 1, true));
  EXPECT_TRUE(table->GetSelected(builder, 1));
  EXPECT_EQ(table->GetSelectedObject(builder), b);

  ASSERT_TRUE(table->SetSdfMode(builder, 1, 2));
  EXPECT_EQ(table->GetSdfMode(builder, 1), 2);
  ASSERT_TRUE(table->SetFogMode(builder, 1, 5));
  EXPECT_EQ(table->GetFogMode(builder, 1), 5);
  ASSERT_TRUE(table->SetVectorMode(builder, 0, 3));
  EXPECT_EQ(table->GetVectorMode(builder, 0), 3);
  EXPECT_EQ(table->GetSdfMode(builder, 5), -1);

  // Each input has its settings tag on the builder.
  zta::BaseTag* tag = table->GetInputTag(builder, 0);
  ASSERT_NE(tag, nullptr);
  EXPECT_EQ(tag->GetObject(), builder);
  EXPECT_EQ(table->GetInputSettingsContainer(builder, 0), tag->GetDataInstance());

  // Nothing built yet; after a build the first row's results are current.
  EXPECT_FALSE(table->GetInputCacheState(builder));
  ASSERT_TRUE(zta::ExecutePasses(doc.get(), nullptr));
  EXPECT_TRUE(table->GetInputCacheState(builder));

  ASSERT_TRUE(table->RemoveInput(builder, 0));
  EXPECT_EQ(table->GetInputCount(builder), 1);
  EXPECT_EQ(table->GetInputObject(builder, 0), b);
  EXPECT_FALSE(table->RemoveInput(builder, 3));

  // Another object is not a builder.
  EXPECT_EQ(table->GetInputCount(a), 0);
  EXPECT_FALSE(table->AddInput(a, b, nullptr, nullptr));
}

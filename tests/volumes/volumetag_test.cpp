// The volume tag: the volumes it finds below its object, its three picks kept
// across renames and rebuilds, the enabling of the ranges, fitting a range,
// and the checksum that tells it when to look again.
#include <gtest/gtest.h>

#include <openvdb/openvdb.h>

#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "host/scene/basedocument.h"
#include "host/scene/execution.h"
#include "host/scene/hyperfile.h"
#include "host/scene/messages.h"
#include "host/scene/parameters.h"
#include "host/scene/scenefile.h"
#include "modules/volumes/source/helper/crc32c.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/objects/volumetag.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"

using namespace zelmar;
using zta::Vector;

namespace {

Volume Sphere(double radius) {
  auto r = VolumeToolsInterface::CreateSphereVolume(radius, Vector(0.0), 0.1, 3, nullptr, nullptr);
  EXPECT_TRUE(r.IsOk());
  return *r;
}

Volume Fog(float high, float low) {
  auto grid = openvdb::FloatGrid::create(0.0f);
  grid->setGridClass(openvdb::GRID_FOG_VOLUME);
  grid->tree().setValue(openvdb::Coord(1, 2, 3), high);
  grid->tree().setValue(openvdb::Coord(4, 2, 3), low);
  return *MakeVolume(grid);
}

Volume Vectors() {
  auto r = VolumeToolsInterface::CreateNewVector32Volume(zta::Vector32(0.0f));
  EXPECT_TRUE(r.IsOk());
  return *r;
}

zta::BaseObject* AddVolume(zta::BaseObject* parent, const std::string& name, const Volume& volume, bool first = false) {
  zta::BaseObject* op = VolumeObjectData::MakeObject(volume).release();
  op->SetName(name);
  if (first)
    op->InsertUnder(parent);
  else
    op->InsertUnderLast(parent);
  return op;
}

// A generator stand-in: a Null in the document whose cache is a Null of volume objects.
struct Scene {
  std::unique_ptr<zta::BaseDocument> doc = zta::AllocDocument();
  zta::BaseObject* builder = nullptr;
  zta::BaseTag* tag = nullptr;

  Scene() {
    builder = zta::BaseObject::Alloc(zta::HOST_TYPE_NULL).release();
    builder->SetName("Builder");
    doc->InsertObject(builder);
    tag = builder->MakeTag(ID_VOLUMETAG);
    EXPECT_NE(tag, nullptr);
  }
  // A new cache; the old one and its objects are freed.
  zta::BaseObject* NewCache(const std::string& name) {
    auto root = zta::BaseObject::Alloc(zta::HOST_TYPE_NULL);
    root->SetName(name);
    zta::BaseObject* raw = root.get();
    builder->SetCache(std::move(root));
    return raw;
  }
  VolumeTagData* Data() const { return tag->GetNodeData<VolumeTagData>(); }
  void Execute() {
    EXPECT_EQ(Data()->ExecuteTag(tag, doc.get(), builder, nullptr, zta::EXECUTIONPRIORITY_GENERATOR, 0),
              zta::EXECUTIONRESULT::OK);
  }
  zta::Int32 Index(zta::Int32 id) const { return tag->GetDataInstance()->GetInt32(id); }
  void Pick(zta::Int32 id, zta::Int32 index) { ASSERT_TRUE(zta::SetParameter(tag, zta::DescID(id), zta::GeData(index))); }
  bool Enabled(zta::Int32 id) const {
    return Data()->IsParameterEnabled(tag, zta::DescID(id), zta::GeData(), 0, nullptr);
  }
};

}  // namespace

TEST(VolumeTag, ChecksumIsTheSameByHardwareAndByTable) {
  const char* check = "123456789";
  Crc32c automatic, table(Crc32c::FORM::TABLE);
  automatic.Append(check, 9);
  table.Append(check, 9);
  EXPECT_EQ(table.Get(), 0xE3069283u);  // the standard check value of CRC-32C
  EXPECT_EQ(automatic.Get(), table.Get());
  RecordProperty("crc32c_hardware", Crc32c::HasHardware() ? "yes" : "no");

  // Every length and alignment of the word loop and its tail.
  std::mt19937 random(7);
  std::vector<unsigned char> bytes(80);
  for (auto& b : bytes) b = static_cast<unsigned char>(random());
  for (size_t start = 0; start < 8; ++start) {
    for (size_t size = 0; start + size <= bytes.size(); ++size) {
      Crc32c a, t(Crc32c::FORM::TABLE);
      a.Append(bytes.data() + start, size);
      t.Append(bytes.data() + start, size);
      ASSERT_EQ(a.Get(), t.Get()) << "start " << start << " size " << size;
    }
  }

  Scene scene;
  zta::BaseObject* cache = scene.NewCache("Volumes");
  zta::BaseObject* a = AddVolume(cache, "A", Sphere(1.0));
  AddVolume(cache, "B", Fog(2.0f, 1.0f));
  const zta::UInt32 sum = VolumeTagData::ObjectTreeChecksum(scene.builder);
  EXPECT_EQ(sum, VolumeTagData::ObjectTreeChecksum(scene.builder, true));
  EXPECT_EQ(sum, VolumeTagData::ObjectTreeChecksum(scene.builder));
  a->SetDirty(zta::DIRTYFLAGS_DATA);  // a node of the cache changed
  const zta::UInt32 edited = VolumeTagData::ObjectTreeChecksum(scene.builder);
  EXPECT_NE(edited, sum);
  EXPECT_EQ(edited, VolumeTagData::ObjectTreeChecksum(scene.builder, true));
  scene.NewCache("Volumes");  // a rebuilt cache is new nodes
  EXPECT_NE(VolumeTagData::ObjectTreeChecksum(scene.builder), edited);
}

TEST(VolumeTag, ListsTheVolumesOfTheCacheWithTheirParentsAndIcons) {
  Scene scene;
  zta::BaseObject* cache = scene.NewCache("Volumes");
  AddVolume(cache, "A", Sphere(1.0));
  AddVolume(cache, "B", Fog(2.0f, 1.0f));
  zta::BaseObject* group = zta::BaseObject::Alloc(zta::HOST_TYPE_NULL).release();
  group->SetName("Group");
  group->InsertUnderLast(cache);
  AddVolume(group, "C", Vectors());
  // The members of a Volume Set are named without the set.
  zta::BaseObject* set = zta::BaseObject::AllocWithData(ID_VOLUMESET, nullptr, 0).release();
  set->SetName("Set");
  set->InsertUnderLast(cache);
  AddVolume(set, "D", Sphere(0.5));
  scene.Execute();

  const VolumeTagLists& lists = scene.Data()->GetLists();
  // The walk takes a node's next sibling before its children.
  EXPECT_EQ(lists.names, (std::vector<std::string>{"Volumes > A", "Volumes > B", "Volumes > D", "Volumes > Group > C"}));
  EXPECT_EQ(lists.icons, (std::vector<zta::Int32>{ID_VOLUMEOBJECT, ICON_VOLUME_FOG, ID_VOLUMEOBJECT, ICON_VOLUME_VECTOR}));
  ASSERT_EQ(lists.links.size(), 4u);
  EXPECT_EQ(lists.links[1].GetLink(scene.doc.get())->GetName(), "B");

  // The cycles offer what was found.
  zta::Description description;
  ASSERT_TRUE(zta::GetNodeDescription(scene.tag, description));
  const zta::BaseContainer* first = description.GetParameter(zta::DescID(VOLUMETAG_FIRST));
  const zta::BaseContainer* second = description.GetParameter(zta::DescID(VOLUMETAG_SECOND));
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  const zta::BaseContainer names = first->GetContainer(zta::DESC_CYCLE);
  EXPECT_EQ(names.GetString(0), "None");
  EXPECT_EQ(names.GetString(4), "Volumes > Group > C");
  EXPECT_EQ(first->GetContainer(zta::DESC_CYCLEICONS).GetInt32(4), ICON_VOLUME_VECTOR);
  EXPECT_EQ(second->GetContainer(zta::DESC_CYCLE).GetString(0), "Same as first");

  // A tag just added from the menu picks the first volume.
  zta::BaseTag* fresh = scene.builder->MakeTag(ID_VOLUMETAG);
  ASSERT_NE(fresh, nullptr);
  fresh->Message(zta::MSG_MENUPREPARE);
  auto* data = fresh->GetNodeData<VolumeTagData>();
  data->ExecuteTag(fresh, scene.doc.get(), scene.builder, nullptr, zta::EXECUTIONPRIORITY_GENERATOR, 0);
  EXPECT_EQ(fresh->GetDataInstance()->GetInt32(VOLUMETAG_FIRST), 1);
  EXPECT_EQ(data->GetSlotName(0), "Volumes > A");
}

TEST(VolumeTag, APickFollowsItsVolumeByLinkAndThenByName) {
  Scene scene;
  zta::BaseObject* cache = scene.NewCache("Volumes");
  AddVolume(cache, "A", Sphere(1.0));
  zta::BaseObject* b = AddVolume(cache, "B", Fog(2.0f, 1.0f));
  AddVolume(cache, "C", Sphere(0.5));
  scene.Execute();
  scene.Pick(VOLUMETAG_FIRST, 2);
  scene.Execute();
  EXPECT_EQ(scene.Data()->GetSlotName(0), "Volumes > B");
  EXPECT_EQ(scene.Data()->GetSlotLink(0, scene.doc.get()), b);
  EXPECT_EQ(scene.Data()->SlotVolume(scene.tag, scene.builder, 2), b);

  // Renamed and moved to the front: found again by its link.
  b->SetName("B2");
  b->Remove().release()->InsertUnder(cache);
  b->SetDirty(zta::DIRTYFLAGS_DATA);
  scene.Execute();
  EXPECT_EQ(scene.Index(VOLUMETAG_FIRST), 1);
  EXPECT_EQ(scene.Data()->GetSlotName(0), "Volumes > B2");

  // A rebuilt cache has new objects: the link is gone, the last part of the name finds it.
  zta::BaseObject* rebuilt = scene.NewCache("Other");
  AddVolume(rebuilt, "A", Sphere(1.0));
  AddVolume(rebuilt, "C", Sphere(0.5));
  zta::BaseObject* again = AddVolume(rebuilt, "B2", Fog(2.0f, 1.0f));
  scene.Execute();
  EXPECT_EQ(scene.Index(VOLUMETAG_FIRST), 3);
  EXPECT_EQ(scene.Data()->GetSlotName(0), "Other > B2");
  EXPECT_EQ(scene.Data()->GetSlotLink(0, scene.doc.get()), again);

  // Gone altogether: the slot shows nothing.
  zta::BaseObject* without = scene.NewCache("Other");
  AddVolume(without, "A", Sphere(1.0));
  scene.Execute();
  EXPECT_EQ(scene.Index(VOLUMETAG_FIRST), 0);
  scene.Execute();
  EXPECT_EQ(scene.Data()->GetSlotName(0), "");
  EXPECT_EQ(scene.Data()->SlotVolume(scene.tag, scene.builder, 2), nullptr);

  std::string name = "x";
  zta::BaseContainer bc;
  bc.SetInt32(VOLUMETAG_FIRST, 1);
  auto refused = VolumeTagData::MatchSlot(scene.Data()->GetLists(), &bc, VOLUMETAG_FIRST, name, nullptr,
                                          scene.doc.get(), false);
  ASSERT_FALSE(refused.IsOk());
  EXPECT_EQ(refused.GetError().GetMessage(), "Autoalloc baselink not initialized");
}

TEST(VolumeTag, RangesAreEnabledForDistinctPicks) {
  Scene scene;
  zta::BaseObject* cache = scene.NewCache("Volumes");
  AddVolume(cache, "A", Sphere(1.0));
  AddVolume(cache, "B", Fog(2.0f, 1.0f));
  AddVolume(cache, "C", Sphere(0.5));
  scene.Execute();

  for (zta::Int32 id : {VOLUMETAG_FIRST_MAX, VOLUMETAG_FIRST_MIN, VOLUMETAG_FIRST_FIT}) EXPECT_FALSE(scene.Enabled(id));
  scene.Pick(VOLUMETAG_FIRST, 1);
  for (zta::Int32 id : {VOLUMETAG_FIRST_MAX, VOLUMETAG_FIRST_MIN, VOLUMETAG_FIRST_FIT}) EXPECT_TRUE(scene.Enabled(id));
  EXPECT_FALSE(scene.Enabled(VOLUMETAG_SECOND_MAX));  // no second pick

  scene.Pick(VOLUMETAG_SECOND, 2);
  scene.Pick(VOLUMETAG_THIRD, 3);
  scene.Execute();
  for (zta::Int32 id : {VOLUMETAG_SECOND_MAX, VOLUMETAG_SECOND_MIN, VOLUMETAG_SECOND_FIT, VOLUMETAG_THIRD_MAX,
                        VOLUMETAG_THIRD_MIN, VOLUMETAG_THIRD_FIT})
    EXPECT_TRUE(scene.Enabled(id)) << id;

  // The same volume as the first: its range would only repeat the first one.
  scene.Pick(VOLUMETAG_SECOND, 1);
  scene.Pick(VOLUMETAG_THIRD, 1);
  scene.Execute();
  for (zta::Int32 id : {VOLUMETAG_SECOND_MAX, VOLUMETAG_SECOND_FIT, VOLUMETAG_THIRD_MIN, VOLUMETAG_THIRD_FIT})
    EXPECT_FALSE(scene.Enabled(id)) << id;
}

TEST(VolumeTag, FitTakesTheRangeOfTheSlotsGrid) {
  Scene scene;
  zta::BaseObject* cache = scene.NewCache("Volumes");
  AddVolume(cache, "A", Sphere(1.0));
  AddVolume(cache, "B", Fog(2.5f, 1.0f));
  scene.Execute();
  scene.Pick(VOLUMETAG_FIRST, 2);
  scene.Execute();

  ASSERT_TRUE(zta::PressButton(scene.tag, zta::DescID(VOLUMETAG_FIRST_FIT)));
  const zta::BaseContainer* bc = scene.tag->GetDataInstance();
  EXPECT_DOUBLE_EQ(bc->GetFloat(VOLUMETAG_FIRST_MIN), 0.0);  // the background counts
  EXPECT_DOUBLE_EQ(bc->GetFloat(VOLUMETAG_FIRST_MAX), 2.5);
  // The second slot without a pick of its own shows the first one's volume.
  ASSERT_TRUE(zta::PressButton(scene.tag, zta::DescID(VOLUMETAG_SECOND_FIT)));
  EXPECT_DOUBLE_EQ(bc->GetFloat(VOLUMETAG_SECOND_MAX), 2.5);
  // No third pick: the range stays.
  ASSERT_TRUE(zta::PressButton(scene.tag, zta::DescID(VOLUMETAG_THIRD_FIT)));
  EXPECT_DOUBLE_EQ(bc->GetFloat(VOLUMETAG_THIRD_MAX), 1.0);
}

TEST(VolumeTag, ScenesAndCopiesKeepThePicks) {
  Scene scene;
  zta::BaseObject* cache = scene.NewCache("Volumes");
  AddVolume(cache, "A", Sphere(1.0));
  AddVolume(cache, "B", Fog(2.0f, 1.0f));
  scene.Execute();
  scene.Pick(VOLUMETAG_FIRST, 2);
  scene.Pick(VOLUMETAG_THIRD, 1);
  scene.Execute();

  auto bytes = zta::SaveDocumentToMemory(*scene.doc, zta::HYPERFILE_KIND_SCENE);
  ASSERT_TRUE(bytes.IsOk());
  auto loaded = zta::LoadDocumentFromMemory(bytes->data(), zta::Int64(bytes->size()));
  ASSERT_TRUE(loaded.IsOk()) << loaded.GetError().GetMessage();
  zta::BaseTag* read = (*loaded)->SearchObject("Builder")->GetTag(ID_VOLUMETAG);
  ASSERT_NE(read, nullptr);
  auto* data = read->GetNodeData<VolumeTagData>();
  EXPECT_EQ(data->GetSlotName(0), "Volumes > B");
  EXPECT_EQ(data->GetSlotName(1), "");
  EXPECT_EQ(data->GetSlotName(2), "Volumes > A");
  EXPECT_EQ(read->GetDataInstance()->GetInt32(VOLUMETAG_FIRST), 2);

  auto clone = scene.builder->GetClone();
  auto* copy = static_cast<zta::BaseObject*>(clone.get());
  auto* copied = copy->GetTag(ID_VOLUMETAG)->GetNodeData<VolumeTagData>();
  EXPECT_EQ(copied->GetSlotName(0), "Volumes > B");
  EXPECT_EQ(copied->GetLists(), scene.Data()->GetLists());

  // The drop target takes only its type, from the tag's own document.
  zta::BaseObject* null = zta::BaseObject::Alloc(zta::HOST_TYPE_NULL).release();
  scene.doc->InsertObject(null);
  zta::BaseObject* target = zta::BaseObject::AllocWithData(VOLUMETAG_TARGET_TYPE, nullptr, 0).release();
  scene.doc->InsertObject(target);
  zta::DescriptionCheckDragAndDrop refused{zta::DescID(VOLUMETAG_TARGET), null, true};
  scene.tag->Message(zta::MSG_DESCRIPTION_CHECKDRAGANDDROP, &refused);
  EXPECT_FALSE(refused.accept);
  zta::DescriptionCheckDragAndDrop taken{zta::DescID(VOLUMETAG_TARGET), target, true};
  scene.tag->Message(zta::MSG_DESCRIPTION_CHECKDRAGANDDROP, &taken);
  EXPECT_TRUE(taken.accept);
}

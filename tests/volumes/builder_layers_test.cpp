// Filter and cache rows in a Volume Builder: a filter changes what lies below
// it; a baked cache stands for the rows below it, frame by frame, also after
// the scene has been written and read again.
#include <gtest/gtest.h>

#include "host/scene/basedocument.h"
#include "host/scene/execution.h"
#include "host/scene/hyperfile.h"
#include "host/scene/scenefile.h"
#include "modules/volumes/source/objects/volumecachelayer.h"
#include "modules/volumes/source/objects/volumefilter.h"
#include "zelmar/volumetools.h"
#include "support/builder_support.h"
#include "support/run.h"

using namespace zelmar;
using namespace zvtest;

namespace {

// A layer object in the builder's list, as the top row: it works on all the rows below it.
zta::BaseObject* AddLayerObject(zta::BaseObject* builder, zta::Int32 type) {
  zta::BaseObject* layer = zta::AllocObject(type).release();
  EXPECT_NE(BuilderOf(builder)->AddLayer(builder, layer, nullptr, nullptr, false, false, false), nullptr);
  return layer;
}

}  // namespace

TEST(BuilderLayers, AFilterRowChangesTheVolumesBelowItAndOnlyOfItsType) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* builder = InsertBuilder(*doc, "B", 0, 5.0);
  AddInput(*doc, builder, SphereMesh(50, zta::Vector()), "ball", true);
  Evaluate(*doc);
  const Volume plain = CacheVolumes(builder).at(0);

  zta::BaseObject* filter = AddLayerObject(builder, ID_VOLUMEFILTER);
  filter->GetDataInstance()->SetInt32(VOLUMEFILTER_VOLUMETYPE, VOLUMEFILTER_TYPE_SDF);
  filter->GetDataInstance()->SetInt32(VOLUMEFILTER_SDFTYPE, zta::Int32(SDFFILTERTYPE::DILATE));
  filter->GetDataInstance()->SetFloat(VOLUMEFILTER_OFFSET, 10.0);
  const zta::Int64 conversions = BuilderOf(builder)->GetStatistics().conversions;
  Evaluate(*doc);
  // The same filter run on the unfiltered result by hand.
  auto byHand = VolumeObjectData::MakeObject(plain);
  ASSERT_TRUE(VolumeFilter::Filter(filter, byHand.get(), doc.get(), nullptr, byHand->GetMg()).IsOk());
  ExpectSameFloatVolume(CacheVolumes(builder).at(0), VolumeObjectData::GetVolume(byHand.get()));
  // Adding the filter re-folds; the sphere is not converted again.
  EXPECT_EQ(BuilderOf(builder)->GetStatistics().conversions, conversions);

  // A fog filter takes no part in an SDF builder.
  filter->GetDataInstance()->SetInt32(VOLUMEFILTER_VOLUMETYPE, VOLUMEFILTER_TYPE_FOG);
  filter->SetDirty(zta::DIRTYFLAGS_DATA);
  Evaluate(*doc);
  ExpectSameFloatVolume(CacheVolumes(builder).at(0), plain);
}

TEST(BuilderLayers, ABakedCacheStandsForTheRowsBelowItPerFrameAndAfterReading) {
  auto doc = zta::AllocDocument();
  doc->SetFps(10);
  zta::BaseObject* builder = InsertBuilder(*doc, "B", 0, 5.0);
  AddInput(*doc, builder, SphereMesh(40, zta::Vector()), "ball", true);
  zta::BaseObject* layer = AddLayerObject(builder, ID_VOLUMECACHELAYER);
  VolumeCacheLayerData* cache = VolumeCacheLayerData::Of(layer);
  ASSERT_NE(cache, nullptr);
  layer->GetDataInstance()->SetInt32(VOLUMECACHE_FRAMEMODE, VOLUMECACHE_FRAMES_CUSTOM);
  layer->GetDataInstance()->SetInt32(VOLUMECACHE_START, 0);
  layer->GetDataInstance()->SetInt32(VOLUMECACHE_END, 2);
  Evaluate(*doc);
  std::vector<Volume> unbaked{CacheVolumes(builder).at(0)};
  zta::BaseObject* ball = builder->GetDown();
  ASSERT_TRUE(cache->Bake(doc.get(), false).IsOk());
  EXPECT_FALSE(cache->IsBaking());
  EXPECT_EQ(cache->GetFrameCount(), 3u);

  // With a valid cache the rows below it are not converted: move the ball, and the result stays the baked one.
  const zta::Int64 conversions = BuilderOf(builder)->GetStatistics().conversions;
  ball->SetMl(zta::MatrixScale(zta::Vector(3.0)));
  doc->SetTime(zta::BaseTime(1, 10));
  Evaluate(*doc);
  EXPECT_EQ(BuilderOf(builder)->GetStatistics().conversions, conversions);
  ExpectSameFloatVolume(CacheVolumes(builder).at(0), unbaked[0]);
  EXPECT_TRUE(cache->HasCache(doc.get()));
  // Outside the baked frames the rows below work as before.
  doc->SetTime(zta::BaseTime(5, 10));
  Evaluate(*doc);
  EXPECT_GT(BuilderOf(builder)->GetStatistics().conversions, conversions);
  EXPECT_GT(CacheVolumes(builder).at(0).GetActiveVoxelCount(), unbaked[0].GetActiveVoxelCount());

  // Written and read again, the layer gives the same volume per frame.
  auto bytes = zta::SaveDocumentToMemory(*doc, zta::HYPERFILE_KIND_SCENE);
  ASSERT_TRUE(bytes.IsOk());
  auto again = zta::LoadDocumentFromMemory(bytes->data(), zta::Int64(bytes->size()));
  ASSERT_TRUE(again.IsOk()) << again.GetError().GetMessage();
  zta::BaseObject* builder2 = (*again)->GetFirstObject();
  ASSERT_NE(builder2, nullptr);
  auto* layer2 = static_cast<zta::BaseObject*>(BuilderOf(builder2)->GetCacheHead()->GetFirst());
  VolumeCacheLayerData* cache2 = VolumeCacheLayerData::Of(layer2);
  ASSERT_NE(cache2, nullptr);
  EXPECT_EQ(cache2->GetFrameCount(), 3u);
  for (int f = 0; f <= 2; ++f) {
    auto v = cache2->GetVolume((*again).get(), {true, f});
    ASSERT_TRUE(v.IsOk());
    ExpectSameFloatVolume(*v, *cache->GetVolume(doc.get(), {true, f}));
  }
  (*again)->SetTime(zta::BaseTime(2, 10));
  Evaluate(**again);
  ExpectSameFloatVolume(CacheVolumes(builder2).at(0), *cache->GetVolume(doc.get(), {true, 2}));

  // Clear forgets every frame; the rows below count again.
  cache->Clear();
  EXPECT_FALSE(cache->HasCache(doc.get()));
}

// The Volume Cache Layer on its own: frames by document time, the bake range,
// and the refusals of a layer that is not where a bake can run.
#include <gtest/gtest.h>

#include "host/scene/basedocument.h"
#include "host/scene/messages.h"
#include "modules/volumes/source/objects/volumecachelayer.h"
#include "modules/volumes/source/objects/volumeobject.h"

using namespace zelmar;

namespace {

zta::BaseObject* InsertLayer(zta::BaseDocument& doc) {
  zta::BaseObject* op = zta::AllocObject(ID_VOLUMECACHELAYER).release();
  EXPECT_NE(op, nullptr);
  doc.InsertObject(op);
  return op;
}

}  // namespace

TEST(VolumeCacheLayer, NumbersFramesByTheDocumentTimeAndChoosesItsRange) {
  auto doc = zta::AllocDocument();
  doc->SetFps(24);
  doc->SetTime(zta::BaseTime(10, 24));
  EXPECT_EQ(VolumeCacheLayerData::FrameOf(doc.get()), 10);
  doc->SetTime(zta::BaseTime(1.5));
  EXPECT_EQ(VolumeCacheLayerData::FrameOf(doc.get()), 36);

  zta::BaseObject* op = InsertLayer(*doc);
  VolumeCacheLayerData* layer = VolumeCacheLayerData::Of(op);
  ASSERT_NE(layer, nullptr);
  ASSERT_TRUE(doc->SetTimeRange(zta::BaseTime(2, 24), zta::BaseTime(30, 24)));
  EXPECT_EQ(layer->GetBakeRange(doc.get()), (std::pair<zta::Int64, zta::Int64>(2, 30)));
  op->GetDataInstance()->SetInt32(VOLUMECACHE_FRAMEMODE, VOLUMECACHE_FRAMES_CUSTOM);
  op->GetDataInstance()->SetInt32(VOLUMECACHE_START, 5);
  op->GetDataInstance()->SetInt32(VOLUMECACHE_END, 7);
  EXPECT_EQ(layer->GetBakeRange(doc.get()), (std::pair<zta::Int64, zta::Int64>(5, 7)));
  // A start above the end bakes frame 0 alone.
  op->GetDataInstance()->SetInt32(VOLUMECACHE_START, 9);
  EXPECT_EQ(layer->GetBakeRange(doc.get()), (std::pair<zta::Int64, zta::Int64>(0, 0)));
}

TEST(VolumeCacheLayer, RefusesWhatOnlyABakeInABuilderMayDo) {
  auto doc = zta::AllocDocument();
  zta::BaseObject* op = InsertLayer(*doc);
  VolumeCacheLayerData* layer = VolumeCacheLayerData::Of(op);
  ASSERT_NE(layer, nullptr);

  const auto set = layer->SetVolume(Volume(), {});
  ASSERT_FALSE(set.IsOk());
  EXPECT_EQ(set.GetError().GetMessage(), "trying to set volumes in a non bake setup");
  const auto bake = layer->Bake(doc.get(), false);
  ASSERT_FALSE(bake.IsOk());
  EXPECT_EQ(bake.GetError().GetMessage(), "layer is not in a volumebuilder sublist");
  EXPECT_FALSE(layer->IsBaking());

  // Nothing kept: no cache at any frame, an empty volume, the icon of an empty layer.
  EXPECT_FALSE(layer->HasCache(doc.get()));
  auto got = layer->GetVolume(doc.get(), {true, 3});
  ASSERT_TRUE(got.IsOk());
  EXPECT_FALSE(got->HasGrid());
  GetCustomIconData icon;
  op->Message(MSG_GETCUSTOMICON, &icon);
  EXPECT_TRUE(icon.filled);
  EXPECT_EQ(icon.iconId, 1019458);

  // A layer outside any document cannot name its frame.
  std::unique_ptr<zta::BaseObject> loose = zta::AllocObject(ID_VOLUMECACHELAYER);
  auto outside = VolumeCacheLayerData::Of(loose.get())->GetVolume(nullptr, {});
  ASSERT_FALSE(outside.IsOk());
  EXPECT_EQ(outside.GetError().GetMessage(), "bakenodedata is not in a document");
}

#pragma once
// VolumeCacheLayerData (1050456): a row of a Volume Builder that stands for
// every row below it. Baking steps the scene through a range of frames and
// keeps the builder's result of each; during playback the layer gives the
// kept volume of the current frame, and the rows below are not evaluated.
// The volumes travel inside the scene file, in .vdb form.
#include <map>
#include <memory>

#include "host/core/result.h"
#include "host/scene/commanddata.h"
#include "host/scene/nodedata.h"
#include "host/scene/plugins.h"
#include "zelmar/volume.h"

namespace zta {
class BaseDocument;
}

namespace zelmar {

enum : zta::Int32 {
  ID_VOLUMECACHELAYER = 1050456,
  // The command that empties the cache layers of the selected builders.
  ID_RESETCACHESCOMMAND = 1050457,

  VOLUMECACHE_FRAMEMODE = 1000,
  VOLUMECACHE_START = 1001,
  VOLUMECACHE_END = 1002,
  VOLUMECACHE_BAKE = 1003,
  VOLUMECACHE_BAKE_RANGE = 1004,
  VOLUMECACHE_CLEAR = 1005,

  // Sent to a builder: set or clear the layer it hands its results to while baking.
  MSG_VOLUMEBUILDER_BAKETARGET = 1050466,
};

// The values of VOLUMECACHE_FRAMEMODE. The host keeps one frame range per
// document, so the preview range and the whole range are the same there.
enum : zta::Int32 { VOLUMECACHE_FRAMES_PREVIEW = 0, VOLUMECACHE_FRAMES_ALL = 1, VOLUMECACHE_FRAMES_CUSTOM = 2 };

// The data of MSG_VOLUMEBUILDER_BAKETARGET.
struct BakeTargetData {
  bool set = false;
  zta::BaseObject* layer = nullptr;
};

// A frame given by the caller, or (useFrame false) the document's current one.
struct CacheFrame {
  bool useFrame = false;
  zta::Int64 frame = 0;
};

class VolumeCacheLayerData : public zta::ObjectData {
 public:
  static std::unique_ptr<zta::NodeData> Alloc();
  // The "VolCache-" row of the start table: the layer and its reset command.
  static bool Register();

  bool InitNode(zta::GeListNode* node) override;
  bool ReadNode(zta::GeListNode* node, zta::HyperFile* hf, zta::Int32 level) override;
  bool WriteNode(const zta::GeListNode* node, zta::HyperFile* hf) const override;
  bool CopyNode(zta::NodeData* dest, const zta::GeListNode* snode, zta::GeListNode* dnode, zta::Int32 flags,
                zta::AliasTrans* trans) const override;
  bool HandleMessage(zta::GeListNode* node, zta::Int32 type, void* data) override;

  // A valid cache: not baking, and a volume kept for the current frame.
  bool HasCache(const zta::BaseDocument* doc) const;
  // The kept volume of the frame, or an uninitialised one when there is none.
  Result<Volume> GetVolume(const zta::BaseDocument* doc, CacheFrame frame) const;
  // Keeps `volume` for the frame; only while baking.
  Result<void> SetVolume(const Volume& volume, CacheFrame frame);
  // Keeps the volume of the builder's last result for the current frame.
  Result<void> FinishBake(zta::BaseDocument* doc);
  // Runs a bake over the layer's range; `clearRange` first forgets the range's frames.
  Result<void> Bake(zta::BaseDocument* doc, bool clearRange, const zta::ThreadRef& stop = nullptr);
  void Clear();

  bool IsBaking() const { return baking_; }
  std::size_t GetFrameCount() const { return volumes_.size(); }
  // The frames of the bake range, first and last, as the parameters choose them.
  std::pair<zta::Int64, zta::Int64> GetBakeRange(const zta::BaseDocument* doc) const;

  // The frame of a document's time, as the layer numbers them.
  static zta::Int64 FrameOf(const zta::BaseDocument* doc);
  static VolumeCacheLayerData* Of(zta::BaseObject* op);

 private:
  Result<zta::Int64> ResolveFrame(CacheFrame frame) const;

  zta::BaseObject* owner_ = nullptr;
  std::map<zta::Int64, Volume> volumes_;
  bool baking_ = false;
};

// Empties the cache layers of the selected Volume Builders.
class ResetCachesCommand : public zta::CommandData {
 public:
  bool Execute(zta::BaseDocument* doc) override;
};

}  // namespace zelmar

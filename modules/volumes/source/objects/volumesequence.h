#pragma once
// VolumeSequence: the generator (1039866) that plays a numbered series of
// .vdb files ("cloud.0001.vdb", "cloud.0002.vdb", ...) as an animation. The
// document's frame picks a file of the series; its grids become volume
// objects under a Null, the cache. Only the frame in view is held.
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/core/url.h"
#include "host/scene/baseobject.h"
#include "host/scene/nodedata.h"
#include "zelmar/volume.h"

namespace zta {
class BaseDocument;
}

namespace zelmar {

enum : zta::Int32 {
  ID_VOLUMESEQUENCE = 1039866,
  SEQUENCE_FILE = 6000,
  SEQUENCE_USE_RANGE = 6001,
  SEQUENCE_FRAME = 6002,
  SEQUENCE_FIRST = 6003,
  SEQUENCE_LAST = 6004,
  SEQUENCE_OFFSET = 6005,
  SEQUENCE_SPEED = 6006,
  SEQUENCE_LOOP = 6007,
  SEQUENCE_GRIDS = 6008,
  SEQUENCE_RELOAD = 6009,
  SEQUENCE_UNIT = 6010,
  SEQUENCE_INFO = 6011,
  SEQUENCE_DURATION = 6012,
};

// A file name cut around its frame number: "cloud.0042.vdb" is "cloud.",
// 42 (4 digits) and ".vdb". `valid` is false for a name without a number, or
// one that begins with it.
struct SequenceName {
  bool valid = false;
  std::string prefix;
  std::string suffix;
  zta::Int64 number = 0;
  zta::Int32 digits = 0;
};
SequenceName ParseSequenceName(const std::string& fileName);

// The position in the series (0 for its first file) that `frame`, a document
// frame, shows with the parameters of `bc`; false when nothing is shown then.
bool MapFrameToSeries(const zta::BaseContainer& bc, zta::Int64 frame, zta::Int32* position);

class VolumeSequence : public zta::ObjectData {
 public:
  static std::unique_ptr<zta::NodeData> Alloc();
  // The "VolSeq-" row of the start table.
  static bool Register();

  bool InitNode(zta::GeListNode* node) override;
  void FreeNode(zta::GeListNode* node) override;
  bool ReadNode(zta::GeListNode* node, zta::HyperFile* hf, zta::Int32 level) override;
  bool CopyNode(zta::NodeData* dest, const zta::GeListNode* snode, zta::GeListNode* dnode, zta::Int32 flags,
                zta::AliasTrans* trans) const override;
  bool HandleMessage(zta::GeListNode* node, zta::Int32 type, void* data) override;
  // The frame fields reach as far as the series found; the grid list shows
  // only when the files have grids to choose from.
  bool DescribeParameters(zta::GeListNode* node, zta::Description* description, zta::Int32& flags) override;
  bool SetParameterValue(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                         zta::Int32& flags) override;
  bool IsParameterEnabled(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data, zta::Int32 flags,
                          const zta::BaseContainer* itemdesc) override;
  zta::BaseObject* BuildVirtualObjects(zta::BaseObject* op, const zta::HierarchyHelp* hh) override;

  // The scene loader hands over the grid names of the file and which of them are on.
  void InitSequenceFromLoader(zta::BaseObject* op, const std::vector<std::string>& gridNames,
                              const std::vector<bool>& gridsOn);
  // The document frame of `doc`'s time, as the series counts it.
  static zta::Int64 DocumentFrame(const zta::BaseDocument& doc);
  // The position `doc`'s time shows; false when nothing is shown.
  static bool MapTimeToFrame(const zta::BaseObject* op, const zta::BaseDocument& doc, zta::Int32* position);

  bool AreFilesFound() const { return filesFound_; }
  zta::Int32 GetFrameCount() const { return zta::Int32(files_.size()); }
  // The file at a position of the series, or an empty url.
  Url GetFrameUrl(zta::Int32 position) const;

 private:
  // Lists the files of the series that `url` belongs to; false when there is none.
  bool Scan(zta::BaseObject* op, const zta::BaseDocument* doc, const Url& url);
  void Clear();

  std::vector<bool> gridsOff_;
  std::vector<std::string> gridNames_;
  // The files by position in the series, in the order of their numbers.
  std::map<zta::Int32, Url> files_;
  std::vector<Volume> cached_;
  SequenceName record_;
  Url lastUrl_;
  Url lastFrameUrl_;
  double lastScale_ = 0.0;
  bool filesFound_ = false;
  bool reload_ = true;
  // The next scan keeps SEQUENCE_FIRST and SEQUENCE_LAST where they fit the series.
  bool keepRange_ = false;
};

}  // namespace zelmar

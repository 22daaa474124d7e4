#pragma once
// OpenVDBLoaderData: the host's import of .vdb files (1039864, "fvdbimport").
// It lists a file's grids for a person to pick from, notices when the file
// is one frame of a numbered series, and makes volume objects, one Volume Set
// or one Volume Sequence in the document.
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/core/url.h"
#include "host/scene/sceneio.h"
#include "zelmar/volume.h"

namespace zta {
class BaseObject;
}

namespace zelmar {

enum : zta::Int32 {
  ID_VDBSCENELOADER = 1039864,
  ID_VDBSCENESAVER = 1039865,
  // The loader's settings.
  VDBIMPORT_GRIDS = 10002,
  VDBIMPORT_SEQUENCE = 10003,
  VDBIMPORT_FIRST = 10004,
  VDBIMPORT_LAST = 10005,
  VDBIMPORT_AS_SET = 10006,
  VDBIMPORT_SELECT_GRIDS = 10007,
  VDBIMPORT_UNIT = 10008,
};

// The series a file belongs to: its files by position, in the order of their numbers.
struct VDBSequenceRecord {
  std::string prefix;
  std::string suffix;
  zta::Int32 digits = 0;
  std::map<zta::Int64, Url> files;
  zta::Int32 firstFrame = 0;
  zta::Int32 lastFrame = 0;
  zta::Int32 frameCount = 0;
};

// Lists the files beside `url` whose names are `url`'s with another number.
// False (and an empty record) when the name holds no frame number.
bool FindVDBSequence(const Url& url, VDBSequenceRecord* record);

class OpenVDBLoaderData : public zta::SceneLoaderData {
 public:
  static std::unique_ptr<zta::NodeData> Alloc();

  bool InitNode(zta::GeListNode* node) override;
  bool HandleMessage(zta::GeListNode* node, zta::Int32 type, void* data) override;
  bool DescribeParameters(zta::GeListNode* node, zta::Description* description, zta::Int32& flags) override;
  bool SetParameterValue(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                         zta::Int32& flags) override;
  bool IsParameterEnabled(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data, zta::Int32 flags,
                          const zta::BaseContainer* itemdesc) override;
  bool IdentifyFile(zta::BaseList2D* node, const zta::String& name, const unsigned char* probe,
                    zta::Int32 size) override;
  zta::Int32 LoadScene(zta::BaseList2D* node, zta::BaseDocument* doc, const Url& url, zta::Int32 flags,
                       zta::SceneFilterRun& run) override;

  // Fills the settings from the file: its grids, whether it is part of a
  // series and how long that is. What the import dialog shows on opening.
  void ReadFileInfo(zta::BaseList2D* node, const Url& url);

  const VDBSequenceRecord& GetSequence() const { return sequence_; }
  bool HasSequence() const { return sequenceFound_; }
  const Url& GetUrl() const { return url_; }

 private:
  // A volume object of one grid of the file at the end of the top level;
  // null (and no error) for a grid without data.
  zta::Result<zta::BaseObject*> CreateVolumeObject(zta::BaseDocument* doc, const Url& url, double scale,
                                                   Int gridIndex) const;

  Url url_;
  VDBSequenceRecord sequence_;
  Int gridCount_ = 0;
  bool sequenceFound_ = false;
};

}  // namespace zelmar

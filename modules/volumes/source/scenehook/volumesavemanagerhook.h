#pragma once
// VolumeSaveManagerHook: the scene hook (1040459), one per document, that
// knows which volume object or Volume Set owns which .vdb file. It keeps two
// objects from sharing a file, and when the scene is saved it writes each
// volume into the folder "vol" beside the scene, stamped with the scene's
// name so that the files of another scene in the same folder are kept.
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "host/core/data.h"
#include "host/core/url.h"
#include "host/scene/baselink.h"
#include "host/scene/nodedata.h"
#include "modules/volumes/source/objects/volumesavehookinterface.h"

namespace zta {
class BaseDocument;
class BaseObject;
struct DocumentInfoData;
}  // namespace zta

namespace zelmar {

class VolumeSaveManagerHook : public zta::SceneHookData, public VolumeSaveHookInterface {
 public:
  VolumeSaveManagerHook();
  ~VolumeSaveManagerHook() override;
  static std::unique_ptr<zta::NodeData> Alloc();
  // The "VolumeSaveHook-" row of the start table.
  static bool Register();

  bool WriteNode(const zta::GeListNode* node, zta::HyperFile* hf) const override;
  bool HandleMessage(zta::GeListNode* node, zta::Int32 type, void* data) override;

  zta::Result<void> RegisterVolumeFile(zta::BaseList2D* object, zta::Url& url) override;
  zta::Result<void> AddVolumeFile(zta::BaseList2D* object, zta::Url& url);
  zta::Result<void> UpdateVolumeFile(zta::BaseList2D* object, zta::Url& url);
  void ForgetObject(zta::BaseList2D* object);
  // Forgets every object that is no longer the node its link resolves to in `doc`.
  zta::Result<void> PurgeDeadEntries(zta::BaseDocument* doc);
  // Points every registered object's file at its bare file name, for a save
  // under a new name: the files follow the scene into its new "vol" folder.
  zta::Result<void> RelinkObjects(zta::BaseDocument* doc);
  // `url` when no registered object holds it (and, with `checkDisk`, no file
  // stands where a save would write it), else the next free numbered name.
  zta::Url MakeUniqueFileName(const zta::Url& url, bool checkDisk) const;
  // Where a save writes `url`: a relative url goes to <documentPath>/vol/<file name>.
  static zta::Result<zta::Url> MakeSaveUrl(const std::string& documentPath, const zta::Url& url);
  // Writes the volume objects of a Volume Set's branch, in branch order, as one file.
  static zta::Result<void> WriteVolumeGroup(zta::BaseObject* group, const zta::Url& url,
                                            const zta::DataDictionary& metadata);

  // The url registered for `object`, or null.
  const zta::Url* GetRegisteredFile(const zta::BaseList2D* object) const;
  bool IsFileUsed(const zta::Url& url) const;
  size_t GetRegisteredCount() const { return objectFiles_.size(); }

 private:
  struct UrlHash {
    size_t operator()(const zta::Url& url) const { return std::hash<std::string>()(url.ToString()); }
  };
  using UrlSet = std::unordered_set<zta::Url, UrlHash>;

  // Whether a file stands where the current save would write `url`.
  bool ExistsAtSaveTarget(const zta::Url& url) const;
  // Whether `object` is still the node its registration's link resolves to.
  bool IsLive(const zta::BaseList2D* object, zta::BaseDocument* doc) const;
  zta::Result<void> PrepareSave(zta::BaseDocument* doc, const zta::DocumentInfoData& info);
  void Rename(zta::BaseList2D* object, const zta::Url& url);

  UrlSet usedFiles_;
  std::unordered_map<zta::BaseList2D*, zta::Url> objectFiles_;
  std::vector<std::pair<std::unique_ptr<zta::BaseLink>, zta::BaseList2D*>> links_;
  // Filled when a save begins, written and emptied at WriteNode, which the host calls const.
  mutable std::unordered_map<zta::BaseList2D*, zta::Url> pendingWrites_;
  UrlSet reservedFiles_;
  zta::DataDictionary metadata_;
  bool collecting_ = false;
  // The folder of the scene being saved; empty between saves.
  std::string saveFolder_;
};

// The file name an object's name gives: "<name>.vdb", made safe. Object names
// are free text, and a file name made from one must stay a single name inside
// "vol": separators ('/' and '\'), NUL and other control characters become
// '_', a name of only dots or nothing becomes "Volume", and the name is cut to
// 200 bytes (at a UTF-8 character boundary) so that ".vdb" and a clash number
// still fit the file system's 255.
std::string SafeVolumeFileName(const std::string& objectName);

}  // namespace zelmar

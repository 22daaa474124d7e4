#pragma once
// The messages that the host sends to nodes (NodeData::HandleMessage), with
// their data records. Who sends each is written beside it.
#include <vector>

#include "host/scene/description.h"

namespace zta {

class BaseDocument;

enum : Int32 {
  // SetParameter, before the value is stored: DescriptionCheckUpdate.
  MSG_DESCRIPTION_CHECKUPDATE = 17,
  // A button was pressed (PressButton, or SetParameter of a button): DescriptionCommand.
  MSG_DESCRIPTION_COMMAND = 18,
  // SetParameter stored custom data (an item tree, a check list, ...): DescriptionPostSetValue.
  MSG_DESCRIPTION_CUSTOMDATA_CHANGED = 19,
  // The object is about to be added from the menu (CreateObjectFromMenu); no data.
  MSG_MENUPREPARE = 22,
  // SetParameter by a person of a link: may this node take the object? DescriptionCheckDragAndDrop.
  MSG_DESCRIPTION_CHECKDRAGANDDROP = 26,
  // SetParameter, after the value is stored: DescriptionPostSetValue.
  MSG_DESCRIPTION_POSTSETPARAMETER = 31,
  // SetParameter by a person, after 31: the edit is over. DescriptionPostSetValue.
  MSG_DESCRIPTION_USERINTERACTION_END = 32,
  // Asset collection (CollectAssets): AssetData.
  MSG_GETALLASSETS = 112004,
  // The node's name changed (SetParameter of ID_BASELIST_NAME), or the path
  // of its document (SetDocumentLocation); no data.
  MSG_NAMEORPATH_CHANGED = 200000040,
  // A document event (SendDocumentEvent): DocumentInfoData.
  MSG_DOCUMENTINFO = 1001078,
  // An item tree changed, sent to the tree's owner: ItemTreeEvent.
  MSG_ITEMTREE_EVENT = 1024875,
};

struct DescriptionCheckUpdate {
  DescID id;
  const GeData* value = nullptr;
  Int32 flags = DESCFLAGS_NONE;
};

struct DescriptionCommand {
  DescID id;
  // What the button carries (a popup's choice), or null.
  const BaseContainer* values = nullptr;
};

struct DescriptionPostSetValue {
  DescID id;
  Int32 flags = DESCFLAGS_NONE;
};

struct DescriptionCheckDragAndDrop {
  DescID id;
  BaseList2D* element = nullptr;
  // The node clears it to refuse.
  bool accept = true;
};

// Types of MSG_DOCUMENTINFO.
enum : Int32 {
  DOCUMENTINFO_TYPE_LOAD_AFTER = 1001,        // the document was read from a file
  DOCUMENTINFO_TYPE_MERGE_AFTER = 1002,       // objects of a file were merged into it
  DOCUMENTINFO_TYPE_SAVE_BEFORE = 1004,       // a save begins (url: the target)
  DOCUMENTINFO_TYPE_SAVE_AFTER = 1005,        // the save ended
  DOCUMENTINFO_TYPE_SAVEAS_BEFORE = 1006,     // a save under a new name begins
  DOCUMENTINFO_TYPE_SAVEAS_AFTER = 1007,      // it ended
  DOCUMENTINFO_TYPE_UNDO = 1008,              // an undo step was undone
  DOCUMENTINFO_TYPE_REDO = 1009,              // an undo step was redone
  DOCUMENTINFO_TYPE_OBJECT_ADDED = 1010,      // an object was added from the menu (object: the object)
};
// The sub-type of a save that writes the host's own scene format; a save
// through a scene saver plug-in carries the saver's id instead.
constexpr Int32 DOCUMENTINFO_SUBTYPE_SCENEFILE = 1001026;

struct DocumentInfoData {
  Int32 type = 0;
  Int32 subType = 0;
  BaseDocument* doc = nullptr;
  String url;
  BaseList2D* object = nullptr;
};

// Flags of an asset collection.
enum : Int32 {
  ASSETDATA_FLAG_SAVEPROJECT = 4,  // the files are gathered to go with the scene
  ASSETDATA_FLAG_LISTALL = 64,     // every file the scene uses is asked for
};

// One file a node uses.
struct AssetEntry {
  String url;
  BaseList2D* node = nullptr;
  Int32 parameterId = 0;
  // The frames the file stands for; both -1 when it serves every frame.
  Int32 firstFrame = -1;
  Int32 lastFrame = -1;
};

class AssetData {
 public:
  AssetData(BaseDocument* doc, String targetPath, Int32 flags) : doc_(doc), target_(std::move(targetPath)), flags_(flags) {}
  BaseDocument* GetDocument() const { return doc_; }
  // Where a project save gathers the files; empty otherwise.
  const String& GetTargetPath() const { return target_; }
  Int32 GetFlags() const { return flags_; }
  // What a node reports; the same url and node are listed once.
  void Add(const String& url, BaseList2D* node, Int32 parameterId, Int32 firstFrame = -1, Int32 lastFrame = -1);
  const std::vector<AssetEntry>& GetAssets() const { return assets_; }

 private:
  BaseDocument* doc_;
  String target_;
  Int32 flags_;
  std::vector<AssetEntry> assets_;
};

}  // namespace zta

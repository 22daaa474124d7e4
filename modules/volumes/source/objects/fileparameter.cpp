#include "modules/volumes/source/objects/fileparameter.h"

#include <filesystem>
#include <system_error>

#include "host/core/format.h"
#include "host/scene/basedocument.h"
#include "host/scene/baseobject.h"
#include "host/scene/description.h"
#include "modules/volumes/source/scenehook/volumesavemanagerhook.h"

namespace zelmar {

bool ChangeFileParameter(zta::BaseObject* op, zta::Int32 id, const zta::GeData& value, zta::Int32& flags,
                         const FileParameterSteps& steps, Url& fileUrl, bool& fileFound) {
  zta::BaseContainer* bc = op->GetDataInstance();
  const std::string oldText = bc->GetString(id);
  std::string newText = value.GetString();
  if (Url(oldText) != Url(newText)) {
    // An empty name clears the file; it gets no suffix.
    const bool hasSuffix = newText.size() >= 3 && newText.compare(newText.size() - 3, 3, "vdb") == 0;
    if (!newText.empty() && !hasSuffix) newText = zta::FormatString("@.vdb", newText);
    Url url(newText);
    zta::BaseDocument* doc = op->GetDocument();
    if (doc) {
      if (auto ok = steps.registerName(doc, url); !ok) return false;
    }
    Url found = url;
    if (steps.find(found, doc)) {
      if (auto loaded = steps.load(found); !loaded) {
        // Nothing of the old state is lost: the hook takes the old name back.
        if (doc) {
          Url old(oldText);
          (void)steps.registerName(doc, old);
        }
        return false;
      }
      fileUrl = found;
      fileFound = true;
      if (doc) doc->EventAdd();
    } else {
      fileFound = false;
    }
    bc->SetString(id, url.ToString());
    flags |= zta::DESCFLAGS_SET_PARAM_SET;
  }
  if (flags & zta::DESCFLAGS_SET_PARAM_SET) op->SetDirty(zta::DIRTYFLAGS_DATA);
  return true;
}

zta::Result<Url> PrepareFileInVol(zta::BaseObject* op, zta::BaseDocument* doc, const Url& current,
                                  const FileParameterSteps& steps, Url& registered) {
  std::string name = std::filesystem::path(current.GetPath()).filename().string();
  if (name.size() < 4 || name.compare(name.size() - 4, 4, ".vdb") != 0) name = SafeVolumeFileName(op->GetName());
  registered = Url(name);
  if (auto ok = steps.registerName(doc, registered); !ok) return ok.GetError();
  const std::filesystem::path folder = std::filesystem::path(doc->GetDocumentPath()) / "vol";
  std::error_code ec;
  std::filesystem::create_directories(folder, ec);
  if (ec) return zta::IoError("the folder " + folder.string() + " could not be made: " + ec.message());
  return VolumeSaveManagerHook::MakeSaveUrl(doc->GetDocumentPath(), registered);
}

bool FollowObjectName(zta::BaseObject* op, zta::Int32 id, const FileParameterSteps& steps) {
  zta::BaseContainer* bc = op->GetDataInstance();
  const std::filesystem::path file(bc->GetString(id));
  if (file.has_parent_path() || file.filename().empty()) return true;
  Url url(SafeVolumeFileName(op->GetName()));
  if (zta::BaseDocument* doc = op->GetDocument()) {
    if (auto ok = steps.registerName(doc, url); !ok) return false;
  }
  bc->SetString(id, url.ToString());
  return true;
}

}  // namespace zelmar

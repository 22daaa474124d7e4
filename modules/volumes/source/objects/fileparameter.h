#pragma once
// The file parameter of the objects that keep their grids in a .vdb file
// (volume objects, Volume Sets): what a new text in it sets in motion.
#include <functional>

#include "host/core/result.h"
#include "host/core/url.h"
#include "host/scene/gedata.h"

namespace zta {
class BaseDocument;
class BaseObject;
}  // namespace zta

namespace zelmar {

using zta::Url;

struct FileParameterSteps {
  // Registers the name with the document's save hook, which may change it.
  std::function<zta::Result<void>(zta::BaseDocument* doc, Url& url)> registerName;
  // Resolves the name to a file there is to read; false for none.
  std::function<bool(Url& url, zta::BaseDocument* doc)> find;
  // Reads the file into the object.
  std::function<zta::Result<void>(const Url& url)> load;
};

// Takes `value` into the file parameter `id` of `op`: a name without ".vdb"
// gets it, the save hook registers the name, an existing file is read (then
// `fileUrl` is where it was found), and a file that fails to read leaves the
// object as it was, with the old name registered again. `fileFound` says
// whether a file was read. False when the change is refused.
bool ChangeFileParameter(zta::BaseObject* op, zta::Int32 id, const zta::GeData& value, zta::Int32& flags,
                         const FileParameterSteps& steps, Url& fileUrl, bool& fileFound);

// Where a save writes an object's file that it has not found: "vol" beside
// the scene (made when missing), under the file name the parameter holds, or
// under the object's name made safe when it holds none, as the save hook
// registers it. `registered` gets the text to store in the parameter.
zta::Result<Url> PrepareFileInVol(zta::BaseObject* op, zta::BaseDocument* doc, const Url& current,
                                  const FileParameterSteps& steps, Url& registered);

// After the object was renamed: a file parameter that holds a plain name
// (no folder) takes the new name, made safe and registered with the hook.
// False when the hook refuses it.
bool FollowObjectName(zta::BaseObject* op, zta::Int32 id, const FileParameterSteps& steps);

}  // namespace zelmar

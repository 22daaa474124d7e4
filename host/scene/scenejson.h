#pragma once
// The JSON form of a scene (.json), for people: objects by the type names of
// their descriptions, parameters by their symbols (or ids), children, tags,
// links by object path, custom data in readable form, polygon objects inline
// or from a mesh file. It says what the native form (scenefile.h) says: a
// document written to JSON and read back compares equal, node ids included.
// The format is in docs/scene-format.md.
//
// Like every outside file the JSON form is right-handed: object matrices,
// points, particles and field-layer matrices are mirrored in the third axis
// on the way out and in, and polygons turn their winding; parameters keep
// the values the nodes hold.
//
// Errors name the place in the JSON document where the reader stopped
// ("objects[2].children[0].parameters.PRIM_SPHERE_RAD: expected a number");
// a document that fails to load is dropped whole.
#include <memory>

#include "host/core/result.h"
#include "host/core/thread.h"
#include "host/core/types.h"

namespace zta {

class BaseDocument;

inline constexpr const char* kSceneJsonSuffix = "json";

struct SceneJsonReadOptions {
  // Where mesh files named by relative paths are found; the scene file's
  // folder when reading a file, the working folder when empty.
  String baseFolder;
  // Whether "file" may read mesh files at all (a fuzzer turns it off).
  bool readFiles = true;
};

// Saves `doc` as JSON to `path` with the same events and the same
// all-or-nothing file as SaveDocument. Plug-in data are written at write time
// as a scene file on disk would hold them.
Result<void> SaveDocumentJson(BaseDocument* doc, const String& path, const ThreadRef& thread = nullptr);
// The document of a JSON scene file, with its path and name set and the load event sent.
Result<std::unique_ptr<BaseDocument>> LoadDocumentJson(const String& path, const ThreadRef& thread = nullptr);

// The same as text. `kind` is the HyperFile kind that plug-in data are
// written in (HYPERFILE_KIND_SCENE keeps heavy data beside the scene).
Result<String> SaveDocumentJsonToString(const BaseDocument& doc, Int32 kind);
Result<std::unique_ptr<BaseDocument>> LoadDocumentJsonFromString(const String& text,
                                                                 const SceneJsonReadOptions& options = {},
                                                                 const ThreadRef& thread = nullptr);

// Whether a path names a JSON scene (by its extension).
bool IsJsonScenePath(const String& path);

}  // namespace zta

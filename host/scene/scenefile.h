#pragma once
// Scene files: a document in its native form (.zscene), a HyperFile of kind
// 1, and the same stream in memory for undo, the clipboard and copies.
//
// Saving sends the document event (MSG_DOCUMENTINFO) to every node, objects
// first and scene hooks last: "a save begins" with the scene's path (and
// whether it is a new one), then the hooks' WriteNode at write time, then "the
// save has ended", whatever the outcome. The bytes go to a temporary file that
// is renamed over the target only when all of them are written, so a failed or
// interrupted save leaves a file that stood there as it was. Loading gives a
// whole document or an error that names the byte where the file went wrong.
#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

#include "host/core/result.h"
#include "host/core/thread.h"
#include "host/core/types.h"
#include "host/scene/messages.h"

namespace zta {

class BaseDocument;
class BaseList2D;

inline constexpr const char* kSceneFileSuffix = "zscene";

// Saves `doc` to `path`; a save under another path than the document's own is
// a "save as". On success the document takes the path's folder and name.
Result<void> SaveDocument(BaseDocument* doc, const String& path, const ThreadRef& thread = nullptr);
// The document of a scene file, with its path and name set and the load event sent.
Result<std::unique_ptr<BaseDocument>> LoadDocument(const String& path, const ThreadRef& thread = nullptr);

// The stream of `doc` as bytes, for copies of kind 2 (undo), 3 (clipboard) or
// 4 (memory), or of kind 1 for what a scene file would hold. No events.
Result<std::vector<char>> SaveDocumentToMemory(const BaseDocument& doc, Int32 kind);
// A document from such bytes, of any kind; the error names the byte offset.
Result<std::unique_ptr<BaseDocument>> LoadDocumentFromMemory(const char* bytes, Int64 size,
                                                             const ThreadRef& thread = nullptr);

// What the native and the JSON form share. SaveDocumentThrough sends the save
// events around `write`, which puts the scene's bytes into the temporary file
// (the error it returns ends the save), and commits the file; the document
// then takes the path's folder and name.
Result<void> SaveDocumentThrough(BaseDocument* doc, const String& path, const ThreadRef& thread,
                                 const std::function<Result<void>(std::FILE* file)>& write);
// A document just read from `path` takes its folder and name and hears the load event.
void FinishLoadedDocument(BaseDocument* doc, const String& path);
// The bytes of a file, or an error in the words of LoadDocument's.
Result<std::vector<char>> ReadWholeFile(const String& path);

}  // namespace zta

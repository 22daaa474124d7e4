#include "host/scene/scenefile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "host/core/atomicfile.h"
#include "host/core/format.h"
#include "host/scene/basedocument.h"
#include "host/scene/hyperfile.h"
#include "host/scene/plugins.h"

namespace zta {

namespace {

// Objects (with their tags and branches) first, then the scene hooks, so that
// the hooks see what the objects registered on the same event. False when a
// scene hook refused the event.
bool BroadcastDocumentInfo(BaseDocument* doc, DocumentInfoData& info, String* refusedBy) {
  std::vector<BaseList2D*> hooks;
  doc->ForEachNode(
      [&](BaseList2D* node) {
        if (node->GetListHead() == doc->GetSceneHookListHead()) hooks.push_back(node);
        else node->Message(MSG_DOCUMENTINFO, &info);
        return false;
      },
      false);
  bool ok = true;
  for (BaseList2D* hook : hooks) {
    if (!hook->Message(MSG_DOCUMENTINFO, &info) && ok) {
      ok = false;
      const PluginInfo* plugin = FindPlugin(hook->GetType());
      *refusedBy = plugin ? plugin->name : FormatString("@", hook->GetType());
    }
  }
  return ok;
}

std::string Absolute(const std::string& path) {
  std::error_code ec;
  const auto p = std::filesystem::absolute(path, ec);
  return ec ? path : p.lexically_normal().string();
}

Result<std::unique_ptr<BaseDocument>> ReadDocument(const char* bytes, Int64 size, const ThreadRef& thread,
                                                   bool sceneOnly) {
  auto opened = HyperFile::OpenRead(bytes, size);
  if (!opened) return opened.GetError();
  std::unique_ptr<HyperFile> hf = std::move(opened.GetValue());
  if (sceneOnly && hf->GetFileKind() != HYPERFILE_KIND_SCENE)
    return IoError(FormatString("byte 12: not a scene file: it holds a copy of kind @", hf->GetFileKind()));
  auto doc = BaseDocument::Alloc();
  if (!doc) return OutOfMemoryError("out of memory loading a scene");
  hf->SetThread(thread);
  // A document that failed half way is dropped here, with everything read into it.
  if (!hf->ReadDocument(doc.get()) || !hf->ReadEnd()) return IoError(hf->GetErrorText());
  return doc;
}

}  // namespace

Result<std::vector<char>> SaveDocumentToMemory(const BaseDocument& doc, Int32 kind) {
  auto hf = HyperFile::OpenWrite(kind);
  hf->SetDocument(const_cast<BaseDocument*>(&doc));
  if (!hf->WriteDocument(doc) || !hf->WriteEnd()) return IoError(hf->GetErrorText());
  return hf->TakeMemory();
}

Result<std::unique_ptr<BaseDocument>> LoadDocumentFromMemory(const char* bytes, Int64 size,
                                                             const ThreadRef& thread) {
  return ReadDocument(bytes, size, thread, false);
}

Result<void> SaveDocumentThrough(BaseDocument* doc, const String& path, const ThreadRef& thread,
                                 const std::function<Result<void>(std::FILE* file)>& write) {
  if (!doc) return NullptrError("no document to save");
  auto out = AtomicFile::Open(path);
  if (!out) return out.GetError();

  const String target = Absolute(path);
  const String current =
      doc->GetDocumentPath().empty() ? String() : Absolute(doc->GetDocumentPath() + "/" + doc->GetDocumentName());
  const bool saveAs = current != target;
  DocumentInfoData info;
  info.type = saveAs ? DOCUMENTINFO_TYPE_SAVEAS_BEFORE : DOCUMENTINFO_TYPE_SAVE_BEFORE;
  info.subType = DOCUMENTINFO_SUBTYPE_SCENEFILE;
  info.doc = doc;
  info.url = target;
  String refusedBy;
  const bool prepared = BroadcastDocumentInfo(doc, info, &refusedBy);

  Result<void> result = OK();
  if (!prepared) {
    result = IoError("could not save " + path + ": the scene hook " + refusedBy + " refused the save");
  } else {
    result = write(out->GetFile());
    if (result && thread && thread->TestBreak()) result = IllegalStateError("interrupted");
    if (result) result = out->Commit(true);
  }
  out->Discard();

  // The end of the save reaches the hooks whatever happened, so that they let
  // go of what they prepared.
  info.type = saveAs ? DOCUMENTINFO_TYPE_SAVEAS_AFTER : DOCUMENTINFO_TYPE_SAVE_AFTER;
  BroadcastDocumentInfo(doc, info, &refusedBy);
  if (!result) return result;
  const std::filesystem::path t(target);
  doc->SetDocumentPath(t.parent_path().string());
  doc->SetDocumentName(t.filename().string());
  return OK();
}

Result<void> SaveDocument(BaseDocument* doc, const String& path, const ThreadRef& thread) {
  return SaveDocumentThrough(doc, path, thread, [&](std::FILE* file) -> Result<void> {
    auto hf = HyperFile::OpenWrite(HYPERFILE_KIND_SCENE, ::fileno(file));
    hf->SetDocument(doc);
    hf->SetThread(thread);
    if (!hf->WriteDocument(*doc) || !hf->WriteEnd()) return IoError("could not save " + path + ": " + hf->GetErrorText());
    return OK();
  });
}

Result<std::vector<char>> ReadWholeFile(const String& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    if (errno == ENOENT) return IoError("File could not be found: " + path);
    return IoError("could not read " + path + ": " + std::strerror(errno));
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    return IoError(path + " is not a file");
  }
  std::vector<char> bytes;
  try {
    bytes.resize(size_t(st.st_size));
  } catch (const std::bad_alloc&) {
    ::close(fd);
    return OutOfMemoryError("out of memory reading " + path);
  }
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = ::read(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += size_t(n);
  }
  ::close(fd);
  bytes.resize(done);
  return bytes;
}

void FinishLoadedDocument(BaseDocument* d, const String& path) {
  const std::filesystem::path t(Absolute(path));
  d->SetDocumentPath(t.parent_path().string());
  d->SetDocumentName(t.filename().string());
  DocumentInfoData info;
  info.type = DOCUMENTINFO_TYPE_LOAD_AFTER;
  info.subType = DOCUMENTINFO_SUBTYPE_SCENEFILE;
  info.doc = d;
  info.url = t.string();
  String ignored;
  BroadcastDocumentInfo(d, info, &ignored);
}

Result<std::unique_ptr<BaseDocument>> LoadDocument(const String& path, const ThreadRef& thread) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    if (errno == ENOENT) return IoError("File could not be found: " + path);
    return IoError("could not read " + path + ": " + std::strerror(errno));
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    return IoError(path + " is not a file");
  }
  // The whole file in memory, uninitialised until read: reading is then a walk over bytes.
  const Int64 size = Int64(st.st_size);
  std::unique_ptr<char[]> bytes(new (std::nothrow) char[size_t(std::max<Int64>(size, 1))]);
  if (!bytes) {
    ::close(fd);
    return OutOfMemoryError("out of memory reading " + path);
  }
  Int64 done = 0;
  while (done < size) {
    const ssize_t n = ::read(fd, bytes.get() + done, size_t(size - done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += n;
  }
  ::close(fd);
  auto doc = ReadDocument(bytes.get(), done, thread, true);
  if (!doc) return Error(doc.GetError().GetKind(), path + ": " + doc.GetError().GetMessage());
  FinishLoadedDocument(doc.GetValue().get(), path);
  return doc;
}

}  // namespace zta

// libFuzzer target: the JSON scene reader on any text. Each input must give a
// document or one error line, never a crash, a leak or undefined behaviour. A
// document that loads must write as JSON and read back to the same text, and
// say the same in the native form. Mesh files are not read. Built and run by
// "./zv fuzz scenejson [SECONDS]", not by the tests.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "host/scene/basedocument.h"
#include "host/scene/hyperfile.h"
#include "host/scene/scenefile.h"
#include "host/scene/scenejson.h"

namespace {
[[noreturn]] void Fail(const char* what, const std::string& detail) {
  std::fprintf(stderr, "%s: %s\n", what, detail.c_str());
  std::abort();
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zta::SceneJsonReadOptions options;
  options.readFiles = false;
  const std::string text(reinterpret_cast<const char*>(data), size);
  auto doc = zta::LoadDocumentJsonFromString(text, options);
  if (!doc) {
    const std::string& message = doc.GetError().GetMessage();
    if (message.empty() || message.find('\n') != std::string::npos) Fail("an error that is not one line", message);
    return 0;
  }
  auto first = zta::SaveDocumentJsonToString(*doc.GetValue(), zta::HYPERFILE_KIND_MEMORY);
  // Text inside embedded native data need not be UTF-8, which JSON text must be.
  if (!first && first.GetError().GetMessage().find("not valid UTF-8") != std::string::npos) return 0;
  if (!first) Fail("a loaded document could not be written as JSON", first.GetError().GetMessage());
  auto again = zta::LoadDocumentJsonFromString(first.GetValue(), options);
  if (!again) Fail("written JSON could not be read", again.GetError().GetMessage());
  auto second = zta::SaveDocumentJsonToString(*again.GetValue(), zta::HYPERFILE_KIND_MEMORY);
  if (!second || second.GetValue() != first.GetValue()) Fail("JSON written again differs", "");

  // The native form says the same.
  auto native = zta::SaveDocumentToMemory(*again.GetValue(), zta::HYPERFILE_KIND_MEMORY);
  if (!native) Fail("a loaded document could not be saved natively", native.GetError().GetMessage());
  auto fromNative = zta::LoadDocumentFromMemory(native.GetValue().data(), zta::Int64(native.GetValue().size()));
  if (!fromNative) Fail("a native copy could not be loaded", fromNative.GetError().GetMessage());
  auto third = zta::SaveDocumentJsonToString(*fromNative.GetValue(), zta::HYPERFILE_KIND_MEMORY);
  if (!third || third.GetValue() != first.GetValue()) Fail("the native copy says something else", "");
  return 0;
}

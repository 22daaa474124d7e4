// libFuzzer target: the native scene reader on any bytes. Each input must
// give a document or an error, never a crash, a leak or undefined behaviour;
// and a document that loads must save, and load again to the same bytes.
// Built and run by "./zv fuzz scenefile [SECONDS]", not by the tests.
#include <cstdint>
#include <cstdlib>
#include <cstdio>

#include "host/scene/basedocument.h"
#include "host/scene/hyperfile.h"
#include "host/scene/scenefile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto doc = zta::LoadDocumentFromMemory(reinterpret_cast<const char*>(data), zta::Int64(size));
  if (!doc) {
    // Every refusal names the byte where it happened.
    if (doc.GetError().GetMessage().rfind("byte ", 0) != 0) {
      std::fprintf(stderr, "error without a byte offset: %s\n", doc.GetError().GetMessage().c_str());
      std::abort();
    }
    return 0;
  }
  auto first = zta::SaveDocumentToMemory(*doc.GetValue(), zta::HYPERFILE_KIND_MEMORY);
  if (!first) {
    std::fprintf(stderr, "a loaded document could not be saved: %s\n", first.GetError().GetMessage().c_str());
    std::abort();
  }
  auto again = zta::LoadDocumentFromMemory(first.GetValue().data(), zta::Int64(first.GetValue().size()));
  if (!again) {
    std::fprintf(stderr, "a saved document could not be loaded: %s\n", again.GetError().GetMessage().c_str());
    std::abort();
  }
  auto second = zta::SaveDocumentToMemory(*again.GetValue(), zta::HYPERFILE_KIND_MEMORY);
  if (!second || second.GetValue() != first.GetValue()) {
    std::fprintf(stderr, "saving a loaded document again gave other bytes\n");
    std::abort();
  }
  return 0;
}

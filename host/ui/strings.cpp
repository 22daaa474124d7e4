#include "host/ui/strings.h"

#include <atomic>

#include "host/scene/description.h"

namespace zta {

namespace {
std::atomic<const StringResource*> g_strings{nullptr};
}  // namespace

void SetModuleStrings(const StringResource* strings) {
  g_strings.store(strings);
  // The module's descriptions lie beside its strings.
  SetModuleResourceFolder(strings ? strings->GetFolder() : String());
}

String LoadString(Int32 id) {
  const StringResource* s = g_strings.load();
  return s ? s->Get(id) : String();
}

String LoadString(Int32 id, const String& p1, const String& p2) {
  String text = LoadString(id);
  const String* params[] = {&p1, &p2};
  size_t at = 0;
  for (const String* p : params) {
    const size_t hash = text.find('#', at);
    if (hash == String::npos) break;
    text.replace(hash, 1, *p);
    at = hash + p->size();
  }
  return text;
}

}  // namespace zta

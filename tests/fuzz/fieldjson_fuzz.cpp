// libFuzzer target: the field layers of the JSON scene form. Each input is the
// value of a field object's "FIELDOBJECT_FIELDS" in a scene with a spline the
// layers may link to; it gives a scene or one error line, and the layers of a
// scene that loads sample without failing, never a crash, a leak or undefined
// behaviour. Built and run by "./zv fuzz fieldjson [SECONDS]", not by the tests.
#include <cmath>

#include "host/fields/fieldlist.h"
#include "host/objects/fieldobjects.h"
#include "host/scene/basedocument.h"
#include "host/scene/scenejson.h"
#include "tests/fuzz/fuzzfile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string fields(reinterpret_cast<const char*>(data), size);
  const std::string text = R"({"format": "zelmar-scene", "version": 1, "objects": [
    {"type": "Ospline", "name": "path", "points": [[0, 0, 0], [100, 50, 0], [200, 0, 50]], "segments": [[3, false]]},
    {"type": "Ofield", "name": "falloff", "parameters": {"FIELDOBJECT_FIELDS": )" + fields + "}}]}";
  zta::SceneJsonReadOptions options;
  options.readFiles = false;
  auto doc = zta::LoadDocumentJsonFromString(text, options);
  if (!doc) {
    zvfuzz::CheckOneLine(doc.GetError().GetMessage());
    return 0;
  }
  const zta::BaseObject* field = doc.GetValue()->GetFirstObject();
  if (field) field = field->GetNext();
  if (!field) zvfuzz::Fail("the field object is gone", "");
  const auto list = field->GetDataInstance()->GetCustomDataTyped<zta::FieldList>(zta::FIELDOBJECT_FIELDS);
  if (!list) return 0;
  const zta::FieldList resolved = list->Resolve(doc.GetValue().get());
  const zta::Vector at[] = {{0, 0, 0}, {50, 25, -10}, {-1e3, 7, 1e3}, {1e-9, -1e-9, 3}};
  zta::FieldOutput out;
  auto sampled = zta::SampleField(resolved, zta::FieldInput(at, 4), out, zta::FIELDSAMPLE_FLAG_VALUE | zta::FIELDSAMPLE_FLAG_DIRECTION);
  if (!sampled) zvfuzz::Fail("sampling failed", sampled.GetError().GetMessage());
  if (out.values.size() != 4) zvfuzz::Fail("a sample is missing", "");
  return 0;
}

// Field lists from Python and the tools that sample them: volumes over a box
// and masks over a reference's active voxels. A list is written in the same
// readable form as the field layers of a JSON scene, so a list copied out of
// a scene file and one built in a script are the same list.
#include <map>

#include "bridge.h"
#include "host/scene/basedocument.h"
#include "host/scene/baseobject.h"
#include "host/scene/scenejson.h"
#include "host/scene/scenejsonio.h"

namespace zvpy {

// From the scene binding.
std::shared_ptr<zta::BaseDocument> DocumentOf(const py::handle& obj);
std::string ObjectPath(const zta::BaseObject* op);

namespace {

// Objects of a document by path; a path that two objects share names neither.
std::map<std::string, zta::BaseObject*> ObjectsByPath(const zta::BaseDocument& doc) {
  std::map<std::string, zta::BaseObject*> out;
  std::vector<zta::BaseObject*> stack;
  for (auto* op = doc.GetFirstObject(); op; op = op->GetNext()) stack.push_back(op);
  while (!stack.empty()) {
    auto* op = stack.back();
    stack.pop_back();
    auto [it, fresh] = out.emplace(ObjectPath(op), op);
    if (!fresh) it->second = nullptr;
    for (auto* c = op->GetDown(); c; c = c->GetNext()) stack.push_back(c);
  }
  return out;
}

// Links of a list read from Python: object paths need the document they
// name objects of; node ids ("#id") and {"missing": id} are taken as they are.
class ListReadContext final : public zta::SceneJsonReadContext {
 public:
  explicit ListReadContext(const zta::BaseDocument* doc) : doc_(doc) {
    if (doc_) paths_ = ObjectsByPath(*doc_);
  }

  zta::BaseLink Link(const zta::Json& j, const zta::String& path) override {
    if (j.is_null()) return {};
    if (j.is_object()) {
      zta::CheckJsonKeys(j, path, {"missing"});
      if (!j.contains("missing")) zta::ThrowJson(path, "expected a link: an object path, \"#id\", {\"missing\": id} or null");
      return zta::BaseLink::FromMarker(Marker(j["missing"], path));
    }
    if (!j.is_string()) zta::ThrowJson(path, "expected a link: an object path, \"#id\", {\"missing\": id} or null");
    const std::string text = j.get<std::string>();
    if (!text.empty() && text[0] == '#') {
      try {
        size_t used = 0;
        const zta::UInt64 marker = std::stoull(text.substr(1), &used);
        if (used == text.size() - 1 && marker != 0) return zta::BaseLink::FromMarker(marker);
      } catch (const std::exception&) {
      }
      zta::ThrowJson(path, "'" + text + "' is not a node id");
    }
    if (!doc_) zta::ThrowJson(path, "the link names '" + text + "'; links by object path need the document: FieldList(layers, document=doc)");
    auto it = paths_.find(text);
    if (it == paths_.end()) zta::ThrowJson(path, "the link names '" + text + "', which is no object of the document");
    if (!it->second) zta::ThrowJson(path, "the link names '" + text + "', which more than one object has as its path");
    return zta::BaseLink(it->second);
  }
  zta::GeData Value(const zta::Json&, const zta::String& path) override {
    zta::ThrowJson(path, "a field list holds no values of other types");
  }
  const zta::SceneJsonReadOptions& GetOptions() const override { return options_; }
  const zta::ThreadRef& GetThread() const override { return thread_; }
  zta::Float GetUnitMeters() const override { return 1.0; }

 private:
  static zta::UInt64 Marker(const zta::Json& j, const zta::String& path) {
    if (!j.is_number_unsigned() || j.get<zta::UInt64>() == 0) zta::ThrowJson(zta::JsonKey(path, "missing"), "expected a node id");
    return j.get<zta::UInt64>();
  }

  const zta::BaseDocument* doc_;
  std::map<std::string, zta::BaseObject*> paths_;
  zta::SceneJsonReadOptions options_;
  zta::ThreadRef thread_;
};

// Links as object paths when the document is known and the path is the
// object's alone, as node ids otherwise.
class ListWriteContext final : public zta::SceneJsonWriteContext {
 public:
  explicit ListWriteContext(const zta::BaseDocument* doc) : doc_(doc) {
    if (doc_) paths_ = ObjectsByPath(*doc_);
  }
  zta::Json Link(const zta::BaseLink& link) const override {
    if (link.IsEmpty()) return nullptr;
    if (doc_) {
      if (auto* op = dynamic_cast<zta::BaseObject*>(link.GetLink(doc_))) {
        const std::string path = ObjectPath(op);
        auto it = paths_.find(path);
        if (it != paths_.end() && it->second == op) return path;
      }
    }
    return "#" + std::to_string(link.GetMarker());
  }
  zta::Json Value(const zta::GeData&) const override { return nullptr; }

 private:
  const zta::BaseDocument* doc_;
  std::map<std::string, zta::BaseObject*> paths_;
};

PyFieldList FieldListFromPython(const py::handle& layers, const py::handle& document) {
  std::shared_ptr<zta::BaseDocument> doc;
  if (!document.is_none()) {
    doc = DocumentOf(document);
    if (!doc) throw py::type_error("document must be a zelmar.Document or a SceneObject of one");
  }
  // The readable form as text: a JSON string as it is, lists and dicts
  // through Python's json, which refuses what JSON cannot say.
  std::string text;
  if (py::isinstance<py::str>(layers)) {
    text = layers.cast<std::string>();
  } else if (py::isinstance<py::list>(layers) || py::isinstance<py::tuple>(layers)) {
    try {
      text = py::module_::import("json").attr("dumps")(layers, py::arg("allow_nan") = false).cast<std::string>();
    } catch (py::error_already_set& e) {
      throw py::value_error("the layers are not expressible as JSON: " + std::string(py::str(e.value())));
    }
  } else {
    throw py::type_error("layers must be a list of layer dicts or their JSON text, got " +
                         std::string(py::str(layers.get_type().attr("__name__"))));
  }
  zta::Json j;
  try {
    j = zta::Json::parse(text);
  } catch (const std::exception& e) {
    throw py::value_error(std::string("the layers are not valid JSON: ") + e.what());
  }
  ListReadContext ctx(doc.get());
  std::unique_ptr<zta::CustomDataType> data;
  try {
    data = zta::HostCustomDataFromJson("fieldlist", j, "layers", ctx);
  } catch (const zta::SceneJsonError& e) {
    throw py::value_error(e.path + ": " + e.what);
  }
  auto* list = dynamic_cast<zta::FieldList*>(data.get());
  if (!list) throw py::value_error("the layers do not make a field list");
  PyFieldList out;
  // Linked layers stand where their objects stand now.
  out.fields = std::make_shared<zta::FieldList>(doc ? list->Resolve(doc.get()) : *list);
  return out;
}

py::object FieldListToPython(const PyFieldList& list, const py::handle& document) {
  std::shared_ptr<zta::BaseDocument> doc;
  if (!document.is_none()) {
    doc = DocumentOf(document);
    if (!doc) throw py::type_error("document must be a zelmar.Document or a SceneObject of one");
  }
  ListWriteContext ctx(doc.get());
  zta::String name;
  zta::Json out;
  if (!zta::HostCustomDataToJson(*list.fields, ctx, &name, &out)) throw std::runtime_error("the field list has no readable form");
  return py::module_::import("json").attr("loads")(out.dump());
}

// A FieldList, or its readable form.
PyFieldList FieldsArg(const py::handle& fields) {
  if (py::isinstance<PyFieldList>(fields)) return fields.cast<PyFieldList>();
  if (py::isinstance<py::list>(fields) || py::isinstance<py::tuple>(fields) || py::isinstance<py::str>(fields))
    return FieldListFromPython(fields, py::none());
  throw py::type_error("fields must be a zelmar.FieldList or a list of layer dicts, got " +
                       std::string(py::str(fields.get_type().attr("__name__"))));
}

// The record the tools sample through. Layers are placed in the scene's
// frame and volumes here stand in the file's, so each layer is seen through
// the mirror: values land where the scene has them, and directions come out
// in the file's axes.
zelmar::FieldSampleData SampleDataOf(const PyFieldList& list) {
  auto mirrored = std::make_shared<zta::FieldList>(*list.fields);
  const zta::Matrix s = zta::MatrixScale({1, 1, -1});
  for (zta::Int32 i = 0; i < mirrored->GetLayerCount(); ++i) {
    zta::FieldLayer* layer = mirrored->GetLayerWritable(i);
    layer->SetMatrix(s * layer->GetMatrix());
  }
  zelmar::FieldSampleData data;
  data.fields = std::move(mirrored);
  return data;
}

// The number of voxels the tool fills for a world box under a transform: the
// index box of the box's corners, as the tool takes it.
double VoxelsOfBox(const zta::Matrix& indexToWorld, const zta::Vector& lo, const zta::Vector& hi) {
  const zta::Matrix inv = indexToWorld.GetInverse();
  double count = 1.0;
  const zta::Vector a = inv.TransformPoint(lo), b = inv.TransformPoint(hi) + zta::Vector(1.0);
  for (int k = 0; k < 3; ++k) count *= std::abs(std::trunc(b[k]) - std::trunc(a[k])) + 1.0;
  return count;
}

}  // namespace

void BindFields(py::module_& m) {
  auto cls = py::reinterpret_borrow<py::class_<PyFieldList>>(m.attr("FieldList"));
  cls.def(py::init(&FieldListFromPython), py::arg("layers"), py::kw_only(), py::arg("document") = py::none(),
          "A field list from its readable form: a list of layer dicts (top layer first), as a JSON scene writes\n"
          "them, or that JSON as text. Links by object path need the document they name objects of.")
      .def("to_json", &FieldListToPython, py::kw_only(), py::arg("document") = py::none(),
           "The readable form: a list of layer dicts, links as object paths of the document given, else as \"#id\".")
      .def("__len__", [](const PyFieldList& l) { return l.fields->GetLayerCount(); })
      .def("__eq__", [](const PyFieldList& a, const py::object& b) {
        return py::isinstance<PyFieldList>(b) && a.fields->IsEqual(*b.cast<PyFieldList&>().fields);
      })
      .def("__repr__", [](const PyFieldList& l) {
        return "<zelmar.FieldList " + std::to_string(l.fields->GetLayerCount()) + " layer(s)>";
      });

  m.def(
      "fields_to_volume",
      [](const py::object& fields, const py::object& box, const py::object& voxelSize, const std::shared_ptr<PyVolume>& reference,
         const py::object& transform, bool vector, const ProgressCallback& progress) {
        const PyFieldList list = FieldsArg(fields);
        zelmar::Volume ref;
        if (reference) ref = reference->GetGrid("reference");
        std::optional<zta::Matrix> creation;
        if (!transform.is_none()) {
          creation = ArrayToMatrix(transform, "transform");
          if (std::abs(zta::Dot(creation->v1, zta::Cross(creation->v2, creation->v3))) < 1e-300) throw py::value_error("transform must not be singular");
        }
        double gridSize = 0.0;
        if (!voxelSize.is_none()) {
          gridSize = As<double>(voxelSize, "a number as voxel_size");
          if (!std::isfinite(gridSize) || gridSize <= 0) throw py::value_error("voxel_size must be a positive number");
        }
        const int given = int(bool(reference)) + int(creation.has_value()) + int(!voxelSize.is_none());
        if (given != 1) throw py::value_error("give exactly one of voxel_size, transform and reference");
        zta::Vector lo, hi;
        if (box.is_none()) {
          if (!reference) throw py::value_error("give a box [[min x, y, z], [max x, y, z]], or a reference to cover");
          // The reference's active region, its outer faces included.
          py::object wb = py::cast(reference).attr("world_bbox");
          if (wb.is_none()) throw py::value_error("the reference has no active voxels; give a box");
          auto b = RequirePoints(wb, "reference box");
          lo = {b.at(0, 0), b.at(0, 1), b.at(0, 2)};
          hi = {b.at(1, 0), b.at(1, 1), b.at(1, 2)};
        } else {
          // Numbers of any kind: a box is world positions whatever the dtype.
          auto asArray = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(box);
          if (!asArray) {
            PyErr_Clear();
            throw py::type_error("box must be [[min x, y, z], [max x, y, z]] as numbers");
          }
          auto b = RequirePoints(asArray, "box");
          if (b.shape(0) != 2) throw py::value_error("box must be [[min x, y, z], [max x, y, z]]");
          lo = {b.at(0, 0), b.at(0, 1), b.at(0, 2)};
          hi = {b.at(1, 0), b.at(1, 1), b.at(1, 2)};
          for (int k = 0; k < 3; ++k)
            if (hi[k] < lo[k]) throw py::value_error("the box's maximum must not be below its minimum");
        }
        const zta::Matrix indexToWorld = reference ? ref.GetGridTransform() : creation ? *creation : zta::MatrixScale(zta::Vector(gridSize));
        // Every voxel of the box is sampled and stored.
        const double voxels = VoxelsOfBox(indexToWorld, lo, hi);
        if (voxels > 2e9)
          throw py::value_error("the box holds " + std::to_string(int64_t(voxels)) + " voxels; give a larger voxel size or a smaller box");
        const zelmar::FieldSampleData data = SampleDataOf(list);
        const zelmar::BoundingBox sampleBox{lo, hi};
        return std::make_shared<PyVolume>(RunReleasedResult<zelmar::Volume>([&](const zta::ThreadRef& t) {
          const zta::Matrix* m = creation ? &*creation : nullptr;
          return vector ? zelmar::VolumeToolsInterface::ConvertFieldsToVectorVolume(data, gridSize, sampleBox, t, ref, m)
                        : zelmar::VolumeToolsInterface::ConvertFieldsToVolume(data, gridSize, sampleBox, t, ref, m);
        }, progress));
      },
      py::arg("fields"), py::arg("box") = py::none(), py::kw_only(), py::arg("voxel_size") = py::none(),
      py::arg("reference") = py::none(), py::arg("transform") = py::none(), py::arg("vector") = false,
      py::arg("progress") = nullptr,
      "The fields' values (or with vector, their directions) sampled at every voxel of a world box [[min], [max]].\n"
      "The voxels are those of voxel_size, of an index-to-world transform (4x4), or of a reference volume; with a\n"
      "reference and no box, the box around the reference's active values. fields: a FieldList or its layers.");

  m.def(
      "mask_from_field",
      [](const py::object& fields, const std::shared_ptr<PyVolume>& reference, double background,
         const ProgressCallback& progress) {
        const PyFieldList list = FieldsArg(fields);
        if (!reference) throw py::type_error("reference must be a Volume, got None");
        const zelmar::Volume ref = reference->GetGrid("reference");
        if (!std::isfinite(background)) throw py::value_error("background must be finite");
        const zelmar::FieldSampleData data = SampleDataOf(list);
        return std::make_shared<PyVolume>(RunReleasedResult<zelmar::Volume>([&](const zta::ThreadRef& t) {
          return zelmar::VolumeToolsInterface::CreateMaskFromField(data, ref, background, t);
        }, progress));
      },
      py::arg("fields"), py::arg("reference"), py::arg("background") = 0.0, py::kw_only(), py::arg("progress") = nullptr,
      "A float volume active where the reference is (tiles as voxels), holding the fields' values there;\n"
      "elsewhere the background. fields: a FieldList or its layers.");
}

}  // namespace zvpy

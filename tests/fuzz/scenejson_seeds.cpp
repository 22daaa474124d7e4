// Writes the seed corpus of the JSON scene fuzzer: the example scenes of the
// project and small scenes of every host object type, tag and custom type.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "host/fields/fieldlist.h"
#include "host/fields/splinedata.h"
#include "host/objects/fieldobjects.h"
#include "host/objects/particles.h"
#include "host/objects/phongtag.h"
#include "host/objects/polygonobject.h"
#include "host/objects/splineobject.h"
#include "host/objects/uvwtag.h"
#include "host/objects/vertexmaptag.h"
#include "host/scene/basedocument.h"
#include "host/scene/checklist.h"
#include "host/scene/hyperfile.h"
#include "host/scene/itemtree.h"
#include "host/scene/scenejson.h"

using namespace zta;

namespace {

BaseObject* Insert(BaseDocument& doc, std::unique_ptr<BaseObject> op, const char* name, BaseObject* parent = nullptr) {
  BaseObject* p = op.release();
  p->SetName(name);
  p->InsertUnderLast(parent ? static_cast<GeListNode*>(parent) : doc.GetObjectListHead());
  return p;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s CORPUS_FOLDER EXAMPLES_FOLDER\n", argv[0]);
    return 2;
  }
  const std::string dir = argv[1];
  std::error_code ec;
  for (const auto& e : std::filesystem::directory_iterator(argv[2], ec))
    if (e.path().extension() == ".json") std::filesystem::copy_file(e.path(), dir + "/" + e.path().filename().string(),
                                                                    std::filesystem::copy_options::overwrite_existing, ec);

  auto doc = BaseDocument::Alloc();
  BaseObject* group = Insert(*doc, BaseObject::Alloc(HOST_TYPE_NULL), "group");
  group->SetMl(MatrixMove(Vector(1, 2, 3)));
  auto mesh = PolygonObject::Alloc(4, 2);
  mesh->GetPolygonW()[0] = CPolygon(0, 1, 2);
  mesh->GetPolygonW()[1] = CPolygon(0, 1, 2, 3);
  mesh->InsertTag(UVWTag::Alloc(2).release());
  mesh->InsertTag(VertexMapTag::Alloc(4).release());
  mesh->InsertTag(PhongTag::Alloc().release());
  BaseObject* meshOp = Insert(*doc, std::move(mesh), "mesh", group);
  auto spline = SplineObject::Alloc(3, SPLINETYPE::CUBIC);
  spline->SetSegments({{1, false}, {2, true}});
  Insert(*doc, std::move(spline), "spline", group);
  Insert(*doc, BaseObject::Alloc(HOST_TYPE_SPHERE), "sphere");
  auto particles = ParticleGroupObject::Alloc();
  particles->SetParticles({{0, 0, 0}}, {1.0}, {{0, 1, 0}});
  Insert(*doc, std::move(particles), "particles");
  FieldList fields;
  auto layer = std::make_unique<SphericalFieldLayer>(1.0, 0.5);
  layer->SetLinkedObject(meshOp);
  fields.InsertLayer(std::move(layer));
  fields.InsertLayer(std::make_unique<NoiseFieldLayer>(2.0, 3));
  auto field = FieldObject::Alloc(HOST_TYPE_FIELD_OBJECT);
  field->SetFieldList(fields);
  BaseObject* fieldOp = Insert(*doc, std::move(field), "field");
  BaseContainer* bc = fieldOp->GetDataInstance();
  bc->SetLink(1, meshOp);
  bc->SetCustomData(2, SplineData::MakeLinear());
  BaseContainer inner;
  inner.SetString(1, "text");
  inner.SetTime(2, BaseTime(1, 3));
  inner.SetMatrix(3, MatrixRotX(0.5));
  inner.SetInt64(4, Int64(1) << 40);
  bc->SetContainer(3, inner);
  auto tree = std::make_shared<ItemTree>();
  ItemTreeItem* row = tree->InsertItem(nullptr, nullptr, TREEITEM_CHECKED, GeData(BaseContainer()), meshOp);
  tree->InsertItem(row, nullptr, 0, GeData(Int32(2)), group);
  bc->SetCustomData(4, tree);
  auto checks = std::make_shared<CheckListData>();
  checks->SetEntries({"a", "b"});
  bc->SetCustomData(5, checks);
  for (Int32 kind : {HYPERFILE_KIND_SCENE, HYPERFILE_KIND_MEMORY}) {
    auto text = SaveDocumentJsonToString(*doc, kind);
    if (text) std::ofstream(dir + "/scene" + std::to_string(kind) + ".json") << text.GetValue();
  }
  return 0;
}

// Writes the seed corpus of the scene file fuzzer: small scenes of every host
// object type, tag and custom data type, in each file kind.
#include <cstdio>
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
#include "host/scene/hyperfile.h"
#include "host/scene/scenefile.h"

using namespace zta;

namespace {

void Write(const std::string& dir, const std::string& name, const BaseDocument& doc, Int32 kind) {
  auto bytes = SaveDocumentToMemory(doc, kind);
  if (!bytes) return;
  std::ofstream(dir + "/" + name, std::ios::binary).write(bytes.GetValue().data(), std::streamsize(bytes.GetValue().size()));
}

BaseObject* Insert(BaseDocument& doc, std::unique_ptr<BaseObject> op, const char* name, BaseObject* parent = nullptr) {
  BaseObject* p = op.release();
  p->SetName(name);
  if (parent) p->InsertUnderLast(parent);
  else p->InsertUnderLast(doc.GetObjectListHead());
  return p;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s CORPUS_FOLDER\n", argv[0]);
    return 2;
  }
  const std::string dir = argv[1];
  auto empty = BaseDocument::Alloc();
  Write(dir, "empty.zscene", *empty, HYPERFILE_KIND_SCENE);

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
  bc->SetContainer(3, inner);
  Write(dir, "scene.zscene", *doc, HYPERFILE_KIND_SCENE);
  Write(dir, "undo.zscene", *doc, HYPERFILE_KIND_UNDO);
  return 0;
}

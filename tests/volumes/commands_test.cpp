// Volume commands: registration, the data class, each command against the
// operator it calls, the boole fold, stop requests and failures, and the
// volume object that carries results.
#include <gtest/gtest.h>
#include <openvdb/openvdb.h>

#include <cmath>

#include "host/fields/fieldlist.h"
#include "host/fields/splinedata.h"
#include "host/objects/fieldobjects.h"
#include "host/objects/particles.h"
#include "host/objects/polygonobject.h"
#include "host/objects/splineobject.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/pointstovolume.h"
#include "zelmar/volumeaccessors.h"
#include "zelmar/volumecommands.h"
#include "zelmar/volumeiterators.h"
#include "zelmar/volumetools.h"

using namespace zelmar;
using zta::COMMANDRESULT;
using zta::Matrix;
using zta::Vector;

namespace {

Volume Sphere(double radius, const Vector& centre, double voxel = 0.1) {
  auto r = VolumeToolsInterface::CreateSphereVolume(radius, centre, voxel, 3, nullptr, nullptr);
  EXPECT_TRUE(r);
  return *r;
}

std::unique_ptr<VolumeCommandData> NewData() {
  auto r = zta::CreateCommandData(kVolumeCommandDataClass);
  EXPECT_TRUE(r);
  return std::unique_ptr<VolumeCommandData>(static_cast<VolumeCommandData*>(r->release()));
}

std::unique_ptr<zta::BaseObject> VolumeObject(const Volume& v) {
  auto r = CreateVolumeObject(v);
  EXPECT_TRUE(r);
  return std::move(r.GetValue());
}

// Input objects kept alive for a run.
struct Inputs {
  std::vector<std::unique_ptr<zta::BaseObject>> objects;
  void AddVolume(const Volume& v) { objects.push_back(VolumeObject(v)); }
  void Fill(zta::LegacyCommandDataInterface& data) const {
    for (const auto& o : objects) data.AddInput(o.get());
  }
};

std::string Invoke(const char* id, zta::LegacyCommandDataInterface& data, const zta::ThreadRef& thread = nullptr) {
  auto r = zta::InvokeCommand(id, data, thread);
  if (!r) return r.GetError().GetMessage();
  switch (*r) {
    case COMMANDRESULT::OK: return "ok";
    case COMMANDRESULT::SKIP: return "skip";
    case COMMANDRESULT::BREAK: return "break";
  }
  return "?";
}

// Same type, class, transform, active voxels and values: a walk over one
// volume's values read back through an accessor on the other.
template <typename T = float>
void ExpectSameVolume(const Volume& a, const Volume& b) {
  ASSERT_TRUE(a.HasGrid());
  ASSERT_TRUE(b.HasGrid());
  EXPECT_EQ(a.GetGridType(), b.GetGridType());
  EXPECT_EQ(a.GetGridClass(), b.GetGridClass());
  EXPECT_EQ(a.GetGridTransform(), b.GetGridTransform());
  EXPECT_EQ(a.GetActiveVoxelCount(), b.GetActiveVoxelCount());
  auto walk = *GridIteratorCreationImpl::Create<T>(GRIDITERATORTYPE::ACTIVE);
  auto other = *GridAccessorCreationImpl::Create<T>();
  ASSERT_TRUE(walk->Init(a));
  ASSERT_TRUE(other->Init(b, VOLUMESAMPLER::NEAREST));
  int64_t differing = 0;
  for (; walk->IsValid(); walk->MoveNext()) {
    if (!(other->GetValueIntVector32(walk->GetCoords()) == walk->GetValue()) ||
        !other->GetActiveState(walk->GetCoords()))
      ++differing;
  }
  EXPECT_EQ(differing, 0);
}

Volume OnlyResult(const VolumeCommandData& data) {
  EXPECT_EQ(data.GetOutputCount(), 1);
  EXPECT_EQ(data.GetLegacyDataCount(), 1);
  return GetObjectVolume(data.GetOutput(0));
}

}  // namespace

TEST(VolumeCommands, AreRegisteredWithTheirDataClass) {
  ASSERT_TRUE(RegisterVolumeCommands());
  ASSERT_TRUE(RegisterVolumeCommands());  // again: nothing changes
  const auto& infos = GetVolumeCommandInfos();
  EXPECT_EQ(infos.size(), 14u);
  for (const auto& info : infos) {
    EXPECT_NE(zta::CommandClasses().Find(info.id), nullptr) << info.id;
    EXPECT_EQ(FindVolumeCommandInfo(info.shortName), &info);
    EXPECT_EQ(std::string(info.id), std::string("net.zelmar.command.volumes.") + info.shortName);
  }
  EXPECT_EQ(FindVolumeCommandInfo("nosuch"), nullptr);
  EXPECT_EQ(FindVolumeCommandInfo(kBooleCommand)->FindSetting("type")->key, BOOLE_TYPE);

  auto data = NewData();
  ASSERT_TRUE(data);
  EXPECT_EQ(Invoke("net.zelmar.command.volumes.nosuch", *data), "no command net.zelmar.command.volumes.nosuch is registered");
  EXPECT_FALSE(zta::CreateCommandData("net.zelmar.legacycommanddata.nosuch"));

  // Another data class is refused with words that name the one needed.
  struct OtherData final : zta::LegacyCommandDataInterface {};
  OtherData other;
  EXPECT_EQ(Invoke(kCreateSphereVolumeCommand, other),
            "net.zelmar.command.volumes.createspherevolume needs command data of the class "
            "net.zelmar.legacycommanddata.volumes");
  EXPECT_EQ(other.GetResultState(), COMMANDRESULT::BREAK);
}

TEST(VolumeCommandData, AddressesRecordsByRunningIndex) {
  auto data = NewData();
  EXPECT_EQ(data->GetLegacyDataCount(), 0);
  auto missing = data->GetLegacyData(0);
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.GetError().GetMessage(), "");  // only a source location

  const Volume a = Sphere(1.0, Vector(0, 0, 0));
  EXPECT_EQ(*data->AppendLegacyData({a, 3, {1, 2}}), 0);
  EXPECT_EQ(*data->AppendLegacyData({Volume(), -1, {}}), 1);
  EXPECT_EQ(data->GetLegacyDataCount(), 2);

  ASSERT_TRUE(data->SetLegacyData(1, {a, 7, {4, 5, 6}}));
  auto second = data->GetLegacyData(1);
  ASSERT_TRUE(second);
  EXPECT_EQ(second->volume, a);
  EXPECT_EQ(second->outputIndex, 7);
  EXPECT_EQ(second->inputs, (std::vector<zta::Int32>{4, 5, 6}));

  EXPECT_FALSE(data->SetLegacyData(2, {Volume(), 9, {9}}));  // past the end: nothing changes
  EXPECT_EQ(data->GetLegacyDataCount(), 2);
  EXPECT_EQ(data->GetLegacyData(0)->outputIndex, 3);
  EXPECT_EQ(data->GetResultVolumes().size(), 2u);
}

TEST(VolumeCommands, GiveTheSameResultAsTheOperatorTheyCall) {
  const Volume sphere = Sphere(1.0, Vector(0.05, -0.1, 0.2));
  Inputs in;
  in.AddVolume(sphere);

  {  // createspherevolume, with settings under their keys
    auto data = NewData();
    data->GetSettings().SetFloat(CREATESPHERE_RADIUS, 0.7);
    data->GetSettings().SetVector(CREATESPHERE_POSITION, Vector(1, 2, 3));
    data->GetSettings().SetFloat(CREATESPHERE_GRIDSIZE, 0.05);
    ASSERT_EQ(Invoke(kCreateSphereVolumeCommand, *data), "ok");
    ExpectSameVolume(OnlyResult(*data),
                     *VolumeToolsInterface::CreateSphereVolume(0.7, Vector(1, 2, 3), 0.05, 3, nullptr, nullptr));
    EXPECT_TRUE(data->GetLegacyData(0)->inputs.empty());
  }
  {  // createplatonicvolume with its defaults and a creation transform
    auto data = NewData();
    const Matrix m = zta::MatrixMove(Vector(1, 0, 0)) * zta::MatrixScale(Vector(0.2));
    data->GetSettings().SetMatrix(CREATEPLATONIC_TRANSFORM, m);
    ASSERT_EQ(Invoke(kCreatePlatonicVolumeCommand, *data), "ok");
    ExpectSameVolume(OnlyResult(*data),
                     *VolumeToolsInterface::CreatePlatonicVolume(6, 1.0, Vector(0, 0, 0), 0.1, 3, nullptr, &m));
  }
  {  // sdffilter
    auto data = NewData();
    in.Fill(*data);
    data->GetSettings().SetInt32(SDFFILTER_TYPE, int32_t(SDFFILTERTYPE::DILATE));
    data->GetSettings().SetFloat(SDFFILTER_OFFSET, 0.2);
    ASSERT_EQ(Invoke(kSdfFilterCommand, *data), "ok");
    SDFFilterSettings s;
    s.filterType = SDFFILTERTYPE::DILATE;
    s.offset = 0.2f;
    ExpectSameVolume(OnlyResult(*data),
                     *VolumeToolsInterface::ApplySDFFilterToVolume(sphere, s, nullptr, Volume(), nullptr));
  }
  {  // sdftofog, with its cut-off
    auto data = NewData();
    in.Fill(*data);
    data->GetSettings().SetFloat(SDFTOFOG_CUTOFF, 0.15);
    ASSERT_EQ(Invoke(kSdfToFogCommand, *data), "ok");
    ExpectSameVolume(OnlyResult(*data), *VolumeToolsInterface::ConvertSDFToFog(sphere, 0.15));
  }
  {  // resample to a voxel size on the input's own transform
    auto data = NewData();
    in.Fill(*data);
    data->GetSettings().SetFloat(RESAMPLE_GRIDSIZE, 0.07);
    data->GetSettings().SetInt32(RESAMPLE_INTERPOLATION, 2);
    ASSERT_EQ(Invoke(kResampleCommand, *data), "ok");
    const Volume out = OnlyResult(*data);
    ExpectSameVolume(out, *VolumeToolsInterface::ResampleVolume(sphere, zta::MatrixScale(Vector(0.07)),
                                                                RESAMPLEINTERPOLATIONTYPE::LINEAR, nullptr));
    EXPECT_NEAR(out.GetGridTransform().v1.x, 0.07, 1e-12);
  }
  {  // fogtosdf, at its iso value
    const Volume fog = *VolumeToolsInterface::ConvertSDFToFog(sphere, 0.3);
    Inputs fogIn;
    fogIn.AddVolume(fog);
    auto data = NewData();
    fogIn.Fill(*data);
    data->GetSettings().SetFloat(FOGTOSDF_ISO, 0.25);
    ASSERT_EQ(Invoke(kFogToSdfCommand, *data), "ok");
    ExpectSameVolume(OnlyResult(*data), *VolumeToolsInterface::ConvertFogToSDF(fog, 0.25, nullptr));
  }
  {  // filter, on a fog volume
    const Volume fog = *VolumeToolsInterface::ConvertSDFToFog(sphere, 0.3);
    Inputs fogIn;
    fogIn.AddVolume(fog);
    auto data = NewData();
    fogIn.Fill(*data);
    data->GetSettings().SetInt32(FILTER_TYPE, int32_t(FILTERTYPE::MULTIPLY));
    data->GetSettings().SetFloat(FILTER_OFFSET, 0.5);
    ASSERT_EQ(Invoke(kFilterCommand, *data), "ok");
    FilterSettings f;
    f.filterType = FILTERTYPE::MULTIPLY;
    f.offset = 0.5f;
    ExpectSameVolume(OnlyResult(*data), *VolumeToolsInterface::ApplyFilterToVolume(fog, f, nullptr, Volume(), nullptr));
  }
  {  // meshtovolume: the polygon object where its global matrix puts it
    auto cube = zta::PolygonObject::Alloc(8, 7);
    zta::Vector* p = cube->GetPointW();
    for (int i = 0; i < 8; ++i) p[i] = Vector(i & 1 ? 1 : 0, i & 2 ? 1 : 0, i & 4 ? 1 : 0);
    const zta::CPolygon faces[6] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
    std::copy(faces, faces + 6, cube->GetPolygonW());
    cube->GetPolygonW()[5] = zta::CPolygon(1, 3, 7);  // triangles among the quads
    cube->GetPolygonW()[6] = zta::CPolygon(1, 7, 5);
    cube->SetMg(zta::MatrixMove(Vector(0.5, 0, 0)));
    auto data = NewData();
    data->AddInput(cube.get());
    data->GetSettings().SetFloat(MESHTOVOLUME_GRIDSIZE, 0.1);
    data->GetSettings().SetInt32(MESHTOVOLUME_EXTERIORBAND, 2);
    data->GetSettings().SetBool(MESHTOVOLUME_USEINTERIORDISTANCE, true);
    data->GetSettings().SetFloat(MESHTOVOLUME_INTERIORDISTANCE, 0.35);  // 4 voxels inward
    ASSERT_EQ(Invoke(kMeshToVolumeCommand, *data), "ok");
    std::vector<Vector> vertices;
    for (int i = 0; i < 8; ++i) vertices.push_back(cube->GetMg() * p[i]);
    std::vector<VolumeConversionPolygon> polygons;
    for (int i = 0; i < 7; ++i) {
      const zta::CPolygon& c = cube->GetPolygonR()[i];
      polygons.push_back({uint32_t(c.a), uint32_t(c.b), uint32_t(c.c),
                          c.IsTriangle() ? VolumeConversionPolygon::TRIANGLE : uint32_t(c.d)});
    }
    ExpectSameVolume(OnlyResult(*data),
                     *VolumeToolsInterface::MeshToVolume(vertices, polygons, cube->GetMg(), 0.1, 4, 2, nullptr,
                                                         POLYGONCONVERSIONFLAGS::NONE, nullptr));
    // The moved cube spans x 0.5 .. 1.5 in the world: its faces lie there.
    auto accessor = GridAccessorCreationImpl::Create<float>();
    ASSERT_TRUE(accessor.IsOk());
    ASSERT_TRUE((*accessor)->Init(OnlyResult(*data), VOLUMESAMPLER::LINEAR).IsOk());
    auto sample = [&](double x) { return (*accessor)->GetValueVector(Vector(x, 0.5, 0.5)); };
    EXPECT_NEAR(sample(0.5), 0.0f, 0.02f);
    EXPECT_NEAR(sample(1.5), 0.0f, 0.02f);
    EXPECT_NEAR(sample(0.8), -0.3f, 0.02f);
    EXPECT_NEAR(sample(0.3), 0.2f, 0.02f);  // outside, at the band's edge

    // An object that is no polygon object has no polygons: MeshToVolume's empty level set.
    auto spline = zta::SplineObject::Alloc(2, zta::SPLINETYPE::LINEAR);
    auto data2 = NewData();
    data2->AddInput(spline.get());
    ASSERT_EQ(Invoke(kMeshToVolumeCommand, *data2), "ok");
    std::vector<Vector> none;
    ExpectSameVolume(OnlyResult(*data2), *VolumeToolsInterface::MeshToVolume(none, {}, Matrix(), 0.1, 3, 3, nullptr,
                                                                             POLYGONCONVERSIONFLAGS::NONE, nullptr));
  }
  {  // volumetomesh gives polygon objects, and a record naming the volume meshed
    auto data = NewData();
    in.Fill(*data);
    data->GetSettings().SetFloat(VOLUMETOMESH_ADAPTIVITY, 0.2);
    ASSERT_EQ(Invoke(kVolumeToMeshCommand, *data), "ok");
    ASSERT_EQ(data->GetOutputCount(), 1);
    ASSERT_EQ(data->GetOutput(0)->GetType(), zta::HOST_TYPE_POLYGON);
    const auto* mesh = static_cast<const zta::PolygonObject*>(data->GetOutput(0));
    auto direct = VolumeToolsInterface::VolumeToMesh(sphere, 0.0, 0.2);
    ASSERT_TRUE(direct && *direct);
    EXPECT_EQ(mesh->GetPointCount(), (*direct)->GetPointCount());
    EXPECT_EQ(mesh->GetPolygonCount(), (*direct)->GetPolygonCount());
    EXPECT_EQ(data->GetLegacyData(0)->volume, sphere);
  }
}

TEST(BooleCommand, FoldsAllInputsAndMapsItsTypes) {
  const Volume a = Sphere(1.0, Vector(0, 0, 0));
  const Volume b = Sphere(0.8, Vector(0.9, 0, 0));
  const Volume c = Sphere(0.6, Vector(0, 0.9, 0));
  Inputs in;
  for (const Volume& v : {a, b, c}) in.AddVolume(v);

  const std::pair<int, BOOLTYPE> types[] = {
      {0, BOOLTYPE::UNION}, {1, BOOLTYPE::DIFFERENCE}, {2, BOOLTYPE::INTERSECTION}};
  for (const auto& [commandType, boolType] : types) {
    SCOPED_TRACE(commandType);
    auto data = NewData();
    in.Fill(*data);
    data->GetSettings().SetInt32(BOOLE_TYPE, commandType);
    ASSERT_EQ(Invoke(kBooleCommand, *data), "ok");
    const Volume ab = *VolumeToolsInterface::BoolVolumes(a, b, boolType);
    ExpectSameVolume(OnlyResult(*data), *VolumeToolsInterface::BoolVolumes(ab, c, boolType));
    EXPECT_EQ(data->GetLegacyData(0)->inputs, (std::vector<zta::Int32>{0, 1, 2}));
  }
  {  // subtract is the default; another base folds the others into it in order
    auto data = NewData();
    in.Fill(*data);
    data->GetSettings().SetInt32(BOOLE_BASE, 1);
    ASSERT_EQ(Invoke(kBooleCommand, *data), "ok");
    const Volume ba = *VolumeToolsInterface::BoolVolumes(b, a, BOOLTYPE::DIFFERENCE);
    ExpectSameVolume(OnlyResult(*data), *VolumeToolsInterface::BoolVolumes(ba, c, BOOLTYPE::DIFFERENCE));
    EXPECT_EQ(data->GetLegacyData(0)->inputs, (std::vector<zta::Int32>{1, 0, 2}));
  }
  {  // a type outside the three ends with an empty result
    auto data = NewData();
    in.Fill(*data);
    data->GetSettings().SetInt32(BOOLE_TYPE, 3);
    EXPECT_EQ(Invoke(kBooleCommand, *data), "skip");
    EXPECT_EQ(data->GetOutputCount(), 0);
  }
  {  // one input is its own result
    auto data = NewData();
    data->AddInput(in.objects[0].get());
    ASSERT_EQ(Invoke(kBooleCommand, *data), "ok");
    EXPECT_EQ(OnlyResult(*data), a);
  }
  {  // a stop request between inputs ends the run with what stands
    auto data = NewData();
    in.Fill(*data);
    auto thread = std::make_shared<zta::ZTAThread>();
    thread->End();
    EXPECT_EQ(Invoke(kBooleCommand, *data, thread), "break");
    EXPECT_EQ(data->GetResultState(), COMMANDRESULT::BREAK);
    EXPECT_EQ(OnlyResult(*data), a);
  }
  {  // the base needs a grid; what the others lack is BoolVolumes' to say
    Inputs bad;
    bad.AddVolume(*Volume::Create());
    bad.AddVolume(a);
    auto data = NewData();
    bad.Fill(*data);
    EXPECT_EQ(Invoke(kBooleCommand, *data), "base grid has no grid attached");
    auto polygon = zta::PolygonObject::Alloc(0, 0);
    auto data2 = NewData();
    data2->AddInput(in.objects[0].get());
    data2->AddInput(polygon.get());
    EXPECT_EQ(Invoke(kBooleCommand, *data2),
              VolumeToolsInterface::BoolVolumes(a, Volume(), BOOLTYPE::DIFFERENCE).GetError().GetMessage());
    EXPECT_EQ(Invoke(kBooleCommand, *data2), "passed volumes were not initialized");
    data2->GetSettings().SetInt32(BOOLE_BASE, 1);  // a polygon object as the base has no grid
    EXPECT_EQ(Invoke(kBooleCommand, *data2), "base grid has no grid attached");
    auto data3 = NewData();
    in.Fill(*data3);
    data3->GetSettings().SetInt32(BOOLE_BASE, 3);  // no input is the base
    EXPECT_EQ(Invoke(kBooleCommand, *data3), "base grid has no grid attached");
    auto data4 = NewData();
    EXPECT_EQ(Invoke(kBooleCommand, *data4), "skip");  // no inputs
  }
  {  // mix folds the same way with MixVolumes
    const Volume fa = *VolumeToolsInterface::ConvertSDFToFog(a, 0.3);
    const Volume fb = *VolumeToolsInterface::ConvertSDFToFog(b, 0.3);
    Inputs fogs;
    fogs.AddVolume(fa);
    fogs.AddVolume(fb);
    auto data = NewData();
    fogs.Fill(*data);
    data->GetSettings().SetInt32(MIX_TYPE, int32_t(MIXTYPE::ADD));
    ASSERT_EQ(Invoke(kMixCommand, *data), "ok");
    ExpectSameVolume(OnlyResult(*data), *VolumeToolsInterface::MixVolumes(fa, fb, MIXTYPE::ADD));
  }
}

TEST(VolumeCommands, FailWithTheirWordsAndLeaveNothingHalfMade) {
  const Volume sdf = Sphere(1.0, Vector(0, 0, 0));
  Volume staggered = *sdf.Clone();
  staggered.SetGridClass(GRIDCLASS::STAGGERED);  // sdftofog gives no grid for it
  Inputs in;
  in.AddVolume(sdf);
  in.AddVolume(staggered);
  auto data = NewData();
  in.Fill(*data);
  EXPECT_EQ(Invoke(kSdfToFogCommand, *data), "result has no grid attached");
  // The first input's result is not left behind.
  EXPECT_EQ(data->GetOutputCount(), 0);
  EXPECT_EQ(data->GetLegacyDataCount(), 0);
  EXPECT_EQ(data->GetResultState(), COMMANDRESULT::BREAK);

  // What an input lacks is the operator's to say, in its words.
  Inputs empty;
  empty.AddVolume(*Volume::Create());
  auto polygon = zta::PolygonObject::Alloc(0, 0);
  auto data2 = NewData();
  empty.Fill(*data2);
  data2->AddInput(polygon.get());
  SDFFilterSettings gaussian;
  gaussian.filterType = SDFFILTERTYPE::GAUSSIAN;
  const std::string sdfWords =
      VolumeToolsInterface::ApplySDFFilterToVolume(*Volume::Create(), gaussian, nullptr, Volume(), nullptr)
          .GetError()
          .GetMessage();
  EXPECT_EQ(Invoke(kSdfFilterCommand, *data2), sdfWords);
  auto data2b = NewData();
  data2b->AddInput(polygon.get());
  EXPECT_EQ(Invoke(kSdfFilterCommand, *data2b), sdfWords);
  EXPECT_EQ(Invoke(kResampleCommand, *data2b), "volume is not initialized");
  EXPECT_EQ(Invoke(kVolumeToMeshCommand, *data2b), "volume is not initialized");
  EXPECT_EQ(Invoke(kVolumeToMeshCommand, *data2), "volume has no grid attached");
  EXPECT_EQ(Invoke(kFilterCommand, *data2b), "result has no grid attached");  // it hands back its input

  auto vectors = *VolumeToolsInterface::CreateNewVector32Volume(zta::Vector32(1, 0, 0));
  Inputs vec;
  vec.AddVolume(vectors);
  auto data3 = NewData();
  vec.Fill(*data3);
  EXPECT_EQ(Invoke(kVolumeToMeshCommand, *data3), "Polygon object was not created");

  auto data4 = NewData();
  data4->GetSettings().SetFloat(CREATESPHERE_GRIDSIZE, 0.0);
  EXPECT_EQ(Invoke(kCreateSphereVolumeCommand, *data4), "Could not create spherical volume with those settings");

  // Commands that convert each input do nothing without inputs, and stop before the first when asked.
  auto data5 = NewData();
  EXPECT_EQ(Invoke(kSdfFilterCommand, *data5), "skip");
  auto thread = std::make_shared<zta::ZTAThread>();
  thread->End();
  auto data6 = NewData();
  in.Fill(*data6);
  EXPECT_EQ(Invoke(kSdfFilterCommand, *data6, thread), "break");
  EXPECT_EQ(data6->GetOutputCount(), 0);

  // The inputs are never changed.
  EXPECT_EQ(in.objects[0]->GetNodeData<VolumeObjectData>()->GetVolume(), sdf);
  EXPECT_EQ(sdf.GetGridClass(), GRIDCLASS::SDF);
}

TEST(SplineToVolumeCommand, WalksTheSplineWithItsRail) {
  // A straight spline from x = 0 to x = 2 along the x axis.
  auto spline = zta::SplineObject::Alloc(2, zta::SPLINETYPE::LINEAR);
  spline->GetPointW()[0] = Vector(0, 0, 0);
  spline->GetPointW()[1] = Vector(2, 0, 0);
  auto accessor = *GridAccessorCreationImpl::Create<float>();
  auto distance = [&](const Volume& v, const Vector& at) {
    EXPECT_TRUE(accessor->Init(v, VOLUMESAMPLER::LINEAR));
    return accessor->GetValueVector(at);
  };
  const double voxel = 0.05;

  auto data = NewData();
  data->AddInput(spline.get());
  data->GetSettings().SetFloat(SPLINETOVOLUME_GRIDSIZE, voxel);
  data->GetSettings().SetFloat(SPLINETOVOLUME_RADIUS, 0.3);
  ASSERT_EQ(Invoke(kSplineToVolumeCommand, *data), "ok");
  const Volume tube = OnlyResult(*data);
  EXPECT_EQ(tube.GetGridClass(), GRIDCLASS::SDF);
  // Distances inside the band (3 voxels) around a tube of radius 0.3.
  const double tol = 0.02;
  EXPECT_NEAR(distance(tube, Vector(1, 0.25, 0)), -0.05, tol);
  EXPECT_NEAR(distance(tube, Vector(1, 0.3, 0)), 0.0, tol);
  EXPECT_NEAR(distance(tube, Vector(1.0, 0, -0.4)), 0.1, tol);
  EXPECT_NEAR(distance(tube, Vector(2.3, 0, 0)), 0.0, tol);  // a round cap at the end

  // The rail: its distance from the spline is the radius, here growing from 0.2 to 0.6.
  auto rail = zta::SplineObject::Alloc(2, zta::SPLINETYPE::LINEAR);
  rail->GetPointW()[0] = Vector(0, 0.2, 0);
  rail->GetPointW()[1] = Vector(2, 0.6, 0);
  data->GetSettings().SetLink(SPLINETOVOLUME_RAIL, rail.get());
  ASSERT_EQ(Invoke(kSplineToVolumeCommand, *data), "ok");
  const Volume railed = OnlyResult(*data);
  EXPECT_NEAR(distance(railed, Vector(0.5, 0.3, 0)), 0.0, tol);
  EXPECT_NEAR(distance(railed, Vector(1.5, 0.5, 0)), 0.0, tol);

  // A radius curve scales the radius along the length: from 1 at the start to 0.5 at the end.
  data->GetSettings().RemoveData(SPLINETOVOLUME_RAIL);
  auto curve = std::make_shared<zta::SplineData>();
  curve->InsertKnot(0.0, 1.0, zta::CURVEINTERPOLATION::LINEAR);
  curve->InsertKnot(1.0, 0.5, zta::CURVEINTERPOLATION::LINEAR);
  data->GetSettings().SetCustomData(SPLINETOVOLUME_RADIUSCURVE, curve);
  ASSERT_EQ(Invoke(kSplineToVolumeCommand, *data), "ok");
  const Volume tapered = OnlyResult(*data);
  EXPECT_NEAR(distance(tapered, Vector(0.2, 0.285, 0)), 0.0, tol);  // 0.3 * 0.95
  EXPECT_NEAR(distance(tapered, Vector(1.8, 0.165, 0)), 0.0, tol);  // 0.3 * 0.55

  // A spline moved by its matrix makes its tube where it stands.
  spline->SetMg(zta::MatrixMove(Vector(0, 0, 5)));
  data->GetSettings().RemoveData(SPLINETOVOLUME_RADIUSCURVE);
  ASSERT_EQ(Invoke(kSplineToVolumeCommand, *data), "ok");
  EXPECT_NEAR(distance(OnlyResult(*data), Vector(1, 0.3, 5)), 0.0, tol);

  // Refusals.
  auto one = zta::SplineObject::Alloc(1, zta::SPLINETYPE::LINEAR);
  data->GetSettings().SetLink(SPLINETOVOLUME_RAIL, one.get());
  EXPECT_EQ(Invoke(kSplineToVolumeCommand, *data), "passed rail line is not valid");
  auto polygon = zta::PolygonObject::Alloc(3, 1);
  data->GetSettings().SetLink(SPLINETOVOLUME_RAIL, polygon.get());
  EXPECT_EQ(Invoke(kSplineToVolumeCommand, *data), "spline or line is not initialized");
  auto data2 = NewData();
  data2->AddInput(polygon.get());
  EXPECT_EQ(Invoke(kSplineToVolumeCommand, *data2), "spline or line is not initialized");
  // A voxel of no size is PointsToVolume's to refuse, and the walk ends.
  data->GetSettings().RemoveData(SPLINETOVOLUME_RAIL);
  data->GetSettings().SetFloat(SPLINETOVOLUME_GRIDSIZE, 0.0);
  EXPECT_EQ(Invoke(kSplineToVolumeCommand, *data), "could not create transformation");
  // With a creation transform its voxel is the one that counts, whatever the voxel size.
  data->GetSettings().SetMatrix(SPLINETOVOLUME_TRANSFORM, zta::MatrixScale(Vector(voxel)));
  ASSERT_EQ(Invoke(kSplineToVolumeCommand, *data), "ok");
  EXPECT_NEAR(distance(OnlyResult(*data), Vector(1, 0.3, 5)), 0.0, tol);
}

TEST(ParticlesToVolumeCommand, TakesTheRadiusOfItsMode) {
  auto group = zta::ParticleGroupObject::Alloc();
  ASSERT_TRUE(group->SetParticles({Vector(0, 0, 0), Vector(2, 0, 0)}, {0.5, 0.25}, {Vector(), Vector(0, 1, 0)}));
  auto build = [&](int mode) {
    auto data = NewData();
    data->AddInput(group.get());
    data->GetSettings().SetFloat(PARTICLESTOVOLUME_RADIUS, 0.4);
    data->GetSettings().SetInt32(PARTICLESTOVOLUME_MODE, mode);
    data->GetSettings().SetFloat(PARTICLESTOVOLUME_GRIDSIZE, 0.05);
    EXPECT_EQ(Invoke(kParticlesToVolumeCommand, *data), "ok");
    return OnlyResult(*data);
  };
  auto direct = [&](double r0, double r1) {
    auto list = *PointsToVolumeListInterface::Create(nullptr);
    EXPECT_TRUE(list.AppendPoint(Vector(0, 0, 0), r0, Vector()));
    EXPECT_TRUE(list.AppendPoint(Vector(2, 0, 0), r1, Vector()));
    return *VolumeToolsInterface::PointsToVolume({list}, 0.05, 3, nullptr, nullptr, 0.0);
  };
  ExpectSameVolume(build(0), direct(0.4, 0.4));  // every particle takes the radius
  ExpectSameVolume(build(1), direct(0.2, 0.1));  // their own radii times the radius

  // An object that holds no particles gives PointsToVolume no particles: its empty level set.
  auto data = NewData();
  auto polygon = zta::PolygonObject::Alloc(0, 0);
  data->AddInput(polygon.get());
  EXPECT_EQ(Invoke(kParticlesToVolumeCommand, *data), "ok");
  ExpectSameVolume(OnlyResult(*data), *VolumeToolsInterface::PointsToVolume({}, 0.1, 3, nullptr, nullptr, 0.0));
  EXPECT_EQ(OnlyResult(*data).GetActiveVoxelCount(), 0);
}

TEST(FieldToVolumeCommand, SamplesFieldObjectsOrTheListItIsGiven) {
  zta::FieldList fields;
  auto layer = std::make_unique<zta::SphericalFieldLayer>(0.5, 0.0);
  layer->SetMatrix(zta::MatrixMove(Vector(0.1, 0, 0)));
  fields.InsertLayer(std::move(layer));
  auto carrier = zta::FieldObject::Alloc();
  carrier->SetFieldList(fields);

  FieldSampleData sample;
  sample.fields = std::make_shared<zta::FieldList>(fields);
  const BoundingBox box{Vector(-1), Vector(1)};

  auto data = NewData();
  data->AddInput(carrier.get());
  data->GetSettings().SetFloat(FIELDTOVOLUME_GRIDSIZE, 0.1);
  ASSERT_EQ(Invoke(kFieldToVolumeCommand, *data), "ok");
  ExpectSameVolume(OnlyResult(*data),
                   *VolumeToolsInterface::ConvertFieldsToVolume(sample, 0.1, box, nullptr, Volume(), nullptr));

  // Without inputs the list under its key is sampled; the vector form gives directions.
  auto data2 = NewData();
  data2->GetSettings().SetCustomData(FIELDTOVOLUME_FIELDS, sample.fields);
  data2->GetSettings().SetBool(FIELDTOVOLUME_VECTOR, true);
  ASSERT_EQ(Invoke(kFieldToVolumeCommand, *data2), "ok");
  ExpectSameVolume<zta::Vector32>(
      OnlyResult(*data2), *VolumeToolsInterface::ConvertFieldsToVectorVolume(sample, 0.1, box, nullptr, Volume(), nullptr));

  auto data3 = NewData();
  EXPECT_EQ(Invoke(kFieldToVolumeCommand, *data3), "skip");
  // An object without a field list samples as an empty list: the box, all 0.
  auto polygon = zta::PolygonObject::Alloc(0, 0);
  data3->AddInput(polygon.get());
  ASSERT_EQ(Invoke(kFieldToVolumeCommand, *data3), "ok");
  ExpectSameVolume(OnlyResult(*data3), *VolumeToolsInterface::ConvertFieldsToVolume(FieldSampleData(), 0.1, box,
                                                                                    nullptr, Volume(), nullptr));
}

TEST(VolumeObject, HoldsItsVolumeWhereTheGridStands) {
  auto grid = openvdb::FloatGrid::create(0.0f);
  grid->setGridClass(openvdb::GRID_LEVEL_SET);
  auto xform = openvdb::math::Transform::createLinearTransform(0.5);
  xform->postTranslate(openvdb::Vec3d(1, 2, 3));
  grid->setTransform(xform);
  for (int i = 0; i < 1234; ++i) grid->tree().setValue(openvdb::Coord(i % 100, i / 100, 0), 1.0f);
  const Volume volume = *MakeVolume(grid);

  auto op = VolumeObject(volume);
  ASSERT_EQ(op->GetType(), ID_VOLUMEOBJECT);
  EXPECT_EQ(GetObjectVolume(op.get()), volume);
  // The object stands where the grid's transform puts it.
  EXPECT_EQ(op->GetMg(), volume.GetGridTransform());
  // Its bounds are the active voxels' box in its own (index) space.
  EXPECT_EQ(op->GetMp(), Vector(49.5, 6, 0));
  EXPECT_EQ(op->GetRad(), Vector(49.5, 6, 0));

  const zta::BaseContainer* bc = op->GetDataInstance();
  EXPECT_EQ(bc->GetString(VOLUMEOBJECT_INFO_TYPE), "Float SDF");
  const std::string size = bc->GetString(VOLUMEOBJECT_INFO_SIZE);
  EXPECT_EQ(size.rfind("Voxels: 1,234   Memory: ~", 0), 0u) << size;
  EXPECT_TRUE(size.ends_with(" kb ")) << size;

  // A copy of the object shares the grid.
  auto clone = op->GetClone();
  EXPECT_EQ(GetObjectVolume(static_cast<zta::BaseObject*>(clone.get())), volume);

  // Without a grid: an empty box.
  auto empty = VolumeObject(*Volume::Create());
  EXPECT_EQ(empty->GetRad(), Vector(0, 0, 0));
  EXPECT_EQ(empty->GetMg(), Matrix());
  EXPECT_EQ(empty->GetDataInstance()->GetString(VOLUMEOBJECT_INFO_SIZE), "Voxels: 0   Memory: ~0 kb ");
  EXPECT_FALSE(GetObjectVolume(nullptr).IsInitialized());
  EXPECT_FALSE(GetObjectVolume(zta::PolygonObject::Alloc(0, 0).get()).IsInitialized());

  // Above 2048 kb memory shows in mb.
  auto dense = openvdb::FloatGrid::create(0.0f);
  dense->tree().denseFill(openvdb::CoordBBox(openvdb::Coord(0), openvdb::Coord(127)), 1.0f, true);
  const std::string big = VolumeObjectData::InfoSizeText(*MakeVolume(dense));
  EXPECT_EQ(big.rfind("Voxels: 2,097,152   Memory: ~", 0), 0u) << big;
  EXPECT_TRUE(big.ends_with(" mb ")) << big;
}

// The parameter path, the descriptions it reads and the messages it sends.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include <unistd.h>

#include "host/core/rotation.h"
#include "host/objects/particles.h"
#include "host/objects/polygonobject.h"
#include "host/scene/documentevents.h"
#include "host/scene/itemtree.h"
#include "host/scene/parameters.h"
#include "host/scene/plugins.h"

using namespace zta;

namespace {

constexpr Int32 kObject = 1999201, kTag = 1999202;

std::vector<String>& Heard() {
  static std::vector<String> h;
  return h;
}

String IdOf(void* data, Int32 msg) {
  switch (msg) {
    case MSG_DESCRIPTION_CHECKUPDATE: return std::to_string(static_cast<DescriptionCheckUpdate*>(data)->id.GetId());
    case MSG_DESCRIPTION_COMMAND: return std::to_string(static_cast<DescriptionCommand*>(data)->id.GetId());
    case MSG_DESCRIPTION_CUSTOMDATA_CHANGED:
    case MSG_DESCRIPTION_POSTSETPARAMETER:
    case MSG_DESCRIPTION_USERINTERACTION_END: return std::to_string(static_cast<DescriptionPostSetValue*>(data)->id.GetId());
    case MSG_DESCRIPTION_CHECKDRAGANDDROP: return std::to_string(static_cast<DescriptionCheckDragAndDrop*>(data)->id.GetId());
    default: return {};
  }
}

// Journals every message and operation of the path; stores file names itself,
// upper-cased, as a node with a side effect would; hands ids from 3000 on to
// its first tag; refuses to take an object named "nope".
class ParamObject : public ObjectData {
 public:
  bool HandleMessage(GeListNode*, Int32 type, void* data) override {
    Heard().push_back(std::to_string(type) + (data ? ":" + IdOf(data, type) : ""));
    if (type == MSG_DESCRIPTION_CHECKDRAGANDDROP) {
      auto* drop = static_cast<DescriptionCheckDragAndDrop*>(data);
      if (drop->element && drop->element->GetName() == "nope") drop->accept = false;
    }
    if (type == MSG_DOCUMENTINFO) lastEvent = static_cast<DocumentInfoData*>(data)->type;
    if (type == MSG_GETALLASSETS) static_cast<AssetData*>(data)->Add("a.vdb", nullptr, 2001);
    return refuseEvents ? type != MSG_DOCUMENTINFO : true;
  }
  bool SetParameterValue(GeListNode* node, const DescID& id, const GeData& value, Int32& flags) override {
    Heard().push_back("set:" + std::to_string(id.GetId()));
    if (id.GetId() == 2001) {
      String upper = value.GetString();
      for (char& c : upper) c = char(std::toupper(static_cast<unsigned char>(c)));
      static_cast<BaseList2D*>(node)->GetDataInstance()->SetString(2001, upper);
      flags |= DESCFLAGS_SET_PARAM_SET;
    }
    return true;
  }
  bool TranslateParameter(GeListNode* node, const DescID& id, DescID& to, BaseList2D*& at) override {
    if (id.GetId() < 3000) return false;
    at = static_cast<BaseObject*>(node)->GetFirstTag();
    to = id;
    return at != nullptr;
  }
  bool DescribeParameters(GeListNode* node, Description* description, Int32& flags) override {
    if (!description->LoadDescription(static_cast<BaseList2D*>(node)->GetType())) return false;
    description->Hide(2006);
    flags |= DESCFLAGS_DESC_LOADED;
    return true;
  }
  Int32 lastEvent = 0;
  bool refuseEvents = false;
};

// Makes a module resource folder with the two descriptions and a string table.
String WriteResources() {
  const auto dir = std::filesystem::temp_directory_path() / ("zv_params_" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir / "description");
  std::ofstream(dir / "strings.txt") << "777 \"Parameters\"\n";
  std::ofstream(dir / "description" / "oparamtest.res") << R"(# test object
DESCRIPTION oparamtest
INCLUDE Obase
GROUP 3 ID_OBJECTPROPERTIES #777
  REAL 2000 PT_SIZE "Size" DEFAULT 10 MIN 1 MAX 100 UNIT METER
  FILENAME 2001 PT_FILE "File"
  LONG 2002 PT_MODE "Mode" DEFAULT 1 CYCLE
    ITEM 0 PT_MODE_A "A"
    ITEM 1 PT_MODE_B "B" ICON 5
  END
  BUTTON 2003 PT_PRESS "Press"
  LINK 2004 PT_TARGET "Target" ACCEPT 5100
  CUSTOM 2005 PT_TREE "Tree" TYPE 1024869
  VECTOR 2006 PT_DIR "Direction" DEFAULT 0 1 0
END
)";
  std::ofstream(dir / "description" / "tparamtest.res") << R"(DESCRIPTION tparamtest
INCLUDE Tbase
BOOL 3001 PT_TAG_ON "On" DEFAULT 1
)";
  std::ofstream(dir / "description" / "obroken.res") << "DESCRIPTION obroken\nREAL 1 X \"x\" DEFAULT\n";
  return dir.string();
}

void Register() {
  static const bool done = [] {
    SetModuleResourceFolder(WriteResources());
    RegisterObjectPlugin(kObject, "Param object", 0, [] { return std::make_unique<ParamObject>(); }, "oparamtest", 0);
    RegisterTagPlugin(kTag, "Param tag", 0, [] { return std::make_unique<TagData>(); }, "tparamtest", 0);
    return true;
  }();
  (void)done;
}

BaseObject* NewParamObject(BaseDocument* doc) {
  Register();
  BaseObject* op = AllocObject(kObject).release();
  doc->InsertObject(op);
  Heard().clear();
  return op;
}

}  // namespace

TEST(ParameterPath, DescriptionsGiveDefaultsNamesAndLimits) {
  auto doc = BaseDocument::Alloc();
  BaseObject* op = NewParamObject(doc.get());
  const BaseContainer* bc = op->GetDataInstance();
  EXPECT_EQ(bc->GetFloat(2000), 10.0);
  EXPECT_EQ(bc->GetInt32(2002), 1);
  EXPECT_EQ(bc->GetVector(2006), Vector(0, 1, 0));
  // The base parameters live in the object, not in its container.
  EXPECT_EQ(bc->GetDataPointer(ID_BASEOBJECT_GENERATOR_FLAG), nullptr);

  const Description* d = GetTypeDescription(kObject);
  ASSERT_NE(d, nullptr);
  ASSERT_NE(d->FindIdent("PT_MODE"), nullptr);
  EXPECT_EQ(d->FindIdent("PT_MODE")->GetId(), 2002);
  EXPECT_NE(d->FindIdent("ID_BASEOBJECT_REL_POSITION"), nullptr);  // included from Obase
  EXPECT_EQ(d->FindIdent("NOPE"), nullptr);
  EXPECT_EQ(d->GetParameter(3)->GetString(DESC_NAME), "Parameters");  // from the string table
  const BaseContainer* mode = d->GetParameter(2002);
  EXPECT_EQ(mode->GetContainerInstance(DESC_CYCLE)->GetString(1), "B");
  EXPECT_EQ(mode->GetContainerInstance(DESC_CYCLEIDENT)->GetString(0), "PT_MODE_A");
  EXPECT_EQ(mode->GetContainerInstance(DESC_CYCLEICONS)->GetInt32(1), 5);
  EXPECT_EQ(d->GetParameter(2000)->GetInt32(DESC_PARENTGROUP), 3);
  EXPECT_EQ(DESCUNIT(d->GetParameter(2000)->GetInt32(DESC_UNIT)), DESCUNIT::METER);

  // The node's own description: what its class makes of the resource.
  Description shown;
  ASSERT_TRUE(GetNodeDescription(op, shown));
  EXPECT_TRUE(shown.IsHidden(2006));
  EXPECT_FALSE(shown.IsHidden(2000));
  EXPECT_FALSE(shown.Hide(424242));
  EXPECT_TRUE(shown.CheckId(2000));
  shown.SetSingleDescID(DescID(2002));
  EXPECT_EQ(shown.GetSingleDescID()->GetId(), 2002);
  EXPECT_FALSE(shown.CheckId(2000));
  EXPECT_TRUE(shown.CheckId(DescID({2002, VECTOR_X})));
  Description byName;
  EXPECT_TRUE(byName.LoadDescription(String("Osphere")));
  EXPECT_GT(byName.GetCount(), 3);
  EXPECT_FALSE(byName.LoadDescription(String("onothing")));
  EXPECT_FALSE(Description().LoadDescription(1999999));

  // A broken resource says where.
  EXPECT_FALSE(ParseDescription("/nonexistent/none.res"));
  // A front end may point the host at its resources elsewhere.
  SetHostResourceFolder("/nonexistent/host");
  EXPECT_EQ(GetHostDescriptionFolder(), "/nonexistent/host/description");
  EXPECT_EQ(GetTypeDescription(HOST_TYPE_CUBE), nullptr);
  SetHostResourceFolder(String());
  EXPECT_NE(GetTypeDescription(HOST_TYPE_CUBE), nullptr);
  Description none;
  EXPECT_FALSE(none.LoadDescription(String("obroken")));
  auto parsed = ParseDescription(std::filesystem::temp_directory_path().string() + "/zv_params_" +
                                 std::to_string(::getpid()) + "/description/obroken.res");
  ASSERT_FALSE(parsed);
  EXPECT_NE(parsed.GetError().GetMessage().find("obroken.res:2: a number is missing"), String::npos);
}

TEST(ParameterPath, HostTypesDescribeTheDefaultsTheyStartWith) {
  // Each host type that sets its own defaults agrees with its description,
  // and every described parameter of a host type reads back by GetParameter.
  for (Int32 type : {HOST_TYPE_EMITTER, HOST_TYPE_MATRIX, HOST_TYPE_SPLINE, HOST_TYPE_SPHERE, HOST_TYPE_CUBE,
                     HOST_TYPE_CLONER, HOST_TYPE_SUBDIVISION, HOST_TYPE_NULL, HOST_TYPE_POLYGON}) {
    auto op = BaseObject::Alloc(type);
    ASSERT_TRUE(op) << type;
    const Description* d = GetTypeDescription(type);
    ASSERT_NE(d, nullptr) << type;
    for (Int32 i = 0; i < d->GetCount(); ++i) {
      const Int32 id = d->GetId(i).GetId();
      const GeData* def = d->GetSettings(i).GetDataPointer(DESC_DEFAULT);
      if (!def || IsBuiltinParameter(op.get(), id)) continue;
      GeData got;
      ASSERT_TRUE(GetParameter(op.get(), id, got)) << type << " " << id;
      EXPECT_EQ(got, *def) << type << " " << id;
    }
  }
  auto phong = BaseTag::Alloc(HOST_TAG_PHONG);
  const Description* d = GetTypeDescription(HOST_TAG_PHONG);
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(phong->GetDataInstance()->GetFloat(1001), d->GetParameter(1001)->GetFloat(DESC_DEFAULT));
}

TEST(ParameterPath, SetParameterSendsItsMessagesInOrder) {
  auto doc = BaseDocument::Alloc();
  BaseObject* op = NewParamObject(doc.get());

  // A person's edit: checked, announced, set by the node itself, reported.
  ASSERT_TRUE(SetParameter(op, 2001, GeData("cloud.vdb"), DESCFLAGS_SET_USERINTERACTION));
  EXPECT_EQ(Heard(), (std::vector<String>{"17:2001", "set:2001", "31:2001", "32:2001"}));
  GeData v;
  ASSERT_TRUE(GetParameter(op, 2001, v));
  EXPECT_EQ(v.GetString(), "CLOUD.VDB");  // the node's side effect stands

  // A script's edit: no end of interaction, and the host stores the value.
  Heard().clear();
  ASSERT_TRUE(SetParameter(op, 2000, GeData(500.0)));
  EXPECT_EQ(Heard(), (std::vector<String>{"17:2000", "set:2000", "31:2000"}));
  EXPECT_EQ(op->GetDataInstance()->GetFloat(2000), 500.0);
  // A person's value is held to the range.
  ASSERT_TRUE(SetParameter(op, 2000, GeData(Int32(500)), DESCFLAGS_SET_USERINTERACTION));
  EXPECT_EQ(op->GetDataInstance()->GetFloat(2000), 100.0);

  // Values the parameter does not take leave everything as it was.
  Heard().clear();
  const UInt32 dirty = op->GetDirty(DIRTYFLAGS_DATA);
  EXPECT_FALSE(SetParameter(op, 2000, GeData("big")));
  EXPECT_FALSE(SetParameter(op, 2002, GeData(Int32(5))));
  EXPECT_FALSE(SetParameter(op, 2002, GeData(1.5)));
  EXPECT_TRUE(Heard().empty());
  EXPECT_EQ(op->GetDirty(DIRTYFLAGS_DATA), dirty);
  auto why = CoerceParameterValue(op, 2000, GeData("big"));
  ASSERT_FALSE(why);
  EXPECT_EQ(why.GetError().GetMessage(), "parameter PT_SIZE (2000) takes a number, not a text");
  EXPECT_EQ(CoerceParameterValue(op, 2002, GeData(5)).GetError().GetMessage(), "parameter PT_MODE (2002) has no value 5");
  EXPECT_EQ(CoerceParameterValue(op, 4242, GeData("any"))->GetString(), "any");  // not described: taken as it is

  // A button is pressed, not stored.
  Heard().clear();
  ASSERT_TRUE(SetParameter(op, 2003, GeData(true)));
  BaseContainer choice;
  choice.SetInt32(1, 7);
  ASSERT_TRUE(PressButton(op, 2003, &choice));
  EXPECT_EQ(Heard(), (std::vector<String>{"18:2003", "18:2003"}));
  EXPECT_EQ(op->GetDataInstance()->GetDataPointer(2003), nullptr);

  // A link is offered first when a person sets it; only polygons are taken.
  auto* poly = PolygonObject::Alloc(0, 0).release();
  doc->InsertObject(poly);
  BaseObject* null = BaseObject::Alloc(HOST_TYPE_NULL).release();
  doc->InsertObject(null);
  Heard().clear();
  ASSERT_TRUE(SetParameter(op, 2004, GeData(BaseLink(poly)), DESCFLAGS_SET_USERINTERACTION));
  EXPECT_EQ(Heard().front(), "26:2004");
  EXPECT_EQ(op->GetDataInstance()->GetLink(2004, doc.get()), poly);
  EXPECT_FALSE(SetParameter(op, 2004, GeData(BaseLink(null))));
  poly->SetName("nope");
  EXPECT_FALSE(SetParameter(op, 2004, GeData(BaseLink(poly)), DESCFLAGS_SET_USERINTERACTION));
  ASSERT_TRUE(SetParameter(op, 2004, GeData()));  // cleared
  EXPECT_EQ(op->GetDataInstance()->GetLink(2004, doc.get()), nullptr);

  // Custom data is announced as such.
  Heard().clear();
  ASSERT_TRUE(SetParameter(op, 2005, GeData(std::make_shared<ItemTree>())));
  EXPECT_EQ(Heard(), (std::vector<String>{"17:2005", "set:2005", "19:2005", "31:2005"}));
  EXPECT_FALSE(SetParameter(op, 2005, GeData(1)));

  // Components of a vector.
  DescID z(2006);
  z.PushId(VECTOR_Z);
  EXPECT_EQ(z.GetDepth(), 2);
  ASSERT_TRUE(SetParameter(op, z, GeData(4.0)));
  EXPECT_EQ(op->GetDataInstance()->GetVector(2006), Vector(0, 1, 4));
  ASSERT_TRUE(GetParameter(op, DescID({2006, VECTOR_Y}), v));
  EXPECT_EQ(v.GetFloat(), 1.0);

  // A rename tells the node.
  Heard().clear();
  ASSERT_TRUE(SetParameter(op, ID_BASELIST_NAME, GeData("renamed")));
  EXPECT_EQ(op->GetName(), "renamed");
  EXPECT_EQ(Heard().back(), std::to_string(MSG_NAMEORPATH_CHANGED));
  EXPECT_FALSE(SetParameter(nullptr, 2000, GeData(1.0)));
  EXPECT_FALSE(GetParameter(op, 4242, v));
}

TEST(ParameterPath, TranslationAndTheBaseParameters) {
  auto doc = BaseDocument::Alloc();
  BaseObject* op = NewParamObject(doc.get());
  ASSERT_NE(op->MakeTag(kTag), nullptr);
  // Ids from 3000 on belong to the tag; the tag's own default shows through.
  GeData v;
  ASSERT_TRUE(GetParameter(op, 3001, v));
  EXPECT_TRUE(v.GetBool());
  ASSERT_TRUE(SetParameter(op, 3001, GeData(false)));
  EXPECT_FALSE(op->GetFirstTag()->GetDataInstance()->GetBool(3001, true));
  EXPECT_EQ(op->GetDataInstance()->GetDataPointer(3001), nullptr);

  // Position, rotation and scale under and with the frozen matrix.
  op->SetFrozenMatrix(MatrixMove(Vector(100, 0, 0)));
  ASSERT_TRUE(SetParameter(op, ID_BASEOBJECT_REL_POSITION, GeData(Vector(1, 2, 3))));
  EXPECT_EQ(op->GetMl().off, Vector(101, 2, 3));
  ASSERT_TRUE(GetParameter(op, ID_BASEOBJECT_ABS_POSITION, v));
  EXPECT_EQ(v.GetVector(), Vector(101, 2, 3));
  const Vector hpb(0.3, -0.4, 1.1);
  ASSERT_TRUE(SetParameter(op, ID_BASEOBJECT_REL_ROTATION, GeData(hpb)));
  ASSERT_TRUE(GetParameter(op, ID_BASEOBJECT_REL_ROTATION, v));
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(v.GetVector()[i], hpb[i], 1e-12);
  ASSERT_TRUE(SetParameter(op, DescID({ID_BASEOBJECT_ABS_SCALE, VECTOR_X}), GeData(3.0)));
  ASSERT_TRUE(GetParameter(op, ID_BASEOBJECT_REL_SCALE, v));
  EXPECT_NEAR(v.GetVector().x, 3.0, 1e-12);
  EXPECT_NEAR(v.GetVector().y, 1.0, 1e-12);
  ASSERT_TRUE(GetParameter(op, ID_BASEOBJECT_REL_ROTATION, v));
  EXPECT_NEAR(v.GetVector().z, hpb.z, 1e-12);  // the rotation stays with a new scale
  // The same value again moves no counter.
  const UInt32 moved = op->GetDirty(DIRTYFLAGS_MATRIX);
  ASSERT_TRUE(SetParameter(op, ID_BASEOBJECT_REL_POSITION, GeData(Vector(1, 2, 3))));
  EXPECT_EQ(op->GetDirty(DIRTYFLAGS_MATRIX), moved);

  ASSERT_TRUE(SetParameter(op, ID_BASEOBJECT_GENERATOR_FLAG, GeData(false)));
  EXPECT_FALSE(op->GetDeformMode());
  ASSERT_TRUE(SetParameter(op, ID_BASEOBJECT_VISIBILITY_EDITOR, GeData(MODE_OFF)));
  EXPECT_EQ(op->GetEditorMode(), MODE_OFF);
  EXPECT_FALSE(SetParameter(op, ID_BASEOBJECT_VISIBILITY_RENDER, GeData(5)));
  // The display colour stands in the container, with the base default.
  auto* poly = PolygonObject::Alloc(0, 0).release();
  doc->InsertObject(poly);
  ASSERT_TRUE(GetParameter(poly, ID_BASEOBJECT_COLOR, v));
  EXPECT_EQ(v.GetVector(), Vector(0.8, 0.8, 0.8));
  ASSERT_TRUE(SetParameter(poly, ID_BASEOBJECT_USECOLOR, GeData(2)));
  EXPECT_EQ(poly->GetDataInstance()->GetInt32(ID_BASEOBJECT_USECOLOR), 2);

  // Split and join are each other's inverse.
  const Matrix m = JoinMatrix({Vector(1, 2, 3), Vector(0.5, 0.2, -0.7), Vector(2, 3, -4)});
  const PSR back = SplitMatrix(m);
  EXPECT_NEAR(back.scale.z, -4, 1e-12);
  const Matrix again = JoinMatrix(back);
  for (const auto& [a, b] : {std::pair{m.v1, again.v1}, {m.v2, again.v2}, {m.v3, again.v3}})
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(a[i], b[i], 1e-12);
  const Vector pole = MatrixToHPB(HPBToMatrix(Vector(0, M_PI / 2, 0.5)));
  EXPECT_NEAR(pole.y, M_PI / 2, 1e-9);
  EXPECT_NEAR(pole.z, 0.5, 1e-9);
}

TEST(ParameterPath, DocumentEventsReachEveryNode) {
  auto doc = AllocDocument();
  BaseObject* op = NewParamObject(doc.get());
  BaseObject* child = BaseObject::Alloc(kObject).release();
  child->InsertUnder(op);
  EXPECT_TRUE(SendDocumentEvent(doc.get(), DOCUMENTINFO_TYPE_SAVE_BEFORE, DOCUMENTINFO_SUBTYPE_SCENEFILE, "/s/a.zscene"));
  EXPECT_EQ(op->GetNodeData<ParamObject>()->lastEvent, DOCUMENTINFO_TYPE_SAVE_BEFORE);
  EXPECT_EQ(child->GetNodeData<ParamObject>()->lastEvent, DOCUMENTINFO_TYPE_SAVE_BEFORE);
  child->GetNodeData<ParamObject>()->refuseEvents = true;
  EXPECT_FALSE(SendDocumentEvent(doc.get(), DOCUMENTINFO_TYPE_SAVE_AFTER));
  EXPECT_EQ(op->GetNodeData<ParamObject>()->lastEvent, DOCUMENTINFO_TYPE_SAVE_AFTER);  // all heard it
  EXPECT_FALSE(SendDocumentEvent(nullptr, DOCUMENTINFO_TYPE_SAVE_AFTER));

  AssetData target(doc.get(), "/project", ASSETDATA_FLAG_SAVEPROJECT);
  EXPECT_EQ(target.GetTargetPath(), "/project");
  EXPECT_EQ(target.GetDocument(), doc.get());
  EXPECT_EQ(target.GetFlags(), ASSETDATA_FLAG_SAVEPROJECT);
  const auto assets = CollectAssets(doc.get(), ASSETDATA_FLAG_LISTALL);
  ASSERT_EQ(assets.size(), 1u);  // the same file and node listed once
  EXPECT_EQ(assets[0].url, "a.vdb");
  EXPECT_EQ(assets[0].parameterId, 2001);

  Heard().clear();
  SetDocumentLocation(doc.get(), "/scenes", "b.zscene");
  EXPECT_EQ(doc->GetDocumentPath(), "/scenes");
  EXPECT_EQ(std::count(Heard().begin(), Heard().end(), std::to_string(MSG_NAMEORPATH_CHANGED)), 2);
  SetDocumentLocation(doc.get(), "/scenes", "b.zscene");
  EXPECT_EQ(Heard().size(), 2u);

  // The menu's way to add an object: prepared, inserted with undo, selected, announced.
  Heard().clear();
  const UInt32 events = doc->GetEventCount();
  BaseObject* made = CreateObjectFromMenu(doc.get(), kObject);
  EXPECT_EQ(doc->GetEventCount(), events + 1);
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(Heard().front(), std::to_string(MSG_MENUPREPARE));
  EXPECT_EQ(doc->GetFirstObject(), made);
  EXPECT_EQ(doc->GetActiveObject(), made);
  EXPECT_EQ(made->GetNodeData<ParamObject>()->lastEvent, DOCUMENTINFO_TYPE_OBJECT_ADDED);
  ASSERT_TRUE(doc->DoUndo());
  EXPECT_NE(doc->GetFirstObject(), made);
  EXPECT_EQ(op->GetNodeData<ParamObject>()->lastEvent, DOCUMENTINFO_TYPE_UNDO);
  EXPECT_EQ(CreateObjectFromMenu(doc.get(), 1999999), nullptr);
}

// Scene files: documents through HyperFile on disk and in memory, links that
// survive a reload and a clone, plug-in data at their disk levels, nodes of
// missing plug-ins, the save events, failed saves and damaged files.
// (The scene and its plug-ins are in scenefixture.h.)
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "scenefixture.h"

TEST(SceneFile, EveryTypeRoundTripsOnDiskAndInMemory) {
  Plugins plugins;
  auto doc = MakeScene();
  const std::string expected = Dump()(*doc);
  ASSERT_NE(expected.find("linktag 'member'"), std::string::npos);

  const std::string dir = zvtest::TempDir();
  const std::string path = dir + "/all.zscene";
  auto saved = SaveDocument(doc.get(), path);
  ASSERT_TRUE(saved) << saved.GetError().GetMessage();
  EXPECT_EQ(FilesIn(dir), 1u);
  EXPECT_EQ(doc->GetDocumentName(), "all.zscene");

  auto loaded = LoadDocument(path);
  ASSERT_TRUE(loaded) << loaded.GetError().GetMessage();
  BaseDocument* back = loaded.GetValue().get();
  EXPECT_EQ(zvtest::FirstDifference(Dump()(*back), expected), "");
  EXPECT_EQ(back->GetDocumentPath(), dir);
  EXPECT_EQ(back->GetDocumentName(), "all.zscene");
  // The plug-in read its data at the level it registered, and the hook its own.
  EXPECT_EQ(Find(back, "set")->GetNodeData<GroupData>()->readLevel, 2);
  EXPECT_EQ(static_cast<RecordingHook*>(back->FindSceneHook(kHookId)->GetNodeData())->state, "hook state");
  EXPECT_EQ(back->GetActiveObject(), Find(back, "sphere"));

  // Writing what was read gives the same bytes: ids, order and values are kept.
  const std::string again = dir + "/again.zscene";
  ASSERT_TRUE(SaveDocument(back, again));
  EXPECT_EQ(Slurp(again), Slurp(path));

  // The copies that undo, the clipboard and memory keep say the same.
  for (Int32 kind : {HYPERFILE_KIND_SCENE, HYPERFILE_KIND_UNDO, HYPERFILE_KIND_CLIPBOARD, HYPERFILE_KIND_MEMORY}) {
    SCOPED_TRACE(kind);
    auto bytes = SaveDocumentToMemory(*doc, kind);
    ASSERT_TRUE(bytes);
    auto copy = Load(bytes.GetValue());
    ASSERT_TRUE(copy);
    EXPECT_EQ(zvtest::FirstDifference(Dump()(*copy), expected), "");
  }
  EXPECT_EQ(g_hook.writtenKinds.back(), HYPERFILE_KIND_MEMORY);

  // An empty document too.
  auto empty = BaseDocument::Alloc();
  auto emptyBytes = SaveDocumentToMemory(*empty, HYPERFILE_KIND_MEMORY);
  ASSERT_TRUE(emptyBytes);
  auto emptyBack = Load(emptyBytes.GetValue());
  ASSERT_TRUE(emptyBack);
  EXPECT_EQ(zvtest::FirstDifference(SceneDump()(*emptyBack), SceneDump()(*empty)), "");
}

TEST(SceneFile, LinksResolveAfterReloadAndAfterClones) {
  Plugins plugins;
  auto doc = MakeScene();
  auto bytes = SaveDocumentToMemory(*doc, HYPERFILE_KIND_SCENE);
  ASSERT_TRUE(bytes);
  auto back = Load(bytes.GetValue());
  ASSERT_TRUE(back);

  auto check = [](BaseDocument* d, const char* what) { CheckLinks(d, what); };
  check(doc.get(), "original");
  check(back.get(), "reloaded");

  // A document clone keeps the ids: links lead into the clone.
  std::unique_ptr<BaseDocument> clone(static_cast<BaseDocument*>(back->GetClone().release()));
  check(clone.get(), "document clone");
  EXPECT_EQ(Find(back.get(), "mesh")->GetDataInstance()->GetLink(9, back.get()), Find(back.get(), "sphere"));

  // A clone of a hierarchy points the links inside it at the copies: those of
  // containers, of custom values and of plug-in data.
  BaseObject* mesh = Find(back.get(), "mesh");
  BaseObject* group = Find(back.get(), "group");
  auto copy = group->GetClone();
  auto* meshCopy = static_cast<BaseObject*>(copy->GetDown());
  ASSERT_EQ(meshCopy->GetName(), "mesh");
  EXPECT_NE(meshCopy->GetMarker(), mesh->GetMarker());
  EXPECT_EQ(meshCopy->GetDataInstance()->GetContainerInstance(11)->GetLink(1, nullptr), copy.get());
  EXPECT_EQ(meshCopy->GetDataInstance()->GetCustomDataTyped<TestCustom>(13)->link.GetLink(nullptr), copy.get());
  auto field = Find(back.get(), "field")->GetClone();
  auto fields = static_cast<FieldObject*>(field.get())->GetFieldList();
  EXPECT_EQ(fields->GetLayer(3)->GetLinkedObject().GetLink(back.get()), mesh);  // outside the copy: unchanged

  // Edits after a lookup are seen: the index follows the trees.
  BaseObject* fresh = Add(back.get(), BaseObject::Alloc(HOST_TYPE_NULL), "fresh");
  EXPECT_EQ(back->FindByMarker(fresh->GetMarker()), fresh);
  BaseLink toFresh(fresh);
  GeListNode::Free(fresh);
  EXPECT_EQ(toFresh.GetLink(back.get()), nullptr);
  EXPECT_EQ(back->FindByMarker(toFresh.GetMarker()), nullptr);
  // A node made after a load never takes the id of a loaded one, even of a
  // file from a session that had made many more nodes: the document's own id
  // (bytes 21 to 28) is set far ahead here.
  std::vector<char> ahead = bytes.GetValue();
  const UInt64 far = UInt64(1) << 60;
  std::memcpy(ahead.data() + 21, &far, sizeof(far));
  auto farDoc = Load(ahead);
  ASSERT_TRUE(farDoc);
  EXPECT_EQ(farDoc->GetMarker(), far);
  EXPECT_GT(BaseObject::Alloc(HOST_TYPE_NULL)->GetMarker(), far);
}

TEST(SceneFile, NodesOfMissingPluginsAreKeptAndWrittenBackUnchanged) {
  std::vector<char> original;
  std::string expected;
  {
    Plugins plugins;
    auto doc = MakeScene();
    expected = Dump()(*doc);
    original = SaveDocumentToMemory(*doc, HYPERFILE_KIND_SCENE).GetValue();
  }
  // Without the plug-ins and the custom class the nodes keep their place,
  // name, parameters, tags and children; their own data are bytes.
  auto opaque = Load(original);
  ASSERT_TRUE(opaque);
  BaseObject* set = Find(opaque.get(), "set");
  ASSERT_NE(set, nullptr);
  EXPECT_EQ(set->GetType(), kGroupId);
  EXPECT_NE(dynamic_cast<OpaqueNodeData*>(set->GetNodeData()), nullptr);
  EXPECT_EQ(dynamic_cast<OpaqueNodeData*>(set->GetNodeData())->GetLevel(), 2);
  EXPECT_EQ(Find(opaque.get(), "member"), nullptr);  // inside the opaque block
  BaseTag* tag = Find(opaque.get(), "sphere")->GetTag(kLinkTagId);
  ASSERT_NE(tag, nullptr);
  EXPECT_EQ(tag->GetName(), "tag");
  EXPECT_NE(opaque->GetSceneHookListHead()->GetFirst(), nullptr);
  EXPECT_NE(Find(opaque.get(), "mesh")->GetDataInstance()->GetCustomData(13, kCustomId), nullptr);

  // Written back, through a copy of the document and of the node, unchanged.
  auto rewritten = SaveDocumentToMemory(*opaque, HYPERFILE_KIND_SCENE);
  ASSERT_TRUE(rewritten);
  EXPECT_EQ(rewritten.GetValue(), original);
  std::unique_ptr<BaseDocument> copy(static_cast<BaseDocument*>(opaque->GetClone().release()));
  auto setCopy = Find(copy.get(), "set")->GetClone(COPYFLAGS_KEEP_MARKERS);
  EXPECT_EQ(static_cast<OpaqueNodeData*>(setCopy->GetNodeData())->GetBytes(),
            static_cast<OpaqueNodeData*>(set->GetNodeData())->GetBytes());

  // With the plug-ins back, the rewritten file is the original scene.
  Plugins plugins;
  auto whole = Load(rewritten.GetValue());
  ASSERT_TRUE(whole);
  EXPECT_EQ(zvtest::FirstDifference(Dump()(*whole), expected), "");
}

TEST(SceneFile, SavingSendsTheDocumentEventsAndAFailedSaveKeepsTheOldFile) {
  Plugins plugins;
  const std::string dir = zvtest::TempDir();
  const std::string path = dir + "/scene.zscene";
  auto doc = MakeScene();
  g_hook = {};
  ASSERT_TRUE(SaveDocument(doc.get(), path));
  // A first save is a save under a new name; objects hear of it before hooks;
  // the hook writes at write time into a scene file; the end comes last.
  const std::vector<std::string> first = {"object 1006", "hook 1006 scene.zscene", "object 1007",
                                          "hook 1007 scene.zscene"};
  EXPECT_EQ(g_hook.events, first);
  EXPECT_EQ(g_hook.writtenKinds, std::vector<Int32>{HYPERFILE_KIND_SCENE});
  // A second save is a plain save, and the file keeps its permissions.
  namespace fs = std::filesystem;
  fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write);
  g_hook = {};
  ASSERT_TRUE(SaveDocument(doc.get(), path));
  EXPECT_EQ(g_hook.events.front(), "object 1004");
  EXPECT_EQ(fs::status(path).permissions() & fs::perms::all, fs::perms::owner_read | fs::perms::owner_write);
  const std::string good = Slurp(path);

  auto expectKept = [&](const Result<void>& r, const char* words) {
    ASSERT_FALSE(r);
    EXPECT_NE(r.GetError().GetMessage().find(words), std::string::npos) << r.GetError().GetMessage();
    EXPECT_EQ(Slurp(path), good);
    EXPECT_EQ(FilesIn(dir), 1u);  // no temporary file left behind
  };
  doc->GetDataInstance()->SetString(100, "changed");

  // A hook that fails at write time, or refuses the save.
  g_hook = {};
  g_hook.failWrite = true;
  expectKept(SaveDocument(doc.get(), path), "could not be written");
  EXPECT_EQ(g_hook.events.back(), "hook 1005 scene.zscene");  // the end reaches the hooks all the same
  g_hook = {};
  g_hook.refuseSave = true;
  expectKept(SaveDocument(doc.get(), path), "refused the save");
  g_hook = {};

  // A stop request (Ctrl-C).
  auto thread = std::make_shared<ZTAThread>();
  thread->End();
  expectKept(SaveDocument(doc.get(), path, thread), "interrupted");

  // A full disk: the file size limit of a child process stops the writes.
  for (int i = 0; i < 3000; ++i) Add(doc.get(), BaseObject::Alloc(HOST_TYPE_NULL), "filler");
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{16384, 16384};
    setrlimit(RLIMIT_FSIZE, &limit);
    auto r = SaveDocument(doc.get(), path);
    _exit(r ? 0 : (r.GetError().GetMessage().find("could not") != std::string::npos ? 3 : 4));
  }
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 3);
  EXPECT_EQ(Slurp(path), good);
  EXPECT_EQ(FilesIn(dir), 1u);

  // A missing folder fails before any event.
  g_hook = {};
  auto missing = SaveDocument(doc.get(), dir + "/none/scene.zscene");
  ASSERT_FALSE(missing);
  EXPECT_NE(missing.GetError().GetMessage().find("does not exist"), std::string::npos);
  EXPECT_TRUE(g_hook.events.empty());
}

TEST(SceneFile, DamagedFilesGiveOneErrorNamingTheByte) {
  Plugins plugins;
  auto doc = BaseDocument::Alloc();
  BaseObject* a = Add(doc.get(), BaseObject::Alloc(HOST_TYPE_NULL), "a");
  auto poly = PolygonObject::Alloc(3, 1);
  poly->GetPolygonW()[0] = CPolygon(0, 1, 2);
  Add(doc.get(), std::move(poly), "p", a);
  a->GetDataInstance()->SetLink(1, a);
  a->GetDataInstance()->SetCustomData(2, SplineData::MakeLinear());
  const std::vector<char> good = SaveDocumentToMemory(*doc, HYPERFILE_KIND_SCENE).GetValue();
  auto load = [](const std::vector<char>& b) { return LoadDocumentFromMemory(b.data(), Int64(b.size())); };
  auto offset = [](const std::string& message) {
    EXPECT_EQ(message.rfind("byte ", 0), 0u) << message;
    return std::stoll(message.substr(5));
  };

  // Cut anywhere: an error at or before the cut, never a document.
  for (size_t n = 0; n < good.size(); ++n) {
    auto r = load(std::vector<char>(good.begin(), good.begin() + std::ptrdiff_t(n)));
    ASSERT_FALSE(r) << n;
    EXPECT_LE(offset(r.GetError().GetMessage()), Int64(n)) << r.GetError().GetMessage();
  }
  auto truncated = load(std::vector<char>(good.begin(), good.end() - 9));
  EXPECT_NE(truncated.GetError().GetMessage().find("truncated"), std::string::npos) << truncated.GetError().GetMessage();

  // Any byte changed: a document or an error that names a byte, never a crash.
  size_t refused = 0;
  for (size_t i = 0; i < good.size(); ++i) {
    for (unsigned char x : {0x01, 0x80, 0xff}) {
      std::vector<char> bad = good;
      bad[i] = char(bad[i] ^ x);
      auto r = load(bad);
      if (!r) {
        ++refused;
        const Int64 at = offset(r.GetError().GetMessage());
        EXPECT_GE(at, 0);
        EXPECT_LE(at, Int64(good.size()));
      }
    }
  }
  EXPECT_GT(refused, good.size() / 2);

  // A type tag turned into another: the reader says what it expected.
  std::vector<char> wrongType = good;
  wrongType[HyperFile::kHeaderSize] = 7;  // the document's node tag made a string tag
  EXPECT_EQ(load(wrongType).GetError().GetMessage(), "byte 16: expected a document, found a string");

  // Versions: a newer one is refused by its number, zero is not one.
  std::vector<char> newer = good;
  newer[8] = 2;
  EXPECT_EQ(load(newer).GetError().GetMessage(),
            "byte 8: scene file format version 2 is newer than this program reads (1)");
  newer[8] = 0;
  EXPECT_EQ(load(newer).GetError().GetMessage(), "byte 8: format version 0 is not valid");

  // Something else than a scene, or data after its end.
  const std::string text = "v 0 0 0\nf 1 1 1\n";
  EXPECT_EQ(load(std::vector<char>(text.begin(), text.end())).GetError().GetMessage(),
            "byte 0: not a scene file (it does not start with the scene file mark)");
  std::vector<char> trailing = good;
  trailing.push_back('x');
  EXPECT_EQ(load(trailing).GetError().GetMessage(), "byte " + std::to_string(good.size()) + ": 1 bytes follow the end of the stream");

  // On disk: the path comes first; a copy of another kind is no scene file.
  const std::string dir = zvtest::TempDir();
  Spit(dir + "/cut.zscene", std::string(good.begin(), good.begin() + 40));
  auto cut = LoadDocument(dir + "/cut.zscene");
  ASSERT_FALSE(cut);
  EXPECT_EQ(cut.GetError().GetMessage().rfind(dir + "/cut.zscene: byte ", 0), 0u) << cut.GetError().GetMessage();
  const std::vector<char> undo = SaveDocumentToMemory(*doc, HYPERFILE_KIND_UNDO).GetValue();
  Spit(dir + "/undo.zscene", std::string(undo.begin(), undo.end()));
  EXPECT_EQ(LoadDocument(dir + "/undo.zscene").GetError().GetMessage(),
            dir + "/undo.zscene: byte 12: not a scene file: it holds a copy of kind 2");
  EXPECT_EQ(LoadDocument(dir + "/none.zscene").GetError().GetMessage(), "File could not be found: " + dir + "/none.zscene");
}

TEST(HyperFile, TypedValuesBlocksAndLimits) {
  auto hf = HyperFile::OpenWrite(HYPERFILE_KIND_MEMORY);
  BaseContainer bc(3);
  bc.SetInt32(1, 4);
  bc.SetString(2, "x");
  const char memory[] = {1, 2, 3, 0, 5};
  const float records[] = {1.5f, -2.0f, 3.25f};
  ASSERT_TRUE(hf->WriteInt32(-3) && hf->WriteUInt32(4000000000u) && hf->WriteInt64(-(Int64(1) << 50)) &&
              hf->WriteUInt64(~UInt64(0)) && hf->WriteBool(true) && hf->WriteFloat32(0.5f) && hf->WriteFloat(-0.25) &&
              hf->WriteVector(Vector(1, 2, 3)) && hf->WriteMatrix(MatrixMove(Vector(4, 5, 6))) &&
              hf->WriteString("") && hf->WriteTime(BaseTime(1, 3)) && hf->WriteMemory(memory, sizeof(memory)) &&
              hf->WriteArray(records, 3, sizeof(float)) && hf->WriteContainer(bc) && hf->WriteGeData(GeData(2.0)) &&
              hf->WriteEnd());
  const std::vector<char> bytes = hf->GetMemory();
  auto opened = HyperFile::OpenRead(bytes.data(), Int64(bytes.size()));
  ASSERT_TRUE(opened);
  HyperFile& in = *opened.GetValue();
  EXPECT_EQ(in.GetFileKind(), HYPERFILE_KIND_MEMORY);
  Int32 i32;
  UInt32 u32;
  Int64 i64;
  UInt64 u64;
  bool b;
  Float32 f32;
  Float f;
  Vector v;
  Matrix m;
  String s = "old";
  BaseTime t;
  std::vector<char> mem;
  ASSERT_TRUE(in.ReadInt32(&i32) && in.ReadUInt32(&u32) && in.ReadInt64(&i64) && in.ReadUInt64(&u64) && in.ReadBool(&b) &&
              in.ReadFloat32(&f32) && in.ReadFloat(&f) && in.ReadVector(&v) && in.ReadMatrix(&m) && in.ReadString(&s) &&
              in.ReadTime(&t) && in.ReadMemory(&mem))
      << in.GetErrorText();
  // A second reader goes on to the end: the array, the container, a value.
  auto rest = HyperFile::OpenRead(bytes.data(), Int64(bytes.size()));
  HyperFile& in3 = *rest.GetValue();
  std::vector<float> arr;
  BaseContainer back;
  GeData g;
  ASSERT_TRUE(in3.ReadInt32(&i32) && in3.ReadUInt32(&u32) && in3.ReadInt64(&i64) && in3.ReadUInt64(&u64) &&
              in3.ReadBool(&b) && in3.ReadFloat32(&f32) && in3.ReadFloat(&f) && in3.ReadVector(&v) &&
              in3.ReadMatrix(&m) && in3.ReadString(&s) && in3.ReadTime(&t) && in3.ReadMemory(&mem) &&
              in3.ReadArray(sizeof(float), [&](Int64 n) -> void* {
                arr.resize(size_t(n));
                return arr.data();
              }) &&
              in3.ReadContainer(&back) && in3.ReadGeData(&g) && in3.ReadEnd())
      << in3.GetErrorText();
  EXPECT_EQ(arr, std::vector<float>(records, records + 3));
  EXPECT_EQ(back, bc);
  EXPECT_EQ(g, GeData(2.0));
  EXPECT_EQ(i32, -3);
  EXPECT_EQ(u32, 4000000000u);
  EXPECT_EQ(i64, -(Int64(1) << 50));
  EXPECT_EQ(u64, ~UInt64(0));
  EXPECT_TRUE(b);
  EXPECT_EQ(f32, 0.5f);
  EXPECT_EQ(f, -0.25);
  EXPECT_EQ(v, Vector(1, 2, 3));
  EXPECT_EQ(m, MatrixMove(Vector(4, 5, 6)));
  EXPECT_EQ(s, "");
  EXPECT_EQ(t, BaseTime(1, 3));
  EXPECT_EQ(mem, std::vector<char>(memory, memory + sizeof(memory)));
  // An array of another record size is refused before anything is read.
  const Int64 at = in.GetPosition();
  EXPECT_FALSE(in.ReadArray(8, [&](Int64 n) -> void* { return nullptr; }));
  EXPECT_EQ(in.GetErrorText(), "byte " + std::to_string(at) + ": expected records of 8 bytes, found records of 4");
  // Once failed, every read fails and leaves its output alone.
  i32 = 11;
  EXPECT_FALSE(in.ReadInt32(&i32));
  EXPECT_EQ(i32, 11);

  auto again = HyperFile::OpenRead(bytes.data(), Int64(bytes.size()));
  HyperFile& in2 = *again.GetValue();
  EXPECT_FALSE(in2.ReadString(&s));
  EXPECT_EQ(in2.GetErrorText(), "byte 16: expected a string, found an int32");

  // Containers nested deeper than the limit are refused when written.
  BaseContainer deep;
  for (int i = 0; i < HyperFile::kMaxNesting + 1; ++i) {
    BaseContainer outer;
    outer.SetContainer(1, deep);
    deep = outer;
  }
  auto deepFile = HyperFile::OpenWrite(HYPERFILE_KIND_MEMORY);
  EXPECT_FALSE(deepFile->WriteContainer(deep));
  EXPECT_NE(deepFile->GetErrorText().find("nested deeper than"), std::string::npos);
}

TEST(HyperFile, ItemTreesAndCheckListsKeepTheirRowsAndRefuseBadOnes) {
  ItemTree tree;
  ItemTreeItem* a = tree.InsertItem(nullptr, nullptr, TREEITEM_CHECKED, GeData(Int32(1)), static_cast<const BaseList2D*>(nullptr));
  ItemTreeItem* b = tree.InsertItem(a, nullptr, 0, GeData(String("child")), static_cast<const BaseList2D*>(nullptr));
  tree.InsertItem(b, nullptr, TREEITEM_OPEN, GeData(), static_cast<const BaseList2D*>(nullptr));
  tree.InsertItem(nullptr, a, 7, GeData(2.5), static_cast<const BaseList2D*>(nullptr));
  CheckListData checks;
  checks.SetEntries({"x", "y"});
  checks.SetChecked(0, false);
  auto hf = HyperFile::OpenWrite(HYPERFILE_KIND_MEMORY);
  ASSERT_TRUE(hf->WriteCustomData(tree) && hf->WriteCustomData(checks));
  const std::vector<char> bytes = hf->GetMemory();
  auto in = HyperFile::OpenRead(bytes.data(), Int64(bytes.size()));
  ASSERT_TRUE(in);
  std::shared_ptr<const CustomDataType> treeBack, checksBack;
  ASSERT_TRUE(in.GetValue()->ReadCustomData(&treeBack) && in.GetValue()->ReadCustomData(&checksBack))
      << in.GetValue()->GetErrorText();
  EXPECT_TRUE(treeBack->IsEqual(tree));
  EXPECT_TRUE(checksBack->IsEqual(checks));
  EXPECT_FALSE(static_cast<const CheckListData&>(*checksBack).IsChecked(0));

  // A row two levels below the one before it is refused where it stands.
  auto bad = HyperFile::OpenWrite(HYPERFILE_KIND_MEMORY);
  bad->WriteInt32(2);
  for (Int32 depth : {0, 2}) {
    bad->WriteInt32(depth);
    bad->WriteInt32(0);
    bad->WriteGeData(GeData());
    bad->WriteLink(BaseLink());
  }
  std::vector<char> raw = bad->GetMemory();
  // Framed as a custom value the way WriteCustomData frames one: tag, type, level, block.
  std::vector<char> framed(raw.begin(), raw.begin() + HyperFile::kHeaderSize);
  framed.push_back(11);
  const Int32 type = CUSTOMDATATYPE_ITEMTREE, level = 0;
  const UInt64 length = raw.size() - size_t(HyperFile::kHeaderSize);
  framed.insert(framed.end(), reinterpret_cast<const char*>(&type), reinterpret_cast<const char*>(&type) + 4);
  framed.insert(framed.end(), reinterpret_cast<const char*>(&level), reinterpret_cast<const char*>(&level) + 4);
  framed.push_back(17);
  framed.insert(framed.end(), reinterpret_cast<const char*>(&length), reinterpret_cast<const char*>(&length) + 8);
  framed.insert(framed.end(), raw.begin() + HyperFile::kHeaderSize, raw.end());
  auto badIn = HyperFile::OpenRead(framed.data(), Int64(framed.size()));
  ASSERT_TRUE(badIn);
  std::shared_ptr<const CustomDataType> refused;
  EXPECT_FALSE(badIn.GetValue()->ReadCustomData(&refused));
  EXPECT_NE(badIn.GetValue()->GetErrorText().find("row 1 of an item tree at depth 2 follows one at depth 0"), std::string::npos)
      << badIn.GetValue()->GetErrorText();
}

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "host/core/config.h"
#include "host/core/data.h"
#include "host/core/format.h"
#include "host/core/math.h"
#include "host/core/registry.h"
#include "host/core/resource.h"
#include "host/core/result.h"
#include "host/core/url.h"
#include "support/run.h"

using namespace zta;

TEST(Result, CarriesValueOrErrorWithKindAndPlace) {
  Result<int> ok = 7;
  ASSERT_TRUE(ok);
  EXPECT_EQ(*ok, 7);

  Result<int> bad = IllegalArgumentError("nope");
  ASSERT_FALSE(bad);
  EXPECT_EQ(bad.GetError().GetKind(), ErrorKind::IllegalArgument);
  EXPECT_EQ(bad.GetError().GetMessage(), "nope");
  EXPECT_NE(std::string(bad.GetError().GetFile()).find("core_test.cpp"), std::string::npos);
  EXPECT_GT(bad.GetError().GetLine(), 0u);

  Result<void> passed = bad;  // errors travel upward by hand
  EXPECT_TRUE(passed.IsError());
  EXPECT_EQ(passed.GetError().GetMessage(), "nope");
  EXPECT_TRUE(Result<void>(Result<int>(3)).IsOk());
  EXPECT_EQ(OutOfMemoryError().GetKind(), ErrorKind::OutOfMemory);

  // The line for a log names the place; an error without words names its kind.
  const Error quiet = OutOfMemoryError();
  const std::string where = std::string(quiet.GetFile()) + ":" + std::to_string(quiet.GetLine());
  EXPECT_EQ(quiet.ToString(), "out of memory [" + where + "]");
  EXPECT_EQ(bad.GetError().ToString().substr(0, 6), "nope [");
}

TEST(Format, EachAtTakesTheNextArgument) {
  EXPECT_EQ(FormatString("File @ could not be loaded: @", "a.vdb", 2), "File a.vdb could not be loaded: 2");
  EXPECT_EQ(FormatString("scale @", 0.5), "scale 0.5");
  EXPECT_EQ(FormatString("@ and @", 1), "1 and @");  // a missing argument leaves its mark
  EXPECT_EQ(FormatString("no marks", 1), "no marks");
}

TEST(Data, HoldsEveryValueTypeAndDictionariesKeepOrder) {
  EXPECT_TRUE(Data().IsEmpty());
  EXPECT_STREQ(Data(int32_t(3)).TypeName(), "int32");
  EXPECT_STREQ(Data(int64_t(3)).TypeName(), "int64");
  EXPECT_STREQ(Data(2.5f).TypeName(), "float");
  EXPECT_STREQ(Data(Vector32(1, 2, 3)).TypeName(), "vec3s");
  EXPECT_STREQ(Data(Matrix4d64::Identity()).TypeName(), "mat4d");
  EXPECT_EQ(Data("text").Get<std::string>(), "text");
  EXPECT_DOUBLE_EQ(Data(true).GetNumber(), 1.0);
  EXPECT_DOUBLE_EQ(Data("x").GetNumber(-1.0), -1.0);

  DataDictionary d;
  d.Set("b", 1);
  d.Set("a", 2.0);
  d.Set("b", 3);  // replaces in place
  ASSERT_EQ(d.GetCount(), 2u);
  EXPECT_EQ(d.begin()->first, "b");
  EXPECT_EQ(d.Get("b").Get<int32_t>(), 3);
  EXPECT_TRUE(d.Get("missing").IsEmpty());
  EXPECT_TRUE(d.Erase("a"));
  EXPECT_FALSE(d.Contains("a"));
}

TEST(Matrix, InverseAndRotationRebuildTheMap) {
  Matrix m;
  m.off = {1, 2, 3};
  m.v1 = {0, 2, 0};
  m.v2 = {-3, 0, 0};
  m.v3 = {0, 0, 0.5};
  const Matrix id = m * m.GetInverse();
  for (const Vector& p : {Vector(1, 0, 0), Vector(0.3, -4, 2)}) {
    const Vector q = id.TransformPoint(p);
    EXPECT_NEAR((q - p).GetLength(), 0.0, 1e-12);
  }
  const Matrix r = GetRotation(m);
  EXPECT_NEAR(r.v1.GetLength(), 1.0, 1e-12);
  EXPECT_NEAR(Dot(r.v1, r.v2), 0.0, 1e-12);
  EXPECT_NEAR((r.v1 - Vector(0, 1, 0)).GetLength(), 0.0, 1e-12);
  EXPECT_NEAR((r.v2 - Vector(-1, 0, 0)).GetLength(), 0.0, 1e-12);
  EXPECT_NEAR(r.Det(), 1.0, 1e-12);

  // A zero third axis still gives a full rotation.
  Matrix flat;
  flat.v3 = Vector(0.0);
  EXPECT_NEAR((GetRotation(flat).v3 - Vector(0, 0, 1)).GetLength(), 0.0, 1e-12);
}

TEST(Url, FileAndMemorySchemes) {
  const std::string dir = zvtest::TempDir();
  const Url file(dir + "/a.bin");
  EXPECT_TRUE(file.IsFile());
  EXPECT_EQ(file.GetSuffix(), "bin");
  EXPECT_EQ(IoDetect(file), IODETECT::NONEXISTENT);
  EXPECT_EQ(IoDetect(Url(dir)), IODETECT::DIRECTORY);
  {
    auto out = file.OpenOutputStream();
    ASSERT_TRUE(out);
    **out << "abc";
  }
  EXPECT_EQ(IoDetect(file), IODETECT::FILE);

  const Url mem("memory://scene/vol1");
  EXPECT_EQ(mem.GetScheme(), URLSCHEME::MEMORY);
  EXPECT_EQ(mem.ToString(), "memory://scene/vol1");
  EXPECT_EQ(IoDetect(mem), IODETECT::NONEXISTENT);
  EXPECT_FALSE(mem.OpenInputStream());
  {
    auto out = mem.OpenOutputStream();
    ASSERT_TRUE(out);
    **out << "payload";
  }  // stored when the stream closes
  auto in = mem.OpenInputStream();
  ASSERT_TRUE(in);
  std::string s;
  **in >> s;
  EXPECT_EQ(s, "payload");
  EXPECT_TRUE(MemoryStore::Erase("scene/vol1"));
  EXPECT_TRUE(Url().IsEmpty());
  EXPECT_FALSE(Url().OpenInputStream());
}

TEST(Config, EnvironmentOverridesFileOverridesDefault) {
  const std::string dir = zvtest::TempDir();
  const std::string conf = dir + "/zta.conf";
  setenv("ZTA_CONFIG_FILE", conf.c_str(), 1);
  unsetenv("zvTestFlag");
  const ConfigBool flag("zvTestFlag", true, "a flag for tests");
  EXPECT_TRUE(flag.Read());
  std::ofstream(conf) << "# comment\nzvTestFlag = off\n";
  EXPECT_FALSE(flag.Read());
  setenv("zvTestFlag", "yes", 1);
  EXPECT_TRUE(flag.Read());
  setenv("zvTestFlag", "maybe", 1);  // not a Boolean: the default holds
  EXPECT_TRUE(flag.Read());
  unsetenv("zvTestFlag");
  setenv("ZTA_CONFIG_FILE", "/nonexistent", 1);
}

TEST(Registry, KeepsInsertionOrderAndRefusesDuplicates) {
  Registry<int> r("net.zelmar.registry.test");
  EXPECT_TRUE(r.Insert("a", 1));
  EXPECT_TRUE(r.Insert("b", 2));
  EXPECT_FALSE(r.Insert("a", 3));
  ASSERT_NE(r.Find("b"), nullptr);
  EXPECT_EQ(*r.Find("b"), 2);
  EXPECT_EQ(r.GetEntries().front().first, "a");
  EXPECT_TRUE(r.Erase("a"));
  EXPECT_EQ(r.Find("a"), nullptr);

  int table = 0;
  EXPECT_FALSE(RegisterLibrary(77, nullptr));
  EXPECT_TRUE(RegisterLibrary(77, &table));
  EXPECT_EQ(FindLibrary(77), &table);
  UnregisterLibrary(77);
  EXPECT_EQ(FindLibrary(77), nullptr);
}

TEST(StringResource, ReadsNumberedTextsAndKeepsTheOldTableOnFailure) {
  const std::string dir = zvtest::TempDir();
  std::ofstream(dir + "/strings.txt") << "# texts\n10 \"Ten\"\n11 \"Say \"hi\"\"\n";
  StringResource res;
  EXPECT_FALSE(res.IsLoaded());
  ASSERT_TRUE(res.Load(dir));
  EXPECT_EQ(res.Get(10), "Ten");
  EXPECT_EQ(res.Get(11), "Say \"hi\"");
  EXPECT_EQ(res.Get(12), "");
  EXPECT_FALSE(res.Load(dir + "/missing"));
  EXPECT_EQ(res.Get(10), "Ten");
}

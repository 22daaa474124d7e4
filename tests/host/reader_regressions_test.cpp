// Inputs that the fuzzers (tests/fuzz) found to hang, crash or exhaust a
// reader, each kept as the smallest file that showed it: every one must now
// end in one error line, at once.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "host/modeling/meshio.h"
#include "host/modeling/pointsio.h"
#include "host/objects/polygonobject.h"
#include "support/run.h"

namespace {

std::string Write(const std::string& dir, const std::string& name, const std::string& text) {
  const std::string path = dir + "/" + name;
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

void ExpectOneLineError(const std::string& path, const std::string& says) {
  auto mesh = zta::ReadMeshFile(path, nullptr);
  ASSERT_FALSE(mesh) << path;
  const std::string& message = mesh.GetError().GetMessage();
  EXPECT_EQ(message.find('\n'), std::string::npos) << message;
  EXPECT_NE(message.find(says), std::string::npos) << message;
}

const std::string kPlyHead =
    "ply\nformat ascii 1.0\nelement vertex 4\nproperty float x\nproperty float y\nproperty float z\n"
    "element face 2\nproperty list uchar int vertex_indices\n";
const std::string kPlyBody = "0 0 0\n1 0 0\n1 1 0\n0 1 0\n3 0 1 2\n4 0 1 2 3\n";

}  // namespace

TEST(ReaderRegressions, MeshHeadersWithoutAnEndOrWithCountsTheFileCannotHold) {
  const std::string dir = zvtest::TempDir();
  // A PLY header whose end_header is damaged sent Assimp's reader round forever.
  ExpectOneLineError(Write(dir, "noend.ply", kPlyHead + "And_header\n" + kPlyBody), "the PLY header has no end");
  ExpectOneLineError(Write(dir, "cut.ply", kPlyHead), "the PLY header has no end");
  // Under a name no importer claims, Assimp reads a PLY file by its content: the same check.
  ExpectOneLineError(Write(dir, "ply.xml", kPlyHead), "the PLY header has no end");
  // Assimp took the magic in either case, and looped on these.
  ExpectOneLineError(Write(dir, "case.ply", "Ply\nformat ascii 0.0\nelenvmt e\tent vertex2ty  0 0\n1 1 0 1 \" 3ply\n"),
                     "case.ply: not a PLY file (its first line is not \"ply\")");
  ExpectOneLineError(Write(dir, "magic.ply", "ply" + std::string(80, '\0') + kPlyHead.substr(3) + kPlyBody),
                     "not a PLY file");
  // A damaged element line in a header without end made Assimp's binary reader read wild.
  const std::string wild(
      "ply\nformat binary_little_endian 1.0\nely\nply\nformat binary_littl_eendian 1.0\nelement vertex 3\n"
      "property float x\nproperty float y\nproperty float z\nelement face blender0nblenderr\n\000\000\000\000\000"
      "\000\000\000\000\000\000\000\000\000\200?\000\000\000\000\377\000\000\nv 3ds 0\nv 1 0 0\nv 1\000\002\002\000\000\000",
      224);
  ExpectOneLineError(Write(dir, "wild.ply", wild), "wild.ply: line 5: unknown PLY format binary_littl_eendian");
  ExpectOneLineError(Write(dir, "word.ply", "ply\nformat ascii 1.0\nelement face blender0nblenderr\nend_header\n"),
                     "word.ply: line 3: the PLY header has an element without a count: element face blender0nblenderr");
  ExpectOneLineError(Write(dir, "half.ply", kPlyHead + "element edge -2\nend_header\n" + kPlyBody), "without a count");
  // Counts far beyond the file made Assimp reserve gigabytes before reading.
  ExpectOneLineError(Write(dir, "many.ply", "ply\nformat binary_little_endian 1.0\nelement vertex 3000000000\n"
                                           "property float x\nproperty float y\nproperty float z\nend_header\n"),
                     "declares 3000000000 points, more than the file's 0 bytes can hold");
  // A list's length is held to what is left of the file (or of its line) before its values are taken.
  const std::string binaryHead =
      "ply\nformat binary_little_endian 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\n"
      "element face 1\nproperty list int int vertex_indices\nend_header\n" + std::string(36, '\0');
  ExpectOneLineError(Write(dir, "minus.ply", binaryHead + std::string("\xff\xff\xff\xff", 4)), "face 0: a list with a bad length");
  ExpectOneLineError(Write(dir, "long.ply", binaryHead + std::string("\xff\xff\xff\x7f\0\0\0\0", 8)),
                     "face 0: the file ends early");
  ExpectOneLineError(Write(dir, "longtext.ply", kPlyHead + "end_header\n" + kPlyBody.substr(0, 24) + "4000000000 0 1 2\n3 0 1 2\n"),
                     "face 0: a list with a bad length");
  ExpectOneLineError(Write(dir, "shorttext.ply", kPlyHead + "end_header\n" + kPlyBody.substr(0, 24) + "9 0 1 2\n3 0 1 2\n"),
                     "face 0: 4 values, the face has 10");
  // A damaged PLY under a name no importer claims: Assimp sized a list by a
  // length of -1 as an unsigned number and asked for 32 GB.
  {
    std::ifstream in(std::string(ZV_SOURCE_DIR) + "/tests/fuzz/corpus/mesh/ply-by-content-32gb", std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ASSERT_FALSE(text.empty());
    ExpectOneLineError(Write(dir, "damaged.xml", text.substr(text.find('\n') + 1)), "damaged.xml: line 2: unknown PLY format binary_lscii");
  }
  ExpectOneLineError(Write(dir, "many.off", "OFF\n# c\n\n3 1000000000 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n"),
                     "declares 1000000000 faces");
  // The counts as Assimp reads them: across lines, as far as their digits go,
  // wrapped to 32 bits. Forty 4s right after the keyword asked for 5.7 GB.
  ExpectOneLineError(Write(dir, "wrapped.off", "OFF" + std::string(40, '4') + "\n4 44\x1c\x1c\n3 0 1 2\n"),
                     "declares 477218588 points");
  ExpectOneLineError(Write(dir, "split.off", "OFF 3\n# c\n2000000000\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n"),
                     "declares 2000000000 faces");

  // The same files whole still read.
  auto ply = zta::ReadMeshFile(Write(dir, "whole.ply", kPlyHead + "end_header\n" + kPlyBody), nullptr);
  ASSERT_TRUE(ply) << ply.GetError().GetMessage();
  EXPECT_EQ(ply.GetValue()->GetPolygonCount(), 2);
  auto off = zta::ReadMeshFile(Write(dir, "whole.off", "OFF\n# c\n\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n"), nullptr);
  ASSERT_TRUE(off) << off.GetError().GetMessage();
  EXPECT_EQ(off.GetValue()->GetPolygonCount(), 1);
}

TEST(ReaderRegressions, ColladaArraysThatDoNotHoldTheirCountOrAccessorsThatReadPastThem) {
  const std::string dir = zvtest::TempDir();
  // One triangle whose positions come through an accessor of three points.
  auto collada = [](const std::string& array, const std::string& accessor) {
    return "<?xml version=\"1.0\"?><COLLADA xmlns=\"http://www.collada.org/2005/11/COLLADASchema\" version=\"1.4.1\">"
           "<library_geometries><geometry id=\"g\"><mesh><source id=\"p\">" +
           array + "<technique_common>" + accessor +
           "<param name=\"X\" type=\"float\"/><param name=\"Y\" type=\"float\"/><param name=\"Z\" type=\"float\"/>"
           "</accessor></technique_common></source><vertices id=\"v\"><input semantic=\"POSITION\" source=\"#p\"/>"
           "</vertices><triangles count=\"1\"><input semantic=\"VERTEX\" source=\"#v\" offset=\"0\"/><p>0 1 2</p>"
           "</triangles></mesh></geometry></library_geometries><library_visual_scenes><visual_scene id=\"s\"><node>"
           "<instance_geometry url=\"#g\"/></node></visual_scene></library_visual_scenes><scene>"
           "<instance_visual_scene url=\"#s\"/></scene></COLLADA>";
  };
  const std::string numbers = "0 0 0 1 0 0 0 1 0";
  const std::string reader = "<accessor source=\"#pa\" count=\"3\" stride=\"3\">";
  auto array = [&](const std::string& attributes, const std::string& values) {
    return "<float_array id=\"pa\"" + attributes + ">" + values + "</float_array>";
  };
  // count="0" (or none, or not a number) over numbers was a null dereference in Assimp.
  ExpectOneLineError(Write(dir, "zero.dae", collada(array(" count=\"0\"", numbers), reader)),
                     "the Collada float_array \"pa\" states count=\"0\" but holds 9 values");
  ExpectOneLineError(Write(dir, "none.dae", collada(array("", numbers), reader)), "states no count");
  ExpectOneLineError(Write(dir, "word.dae", collada(array(" count='x'", numbers), reader)), "states no count");
  // An accessor reading past a shorter array read out of bounds.
  ExpectOneLineError(Write(dir, "short.dae", collada(array(" count=\"2\"", numbers), reader)),
                     "states count=\"2\" but holds 9 values");
  ExpectOneLineError(Write(dir, "reach.dae", collada(array(" count=\"3\"", "0 0 0"), reader)),
                     "a Collada accessor reads 9 values of \"pa\", which holds 3");
  ExpectOneLineError(Write(dir, "empty.dae", collada(array(" count=\"0\"", " "), reader)), "which holds 0");
  ExpectOneLineError(Write(dir, "elsewhere.dae", collada(array(" count=\"9\"", numbers),
                                                         "<accessor source=\"#qa\" count=\"3\" stride=\"3\">")),
                     "reads 9 values of \"qa\", which holds 0");
  ExpectOneLineError(Write(dir, "stride.dae", collada(array(" count=\"9\"", numbers),
                                                      "<accessor source=\"#pa\" count=\"3\" stride=\"-3\">")),
                     "a Collada accessor states no source, count, stride or offset");
  // A name holding a line break is quoted with the break escaped: the error stays one line.
  ExpectOneLineError(Write(dir, "break.dae", "<COLLADA><float_array id=\"p\n1\" count=\"0\">1 2</float_array></COLLADA>"),
                     "the Collada float_array \"p\\n1\" states count=\"0\"");
  // A stray character in an index list held Assimp in place, appending until memory ran out.
  std::string stray = collada(array(" count=\"9\"", numbers), reader);
  stray.replace(stray.find("<p>0 1 2"), 8, "<p>0 1) 2");
  ExpectOneLineError(Write(dir, "stray.dae", stray), "a Collada <p> index list holds \")\", which is not a whole number");
  // The same file as it should be reads, here under another name than .dae.
  const std::string good = collada(array(" count=\"9\"", "\n  " + numbers + "\n"), reader);
  for (const char* name : {"good.dae", "good.xml"}) {
    auto mesh = zta::ReadMeshFile(Write(dir, name, good), nullptr);
    ASSERT_TRUE(mesh) << name << ": " << mesh.GetError().GetMessage();
    EXPECT_EQ(mesh.GetValue()->GetPointCount(), 3) << name;
    EXPECT_EQ(mesh.GetValue()->GetPolygonCount(), 1) << name;
  }
  // Not Collada under that name: Assimp says what is wrong, not this check.
  ExpectOneLineError(Write(dir, "other.xml", "<mesh><float_array count=\"0\">1 2</float_array></mesh>"),
                     "No suitable reader found");
}

TEST(ReaderRegressions, OffFacesWithoutPointsAreRefusedBeforeTheImporterLosesItsPlace) {
  const std::string dir = zvtest::TempDir();
  // Two faces of no points and a last line without its end crashed the importer.
  ExpectOneLineError(Write(dir, "crash.off", "OFF3 2 0\n0 0 0\n1 0 0\n1 1 0\n0 \nn\nv"),
                     "polygon 0 of the OFF file has no points");
  // One bad face among good ones left the mesh with no polygons at all.
  ExpectOneLineError(Write(dir, "late.off", "OFF\n3 3 0\n0 0 0\n1 0 0\n1 1 0\n3 0 1 2\n# c\n\n0\n3 0 2 1\n"),
                     "polygon 1 of the OFF file has no points");

  // Among the elements a comment is read as a face of no points, and dropped with the face it stood for.
  ExpectOneLineError(Write(dir, "comment.off", "OFF\n3 2 0\n0 0 0\n1 0 0\n1 1 0\n# faces\n3 0 1 2\n3 0 2 1\n"),
                     "polygon 0 of the OFF file has no points: # faces");

  // Comments above the counts, blank lines between the elements and a count with a leading zero still read.
  auto off = zta::ReadMeshFile(
      Write(dir, "good.off", "OFF\n# c\n3 2 0\n0 0 0\n\n1 0 0\n1 1 0\n\n3 0 1 2\n 03 0 2 1\n"), nullptr);
  ASSERT_TRUE(off) << off.GetError().GetMessage();
  EXPECT_EQ(off.GetValue()->GetPolygonCount(), 2);
}

// The draw port: programs from the shader builder and the host's test of a
// failed build, buffers drawn with a count, and PNG files.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "host/objects/polygonobject.h"
#include "host/ui/basedraw.h"
#include "host/ui/glcontext.h"
#include "host/ui/pngfile.h"
#include "host/ui/shaderbuilder.h"
#include "support/run.h"

using namespace zta;

namespace {

ShaderVertexInput Input(const char* attribute, Int32 offset, const char* line, const char* name) {
  ShaderVertexInput in;
  in.attribute = attribute;
  in.type = "vec3";
  in.offset = offset;
  in.stride = 24;
  in.line = line;
  in.name = name;
  return in;
}

ShaderBuilder ColourPoints() {
  ShaderBuilder sb(SHADERFLAGS_COLOR);
  sb.AddInput(Input("attrib0", 0, "vec3 iposition = attrib0.xyz", "iposition"));
  sb.AddInput(Input("attrib1", 12, "vec3 icolor = attrib1.xyz", "icolor"));
  sb.AddLine(SHADERSTAGE::VERTEX, "oposition = (transmatrix * vec4(iposition.xyz, 1.0));");
  sb.AddLine(SHADERSTAGE::VERTEX, "ocolor = vec4(icolor.rgb, 1.0);");
  sb.AddLine(SHADERSTAGE::FRAGMENT, "ocolor = icolor;");
  return sb;
}

class DrawPort : public ::testing::Test {
 protected:
  void SetUp() override {
    auto ctx = OffscreenContext::Create(64, 64);
    ASSERT_TRUE(ctx) << ctx.GetError().GetMessage();
    context_ = std::move(ctx.GetValue());
    bd_ = std::make_unique<BaseDraw>(64, 64);
    bd_->SetView({0, 0, -4}, {0, 0, 0}, {0, 1, 0}, 0.8, 0.5, 10.0, true);
    bd_->Clear();
  }
  void TearDown() override {
    bd_.reset();
    context_.reset();
  }
  const uint8_t* Pixel(const std::vector<uint8_t>& rgba, int x, int y) { return rgba.data() + (y * 64 + x) * 4; }

  std::unique_ptr<OffscreenContext> context_;
  std::unique_ptr<BaseDraw> bd_;
};

}  // namespace

TEST_F(DrawPort, BufferedPointsLandWhereTheMatrixPutsThemInTheirColour) {
  const ShaderBuilder sb = ColourPoints();
  DrawProgram program = bd_->CompileShader(sb);
  ASSERT_FALSE(program.failed) << program.log;
  // A red point at the centre and a green one to the right; the count draws only the first.
  const float data[12] = {0, 0, 0, 1, 0, 0, 1, 0, 0, 0, 1, 0};
  DrawBuffer buffer = bd_->AllocBuffer(sizeof(data));
  ASSERT_TRUE(buffer);
  void* mapped = bd_->MapBuffer(buffer);
  ASSERT_NE(mapped, nullptr);
  std::memcpy(mapped, data, sizeof(data));
  bd_->UnmapBuffer(buffer);
  bd_->SetPointSize(5);
  ASSERT_TRUE(bd_->DrawBuffered(program, sb, buffer, DRAWPRIMITIVE::POINTS, 1, {}, {}));
  auto rgba = bd_->ReadPixels();
  EXPECT_EQ(Pixel(rgba, 32, 32)[0], 255);
  EXPECT_EQ(Pixel(rgba, 32, 32)[1], 0);
  int green = 0;
  for (size_t i = 0; i < rgba.size(); i += 4) green += rgba[i + 1] == 255;
  EXPECT_EQ(green, 0);
  // Both points, the object moved one unit up: the red point leaves the centre.
  bd_->Clear();
  bd_->SetMatrix(MatrixMove({0, 1, 0}));
  ASSERT_TRUE(bd_->DrawBuffered(program, sb, buffer, DRAWPRIMITIVE::POINTS, 2, {}, {}));
  rgba = bd_->ReadPixels();
  EXPECT_NE(Pixel(rgba, 32, 32)[0], 255);
  green = 0;
  for (size_t i = 0; i < rgba.size(); i += 4) green += rgba[i + 1] == 255;
  EXPECT_GT(green, 0);
  // The mirror: +x of the file's frame is on the right of a front view.
  int rightmost = -1;
  for (int y = 0; y < 64; ++y)
    for (int x = 0; x < 64; ++x)
      if (Pixel(rgba, x, y)[1] == 255) rightmost = std::max(rightmost, x);
  EXPECT_GT(rightmost, 40);
  bd_->FreeBuffer(buffer);
  EXPECT_FALSE(buffer);
  EXPECT_FALSE(bd_->DrawBuffered(program, sb, buffer, DRAWPRIMITIVE::POINTS, 1, {}, {}));
  bd_->FreeProgram(program);
}

TEST_F(DrawPort, FailedBuildsAreCaughtWithTheCompilersWords) {
  ShaderBuilder sb = ColourPoints();
  sb.AddLine(SHADERSTAGE::FRAGMENT, "ocolor = undeclared_thing;");
  DrawProgram program = bd_->CompileShader(sb);
  EXPECT_TRUE(program.failed);
  EXPECT_EQ(program.id, 0u);
  EXPECT_NE(program.log.find("undeclared_thing"), std::string::npos) << program.log;
  DrawBuffer buffer = bd_->AllocBuffer(24);
  EXPECT_FALSE(bd_->DrawBuffered(program, sb, buffer, DRAWPRIMITIVE::POINTS, 1, {}, {}));
  bd_->FreeBuffer(buffer);
}

TEST_F(DrawPort, GeometryStageWithLightsBuildsAndLightsWhatFacesThem) {
  ShaderBuilder sb(SHADERFLAGS_COLOR | SHADERFLAGS_GEOMETRY | SHADERFLAGS_LIGHTS);
  sb.AddInput(Input("attrib0", 0, "vec3 iposition = attrib0.xyz", "iposition"));
  sb.AddInput(Input("attrib1", 12, "vec3 inormal = attrib1.xyz", "inormal"));
  sb.AddUniform(SHADERSTAGE::GEOMETRY, "float", "halfsize");
  sb.AddLine(SHADERSTAGE::GEOMETRY, "ocolor = vec4(1.0);");
  sb.AddLine(SHADERSTAGE::GEOMETRY, "onormal = vec4(normalize(objectmatrix_n * inormal[0].xyz), 1.0);");
  for (const char* c : {"vec3(-halfsize, -halfsize, 0.0)", "vec3(-halfsize, halfsize, 0.0)", "vec3(halfsize, -halfsize, 0.0)",
                        "vec3(halfsize, halfsize, 0.0)"}) {
    sb.AddLine(SHADERSTAGE::GEOMETRY, std::string("oposition = transmatrix * vec4(iposition[0].xyz + ") + c + ", 1.0);");
    sb.AddEmitVertex();
  }
  sb.AddLine(SHADERSTAGE::GEOMETRY, "EndPrimitive();");
  sb.AddLine(SHADERSTAGE::FRAGMENT, "ocolor.rgb = vec3(0.0);");
  sb.BeginLightLoop();
  sb.AddLine(SHADERSTAGE::FRAGMENT, "ocolor.rgb += max(dot(normal.xyz, L.xyz), 0.0) * lightcolorD.rgb * icolor.rgb;");
  sb.EndLightLoop();
  sb.AddLine(SHADERSTAGE::FRAGMENT, "ocolor.a = 1.0;");
  EXPECT_NE(sb.GetSource(SHADERSTAGE::GEOMETRY).find("max_vertices = 4"), std::string::npos);
  DrawProgram program = bd_->CompileShader(sb);
  ASSERT_FALSE(program.failed) << program.log;
  // A quad facing the camera (normal towards the eye, at -z in the scene).
  const float data[6] = {0, 0, 0, 0, 0, -1};
  DrawBuffer buffer = bd_->AllocBuffer(sizeof(data));
  std::memcpy(bd_->MapBuffer(buffer), data, sizeof(data));
  bd_->UnmapBuffer(buffer);
  DrawUniform half;
  half.name = "halfsize";
  half.size = 1;
  half.value[0] = 0.5f;
  // A light shining along +z meets the quad head on; one shining along -z lights its back.
  ASSERT_TRUE(bd_->DrawBuffered(program, sb, buffer, DRAWPRIMITIVE::GEOMETRY_POINTS, 1, {{{0, 0, 1}, {1, 1, 1}}}, {half}));
  auto rgba = bd_->ReadPixels();
  EXPECT_GT(Pixel(rgba, 32, 32)[0], 250);
  bd_->Clear();
  ASSERT_TRUE(bd_->DrawBuffered(program, sb, buffer, DRAWPRIMITIVE::GEOMETRY_POINTS, 1, {{{0, 0, -1}, {1, 1, 1}}}, {half}));
  rgba = bd_->ReadPixels();
  EXPECT_LT(Pixel(rgba, 32, 32)[0], 5);
  bd_->FreeBuffer(buffer);
  bd_->FreeProgram(program);
}

TEST_F(DrawPort, PolygonObjectsAreShadedAndBoxesDrawnInThePen) {
  auto quad = PolygonObject::Alloc(4, 1);
  Vector* p = quad->GetPointW();
  p[0] = {-1, -1, 0}, p[1] = {1, -1, 0}, p[2] = {1, 1, 0}, p[3] = {-1, 1, 0};
  quad->GetPolygonW()[0] = CPolygon(0, 1, 2, 3);
  bd_->SetPen({1, 0, 0});
  bd_->DrawPolygonObject(*quad);
  auto rgba = bd_->ReadPixels();
  EXPECT_GT(Pixel(rgba, 32, 32)[0], 200);
  EXPECT_EQ(Pixel(rgba, 32, 32)[1], 0);
  bd_->Clear();
  bd_->SetPen({0, 1, 0});
  bd_->DrawBox({-1, -1, -1}, {1, 1, 1});
  rgba = bd_->ReadPixels();
  int green = 0;
  for (size_t i = 0; i < rgba.size(); i += 4) green += rgba[i + 1] == 255 && rgba[i] == 0;
  EXPECT_GT(green, 100);
  EXPECT_NE(Pixel(rgba, 32, 32)[1], 255) << "a box is its edges";
}

TEST(PngFile, PicturesRoundTripAndFailuresLeaveNothing) {
  const std::string dir = zvtest::TempDir();
  Picture picture;
  picture.width = 3;
  picture.height = 2;
  for (int i = 0; i < 6; ++i) picture.rgba.insert(picture.rgba.end(), {uint8_t(i * 40), uint8_t(255 - i), 7, 255});
  ASSERT_TRUE(WritePng(dir + "/a.png", picture));
  auto back = ReadPng(dir + "/a.png");
  ASSERT_TRUE(back);
  EXPECT_EQ(back->width, 3);
  EXPECT_EQ(back->height, 2);
  EXPECT_EQ(back->rgba, picture.rgba);

  Picture wrong = picture;
  wrong.rgba.pop_back();
  EXPECT_FALSE(WritePng(dir + "/b.png", wrong));
  EXPECT_FALSE(WritePng(dir + "/missing/c.png", picture));
  EXPECT_FALSE(std::filesystem::exists(dir + "/b.png"));
  std::ofstream(dir + "/d.png") << "not a png";
  auto bad = ReadPng(dir + "/d.png");
  ASSERT_FALSE(bad);
  EXPECT_NE(bad.GetError().GetMessage().find("not a PNG"), std::string::npos);
  EXPECT_FALSE(ReadPng(dir + "/none.png"));
}

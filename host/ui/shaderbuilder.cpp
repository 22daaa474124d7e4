#include "host/ui/shaderbuilder.h"

#include <sstream>

namespace zta {

namespace {

const char* const kBuiltinUniforms =
    "uniform mat4 transmatrix;\n"
    "uniform vec3 eyeposition;\n"
    "uniform vec3 objectmatrix_p;\n"
    "uniform mat3 objectmatrix_r;\n"
    "uniform mat3 objectmatrix_n;\n";

}  // namespace

void ShaderBuilder::AddUniform(SHADERSTAGE stage, const std::string& type, const std::string& name) {
  uniforms_.push_back({stage, type, name});
}

void ShaderBuilder::SetGeometryOutput(Int32 vertexCount, Int32 attributeCount) {
  geometryVertices_ = vertexCount;
  geometryAttributes_ = attributeCount;
}

void ShaderBuilder::AddLine(SHADERSTAGE stage, const std::string& line) { lines_[Int32(stage)].push_back(line); }

void ShaderBuilder::AddEmitVertex() {
  // What the fragment stage reads is copied out at each emit, since GLSL
  // leaves the outputs undefined after EmitVertex.
  std::string emit = "gl_Position = oposition; gs_ocolor = ocolor;";
  if (HasLights()) emit += " gs_onormal = onormal; gs_worldcoord = worldcoord;";
  lines_[Int32(SHADERSTAGE::GEOMETRY)].push_back(emit + " EmitVertex();");
}

void ShaderBuilder::BeginLightLoop() {
  lines_[Int32(SHADERSTAGE::FRAGMENT)].push_back(
      "for (int light = 0; light < lightcount; ++light) { vec3 L = normalize(lightdir[light]); vec4 lightcolorD = "
      "lightcolor[light];");
}

void ShaderBuilder::EndLightLoop() { lines_[Int32(SHADERSTAGE::FRAGMENT)].push_back("}"); }

std::string ShaderBuilder::GetSource(SHADERSTAGE stage) const {
  const bool geometry = HasGeometry();
  const bool lights = HasLights();
  if (stage == SHADERSTAGE::GEOMETRY && !geometry) return {};
  std::ostringstream s;
  s << "#version 330 core\n";
  if (stage == SHADERSTAGE::GEOMETRY)
    s << "layout(points) in;\nlayout(triangle_strip, max_vertices = " << geometryVertices_ << ") out;\n";
  s << kBuiltinUniforms;
  for (const Uniform& u : uniforms_)
    if (u.stage == stage) s << "uniform " << u.type << " " << u.name << ";\n";
  const auto& lines = lines_[Int32(stage)];
  switch (stage) {
    case SHADERSTAGE::VERTEX:
      for (size_t i = 0; i < inputs_.size(); ++i)
        s << "layout(location = " << i << ") in " << inputs_[i].type << " " << inputs_[i].attribute << ";\n";
      if (geometry)
        for (const auto& in : inputs_) s << "out " << in.type << " vs_" << in.name << ";\n";
      else
        s << "out vec4 vs_ocolor;\n";
      s << "void main() {\n";
      for (const auto& in : inputs_) s << "  " << in.line << ";\n";
      if (geometry) {
        for (const auto& in : inputs_) s << "  vs_" << in.name << " = " << in.name << ";\n";
        s << "  gl_Position = vec4(0.0, 0.0, 0.0, 1.0);\n";
      } else {
        s << "  vec4 oposition = vec4(0.0, 0.0, 0.0, 1.0);\n  vec4 ocolor = vec4(1.0);\n";
        for (const auto& l : lines) s << "  " << l << "\n";
        s << "  gl_Position = oposition;\n  vs_ocolor = ocolor;\n";
      }
      s << "}\n";
      break;
    case SHADERSTAGE::GEOMETRY:
      for (const auto& in : inputs_) s << "in " << in.type << " vs_" << in.name << "[];\n#define " << in.name << " vs_" << in.name << "\n";
      s << "out vec4 gs_ocolor;\n";
      if (lights) s << "out vec4 gs_onormal;\nout vec4 gs_worldcoord;\n";
      s << "void main() {\n"
           "  vec4 oposition = vec4(0.0, 0.0, 0.0, 1.0);\n  vec4 ocolor = vec4(1.0);\n"
           "  vec4 onormal = vec4(0.0, 0.0, 1.0, 1.0);\n  vec4 worldcoord = vec4(0.0, 0.0, 0.0, 1.0);\n"
           "  vec4 var_texcoord[2];\n";
      for (const auto& l : lines) s << "  " << l << "\n";
      s << "}\n";
      break;
    case SHADERSTAGE::FRAGMENT: {
      const char* from = geometry ? "gs_" : "vs_";
      s << "in vec4 " << from << "ocolor;\n";
      if (lights) {
        s << "in vec4 gs_onormal;\nin vec4 gs_worldcoord;\n"
          << "uniform int lightcount;\nuniform vec3 lightdir[" << kMaxLights << "];\nuniform vec4 lightcolor["
          << kMaxLights << "];\n";
      }
      s << "out vec4 fragcolor;\nvoid main() {\n  vec4 icolor = " << from << "ocolor;\n";
      if (lights) s << "  vec4 normal = vec4(normalize(gs_onormal.xyz), 0.0);\n  vec4 worldcoord = gs_worldcoord;\n";
      s << "  vec4 ocolor = icolor;\n";
      for (const auto& l : lines) s << "  " << l << "\n";
      s << "  fragcolor = ocolor;\n}\n";
      break;
    }
  }
  return s.str();
}

}  // namespace zta

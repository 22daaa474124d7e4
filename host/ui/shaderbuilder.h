#pragma once
// The host's shader builder. A plug-in declares the vertex inputs of its
// buffer, its uniforms, and adds lines of text to the stages; the builder
// wraps them into complete GLSL 3.30 programs. Inside the stages a plug-in's
// lines see these names:
//   every stage: the uniforms "transmatrix" (mat4), "eyeposition" (vec3),
//     "objectmatrix_p" (vec3), "objectmatrix_r" and "objectmatrix_n" (mat3);
//   vertex: its inputs by their names, "oposition" and "ocolor" (vec4) to write;
//   geometry: the inputs as arrays ("iposition[0]"), "oposition", "ocolor",
//     "onormal", "worldcoord" and "var_texcoord[2]" to write, EmitVertex by
//     AddEmitVertex;
//   fragment: "icolor", with lights also "normal" and "worldcoord", and
//     "ocolor" to write; inside the light loop "L" (towards the light) and
//     "lightcolorD".
// No GL here: the draw port compiles the texts.
#include <string>
#include <vector>

#include "host/core/types.h"

namespace zta {

enum class SHADERSTAGE : Int32 { VERTEX = 0, GEOMETRY = 1, FRAGMENT = 2 };

// Flags of a builder.
enum : Int32 {
  SHADERFLAGS_GEOMETRY = 4,  // a geometry stage from points to triangle strips
  SHADERFLAGS_COLOR = 64,    // the vertex colour goes through to the fragment
  SHADERFLAGS_LIGHTS = 256,  // normal and world position reach the fragment, with the light uniforms
};

// The data type of a vertex input's components (GL's float).
enum : Int32 { VERTEXDATA_FLOAT = 5126 };

// One vertex input: where it lies in the buffer and the line that names it.
struct ShaderVertexInput {
  std::string attribute;  // "attrib0"
  std::string type;       // "vec3"
  Int32 dataType = VERTEXDATA_FLOAT;
  Int32 components = 3;
  Int32 offset = 0;
  Int32 stride = 0;
  std::string line;  // "vec3 iposition = attrib0.xyz"
  std::string name;  // "iposition"
};

class ShaderBuilder {
 public:
  explicit ShaderBuilder(Int32 flags) : flags_(flags) {}
  Int32 GetFlags() const { return flags_; }

  void AddInput(const ShaderVertexInput& input) { inputs_.push_back(input); }
  const std::vector<ShaderVertexInput>& GetInputs() const { return inputs_; }
  void AddUniform(SHADERSTAGE stage, const std::string& type, const std::string& name);
  // Vertices and float attributes that the geometry stage emits per point.
  void SetGeometryOutput(Int32 vertexCount, Int32 attributeCount);
  void AddLine(SHADERSTAGE stage, const std::string& line);
  void AddEmitVertex();
  // Lines added between the two run once per light.
  void BeginLightLoop();
  void EndLightLoop();

  bool HasGeometry() const { return (flags_ & SHADERFLAGS_GEOMETRY) != 0; }
  bool HasLights() const { return (flags_ & SHADERFLAGS_LIGHTS) != 0; }
  // The complete text of a stage; empty for a geometry stage the flags leave out.
  std::string GetSource(SHADERSTAGE stage) const;

  // The most lights the loop takes.
  static constexpr Int32 kMaxLights = 8;

 private:
  struct Uniform {
    SHADERSTAGE stage;
    std::string type;
    std::string name;
  };
  Int32 flags_;
  std::vector<ShaderVertexInput> inputs_;
  std::vector<Uniform> uniforms_;
  std::vector<std::string> lines_[3];
  Int32 geometryVertices_ = 4;
  Int32 geometryAttributes_ = 2;
};

}  // namespace zta

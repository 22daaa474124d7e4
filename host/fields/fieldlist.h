#pragma once
// Fields: procedural functions of a position giving a value and a direction.
// A FieldList (custom data 440000246) stacks field layers; SampleField
// evaluates a list over one batch of positions in parallel.
#include <memory>
#include <vector>

#include "host/core/math.h"
#include "host/core/result.h"
#include "host/core/thread.h"
#include "host/scene/baselink.h"
#include "host/scene/customdata.h"
#include "host/scene/hosttypes.h"

namespace zta {

class BaseDocument;

// How a layer joins what the layers below it gave.
enum class FIELDBLEND : Int32 { NORMAL = 0, ADD = 1, SUBTRACT = 2, MULTIPLY = 3, MAX = 4, MIN = 5 };

enum : Int32 {
  FIELDLAYER_SPHERICAL = 440000243,
  FIELDLAYER_LINEAR = 440000244,
  FIELDLAYER_BOX = 440000247,
  FIELDLAYER_NOISE = 440000248,
};

// One layer. Values lie in [0, 1]; the direction points where the value
// grows, with the length of the value's gradient (per world unit).
class FieldLayer {
 public:
  virtual ~FieldLayer() = default;
  virtual Int32 GetLayerType() const = 0;
  virtual std::unique_ptr<FieldLayer> Clone() const = 0;
  virtual bool IsEqual(const FieldLayer& other) const;

  bool IsEnabled() const { return enabled_; }
  void SetEnabled(bool on) { enabled_ = on; }
  // How much of the layer's result replaces what lies below; [0, 1].
  Float GetStrength() const { return strength_; }
  void SetStrength(Float s) { strength_ = s; }
  FIELDBLEND GetBlend() const { return blend_; }
  void SetBlend(FIELDBLEND b) { blend_ = b; }
  // Where the field stands: its local frame in world space.
  const Matrix& GetMatrix() const { return mg_; }
  void SetMatrix(const Matrix& mg);
  // An object whose global matrix places the layer when the list is resolved.
  const BaseLink& GetLinkedObject() const { return link_; }
  void SetLinkedObject(const BaseList2D* op) { link_.SetLink(op); }
  void SetLinkedObject(const BaseLink& link) { link_ = link; }

  // Value and direction at a world position.
  void Sample(const Vector& world, Float32& value, Vector& direction) const;

 protected:
  // Value and gradient in the field's local frame.
  virtual void SampleLocal(const Vector& local, Float32& value, Vector& gradient) const = 0;
  bool IsEqualBase(const FieldLayer& o) const;

 private:
  bool enabled_ = true;
  Float strength_ = 1.0;
  FIELDBLEND blend_ = FIELDBLEND::NORMAL;
  Matrix mg_;
  Matrix inv_;
  BaseLink link_;
};

// 1 inside `radius * inner`, falling linearly to 0 at `radius`.
class SphericalFieldLayer : public FieldLayer {
 public:
  SphericalFieldLayer(Float radius, Float inner) : radius_(radius), inner_(inner) {}
  Int32 GetLayerType() const override { return FIELDLAYER_SPHERICAL; }
  std::unique_ptr<FieldLayer> Clone() const override { return std::make_unique<SphericalFieldLayer>(*this); }
  bool IsEqual(const FieldLayer& other) const override;
  Float GetRadius() const { return radius_; }
  Float GetInner() const { return inner_; }

 protected:
  void SampleLocal(const Vector& local, Float32& value, Vector& gradient) const override;

 private:
  Float radius_;
  Float inner_;
};

// Rises linearly from 0 at z = -length/2 to 1 at z = +length/2 of its frame.
class LinearFieldLayer : public FieldLayer {
 public:
  explicit LinearFieldLayer(Float length) : length_(length) {}
  Int32 GetLayerType() const override { return FIELDLAYER_LINEAR; }
  std::unique_ptr<FieldLayer> Clone() const override { return std::make_unique<LinearFieldLayer>(*this); }
  bool IsEqual(const FieldLayer& other) const override;
  Float GetLength() const { return length_; }

 protected:
  void SampleLocal(const Vector& local, Float32& value, Vector& gradient) const override;

 private:
  Float length_;
};

// 1 inside the box of half-size `size * (1 - falloff)`, falling linearly to 0
// at the box of half-size `size` by the largest per-axis excess.
class BoxFieldLayer : public FieldLayer {
 public:
  BoxFieldLayer(const Vector& halfSize, Float falloff) : size_(halfSize), falloff_(falloff) {}
  Int32 GetLayerType() const override { return FIELDLAYER_BOX; }
  std::unique_ptr<FieldLayer> Clone() const override { return std::make_unique<BoxFieldLayer>(*this); }
  bool IsEqual(const FieldLayer& other) const override;
  const Vector& GetSize() const { return size_; }
  Float GetFalloff() const { return falloff_; }

 protected:
  void SampleLocal(const Vector& local, Float32& value, Vector& gradient) const override;

 private:
  Vector size_;
  Float falloff_;
};

// Smooth value noise with lattice cells of `scale`; the same seed gives the
// same field.
class NoiseFieldLayer : public FieldLayer {
 public:
  NoiseFieldLayer(Float scale, Int32 seed) : scale_(scale), seed_(seed) {}
  Int32 GetLayerType() const override { return FIELDLAYER_NOISE; }
  std::unique_ptr<FieldLayer> Clone() const override { return std::make_unique<NoiseFieldLayer>(*this); }
  bool IsEqual(const FieldLayer& other) const override;
  Float GetScale() const { return scale_; }
  Int32 GetSeed() const { return seed_; }

 protected:
  void SampleLocal(const Vector& local, Float32& value, Vector& gradient) const override;

 private:
  Float scale_;
  Int32 seed_;
};

class FieldList : public CustomDataType {
 public:
  static constexpr Int32 kCustomTypeId = CUSTOMDATATYPE_FIELDLIST;

  FieldList() = default;
  FieldList(const FieldList& o);
  FieldList& operator=(const FieldList& o);

  Int32 GetCustomTypeId() const override { return kCustomTypeId; }
  std::unique_ptr<CustomDataType> Clone() const override { return std::make_unique<FieldList>(*this); }
  bool IsEqual(const CustomDataType& other) const override;
  // A counter that moves with the list's own edits and the matrix and data
  // counters of the objects its layers link to.
  UInt32 GetDirty(const BaseDocument* doc, Int32 level) const;

  // Layers are listed top first; the bottom one is evaluated first.
  Int32 GetLayerCount() const { return Int32(layers_.size()); }
  const FieldLayer* GetLayer(Int32 index) const;
  FieldLayer* GetLayerWritable(Int32 index);
  // Inserts at `index` (appends for -1 or past the end); takes ownership.
  void InsertLayer(std::unique_ptr<FieldLayer> layer, Int32 index = -1);
  bool RemoveLayer(Int32 index);
  // Whether any enabled layer would be sampled.
  bool HasContent() const;

  // A copy whose linked layers stand at their objects' present global matrices.
  FieldList Resolve(const BaseDocument* doc) const;

 private:
  std::vector<std::unique_ptr<FieldLayer>> layers_;
  UInt32 dirty_ = 0;
};

enum : Int32 {
  FIELDSAMPLE_FLAG_VALUE = 1,
  FIELDSAMPLE_FLAG_DIRECTION = 2,
};

// Positions to sample, not owned. `transform` takes them into world space first.
struct FieldInput {
  const Vector* positions = nullptr;
  Int64 count = 0;
  Matrix transform;
  FieldInput() = default;
  FieldInput(const Vector* p, Int64 n, const Matrix& m = Matrix()) : positions(p), count(n), transform(m) {}
};

// One value (and direction, when asked for) per position.
struct FieldOutput {
  std::vector<Float32> values;
  std::vector<Vector32> directions;
};

// Samples the whole batch in parallel. Without layers every value is 0.
// Errors: null positions with a non-zero count, a negative count, a stop
// request of `thread` ("field sampling was cancelled"), out of memory; the
// output is then empty.
Result<void> SampleField(const FieldList& fields, const FieldInput& input, FieldOutput& output,
                         Int32 flags = FIELDSAMPLE_FLAG_VALUE, const ThreadRef& thread = nullptr);

}  // namespace zta

#include "host/fields/fieldlist.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <new>

#include "host/core/format.h"
#include "host/scene/baseobject.h"

namespace zta {

// ---- layers

void FieldLayer::SetMatrix(const Matrix& mg) {
  mg_ = mg;
  inv_ = mg.GetInverse();
}

void FieldLayer::Sample(const Vector& world, Float32& value, Vector& direction) const {
  Vector g;
  SampleLocal(inv_.TransformPoint(world), value, g);
  // The gradient comes back to world space through the transpose of the
  // inverse's linear part.
  direction = Vector(Dot(inv_.v1, g), Dot(inv_.v2, g), Dot(inv_.v3, g));
}

bool FieldLayer::IsEqualBase(const FieldLayer& o) const {
  return GetLayerType() == o.GetLayerType() && enabled_ == o.enabled_ && strength_ == o.strength_ &&
         blend_ == o.blend_ && mg_ == o.mg_ && link_ == o.link_;
}

bool FieldLayer::IsEqual(const FieldLayer& other) const { return IsEqualBase(other); }

void SphericalFieldLayer::SampleLocal(const Vector& local, Float32& value, Vector& gradient) const {
  const Float d = local.GetLength();
  const Float inner = radius_ * std::clamp(inner_, 0.0, 1.0);
  gradient = Vector();
  if (d <= inner) {
    value = 1.0f;
  } else if (d >= radius_) {
    value = 0.0f;
  } else {
    const Float width = radius_ - inner;
    value = Float32((radius_ - d) / width);
    gradient = local * (-1.0 / (d * width));
  }
}

bool SphericalFieldLayer::IsEqual(const FieldLayer& other) const {
  const auto* o = dynamic_cast<const SphericalFieldLayer*>(&other);
  return o && IsEqualBase(other) && radius_ == o->radius_ && inner_ == o->inner_;
}

void LinearFieldLayer::SampleLocal(const Vector& local, Float32& value, Vector& gradient) const {
  gradient = Vector();
  if (length_ <= 0) {
    value = local.z >= 0 ? 1.0f : 0.0f;
    return;
  }
  const Float v = local.z / length_ + 0.5;
  if (v <= 0) value = 0.0f;
  else if (v >= 1) value = 1.0f;
  else {
    value = Float32(v);
    gradient = Vector(0, 0, 1.0 / length_);
  }
}

bool LinearFieldLayer::IsEqual(const FieldLayer& other) const {
  const auto* o = dynamic_cast<const LinearFieldLayer*>(&other);
  return o && IsEqualBase(other) && length_ == o->length_;
}

void BoxFieldLayer::SampleLocal(const Vector& local, Float32& value, Vector& gradient) const {
  const Float f = std::clamp(falloff_, 0.0, 1.0);
  Float t = 0.0;
  int axis = -1;
  Float slope = 0.0;
  for (int k = 0; k < 3; ++k) {
    const Float size = std::abs(size_[k]);
    const Float inner = size * (1.0 - f);
    const Float a = std::abs(local[k]);
    Float e;
    if (a <= inner) e = 0.0;
    else if (size - inner <= 0.0) e = a > size ? 2.0 : 0.0;
    else e = (a - inner) / (size - inner);
    if (e > t) {
      t = e;
      axis = k;
      slope = size - inner > 0.0 ? (local[k] < 0 ? 1.0 : -1.0) / (size - inner) : 0.0;
    }
  }
  gradient = Vector();
  if (t >= 1.0) {
    value = 0.0f;
  } else {
    value = Float32(1.0 - t);
    if (axis >= 0) gradient[axis] = slope;
  }
}

bool BoxFieldLayer::IsEqual(const FieldLayer& other) const {
  const auto* o = dynamic_cast<const BoxFieldLayer*>(&other);
  return o && IsEqualBase(other) && size_ == o->size_ && falloff_ == o->falloff_;
}

namespace {
Float LatticeValue(Int64 x, Int64 y, Int64 z, Int32 seed) {
  UInt64 h = UInt64(x) * 0x8da6b343ull ^ UInt64(y) * 0xd8163841ull ^ UInt64(z) * 0xcb1ab31full ^ UInt64(UInt32(seed)) * 0x9E3779B97F4A7C15ull;
  h ^= h >> 33;
  h *= 0xff51afd7ed558ccdull;
  h ^= h >> 33;
  h *= 0xc4ceb9fe1a85ec53ull;
  h ^= h >> 33;
  return Float(h >> 11) / Float(1ull << 53);
}
// Quintic fade and its derivative: continuous second derivative at the lattice.
Float Fade(Float t) { return t * t * t * (t * (t * 6 - 15) + 10); }
Float FadeD(Float t) { return 30 * t * t * (t * (t - 2) + 1); }
}  // namespace

void NoiseFieldLayer::SampleLocal(const Vector& local, Float32& value, Vector& gradient) const {
  const Float s = scale_ > 0 ? scale_ : 1.0;
  const Vector p = local / s;
  const Float fx = std::floor(p.x), fy = std::floor(p.y), fz = std::floor(p.z);
  const Int64 ix = Int64(fx), iy = Int64(fy), iz = Int64(fz);
  const Float tx = p.x - fx, ty = p.y - fy, tz = p.z - fz;
  const Float u = Fade(tx), v = Fade(ty), w = Fade(tz);
  Float c[2][2][2];
  for (int a = 0; a < 2; ++a)
    for (int b = 0; b < 2; ++b)
      for (int d = 0; d < 2; ++d) c[a][b][d] = LatticeValue(ix + a, iy + b, iz + d, seed_);
  auto lerp = [](Float a, Float b, Float t) { return a + (b - a) * t; };
  // Trilinear blend of the corners through the fade, and its partials.
  const Float x00 = lerp(c[0][0][0], c[1][0][0], u), x10 = lerp(c[0][1][0], c[1][1][0], u);
  const Float x01 = lerp(c[0][0][1], c[1][0][1], u), x11 = lerp(c[0][1][1], c[1][1][1], u);
  const Float y0 = lerp(x00, x10, v), y1 = lerp(x01, x11, v);
  value = Float32(lerp(y0, y1, w));
  const Float dx00 = c[1][0][0] - c[0][0][0], dx10 = c[1][1][0] - c[0][1][0];
  const Float dx01 = c[1][0][1] - c[0][0][1], dx11 = c[1][1][1] - c[0][1][1];
  const Float dvdx = lerp(lerp(dx00, dx10, v), lerp(dx01, dx11, v), w) * FadeD(tx);
  const Float dvdy = lerp(x10 - x00, x11 - x01, w) * FadeD(ty);
  const Float dvdz = (y1 - y0) * FadeD(tz);
  gradient = Vector(dvdx, dvdy, dvdz) / s;
}

bool NoiseFieldLayer::IsEqual(const FieldLayer& other) const {
  const auto* o = dynamic_cast<const NoiseFieldLayer*>(&other);
  return o && IsEqualBase(other) && scale_ == o->scale_ && seed_ == o->seed_;
}

// ---- list

FieldList::FieldList(const FieldList& o) : CustomDataType(), dirty_(o.dirty_) {
  layers_.reserve(o.layers_.size());
  for (const auto& l : o.layers_) layers_.push_back(l->Clone());
}

FieldList& FieldList::operator=(const FieldList& o) {
  if (this != &o) {
    FieldList copy(o);
    layers_ = std::move(copy.layers_);
    ++dirty_;
  }
  return *this;
}

bool FieldList::IsEqual(const CustomDataType& other) const {
  const auto* o = dynamic_cast<const FieldList*>(&other);
  if (!o || o->layers_.size() != layers_.size()) return false;
  for (size_t i = 0; i < layers_.size(); ++i)
    if (!layers_[i]->IsEqual(*o->layers_[i])) return false;
  return true;
}

UInt32 FieldList::GetDirty(const BaseDocument* doc, Int32 level) const {
  UInt32 sum = dirty_;
  for (const auto& l : layers_)
    if (auto* op = l->GetLinkedObject().GetLink(doc)) sum += op->GetDirty(UInt32(level));
  return sum;
}

const FieldLayer* FieldList::GetLayer(Int32 index) const {
  return index >= 0 && index < GetLayerCount() ? layers_[size_t(index)].get() : nullptr;
}

FieldLayer* FieldList::GetLayerWritable(Int32 index) {
  if (index < 0 || index >= GetLayerCount()) return nullptr;
  ++dirty_;
  return layers_[size_t(index)].get();
}

void FieldList::InsertLayer(std::unique_ptr<FieldLayer> layer, Int32 index) {
  if (!layer) return;
  if (index < 0 || index >= GetLayerCount()) layers_.push_back(std::move(layer));
  else layers_.insert(layers_.begin() + index, std::move(layer));
  ++dirty_;
}

bool FieldList::RemoveLayer(Int32 index) {
  if (index < 0 || index >= GetLayerCount()) return false;
  layers_.erase(layers_.begin() + index);
  ++dirty_;
  return true;
}

bool FieldList::HasContent() const {
  for (const auto& l : layers_)
    if (l->IsEnabled() && l->GetStrength() != 0.0) return true;
  return false;
}

FieldList FieldList::Resolve(const BaseDocument* doc) const {
  FieldList out(*this);
  for (auto& l : out.layers_)
    if (auto* op = dynamic_cast<BaseObject*>(l->GetLinkedObject().GetLink(doc))) l->SetMatrix(op->GetMg());
  return out;
}

// ---- sampling

namespace {
// Folds the layers from the bottom up at one position. The direction is
// blended by the same rule as the value, so that it stays the gradient of
// the blended value.
void SampleOne(const std::vector<const FieldLayer*>& layers, const Vector& p, Float32& value, Vector& dir) {
  Float v = 0.0;
  Vector d;
  for (auto it = layers.rbegin(); it != layers.rend(); ++it) {
    const FieldLayer* l = *it;
    Float32 lv32;
    Vector ld;
    l->Sample(p, lv32, ld);
    const Float lv = lv32;
    Float r = lv;
    Vector rd = ld;
    switch (l->GetBlend()) {
      case FIELDBLEND::NORMAL: break;
      case FIELDBLEND::ADD: r = v + lv; rd = d + ld; break;
      case FIELDBLEND::SUBTRACT: r = v - lv; rd = d - ld; break;
      case FIELDBLEND::MULTIPLY: r = v * lv; rd = d * lv + ld * v; break;
      case FIELDBLEND::MAX: if (v > lv) { r = v; rd = d; } break;
      case FIELDBLEND::MIN: if (v < lv) { r = v; rd = d; } break;
    }
    const Float s = l->GetStrength();
    v += (r - v) * s;
    d += (rd - d) * s;
  }
  value = Float32(v);
  dir = d;
}
}  // namespace

Result<void> SampleField(const FieldList& fields, const FieldInput& input, FieldOutput& output, Int32 flags,
                         const ThreadRef& thread) {
  output.values.clear();
  output.directions.clear();
  if (input.count < 0) return IllegalArgumentError("field input has a negative count");
  if (input.count > 0 && !input.positions) return NullptrError("field input has no positions");
  const bool wantValues = (flags & FIELDSAMPLE_FLAG_VALUE) != 0;
  const bool wantDirs = (flags & FIELDSAMPLE_FLAG_DIRECTION) != 0;
  try {
    if (wantValues) output.values.assign(size_t(input.count), 0.0f);
    if (wantDirs) output.directions.assign(size_t(input.count), Vector32());
  } catch (const std::bad_alloc&) {
    output.values.clear();
    output.directions.clear();
    return OutOfMemoryError(FormatString("field output of @ values", input.count));
  }
  std::vector<const FieldLayer*> layers;
  for (Int32 i = 0; i < fields.GetLayerCount(); ++i)
    if (fields.GetLayer(i)->IsEnabled()) layers.push_back(fields.GetLayer(i));
  if (layers.empty() || input.count == 0 || (!wantValues && !wantDirs)) return OK();

  const bool identity = input.transform == Matrix();
  std::atomic<bool> stopped{false};
  tbb::parallel_for(tbb::blocked_range<Int64>(0, input.count, 4096), [&](const tbb::blocked_range<Int64>& r) {
    if (stopped.load(std::memory_order_relaxed)) return;
    if (thread && thread->TestBreak()) {
      stopped.store(true, std::memory_order_relaxed);
      return;
    }
    for (Int64 i = r.begin(); i != r.end(); ++i) {
      const Vector p = identity ? input.positions[i] : input.transform.TransformPoint(input.positions[i]);
      Float32 v;
      Vector d;
      SampleOne(layers, p, v, d);
      if (wantValues) output.values[size_t(i)] = v;
      if (wantDirs) output.directions[size_t(i)] = Vector32(d);
    }
  });
  if (stopped.load()) {
    output.values.clear();
    output.directions.clear();
    return IllegalStateError("field sampling was cancelled");
  }
  return OK();
}

}  // namespace zta

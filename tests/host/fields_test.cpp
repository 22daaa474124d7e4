#include <gtest/gtest.h>

#include <mutex>
#include <set>
#include <thread>

#include "host/fields/fieldlist.h"
#include "host/objects/fieldobjects.h"
#include "host/scene/basedocument.h"
#include "support/expect.h"

using namespace zta;
using zvtest::ExpectNear;

namespace {
struct Sample {
  float value;
  Vector dir;
};

Sample SampleAt(const FieldList& list, const Vector& p) {
  FieldOutput out;
  FieldInput in(&p, 1);
  EXPECT_TRUE(SampleField(list, in, out, FIELDSAMPLE_FLAG_VALUE | FIELDSAMPLE_FLAG_DIRECTION).IsOk());
  return {out.values.at(0), Vector(out.directions.at(0))};
}

// Central differences of the list's value, to hold directions against.
Vector NumericGradient(const FieldList& list, const Vector& p, double h = 1e-3) {
  Vector g;
  for (int k = 0; k < 3; ++k) {
    Vector a = p, b = p;
    a[k] -= h;
    b[k] += h;
    g[k] = (double(SampleAt(list, b).value) - double(SampleAt(list, a).value)) / (2 * h);
  }
  return g;
}

FieldList One(std::unique_ptr<FieldLayer> layer) {
  FieldList list;
  list.InsertLayer(std::move(layer));
  return list;
}
}  // namespace

TEST(Fields, LayersGiveClosedFormValuesAndGradients) {
  FieldList empty;
  EXPECT_FALSE(empty.HasContent());
  EXPECT_EQ(SampleAt(empty, Vector(1, 2, 3)).value, 0.0f);

  // Spherical: 1 inside radius * inner, linear to 0 at the radius.
  FieldList sphere = One(std::make_unique<SphericalFieldLayer>(10.0, 0.5));
  EXPECT_TRUE(sphere.HasContent());
  EXPECT_FLOAT_EQ(SampleAt(sphere, Vector(2, 0, 0)).value, 1.0f);
  EXPECT_FLOAT_EQ(SampleAt(sphere, Vector(7.5, 0, 0)).value, 0.5f);
  EXPECT_FLOAT_EQ(SampleAt(sphere, Vector(11, 0, 0)).value, 0.0f);
  ExpectNear(SampleAt(sphere, Vector(7.5, 0, 0)).dir, Vector(-0.2, 0, 0), 1e-6);
  ExpectNear(SampleAt(sphere, Vector(2, 0, 0)).dir, Vector(0, 0, 0), 1e-12);

  // The layer's matrix places and scales it; directions follow in world units.
  sphere.GetLayerWritable(0)->SetMatrix(MatrixMove(Vector(100, 0, 0)) * MatrixScale(Vector(2)));
  EXPECT_FLOAT_EQ(SampleAt(sphere, Vector(115, 0, 0)).value, 0.5f);
  ExpectNear(SampleAt(sphere, Vector(115, 0, 0)).dir, Vector(-0.1, 0, 0), 1e-6);
  ExpectNear(SampleAt(sphere, Vector(110, 6, 3)).dir, NumericGradient(sphere, Vector(110, 6, 3)), 1e-4);

  // Linear: 0 to 1 along z over its length.
  FieldList linear = One(std::make_unique<LinearFieldLayer>(20.0));
  EXPECT_FLOAT_EQ(SampleAt(linear, Vector(3, -4, 5)).value, 0.75f);
  EXPECT_FLOAT_EQ(SampleAt(linear, Vector(0, 0, -30)).value, 0.0f);
  EXPECT_FLOAT_EQ(SampleAt(linear, Vector(0, 0, 30)).value, 1.0f);
  ExpectNear(SampleAt(linear, Vector(0, 0, 5)).dir, Vector(0, 0, 0.05), 1e-9);
  linear.GetLayerWritable(0)->SetMatrix(MatrixRotY(M_PI / 2));
  ExpectNear(SampleAt(linear, Vector(1, 2, 3)).dir, NumericGradient(linear, Vector(1, 2, 3)), 1e-4);

  // Box: 1 inside size * (1 - falloff), by the largest excess to 0 at size.
  FieldList box = One(std::make_unique<BoxFieldLayer>(Vector(10, 20, 10), 0.5));
  EXPECT_FLOAT_EQ(SampleAt(box, Vector(4, 9, -4)).value, 1.0f);
  EXPECT_FLOAT_EQ(SampleAt(box, Vector(7.5, 0, 0)).value, 0.5f);
  EXPECT_FLOAT_EQ(SampleAt(box, Vector(7.5, 17.5, 0)).value, 0.25f);
  EXPECT_FLOAT_EQ(SampleAt(box, Vector(0, 0, -10.5)).value, 0.0f);
  ExpectNear(SampleAt(box, Vector(7.5, 17.5, 0)).dir, NumericGradient(box, Vector(7.5, 17.5, 0)), 1e-4);

  // Noise: the same seed gives the same field, values stay in [0, 1], and
  // the direction is the field's gradient.
  FieldList noise = One(std::make_unique<NoiseFieldLayer>(7.0, 3));
  FieldList same = One(std::make_unique<NoiseFieldLayer>(7.0, 3));
  FieldList other = One(std::make_unique<NoiseFieldLayer>(7.0, 4));
  bool differs = false;
  for (int i = 0; i < 50; ++i) {
    const Vector p(i * 1.37, i * -0.71, i * 2.13);
    const Sample s = SampleAt(noise, p);
    EXPECT_GE(s.value, 0.0f);
    EXPECT_LE(s.value, 1.0f);
    EXPECT_EQ(s.value, SampleAt(same, p).value);
    differs = differs || s.value != SampleAt(other, p).value;
    if (i % 10 == 3) ExpectNear(s.dir, NumericGradient(noise, p, 1e-4), 2e-3);
  }
  EXPECT_TRUE(differs);
  EXPECT_TRUE(noise.IsEqual(same));
  EXPECT_FALSE(noise.IsEqual(other));
}

TEST(Fields, BlendingStrengthAndDisabledLayers) {
  const Vector p(7.5, 0, 5);  // sphere 0.5 (r = 9.01...), linear 0.75
  FieldList list;
  list.InsertLayer(std::make_unique<SphericalFieldLayer>(10.0, 0.5));
  const float s = SampleAt(list, p).value;
  list.InsertLayer(std::make_unique<LinearFieldLayer>(20.0), 0);  // on top
  const float l = 0.75f;
  FieldLayer* top = list.GetLayerWritable(0);
  EXPECT_FLOAT_EQ(SampleAt(list, p).value, l);  // NORMAL replaces
  top->SetBlend(FIELDBLEND::ADD);
  top->SetStrength(0.5);
  EXPECT_NEAR(SampleAt(list, p).value, s + 0.5f * l, 1e-6);
  top->SetStrength(1.0);
  top->SetBlend(FIELDBLEND::SUBTRACT);
  EXPECT_NEAR(SampleAt(list, p).value, s - l, 1e-6);
  top->SetBlend(FIELDBLEND::MIN);
  EXPECT_NEAR(SampleAt(list, p).value, std::min(s, l), 1e-6);
  top->SetBlend(FIELDBLEND::MAX);
  EXPECT_NEAR(SampleAt(list, p).value, std::max(s, l), 1e-6);
  top->SetBlend(FIELDBLEND::MULTIPLY);
  EXPECT_NEAR(SampleAt(list, p).value, s * l, 1e-6);
  // The blended direction is the gradient of the blended value.
  ExpectNear(SampleAt(list, p).dir, NumericGradient(list, p), 1e-4);
  top->SetEnabled(false);
  EXPECT_FLOAT_EQ(SampleAt(list, p).value, s);
  EXPECT_TRUE(list.RemoveLayer(0));
  EXPECT_FALSE(list.RemoveLayer(3));
  EXPECT_EQ(list.GetLayerCount(), 1);
}

TEST(Fields, BatchSamplingInputTransformAndErrors) {
  FieldList list = One(std::make_unique<SphericalFieldLayer>(10.0, 0.0));
  FieldOutput out;
  // The input's transform takes positions into world space first.
  const Vector p(0.5, 0, 0);
  FieldInput in(&p, 1, MatrixScale(Vector(10)));
  ASSERT_TRUE(SampleField(list, in, out).IsOk());
  EXPECT_FLOAT_EQ(out.values[0], 0.5f);
  EXPECT_TRUE(out.directions.empty());  // not asked for

  EXPECT_TRUE(SampleField(list, FieldInput(nullptr, 3), out).IsError());
  EXPECT_TRUE(SampleField(list, FieldInput(&p, -1), out).IsError());
  EXPECT_TRUE(SampleField(list, FieldInput(nullptr, 0), out).IsOk());
  EXPECT_TRUE(out.values.empty());

  // One large batch: every position gets its own value, and the work is
  // spread over more than one thread.
  struct ThreadRecorder : SphericalFieldLayer {
    ThreadRecorder() : SphericalFieldLayer(10.0, 0.0) {}
    std::unique_ptr<FieldLayer> Clone() const override { return std::make_unique<ThreadRecorder>(); }
    void SampleLocal(const Vector& local, Float32& value, Vector& gradient) const override {
      SphericalFieldLayer::SampleLocal(local, value, gradient);
      std::lock_guard<std::mutex> lock(mutex);
      threads.insert(std::this_thread::get_id());
    }
    mutable std::mutex mutex;
    mutable std::set<std::thread::id> threads;
  };
  const Int64 n = 1000000;
  std::vector<Vector> positions(n);
  for (Int64 i = 0; i < n; ++i) positions[size_t(i)] = Vector(double(i % 1000) * 0.01, 0, 0);
  FieldList recording;
  recording.InsertLayer(std::make_unique<ThreadRecorder>());
  ASSERT_TRUE(SampleField(recording, FieldInput(positions.data(), n), out, FIELDSAMPLE_FLAG_VALUE).IsOk());
  ASSERT_EQ(out.values.size(), size_t(n));
  for (Int64 i : {Int64(0), Int64(1), Int64(999), Int64(1500), n - 1}) {
    EXPECT_FLOAT_EQ(out.values[size_t(i)], float(1.0 - positions[size_t(i)].x / 10.0));
  }
  const auto* layer = static_cast<const ThreadRecorder*>(recording.GetLayer(0));
  if (std::thread::hardware_concurrency() > 1) {
    EXPECT_GT(layer->threads.size(), 1u);
  }

  // A stop request ends sampling with an error and no output.
  auto thread = std::make_shared<ZTAThread>();
  thread->End();
  auto r = SampleField(list, FieldInput(positions.data(), n), out, FIELDSAMPLE_FLAG_VALUE, thread);
  EXPECT_TRUE(r.IsError());
  EXPECT_TRUE(out.values.empty());
}

TEST(Fields, FieldObjectsLinksAndDirty) {
  auto doc = BaseDocument::Alloc();
  auto fo = FieldObject::Alloc(HOST_TYPE_FIELD_OBJECT);
  auto carrier = FieldObject::Alloc(HOST_TYPE_FIELD_CARRIER);
  EXPECT_EQ(FieldObject::Alloc(HOST_TYPE_NULL), nullptr);
  ASSERT_TRUE(fo && carrier);
  EXPECT_EQ(fo->GetInfo() & OBJECT_FIELDCARRIER, OBJECT_FIELDCARRIER);
  // Each type keeps its list under its own id, as custom data 440000246.
  EXPECT_NE(fo->GetDataInstance()->GetCustomData(FIELDOBJECT_FIELDS, CUSTOMDATATYPE_FIELDLIST), nullptr);
  EXPECT_NE(carrier->GetDataInstance()->GetCustomData(FIELDCARRIER_FIELDS, CUSTOMDATATYPE_FIELDLIST), nullptr);
  EXPECT_EQ(fo->GetDataInstance()->GetCustomData(FIELDCARRIER_FIELDS, CUSTOMDATATYPE_FIELDLIST), nullptr);
  auto allocated = BaseObject::Alloc(HOST_TYPE_FIELD_CARRIER);
  EXPECT_NE(GetObjectFieldList(allocated.get()), nullptr);

  BaseObject* mover = BaseObject::Alloc(HOST_TYPE_NULL).release();
  doc->InsertObject(mover);
  FieldList list;
  list.InsertLayer(std::make_unique<SphericalFieldLayer>(10.0, 0.0));
  list.GetLayerWritable(0)->SetLinkedObject(mover);
  carrier->SetFieldList(list);
  std::shared_ptr<const FieldList> stored = GetObjectFieldList(carrier.get());
  ASSERT_TRUE(stored);
  EXPECT_EQ(stored->GetLayerCount(), 1);

  // Moving the linked object makes the list dirty and moves the field.
  const UInt32 d0 = stored->GetDirty(doc.get(), 30);
  mover->SetMl(MatrixMove(Vector(50, 0, 0)));
  EXPECT_NE(stored->GetDirty(doc.get(), 30), d0);
  const FieldList resolved = stored->Resolve(doc.get());
  EXPECT_FLOAT_EQ(SampleAt(resolved, Vector(55, 0, 0)).value, 0.5f);
  EXPECT_FLOAT_EQ(SampleAt(*stored, Vector(55, 0, 0)).value, 0.0f);

  // Copies of a list are deep.
  FieldList copy(*stored);
  copy.GetLayerWritable(0)->SetStrength(0.25);
  EXPECT_EQ(stored->GetLayer(0)->GetStrength(), 1.0);
  EXPECT_FALSE(copy.IsEqual(*stored));
}

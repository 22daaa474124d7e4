// MixVolumes, MixVectorVolumes and BlendVolumes: the voxel formulas, their
// special values, the checks, and inputs left as they were.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "combine_fixtures.h"

using namespace zelmar;
using openvdb::Coord;
using zvtest::TakeFingerprint;
using zvtest::Typed;
using zvtest::Wrap;

namespace {

using Tools = VolumeToolsInterface;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// Pairs (a, b) at the voxels (i, 0, 0); both active. The backgrounds are 0 and `bgB`.
template <typename GridT>
std::pair<Volume, Volume> Pairs(const std::vector<std::pair<typename GridT::ValueType, typename GridT::ValueType>>& ab,
                                typename GridT::ValueType bgB = openvdb::zeroVal<typename GridT::ValueType>()) {
  auto a = zvtest::MakeGrid<GridT>(openvdb::zeroVal<typename GridT::ValueType>(), {});
  auto b = zvtest::MakeGrid<GridT>(bgB, {});
  for (size_t i = 0; i < ab.size(); ++i) {
    a->tree().setValueOn(Coord(int(i), 0, 0), ab[i].first);
    b->tree().setValueOn(Coord(int(i), 0, 0), ab[i].second);
  }
  return {Wrap(a), Wrap(b)};
}

template <typename GridT>
typename GridT::ValueType At(const Volume& v, int i) {
  return Typed<GridT>(v)->tree().getValue(Coord(i, 0, 0));
}

template <typename GridT>
Volume Mix(const Volume& a, const Volume& b, MIXTYPE type) {
  auto out = Tools::MixVolumes(a, b, type);
  EXPECT_TRUE(out) << out.GetError().GetMessage();
  EXPECT_TRUE(out->HasGrid());
  return *out;
}

}  // namespace

TEST(MixVolumes, FloatVoxelFormulas) {
  const std::vector<std::pair<float, float>> ab = {{1.0f, 2.0f}, {3.0f, -1.5f}, {kNaN, 5.0f}, {5.0f, kNaN},
                                                   {1.0f, 0.0f}, {0.0f, 0.0f}, {-2.0f, 0.0f}, {-6.0f, 4.0f}};
  auto [a, b] = Pairs<openvdb::FloatGrid>(ab);
  const auto beforeA = TakeFingerprint(a), beforeB = TakeFingerprint(b);
  using G = openvdb::FloatGrid;

  const Volume max = Mix<G>(a, b, MIXTYPE::MAXIMUM), min = Mix<G>(a, b, MIXTYPE::MINIMUM);
  const Volume add = Mix<G>(a, b, MIXTYPE::ADD), sub = Mix<G>(a, b, MIXTYPE::SUBTRACT);
  const Volume mul = Mix<G>(a, b, MIXTYPE::MULTIPLY), div = Mix<G>(a, b, MIXTYPE::DIVIDE);
  for (int i = 0; i < int(ab.size()); ++i) {
    const float x = ab[i].first, y = ab[i].second;
    SCOPED_TRACE(::testing::Message() << "a " << x << " b " << y);
    // A NaN on either side keeps a.
    if (std::isnan(x) || std::isnan(y)) {
      EXPECT_EQ(std::isnan(At<G>(max, i)), std::isnan(x));
      EXPECT_EQ(std::isnan(At<G>(min, i)), std::isnan(x));
      if (!std::isnan(x)) {
        EXPECT_EQ(At<G>(max, i), x);
        EXPECT_EQ(At<G>(min, i), x);
      }
    } else {
      EXPECT_EQ(At<G>(max, i), std::max(x, y));
      EXPECT_EQ(At<G>(min, i), std::min(x, y));
      EXPECT_EQ(At<G>(add, i), x + y);
      EXPECT_EQ(At<G>(sub, i), x - y);
      EXPECT_EQ(At<G>(mul, i), x * y);
    }
    const float q = x / y;
    EXPECT_EQ(At<G>(div, i), std::isfinite(q) ? q : 0.0f);
  }
  // 1 / 0 and 0 / 0 become 0; the background 0 / 0 too.
  EXPECT_EQ(At<G>(div, 4), 0.0f);
  EXPECT_EQ(At<G>(div, 5), 0.0f);
  EXPECT_EQ(Typed<G>(div)->background(), 0.0f);
  EXPECT_EQ(div.GetActiveVoxelCount(), Int(ab.size()));
  for (auto it = Typed<G>(div)->cbeginValueAll(); it; ++it) EXPECT_TRUE(std::isfinite(*it));

  EXPECT_EQ(TakeFingerprint(a), beforeA);
  EXPECT_EQ(TakeFingerprint(b), beforeB);
}

TEST(MixVolumes, ActiveSetIsTheUnionAndBackgroundsCombine) {
  using G = openvdb::DoubleGrid;
  const Volume a = Wrap(zvtest::MakeGrid<G>(1.0, {{Coord(0), 4.0}, {Coord(1), 9.0, false}}));
  const Volume b = Wrap(zvtest::MakeGrid<G>(2.0, {{Coord(5), 3.0}}));
  const Volume add = Mix<G>(a, b, MIXTYPE::ADD);
  auto grid = Typed<G>(add);
  EXPECT_EQ(grid->background(), 3.0);
  EXPECT_EQ(grid->tree().getValue(Coord(0)), 6.0);   // 4 + background of b
  EXPECT_EQ(grid->tree().getValue(Coord(5)), 4.0);   // background of a + 3
  EXPECT_EQ(grid->tree().getValue(Coord(1)), 11.0);  // inactive values combine too
  EXPECT_TRUE(grid->tree().isValueOn(Coord(0)));
  EXPECT_TRUE(grid->tree().isValueOn(Coord(5)));
  EXPECT_FALSE(grid->tree().isValueOn(Coord(1)));
  EXPECT_EQ(add.GetActiveVoxelCount(), 2);

  // Division of a by b where b's background is 0: the background and every 1/0 turn to 0.
  const Volume zeroB = Wrap(zvtest::MakeGrid<G>(0.0, {{Coord(5), 2.0}}));
  const Volume div = Mix<G>(a, zeroB, MIXTYPE::DIVIDE);
  EXPECT_EQ(Typed<G>(div)->background(), 0.0);
  EXPECT_EQ(Typed<G>(div)->tree().getValue(Coord(0)), 0.0);
  EXPECT_EQ(Typed<G>(div)->tree().getValue(Coord(5)), 0.5);
}

TEST(MixVolumes, IntegerRules) {
  using G32 = openvdb::Int32Grid;
  constexpr int32_t kMax32 = std::numeric_limits<int32_t>::max(), kMin32 = std::numeric_limits<int32_t>::min();
  auto [a, b] = Pairs<G32>({{-5, 0}, {5, 0}, {0, 0}, {7, 2}, {-7, 2}, {kMin32, -1}, {9, -3}}, 3);
  const Volume div = Mix<G32>(a, b, MIXTYPE::DIVIDE);
  EXPECT_EQ(At<G32>(div, 0), -2147483647);
  EXPECT_EQ(At<G32>(div, 1), kMax32);
  EXPECT_EQ(At<G32>(div, 2), 0);
  EXPECT_EQ(At<G32>(div, 3), 3);
  EXPECT_EQ(At<G32>(div, 4), -3);
  EXPECT_EQ(At<G32>(div, 5), kMin32);  // wraps around instead of trapping
  EXPECT_EQ(At<G32>(div, 6), -3);
  // The subtraction negates volumeTwo first, its background with it.
  const Volume sub = Mix<G32>(a, b, MIXTYPE::SUBTRACT);
  EXPECT_EQ(Typed<G32>(sub)->background(), -3);
  EXPECT_EQ(At<G32>(sub, 3), 5);
  EXPECT_EQ(At<G32>(sub, 6), 12);

  using G64 = openvdb::Int64Grid;
  auto [c, d] = Pairs<G64>({{-5, 0}, {5, 0}, {0, 0}, {int64_t(1) << 40, 1 << 20}});
  const Volume div64 = Mix<G64>(c, d, MIXTYPE::DIVIDE);
  EXPECT_EQ(At<G64>(div64, 0), -9223372036854775807LL);
  EXPECT_EQ(At<G64>(div64, 1), 9223372036854775807LL);
  EXPECT_EQ(At<G64>(div64, 2), 0);
  EXPECT_EQ(At<G64>(div64, 3), int64_t(1) << 20);
  EXPECT_EQ(At<G64>(Mix<G64>(c, d, MIXTYPE::MAXIMUM), 3), int64_t(1) << 40);
  EXPECT_EQ(At<G64>(Mix<G64>(c, d, MIXTYPE::MULTIPLY), 3), int64_t(1) << 60);
}

TEST(MixVolumes, ReplaceIsTheDefault) {
  using G = openvdb::FloatGrid;
  const Volume a = Wrap(zvtest::MakeGrid<G>(0.0f, {{Coord(0), 1.0f}, {Coord(1), 2.0f}, {Coord(3), 8.0f, false}}));
  const Volume b = Wrap(zvtest::MakeGrid<G>(0.0f, {{Coord(1), 5.0f}, {Coord(2), 6.0f}, {Coord(0), 9.0f, false}}));
  for (MIXTYPE type : {MIXTYPE::NONE, MIXTYPE::NORMAL, MIXTYPE(42)}) {
    const Volume out = Mix<G>(a, b, type);
    auto g = Typed<G>(out);
    EXPECT_EQ(g->tree().getValue(Coord(0)), 1.0f);  // b inactive here: a stays
    EXPECT_EQ(g->tree().getValue(Coord(1)), 5.0f);
    EXPECT_EQ(g->tree().getValue(Coord(2)), 6.0f);
    EXPECT_EQ(g->tree().getValue(Coord(3)), 8.0f);
    EXPECT_EQ(out.GetActiveVoxelCount(), 3);
  }
}

TEST(MixVolumes, ChecksAndSilentWayOut) {
  using G = openvdb::FloatGrid;
  const Volume fog = Wrap(zvtest::MakeGrid<G>(0.0f, {{Coord(0), 1.0f}}));
  const Volume unknown = Wrap(zvtest::MakeGrid<G>(0.0f, {{Coord(0), 2.0f}}, openvdb::GRID_UNKNOWN));
  const Volume sdf = Wrap(zvtest::MakeGrid<G>(0.3f, {{Coord(0), 0.1f}}, openvdb::GRID_LEVEL_SET));
  const std::string wrongClass = "passed volumes have the wrong grid class, only GRIDCLASS Fog and Unknown are valid";
  for (auto out : {Tools::MixVolumes(fog, sdf, MIXTYPE::ADD), Tools::MixVolumes(sdf, fog, MIXTYPE::ADD),
                   Tools::MixVolumes(Volume(), fog, MIXTYPE::ADD), Tools::MixVolumes(fog, *Volume::Create(), MIXTYPE::ADD)}) {
    ASSERT_FALSE(out);
    EXPECT_EQ(out.GetError().GetMessage(), wrongClass);
  }
  EXPECT_EQ(At<G>(Mix<G>(fog, unknown, MIXTYPE::ADD), 0), 3.0f);

  const Volume dbl = Wrap(zvtest::MakeGrid<openvdb::DoubleGrid>(0.0, {{Coord(0), 1.0}}));
  const Volume vec = Wrap(zvtest::MakeGrid<openvdb::Vec3SGrid>(openvdb::Vec3s(0.0f), {{Coord(0), openvdb::Vec3s(1.0f)}}));
  for (auto out : {Tools::MixVolumes(fog, dbl, MIXTYPE::ADD), Tools::MixVolumes(vec, vec, MIXTYPE::ADD)}) {
    ASSERT_TRUE(out);
    EXPECT_TRUE(out->IsInitialized());
    EXPECT_FALSE(out->HasGrid());
  }
}

TEST(MixVolumes, SecondVolumeIsResampledIntoTheFirstFrame) {
  using G = openvdb::FloatGrid;
  // a: 1 everywhere on [-4, 4]^3 at voxel size 1; b: x + 2y on a half-voxel grid, offset.
  auto a = zvtest::MakeGrid<G>(0.0f, {});
  a->tree().fill(openvdb::CoordBBox(Coord(-4), Coord(4)), 1.0f, true);
  auto b = zvtest::MakeGrid<G>(0.0f, {}, openvdb::GRID_FOG_VOLUME, 0.5);
  b->transform().postTranslate(openvdb::Vec3d(0.1, 0.2, 0.3));
  for (auto it = openvdb::CoordBBox(Coord(-14), Coord(14)).begin(); it; ++it) {
    const openvdb::Vec3d p = b->indexToWorld(*it);
    b->tree().setValueOn(*it, float(p.x() + 2.0 * p.y()));
  }
  const Volume va = Wrap(a), vb = Wrap(b);
  const auto beforeB = TakeFingerprint(vb);
  const Volume out = Mix<G>(va, vb, MIXTYPE::ADD);
  EXPECT_EQ(out.GetGridTransform(), va.GetGridTransform());
  auto g = Typed<G>(out);
  for (auto it = openvdb::CoordBBox(Coord(-4), Coord(4)).begin(); it; ++it)
    ASSERT_NEAR(g->tree().getValue(*it), 1.0 + (*it).x() + 2.0 * (*it).y(), 1e-4) << *it;
  EXPECT_EQ(TakeFingerprint(vb), beforeB);
}

TEST(MixVectorVolumes, VectorFormulas) {
  using G = openvdb::Vec3SGrid;
  using V = openvdb::Vec3s;
  const V zero(0.0f), x(1.0f, 0.0f, 0.0f), y(0.0f, 1.0f, 0.0f), w(2.0f, -3.0f, 0.5f);
  auto [a, b] = Pairs<G>({{x, y}, {zero, w}, {w, zero}, {zero, zero}, {w, x}});
  const auto beforeA = TakeFingerprint(a), beforeB = TakeFingerprint(b);
  auto mix = [&](MIXVECTORTYPE t) {
    auto out = Tools::MixVectorVolumes(a, b, t);
    EXPECT_TRUE(out && out->HasGrid());
    return *out;
  };
  const Volume cross = mix(MIXVECTORTYPE::CROSS), add = mix(MIXVECTORTYPE::ADD), sub = mix(MIXVECTORTYPE::SUBTRACT);
  EXPECT_EQ(At<G>(cross, 0), V(0.0f, 0.0f, 1.0f));
  EXPECT_EQ(At<G>(cross, 1), w);  // a zero: b passes
  EXPECT_EQ(At<G>(cross, 2), w);  // b zero: a passes
  EXPECT_EQ(At<G>(cross, 3), zero);
  EXPECT_EQ(At<G>(cross, 4), V(0.0f, 0.5f, 3.0f));
  EXPECT_EQ(At<G>(add, 4), w + x);
  EXPECT_EQ(At<G>(sub, 4), w - x);
  EXPECT_EQ(At<G>(sub, 1), -w);
  for (MIXVECTORTYPE t : {MIXVECTORTYPE::NONE, MIXVECTORTYPE::NORMAL}) EXPECT_EQ(At<G>(mix(t), 4), x);
  EXPECT_EQ(TakeFingerprint(a), beforeA);
  EXPECT_EQ(TakeFingerprint(b), beforeB);

  // Integer vectors compute the cross product in integers, with the same zero rule.
  using GI = openvdb::Vec3IGrid;
  using VI = openvdb::Vec3i;
  auto [c, d] = Pairs<GI>({{VI(1, 2, 3), VI(4, 5, 6)}, {VI(0), VI(7, 8, 9)}});
  auto icross = Tools::MixVectorVolumes(c, d, MIXVECTORTYPE::CROSS);
  ASSERT_TRUE(icross);
  EXPECT_EQ(At<GI>(*icross, 0), VI(-3, 6, -3));
  EXPECT_EQ(At<GI>(*icross, 1), VI(7, 8, 9));
}

TEST(MixVectorVolumes, ChecksAndSilentWayOut) {
  const Volume vs = Wrap(zvtest::MakeGrid<openvdb::Vec3SGrid>(openvdb::Vec3s(0.0f), {}));
  const Volume vd = Wrap(zvtest::MakeGrid<openvdb::Vec3DGrid>(openvdb::Vec3d(0.0), {}));
  const Volume scalar = Wrap(zvtest::MakeGrid<openvdb::FloatGrid>(0.0f, {}));
  const Volume staggered = Wrap(zvtest::MakeGrid<openvdb::Vec3SGrid>(openvdb::Vec3s(0.0f), {}, openvdb::GRID_STAGGERED));
  for (auto out : {Tools::MixVectorVolumes(vs, vd, MIXVECTORTYPE::ADD), Tools::MixVectorVolumes(scalar, scalar, MIXVECTORTYPE::ADD)}) {
    ASSERT_TRUE(out);
    EXPECT_FALSE(out->HasGrid());
  }
  auto bad = Tools::MixVectorVolumes(vs, staggered, MIXVECTORTYPE::ADD);
  ASSERT_FALSE(bad);
  EXPECT_EQ(bad.GetError().GetMessage(), "passed volumes have the wrong grid class, only GRIDCLASS Fog and Unknown are valid");
}

namespace {
// Metadata whose copies fail once armed: the only way the empty grid of the
// scale pass (a copy of a grid's metadata and transform) can fail to be made.
class UncopyableMetadata : public openvdb::Metadata {
 public:
  static inline bool armed = false;
  openvdb::Name typeName() const override { return "uncopyable"; }
  openvdb::Metadata::Ptr copy() const override {
    if (armed) throw openvdb::RuntimeError("metadata cannot be copied");
    return std::make_shared<UncopyableMetadata>();
  }
  void copy(const openvdb::Metadata&) override {}
  std::string str() const override { return "uncopyable"; }
  bool asBool() const override { return true; }
  openvdb::Index32 size() const override { return 0; }

 protected:
  void readValue(std::istream&, openvdb::Index32) override {}
  void writeValue(std::ostream&) const override {}
};
}  // namespace

TEST(MixVectorVolumes, AFailedEmptyGridOfTheScalePassHasItsWords) {
  // Subtract scales the second input by -1 into a new grid, which cannot be made here.
  auto a = zvtest::MakeGrid<openvdb::Vec3SGrid>(openvdb::Vec3s(0.0f), {{Coord(0), openvdb::Vec3s(1.0f)}});
  auto b = zvtest::MakeGrid<openvdb::Vec3SGrid>(openvdb::Vec3s(0.0f), {{Coord(0), openvdb::Vec3s(2.0f)}});
  b->insertMeta("guard", UncopyableMetadata());
  auto fa = zvtest::MakeGrid<openvdb::FloatGrid>(0.0f, {{Coord(0), 1.0f}});
  auto fb = zvtest::MakeGrid<openvdb::FloatGrid>(0.0f, {{Coord(0), 2.0f}});
  fb->insertMeta("guard", UncopyableMetadata());
  const Volume va = Wrap(a), vb = Wrap(b), sa = Wrap(fa), sb = Wrap(fb);

  UncopyableMetadata::armed = true;
  auto vector = Tools::MixVectorVolumes(va, vb, MIXVECTORTYPE::SUBTRACT);
  auto scalar = Tools::MixVolumes(sa, sb, MIXTYPE::SUBTRACT);
  auto added = Tools::MixVectorVolumes(va, vb, MIXVECTORTYPE::ADD);  // no scale pass, no new grid
  UncopyableMetadata::armed = false;

  ASSERT_FALSE(vector);
  EXPECT_EQ(vector.GetError().GetMessage(), "could not create a grid");
  ASSERT_FALSE(scalar);
  EXPECT_EQ(scalar.GetError().GetMessage(), "");  // its location only
  EXPECT_EQ(scalar.GetError().GetKind(), zta::ErrorKind::OutOfMemory);
  ASSERT_TRUE(added) << added.GetError().GetMessage();
  EXPECT_EQ(At<openvdb::Vec3SGrid>(*added, 0), openvdb::Vec3s(3.0f));
}

TEST(BlendVolumes, WeightOnTheFirstVolumeAndPrecisionPerType) {
  auto [i32a, i32b] = Pairs<openvdb::Int32Grid>({{3, 4}, {-3, -4}, {10, 0}});
  auto blended = Tools::BlendVolumes(i32a, i32b, 0.5, nullptr);
  ASSERT_TRUE(blended);
  EXPECT_EQ(At<openvdb::Int32Grid>(*blended, 0), 3);   // 3.5 truncated
  EXPECT_EQ(At<openvdb::Int32Grid>(*blended, 1), -3);  // toward zero
  EXPECT_EQ(At<openvdb::Int32Grid>(*Tools::BlendVolumes(i32a, i32b, 0.25, nullptr), 2), 2);

  auto [fa, fb] = Pairs<openvdb::FloatGrid>({{1.0f, 3.0f}, {0.1f, 0.7f}});
  const auto beforeA = TakeFingerprint(fa), beforeB = TakeFingerprint(fb);
  for (double t : {1.0, 0.0, 0.25, 2.0, -0.5}) {
    auto out = Tools::BlendVolumes(fa, fb, t, nullptr);
    ASSERT_TRUE(out);
    EXPECT_EQ(At<openvdb::FloatGrid>(*out, 0), float(1.0 * t + 3.0 * (1.0 - t))) << t;
    EXPECT_EQ(At<openvdb::FloatGrid>(*out, 1), float(double(0.1f) * t + double(0.7f) * (1.0 - t))) << t;
  }
  EXPECT_EQ(TakeFingerprint(fa), beforeA);
  EXPECT_EQ(TakeFingerprint(fb), beforeB);

  auto [va, vb] = Pairs<openvdb::Vec3SGrid>({{openvdb::Vec3s(1.0f, 2.0f, 3.0f), openvdb::Vec3s(3.0f, 2.0f, 1.0f)}});
  auto vec = Tools::BlendVolumes(va, vb, 0.75, nullptr);
  ASSERT_TRUE(vec);
  EXPECT_EQ(At<openvdb::Vec3SGrid>(*vec, 0), openvdb::Vec3s(1.5f, 2.0f, 2.5f));

  // Bool grids are not blended: the result is volumeA's copy.
  const Volume ba = Wrap(zvtest::MakeGrid<openvdb::BoolGrid>(false, {{Coord(0), true}}));
  const Volume bb = Wrap(zvtest::MakeGrid<openvdb::BoolGrid>(false, {{Coord(1), true}}));
  auto bools = Tools::BlendVolumes(ba, bb, 0.5, nullptr);
  ASSERT_TRUE(bools);
  EXPECT_NE(VolumeImpl::GetGrid(*bools), VolumeImpl::GetGrid(ba));
  EXPECT_EQ(bools->GetActiveVoxelCount(), 1);
}

TEST(BlendVolumes, CombinesByIndexAndChecksItsInputs) {
  using G = openvdb::FloatGrid;
  const Volume a = Wrap(zvtest::MakeGrid<G>(0.0f, {{Coord(2), 4.0f}}, openvdb::GRID_FOG_VOLUME, 1.0));
  const Volume b = Wrap(zvtest::MakeGrid<G>(0.0f, {{Coord(2), 8.0f}}, openvdb::GRID_FOG_VOLUME, 3.0));
  auto out = Tools::BlendVolumes(a, b, 0.5, nullptr);
  ASSERT_TRUE(out);
  EXPECT_EQ(out->GetGridTransform(), a.GetGridTransform());
  EXPECT_EQ(Typed<G>(*out)->tree().getValue(Coord(2)), 6.0f);

  const Volume dbl = Wrap(zvtest::MakeGrid<openvdb::DoubleGrid>(0.0, {}));
  struct Case {
    Result<Volume> result;
    const char* words;
  };
  const Case cases[] = {
      {Tools::BlendVolumes(Volume(), a, 0.5, nullptr), "one of the input volumes is not initialized"},
      {Tools::BlendVolumes(a, *Volume::Create(), 0.5, nullptr), "one of the input volumes has no grid attached"},
      {Tools::BlendVolumes(a, dbl, 0.5, nullptr), "the passed volumes do not have the same grid type"},
  };
  for (const Case& c : cases) {
    ASSERT_FALSE(c.result);
    EXPECT_EQ(c.result.GetError().GetMessage(), c.words);
  }
}

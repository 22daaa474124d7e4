#pragma once
// Expectations shared by the test programs.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace zvtest {

// "(x, y, z)" of anything with three indexed components.
template <typename V>
std::string Components(const V& v) {
  std::ostringstream s;
  s << "(" << v[0] << ", " << v[1] << ", " << v[2] << ")";
  return s.str();
}

// Each of the three components of `a` within `eps` of those of `b`: host
// vectors and OpenVDB's alike.
template <typename V>
void ExpectNear(const V& a, const V& b, double eps = 1e-9) {
  for (int i = 0; i < 3; ++i)
    EXPECT_NEAR(double(a[i]), double(b[i]), eps) << "component " << i << " of " << Components(a) << " and "
                                                 << Components(b);
}

}  // namespace zvtest

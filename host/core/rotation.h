#pragma once
// Rotations as the host's panels show them: heading (about Y), pitch (about
// X) and bank (about Z), in radians, applied bank first. And the split of a
// matrix into position, rotation and scale.
#include "host/core/math.h"

namespace zta {

Matrix HPBToMatrix(const Vector& hpb);
// The angles of the rotation part of `m` (its axes normalised). At a pitch of
// +-90 degrees, where heading and bank turn about one axis, heading is 0.
Vector MatrixToHPB(const Matrix& m);

// m = move(position) * rotation(hpb) * scale. A mirrored matrix gives a
// negative third scale.
struct PSR {
  Vector position;
  Vector rotation;
  Vector scale{1, 1, 1};
};
PSR SplitMatrix(const Matrix& m);
Matrix JoinMatrix(const PSR& psr);

}  // namespace zta

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "pv/math.h"

namespace {

constexpr float kTol = 1e-5f;

void expectNear(const pv::Vector3<float>& a, const pv::Vector3<float>& b, float tol = kTol) {
  EXPECT_NEAR(a.x, b.x, tol);
  EXPECT_NEAR(a.y, b.y, tol);
  EXPECT_NEAR(a.z, b.z, tol);
}

void expectNear(const pv::Matrix4f& a, const pv::Matrix4f& b, float tol = kTol) {
  for (int i = 0; i < 16; ++i) EXPECT_NEAR(a.m[i], b.m[i], tol) << "element " << i;
}

pv::Orientation randomOrientation(std::mt19937& rng) {
  std::normal_distribution<float> n(0.f, 1.f);
  return pv::Orientation::normalise(pv::Orientation(n(rng), n(rng), n(rng), n(rng)));
}

TEST(Math, AxisAngleRotatesVectorsRightHanded) {
  const float half_pi = float(M_PI / 2);
  const pv::Rotation about_z(half_pi, pv::Translation(0, 0, 1));
  expectNear(about_z * pv::Vector3<float>(1, 0, 0), {0, 1, 0});
  // The same rotation applied through the quaternion.
  const pv::Orientation q(about_z);
  expectNear(pv::Translation(1, 0, 0) * q, {0, 1, 0});
  // The axis is normalised.
  const pv::Rotation about_long_x(half_pi, pv::Translation(5, 0, 0));
  expectNear(about_long_x * pv::Vector3<float>(0, 1, 0), {0, 0, 1});
  // A zero axis gives the identity rather than NaNs.
  EXPECT_EQ(pv::Rotation(1.f, pv::Translation(0, 0, 0)), pv::Rotation());
}

TEST(Math, QuaternionAndMatrixAgreeAndCompose) {
  std::mt19937 rng(7);
  for (int i = 0; i < 50; ++i) {
    const pv::Orientation a = randomOrientation(rng);
    const pv::Orientation b = randomOrientation(rng);
    // (a * b) applies b first, then a, exactly like the matrix product.
    const pv::Rotation ab_mat = pv::Rotation(a) * pv::Rotation(b);
    const pv::Rotation ab_quat(a * b);
    for (int k = 0; k < 9; ++k) EXPECT_NEAR(ab_mat.r[k], ab_quat.r[k], 1e-5f);
    // Matrix -> quaternion -> matrix round trip.
    const pv::Rotation back{pv::Orientation(pv::Rotation(a))};
    for (int k = 0; k < 9; ++k) EXPECT_NEAR(back.r[k], pv::Rotation(a).r[k], 1e-5f);
    // Rotation matrices are orthonormal with determinant 1.
    EXPECT_NEAR(pv::Rotation(a).determinant(), 1.f, 1e-5f);
    // Rotating by q then by its conjugate is the identity.
    const pv::Translation v(0.3f, -1.2f, 2.f);
    expectNear((v * a) * a.conjugate(), v);
  }
}

TEST(Math, ShortestArcBetweenDirections) {
  // General case: takes `from` onto `to`, unit norm.
  const pv::Translation from(0, 0, 1), to(0, 3, 0);
  const pv::Orientation q(from, to);
  expectNear(from * q, {0, 1, 0});
  EXPECT_NEAR(q.x * q.x + q.y * q.y + q.z * q.z + q.w * q.w, 1.f, kTol);

  // Same direction: identity.
  const pv::Orientation same(pv::Translation(0, 0, 1), pv::Translation(0, 0, 2));
  EXPECT_NEAR(same.w, 1.f, kTol);

  // Opposite directions along z and along x (where the cross product with x vanishes).
  for (const pv::Translation& a : {pv::Translation(0, 0, 1), pv::Translation(1, 0, 0), pv::Translation(0, -2, 0)}) {
    const pv::Orientation flip(a, -a);
    expectNear(pv::Translation::normalize(a) * flip, -pv::Translation::normalize(a));
    EXPECT_NEAR(flip.w, 0.f, kTol);
    EXPECT_FALSE(std::isnan(flip.x) || std::isnan(flip.y) || std::isnan(flip.z));
  }

  // A zero direction (the 3D view's first camera) gives the identity, not NaNs.
  const pv::Orientation none(pv::Translation(0, 0, 1), pv::Translation(0, 0, 0));
  EXPECT_EQ(none, pv::Orientation());
}

TEST(Math, RigidTransformsAndTheirInverse) {
  std::mt19937 rng(11);
  std::uniform_real_distribution<float> u(-5.f, 5.f);
  for (int i = 0; i < 30; ++i) {
    const pv::Transform t(randomOrientation(rng), pv::Translation(u(rng), u(rng), u(rng)));
    // Row-major layout: translation at 3, 7, 11 and the last row 0 0 0 1.
    EXPECT_EQ(t.m[3], t.getTranslation().x);
    EXPECT_EQ(t.m[7], t.getTranslation().y);
    EXPECT_EQ(t.m[11], t.getTranslation().z);
    EXPECT_EQ(t.m[15], 1.f);
    EXPECT_EQ(t.data(), &t.m[0]);
    const pv::Transform rigid_inv = pv::Transform::rigidInverse(t);
    const pv::Transform general_inv = pv::Matrix4f::inverse(t);
    expectNear(rigid_inv, general_inv, 1e-4f);
    expectNear(t * rigid_inv, pv::Matrix4f::identity(), 1e-5f);
    // Orientation survives the round trip (up to sign).
    const pv::Orientation back = pv::Transform(t.getOrientation(), t.getTranslation()).getOrientation();
    const float d = std::fabs(back.x * t.getOrientation().x + back.y * t.getOrientation().y +
                              back.z * t.getOrientation().z + back.w * t.getOrientation().w);
    EXPECT_NEAR(d, 1.f, 1e-5f);
  }
}

TEST(Math, SingularMatricesAreRefusedAndLeftUnchanged) {
  pv::Matrix4f zero;
  zero.setZeros();
  pv::Matrix4f copy = zero;
  EXPECT_EQ(copy.inverse(), pv::ERROR_CODE::FAILURE);
  EXPECT_EQ(copy, zero);
  float rows[9] = {1, 2, 3, 2, 4, 6, 0, 0, 1};
  pv::Matrix3f singular(rows);
  EXPECT_EQ(singular.inverse(), pv::ERROR_CODE::FAILURE);
  EXPECT_EQ(singular, pv::Matrix3f(rows));
}

TEST(Math, RotationVectorAndEulerRoundTrips) {
  pv::Rotation r;
  r.setRotationVector({0.1f, -0.4f, 0.25f});
  const auto v = r.getRotationVector();
  expectNear(v, {0.1f, -0.4f, 0.25f}, 1e-5f);
  pv::Transform t;
  t.setEulerAngles({10.f, 20.f, 30.f}, false);
  expectNear(t.getEulerAngles(false), {10.f, 20.f, 30.f}, 1e-3f);
}

}  // namespace

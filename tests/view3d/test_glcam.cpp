// The view camera: construction, upright correction, projection and matrices.
#include <gtest/gtest.h>

#include <cmath>

#include "GlCam.h"

namespace {

void expectVector(const pv::Translation& v, float x, float y, float z, float tol = 1e-6f) {
  EXPECT_NEAR(v.x, x, tol);
  EXPECT_NEAR(v.y, y, tol);
  EXPECT_NEAR(v.z, z, tol);
}

TEST(GlCam, PerpendicularVerticalDoesNotTurn) {
  // dot(up, vertical) is exactly 0: no half turn.
  GlCam cam(pv::Translation(0.f, 0.f, 0.f), pv::Translation(0.f, 0.f, -1.f), pv::Translation(1.f, 0.f, 0.f));
  expectVector(cam.getUp(), 0.f, 1.f, 0.f);
  expectVector(cam.getRight(), -1.f, 0.f, 0.f);
}

TEST(GlCam, EyeOrbitsThePositionAtTheOffsetDistance) {
  GlCam cam(pv::Translation(0.f, 0.f, -0.5f), pv::Translation(0.f, -1.f, -1.5f), pv::Translation(0.f, 1.f, 0.f));
  cam.setOffsetFromPosition(pv::Translation(0.f, 0.f, 2.f));
  for (int step = 0; step < 5; ++step) {
    cam.rotate(pv::Rotation(0.4f, pv::Translation(0.f, 1.f, 0.f)));
    cam.update();
    const pv::Transform& view = cam.getViewProjectionMatrix();
    // The orbit centre maps to the optical axis, 2 m in front of the eye.
    const pv::float4 centre = view * pv::float4(0.f, 0.f, -0.5f, 1.f);
    EXPECT_NEAR(centre.x, 0.f, 1e-5f);
    EXPECT_NEAR(centre.y, 0.f, 1e-5f);
    EXPECT_NEAR(centre.z, -2.f, 1e-5f);
    // The view matrix stays a copy of view, whatever the projection.
    cam.setProjection(30.f, 20.f, 0.1f, 10.f);
    cam.update();
    EXPECT_EQ(cam.getViewProjectionMatrix(), view);
  }
  // The eye's world position: position + offset rotated.
  const pv::Transform camera_to_world = pv::Matrix4f::inverse(cam.getViewProjectionMatrix());
  const pv::Translation eye = camera_to_world.getTranslation();
  expectVector(eye, (cam.getPosition() + cam.getForward() * 2.f).x, (cam.getPosition() + cam.getForward() * 2.f).y,
               (cam.getPosition() + cam.getForward() * 2.f).z, 1e-5f);
}

TEST(GlCam, UpdateFlipsTheVerticalAfterRollingOver) {
  GlCam cam(pv::Translation(0.f, 0.f, 0.f), pv::Translation(0.f, 0.f, -1.f), pv::Translation(0.f, 1.f, 0.f));
  cam.rotate(pv::Rotation(3.f, pv::Translation(1.f, 0.f, 0.f)));  // pitch almost upside down
  EXPECT_LT(pv::Translation::dot(cam.getUp(), cam.getVertical()), 0.f);
  const pv::Orientation before = cam.getRotation();
  cam.update();
  expectVector(cam.getVertical(), 0.f, -1.f, 0.f);
  EXPECT_EQ(cam.getRotation(), before);  // the orientation itself is kept
}

}  // namespace

#include "GlCam.h"

#include <cmath>

const pv::Translation GlCam::ORIGINAL_FORWARD(0.f, 0.f, 1.f);
const pv::Translation GlCam::ORIGINAL_UP(0.f, 1.f, 0.f);
const pv::Translation GlCam::ORIGINAL_RIGHT(1.f, 0.f, 0.f);

GlCam::GlCam(pv::Translation position_, pv::Translation direction, pv::Translation vertical_) {
  position = position_;
  setDirection(direction, vertical_);
  offsetFromPosition = pv::Translation(0.f, 0.f, 0.f);
  view.setIdentity();
  updateView();
  setProjection(60.f, 60.f, 0.01f, 100.f);
  updateVPMatrix();
}

void GlCam::setProjection(float horizontalFOV_, float verticalFOV_, float znear_, float zfar_) {
  horizontalFOV = horizontalFOV_;
  verticalFOV = verticalFOV_;
  znear = znear_;
  zfar = zfar_;

  const float hfov_rad = static_cast<float>(horizontalFOV * 3.141592653589793 / 180.0);
  const float vfov_rad = static_cast<float>(verticalFOV * 3.141592653589793 / 180.0);

  projection.setIdentity();
  projection(0, 0) = 1.0f / std::tan(hfov_rad * 0.5f);
  projection(1, 1) = 1.0f / std::tan(vfov_rad * 0.5f);
  projection(2, 2) = -(zfar + znear) / (zfar - znear);
  projection(3, 2) = -1.f;
  projection(2, 3) = -(2.f * zfar * znear) / (zfar - znear);
  projection(3, 3) = 0.f;
}

void GlCam::update() {
  if (pv::Translation::dot(up, vertical) < 0.f) vertical = -vertical;
  updateView();
  updateVPMatrix();
}

void GlCam::setDirection(pv::Translation direction, pv::Translation vertical_) {
  const pv::Translation dir = pv::Translation::normalize(direction);
  rotation = pv::Orientation(ORIGINAL_FORWARD, -dir);
  updateVectors();
  vertical = vertical_;
  if (pv::Translation::dot(up, vertical) < 0.f) rotate(pv::Rotation(3.1415927f, ORIGINAL_FORWARD));
}

void GlCam::rotate(const pv::Orientation& q) {
  rotation = q * rotation;
  updateVectors();
}

void GlCam::rotate(const pv::Rotation& r) { rotate(pv::Orientation(r)); }

void GlCam::setRotation(const pv::Orientation& q) {
  rotation = q;
  updateVectors();
}

void GlCam::setRotation(const pv::Rotation& r) { setRotation(pv::Orientation(r)); }

void GlCam::translate(const pv::Translation& t) { position = position + t; }

void GlCam::setPosition(const pv::Translation& p) { position = p; }

void GlCam::setOffsetFromPosition(const pv::Translation& o) { offsetFromPosition = o; }

void GlCam::updateVectors() {
  forward = ORIGINAL_FORWARD * rotation;
  up = ORIGINAL_UP * rotation;
  right = (-ORIGINAL_RIGHT) * rotation;
}

void GlCam::updateView() {
  const pv::Translation eye = position + offsetFromPosition * rotation;
  const pv::Transform camera_to_world(rotation, eye);
  view = pv::Matrix4f::inverse(camera_to_world);
}

void GlCam::updateVPMatrix() { vpMatrix = view; }

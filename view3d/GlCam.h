// The virtual camera of the 3D map view: a position (the orbit centre), an eye offset expressed in
// the camera's own frame, an orientation and the matrices derived from them.
//
// Right-handed, OpenGL style: the camera looks along -forward. The right vector is the NEGATED
// x axis rotated by the orientation, so it points to the screen's left; the navigation code
// relies on that sign. Not thread safe: used from the GUI thread only.
#pragma once

#include "pv/math.h"

class GlCam {
 public:
  static const pv::Translation ORIGINAL_FORWARD;  ///< (0, 0, 1)
  static const pv::Translation ORIGINAL_UP;       ///< (0, 1, 0)
  static const pv::Translation ORIGINAL_RIGHT;    ///< (1, 0, 0)

  /// Camera at `position` looking along `direction`, kept upright with respect to `vertical`;
  /// 60 x 60 degrees field of view, clip planes 0.01 and 100.
  GlCam(pv::Translation position, pv::Translation direction, pv::Translation vertical);

  /// Perspective matrix from the two fields of view (degrees) and the clip distances.
  void setProjection(float horizontalFOV, float verticalFOV, float znear, float zfar);

  /// Recomputes the view matrix and the matrix handed out by getViewProjectionMatrix; flips the
  /// vertical reference first when the camera has rolled over the top.
  void update();

  /// Points the camera along `direction` (shortest arc from the resting pose); a half turn about
  /// the local forward axis keeps the picture upright with respect to `vertical`.
  void setDirection(pv::Translation direction, pv::Translation vertical);

  /// Applies `q` after the current orientation (rotation := q * rotation).
  void rotate(const pv::Orientation& q);
  void rotate(const pv::Rotation& r);
  void setRotation(const pv::Orientation& q);
  void setRotation(const pv::Rotation& r);

  /// Moves the position by `t` in world axes.
  void translate(const pv::Translation& t);
  /// Plain stores; applied by the next update().
  void setPosition(const pv::Translation& p);
  void setOffsetFromPosition(const pv::Translation& o);

  void updateView();
  void updateVPMatrix();

  /// The view matrix (world to camera); the widget multiplies its own projection in.
  const pv::Transform& getViewProjectionMatrix() const { return vpMatrix; }
  const pv::Transform& getProjection() const { return projection; }
  const pv::Orientation& getRotation() const { return rotation; }
  float getHorizontalFOV() const { return horizontalFOV; }
  float getVerticalFOV() const { return verticalFOV; }
  const pv::Translation& getOffsetFromPosition() const { return offsetFromPosition; }
  const pv::Translation& getPosition() const { return position; }
  const pv::Translation& getForward() const { return forward; }
  const pv::Translation& getRight() const { return right; }
  const pv::Translation& getUp() const { return up; }
  const pv::Translation& getVertical() const { return vertical; }
  float getZNear() const { return znear; }
  float getZFar() const { return zfar; }

 private:
  void updateVectors();

  pv::Transform projection;
  pv::Translation offsetFromPosition;
  pv::Translation position;
  pv::Translation forward;
  pv::Translation up;
  pv::Translation right;
  pv::Translation vertical;
  pv::Orientation rotation;
  pv::Transform view;
  pv::Transform vpMatrix;
  float horizontalFOV = 0.f;
  float verticalFOV = 0.f;
  float znear = 0.f;
  float zfar = 0.f;
};

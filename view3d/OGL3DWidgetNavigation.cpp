// Mouse, wheel and key navigation of the 3D map view, and its projection.
#include <QKeyEvent>
#include <QMouseEvent>
#include <QWheelEvent>
#include <cmath>

#include "OGL3DWidget.h"

void OGL3DWidget::resetCamPos() {
  if (path != nullptr) path->clear();
  lastPosition = pv::Translation(0.f, 0.f, 0.f);
  if (camera != nullptr) {
    camera->setPosition(pv::Translation(0.f, 0.f, -0.5f));
    camera->setOffsetFromPosition(pv::Translation(0.f, 0.f, 2.f));
    camera->setDirection(pv::Translation(0.f, -1.f, -1.5f), pv::Translation(0.f, 1.f, 0.f));
  }
}

void OGL3DWidget::resizeGL(int w, int h) {
  viewportWidth = w;
  viewportHeight = h;
  reshape();
}

void OGL3DWidget::changeFov(bool) { reshape(); }

void OGL3DWidget::reshape() {
  makeCurrent();
  glViewport(0, 0, viewportWidth, viewportHeight);

  // A focal length of 1000 pixels whatever the size of the widget.
  float vfov;
  if (viewportHeight == 0) {
    vfov = 0.114591524f;
    viewportHeight = 1;
  } else {
    vfov = static_cast<float>(2 * std::atan(static_cast<double>(viewportHeight / 1000.f)) * 57.29577951308232);
  }
  const float hfov = static_cast<float>(2 * std::atan(static_cast<double>(viewportWidth / 1000.f)) * 57.29577951308232);

  projection.setIdentity();
  projection(0, 0) = 1.f / std::tan(hfov * 3.1415927f / 180.f * 0.5f);
  projection(1, 1) = 1.f / std::tan(vfov * 3.1415927f / 180.f * 0.5f);
  // Depth terms of a near plane at 0.01 and a far plane at 200.
  projection(2, 2) = -1.0000999f;
  projection(3, 2) = -1.f;
  projection(2, 3) = -0.020001f;
  projection(3, 3) = 0.f;
}

void OGL3DWidget::mousePressEvent(QMouseEvent* event) {
  if (event->buttons() & (Qt::LeftButton | Qt::RightButton)) {
    lastX = static_cast<short>(qRound(event->localPos().x()));
    lastY = static_cast<short>(qRound(event->localPos().y()));
  }
  pressed = true;
}

void OGL3DWidget::mouseMoveEvent(QMouseEvent* event) {
  if (!pressed || camera == nullptr) return;
  if (event->buttons() & Qt::LeftButton) {
    currentX = static_cast<short>(qRound(event->localPos().x()));
    currentY = static_cast<short>(qRound(event->localPos().y()));
    dx = static_cast<float>(currentX - lastX);
    dy = static_cast<float>(currentY - lastY);
    // Pitch about the camera's right vector, then yaw about the world's vertical.
    const pv::Translation right = camera->getRight();
    camera->rotate(pv::Rotation(dy * 0.015f, right));
    camera->rotate(pv::Rotation(dx * 0.015f, -camera->getVertical()));
    lastX = currentX;
    lastY = currentY;
  } else if (event->buttons() & Qt::RightButton) {
    currentX = static_cast<short>(qRound(event->localPos().x()));
    currentY = static_cast<short>(qRound(event->localPos().y()));
    dx = static_cast<float>(currentX - lastX) / 125.f;
    dy = static_cast<float>(currentY - lastY) / 250.f;
    camera->translate(camera->getUp() * dy * 0.8f);
    camera->translate(camera->getRight() * dx * 0.8f);
    lastX = currentX;
    lastY = currentY;
  }
}

void OGL3DWidget::mouseReleaseEvent(QMouseEvent*) { pressed = false; }

void OGL3DWidget::wheelEvent(QWheelEvent* event) {
  if (camera == nullptr) return;
  // Eighths of a degree along the dominant axis of the wheel.
  const QPoint angle = event->angleDelta();
  const int d = std::abs(angle.x()) > std::abs(angle.y()) ? angle.x() : angle.y();
  const pv::Translation offset = camera->getOffsetFromPosition();
  const float dist = offset.norm();
  if (d > 7 && dist > camera->getZNear())
    camera->setOffsetFromPosition(offset * 0.75f);
  else if (dist < camera->getZFar())
    camera->setOffsetFromPosition(offset * 1.25f);
}

void OGL3DWidget::keyPressEvent(QKeyEvent* event) {
  if (camera == nullptr) return;
  switch (event->key()) {
    case Qt::Key_Left: camera->translate(camera->getRight() * 0.1f * 0.8f); break;
    case Qt::Key_Right: camera->translate(camera->getRight() * -0.1f * 0.8f); break;
    case Qt::Key_Up: camera->translate(camera->getForward() * -0.1f * 0.8f); break;
    case Qt::Key_Down: camera->translate(camera->getForward() * 0.1f * 0.8f); break;
    case Qt::Key_O: resetCamPos(); break;
    case Qt::Key_T:
      camera->setPosition(pv::Translation(0.f, 1.5f, -0.8f));
      camera->setDirection(pv::Translation(0.f, -1.4f, -1.5f), pv::Translation(0.f, 1.f, 0.f));
      break;
    default: QGLWidget::keyPressEvent(event); break;
  }
}

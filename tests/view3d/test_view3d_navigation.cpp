// Navigation of the 3D map view: projection from the widget size, orbit, pan, zoom and keys.
#include <QGLFormat>
#include <QtTest>
#include <cmath>
#include <memory>

#include "OGL3DWidget.h"
#include "ProgramStates.h"
#include "view3d_test_support.h"

using namespace view3d_test;

namespace {

void sendMouse(QWidget* w, QEvent::Type type, QPointF pos, Qt::MouseButton button, Qt::MouseButtons buttons) {
  QMouseEvent event(type, pos, w->mapToGlobal(pos.toPoint()), button, buttons, Qt::NoModifier);
  QApplication::sendEvent(w, &event);
}

void sendWheel(QWidget* w, int angleY) {
  QWheelEvent event(QPointF(10, 10), QPointF(10, 10), QPoint(), QPoint(0, angleY), Qt::NoButton, Qt::NoModifier,
                    Qt::NoScrollPhase, false);
  QApplication::sendEvent(w, &event);
}

float angleBetween(const pv::Translation& a, const pv::Translation& b) {
  const float c = pv::Translation::dot(a, b) / (a.norm() * b.norm());
  return std::acos(std::min(1.f, std::max(-1.f, c)));
}

bool close(const pv::Translation& a, const pv::Translation& b, float tol = 1e-5f) {
  return std::fabs(a.x - b.x) <= tol && std::fabs(a.y - b.y) <= tol && std::fabs(a.z - b.z) <= tol;
}

QString str(const pv::Translation& v) { return QString("(%1, %2, %3)").arg(v.x).arg(v.y).arg(v.z); }

}  // namespace

class TestView3DNavigation : public QObject {
  Q_OBJECT

 private:
  std::unique_ptr<OGL3DWidget> widget;
  GlCam* cam = nullptr;

 private slots:
  void init() {
    if (!QGLFormat::hasOpenGL()) QSKIP("no OpenGL");
    widget = openWidget();
    if (!widget) QSKIP("no GL context");
    cam = widget->getCamera();
    QVERIFY(cam != nullptr);
  }
  void cleanup() { widget.reset(); }

  void leftDragOrbitsAroundTheCentre() {
    const pv::Translation position = cam->getPosition();
    const pv::Translation forward0 = cam->getForward();
    sendMouse(widget.get(), QEvent::MouseButtonPress, QPointF(100, 100), Qt::LeftButton, Qt::LeftButton);
    sendMouse(widget.get(), QEvent::MouseMove, QPointF(110, 100), Qt::NoButton, Qt::LeftButton);
    // 10 pixels right: yaw of 0.15 rad about the negated vertical, height of forward kept.
    const pv::Translation forward1 = cam->getForward();
    QVERIFY2(std::fabs(forward1.y - forward0.y) < 1e-5f, qPrintable(str(forward1)));
    const float yaw = std::atan2(forward1.x, forward1.z) - std::atan2(forward0.x, forward0.z);
    QVERIFY2(std::fabs(yaw + 0.15f) < 1e-4f, qPrintable(QString::number(yaw)));
    QVERIFY(close(cam->getPosition(), position));

    // 20 pixels down: pitch of 0.3 rad about the right vector, which stays.
    const pv::Translation right = cam->getRight();
    sendMouse(widget.get(), QEvent::MouseMove, QPointF(110, 120), Qt::NoButton, Qt::LeftButton);
    QVERIFY(std::fabs(angleBetween(cam->getForward(), forward1) - 0.3f) < 1e-4f);
    QVERIFY(close(cam->getRight(), right));
    sendMouse(widget.get(), QEvent::MouseButtonRelease, QPointF(110, 120), Qt::LeftButton, Qt::NoButton);

    // Released: moves do nothing.
    const pv::Translation forward2 = cam->getForward();
    sendMouse(widget.get(), QEvent::MouseMove, QPointF(300, 200), Qt::NoButton, Qt::LeftButton);
    QVERIFY(close(cam->getForward(), forward2));

    // Both buttons held: the left one wins, the camera turns and does not pan.
    sendMouse(widget.get(), QEvent::MouseButtonPress, QPointF(50, 50), Qt::LeftButton,
              Qt::LeftButton | Qt::RightButton);
    sendMouse(widget.get(), QEvent::MouseMove, QPointF(70, 50), Qt::NoButton, Qt::LeftButton | Qt::RightButton);
    const float yaw2 = std::atan2(cam->getForward().x, cam->getForward().z) - std::atan2(forward2.x, forward2.z);
    QVERIFY2(std::fabs(yaw2 + 0.3f) < 1e-4f, qPrintable(QString::number(yaw2)));
    QVERIFY(close(cam->getPosition(), position));
  }

  void rightDragPansWithTheScene() {
    const pv::Translation position = cam->getPosition();
    const pv::Translation up = cam->getUp();
    const pv::Translation right = cam->getRight();
    const pv::Translation forward = cam->getForward();
    sendMouse(widget.get(), QEvent::MouseButtonPress, QPointF(100, 50), Qt::RightButton, Qt::RightButton);
    // 125 pixels right and 250 down: one unit each, times 0.8.
    sendMouse(widget.get(), QEvent::MouseMove, QPointF(225, 300), Qt::NoButton, Qt::RightButton);
    const pv::Translation expected = position + up * 0.8f + right * 0.8f;
    QVERIFY2(close(cam->getPosition(), expected), qPrintable(str(cam->getPosition()) + " " + str(expected)));
    QVERIFY(close(cam->getForward(), forward));  // no turn
    // Half a unit horizontally from a rounded position (287.6 -> 288).
    sendMouse(widget.get(), QEvent::MouseMove, QPointF(287.6, 300.2), Qt::NoButton, Qt::RightButton);
    QVERIFY(close(cam->getPosition(), expected + right * (63.f / 125.f * 0.8f)));
  }

  void wheelScalesTheEyeOffset() {
    const pv::Translation start = cam->getOffsetFromPosition();
    QCOMPARE(start.norm(), 2.f);
    sendWheel(widget.get(), 120);
    QVERIFY(close(cam->getOffsetFromPosition(), start * 0.75f));
    sendWheel(widget.get(), 0);  // no delta zooms out
    QVERIFY(close(cam->getOffsetFromPosition(), start * 0.75f * 1.25f));
    cam->setOffsetFromPosition(start);
    sendWheel(widget.get(), 7);  // small positive deltas also zoom out
    QVERIFY(close(cam->getOffsetFromPosition(), start * 1.25f));
    cam->setOffsetFromPosition(start);
    sendWheel(widget.get(), 8);
    QVERIFY(close(cam->getOffsetFromPosition(), start * 0.75f));
    sendWheel(widget.get(), -120);
    QVERIFY(close(cam->getOffsetFromPosition(), start * 0.75f * 1.25f));

    // At the near plane a zoom-in request zooms out.
    cam->setOffsetFromPosition(pv::Translation(0.f, 0.f, 0.01f));
    sendWheel(widget.get(), 120);
    QVERIFY(close(cam->getOffsetFromPosition(), pv::Translation(0.f, 0.f, 0.0125f), 1e-7f));
    // At the far plane zooming out stops; zooming in still works.
    cam->setOffsetFromPosition(pv::Translation(0.f, 0.f, 100.f));
    sendWheel(widget.get(), -120);
    QVERIFY(close(cam->getOffsetFromPosition(), pv::Translation(0.f, 0.f, 100.f)));
    sendWheel(widget.get(), 120);
    QVERIFY(close(cam->getOffsetFromPosition(), pv::Translation(0.f, 0.f, 75.f)));
  }

  void homeKeyRestoresThePoseAndClearsThePath() {
    float pose[16] = {1, 0, 0, 0.1f, 0, 1, 0, 0, 0, 0, 1, -0.5f, 0, 0, 0, 1};
    widget->setCameraPose(pose);
    QCOMPARE(widget->getPathPointCount(), size_t(2));
    sendWheel(widget.get(), 120);
    QTest::keyClick(widget.get(), Qt::Key_Left);
    cam->rotate(pv::Rotation(0.7f, pv::Translation(0.f, 1.f, 0.f)));
    QTest::keyClick(widget.get(), Qt::Key_O);
    QCOMPARE(widget->getPathPointCount(), size_t(0));
    QCOMPARE(cam->getPosition(), pv::Translation(0.f, 0.f, -0.5f));
    QCOMPARE(cam->getOffsetFromPosition(), pv::Translation(0.f, 0.f, 2.f));
    QVERIFY(close(cam->getForward(), pv::Translation::normalize(pv::Translation(0.f, 1.f, 1.5f)), 1e-6f));
    QVERIFY(close(cam->getRight(), pv::Translation(-1.f, 0.f, 0.f), 1e-6f));
  }

  void navigationMovesThePicture() {
    std::mutex mapMutex;
    pv::Mesh mesh;
    mesh.chunks.push_back(quadChunk(0.f, 0.f, -0.5f, 0.1f, {0.f, 1.f, 0.f}));
    widget->setMapSources(&mapMutex, &mesh, nullptr);
    ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 1);
    ProgramStates::setIntAttr(ProgramStates::MESH_DISPLAY_MODE, 3);
    ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, true);
    const auto columnOfMass = [](const QImage& image) {
      double sum = 0;
      int n = 0;
      for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
          if (!isBackground(image.pixel(x, y))) sum += x, ++n;
      return n ? sum / n : -1.0;
    };
    const QImage home = renderFrame(*widget);
    const double centre = columnOfMass(home);
    QVERIFY(std::fabs(centre - kWidth / 2) < 2);
    // The camera steps left: the square moves right on the screen; and back.
    QTest::keyClick(widget.get(), Qt::Key_Left);
    const double moved = columnOfMass(renderFrame(*widget));
    QVERIFY2(moved > centre + 20, qPrintable(QString::number(moved)));
    QTest::keyClick(widget.get(), Qt::Key_Right);
    QVERIFY(std::fabs(columnOfMass(renderFrame(*widget)) - centre) < 0.5);
    // Forward brings the square closer: larger.
    const int before = countPixels(home, [](QRgb p) { return !isBackground(p); });
    QTest::keyClick(widget.get(), Qt::Key_Up);
    QVERIFY(countPixels(renderFrame(*widget), [](QRgb p) { return !isBackground(p); }) > before);
    // Zooming in makes it larger too.
    QTest::keyClick(widget.get(), Qt::Key_O);
    QVERIFY(renderFrame(*widget) == home);
    sendWheel(widget.get(), 120);
    const int after = countPixels(renderFrame(*widget), [](QRgb p) { return !isBackground(p); });
    QVERIFY2(after > before * 1.5, qPrintable(QString("%1 -> %2").arg(before).arg(after)));
  }

  void keysAndWheelNeedTheCamera() {
    OGL3DWidget hidden;  // never shown: no GL initialisation, no camera
    QVERIFY(hidden.getCamera() == nullptr);
    QTest::keyClick(&hidden, Qt::Key_Left);
    QTest::keyClick(&hidden, Qt::Key_O);
    sendWheel(&hidden, 120);
    sendMouse(&hidden, QEvent::MouseButtonPress, QPointF(1, 1), Qt::LeftButton, Qt::LeftButton);
    sendMouse(&hidden, QEvent::MouseMove, QPointF(9, 9), Qt::NoButton, Qt::LeftButton);
    QVERIFY(hidden.getCamera() == nullptr);
    QCOMPARE(hidden.getPathPointCount(), size_t(0));
  }
};

QTEST_MAIN(TestView3DNavigation)
#include "test_view3d_navigation.moc"

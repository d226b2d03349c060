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

  void leftDragTurnsAboutTheCentreWhileHeld() {
    const pv::Translation position = cam->getPosition();
    const pv::Translation forward0 = cam->getForward();
    sendMouse(widget.get(), QEvent::MouseButtonPress, QPointF(100, 100), Qt::LeftButton, Qt::LeftButton);
    sendMouse(widget.get(), QEvent::MouseMove, QPointF(110, 100), Qt::NoButton, Qt::LeftButton);
    // Sideways: a turn about the vertical (the height of forward is kept), the centre stays.
    const pv::Translation forward1 = cam->getForward();
    QVERIFY2(std::fabs(forward1.y - forward0.y) < 1e-5f, qPrintable(str(forward1)));
    QVERIFY(angleBetween(forward1, forward0) > 0.05f);
    QVERIFY(close(cam->getPosition(), position));
    // Down: a turn about the right vector, which stays.
    const pv::Translation right = cam->getRight();
    sendMouse(widget.get(), QEvent::MouseMove, QPointF(110, 120), Qt::NoButton, Qt::LeftButton);
    QVERIFY(angleBetween(cam->getForward(), forward1) > 0.05f);
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
    QVERIFY(angleBetween(cam->getForward(), forward2) > 0.05f);
    QVERIFY(close(cam->getPosition(), position));
  }

  void rightDragPansWithTheScene() {
    const pv::Translation position = cam->getPosition();
    const pv::Translation forward = cam->getForward();
    sendMouse(widget.get(), QEvent::MouseButtonPress, QPointF(100, 50), Qt::RightButton, Qt::RightButton);
    sendMouse(widget.get(), QEvent::MouseMove, QPointF(225, 300), Qt::NoButton, Qt::RightButton);
    // Right and down on the screen: along the camera's right and up vectors, without a turn.
    const pv::Translation moved = cam->getPosition() - position;
    QVERIFY2(pv::Translation::dot(moved, cam->getRight()) > 0.1f && pv::Translation::dot(moved, cam->getUp()) > 0.1f,
             qPrintable(str(moved)));
    QVERIFY(std::fabs(pv::Translation::dot(moved, forward)) < 1e-5f);
    QVERIFY(close(cam->getForward(), forward));
  }

  void wheelScalesTheEyeOffset() {
    const float start = cam->getOffsetFromPosition().norm();
    sendWheel(widget.get(), 120);
    QVERIFY(cam->getOffsetFromPosition().norm() < start);
    sendWheel(widget.get(), -120);
    QVERIFY(cam->getOffsetFromPosition().norm() < start);  // out by less than in: not a return
    cam->setOffsetFromPosition(pv::Translation(0.f, 0.f, 2.f));
    sendWheel(widget.get(), 7);  // no delta and small positive deltas zoom out
    QVERIFY(cam->getOffsetFromPosition().norm() > 2.f);
    // At the near plane a zoom-in request zooms out; at the far plane zooming out stops.
    cam->setOffsetFromPosition(pv::Translation(0.f, 0.f, 0.01f));
    sendWheel(widget.get(), 120);
    QVERIFY(cam->getOffsetFromPosition().norm() > 0.01f);
    cam->setOffsetFromPosition(pv::Translation(0.f, 0.f, 100.f));
    sendWheel(widget.get(), -120);
    QVERIFY(close(cam->getOffsetFromPosition(), pv::Translation(0.f, 0.f, 100.f)));
    sendWheel(widget.get(), 120);
    QVERIFY(cam->getOffsetFromPosition().norm() < 100.f);
  }

  void homeKeyRestoresThePoseAndClearsThePath() {
    const pv::Translation position = cam->getPosition(), offset = cam->getOffsetFromPosition();
    const pv::Translation forward = cam->getForward();
    float pose[16] = {1, 0, 0, 0.1f, 0, 1, 0, 0, 0, 0, 1, -0.5f, 0, 0, 0, 1};
    widget->setCameraPose(pose);
    QCOMPARE(widget->getPathPointCount(), size_t(2));
    sendWheel(widget.get(), 120);
    QTest::keyClick(widget.get(), Qt::Key_Left);
    cam->rotate(pv::Rotation(0.7f, pv::Translation(0.f, 1.f, 0.f)));
    QTest::keyClick(widget.get(), Qt::Key_O);
    QCOMPARE(widget->getPathPointCount(), size_t(0));
    QVERIFY(close(cam->getPosition(), position) && close(cam->getOffsetFromPosition(), offset));
    QVERIFY(close(cam->getForward(), forward, 1e-6f));
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

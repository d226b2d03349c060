// Saved maps shown in the 3D view: OpenMesh with real and broken files, the textured OBJ, a PLY
// point cloud. Cases that need the SDK's map readers are skipped while those are not built in.
#include <QDir>
#include <QFile>
#include <QGLFormat>
#include <QtTest>
#include <memory>

#include "OGL3DWidget.h"
#include "ProgramStates.h"
#include "test_utils.h"
#include "view3d_test_support.h"

using namespace view3d_test;

namespace {

QString scratchFile(const char* name, const QByteArray& contents) {
  const QString dir = QString::fromStdString(mapura::test::scratchDir("view3d_files"));
  const QString path = QDir(dir).filePath(name);
  QFile file(path);
  if (file.open(QIODevice::WriteOnly)) file.write(contents);
  return path;
}

bool mapReadersMissing() { return QString::fromStdString(pv::lastErrorDetail().get()).contains("not available"); }

}  // namespace

class TestView3DFiles : public QObject {
  Q_OBJECT

 private:
  std::unique_ptr<OGL3DWidget> widget;

  void expectNothingHeld() {
    QCOMPARE(widget->getLoadedElementCount(), 0);
    QVERIFY(widget->getLoadedMesh().chunks.empty());
    QCOMPARE(widget->getLoadedMesh().getNumberOfTriangles(), size_t(0));
    QVERIFY(widget->getLoadedPointCloud().chunks.empty());
    QCOMPARE(widget->getLoadedPointCloud().getNumberOfPoints(), size_t(0));
  }

 private slots:
  void init() {
    if (!QGLFormat::hasOpenGL()) QSKIP("no OpenGL");
    widget = openWidget();
    if (!widget) QSKIP("no GL context");
  }
  void cleanup() { widget.reset(); }

  void filesThatAreNoMapAreRejected() {
    // Something held from before must be dropped too.
    widget->getLoadedMesh().chunks.push_back(quadChunk(0.f, 0.f, -0.5f, 0.3f, {0.f, 1.f, 0.f}));
    widget->getLoadedPointCloud().chunks.resize(2);
    QVERIFY(!widget->OpenMesh(scratchFile("noise.ply", QByteArray(300, '\x7f'))));
    expectNothingHeld();
    QVERIFY(!widget->OpenMesh(scratchFile("truncated.ply",
                                          "ply\nformat ascii 1.0\nelement vertex 100\nproperty float x\n"
                                          "property float y\nproperty float z\nend_header\n0 0 0\n1 1")));
    expectNothingHeld();
    QVERIFY(!widget->OpenMesh(QString::fromUtf8("/nonexistent/folder/m\xc3\xa4p.obj")));
    expectNothingHeld();
    QVERIFY(!widget->loadTexture());
  }

  void texturedObjIsShownInItsOwnColours() {
    const std::string obj =
        mapura::test::sharedDataPath("meshes/ycb_banana_textured_obj/textured_simple_reoriented.obj");
    if (obj.empty()) QSKIP("shared data missing: meshes/ycb_banana_textured_obj");
    const bool opened = widget->OpenMesh(QString::fromStdString(obj));
    if (!opened && mapReadersMissing()) QSKIP("the SDK's mesh reader is not in this build");
    QVERIFY(opened);
    const pv::Mesh& mesh = widget->getLoadedMesh();
    QCOMPARE(widget->getLoadedElementCount(), int(mesh.getNumberOfTriangles()));
    QVERIFY(mesh.getNumberOfTriangles() > 10000);
    QVERIFY(widget->loadTexture());
    ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 2);
    pv::Translation centre;
    float extent;
    bounds(mesh.vertices, centre, extent);
    frame(*widget, centre, extent);
    const QImage image = renderFrame(*widget);
    image.save(QDir(QString::fromStdString(mapura::test::scratchDir("view3d_banana"))).filePath("banana.png"));
    // A ripe banana: most drawn pixels are yellow (red and green well above blue). With red and
    // blue swapped the other way round they would come out blue.
    int drawn = 0, yellow = 0;
    for (int y = 0; y < image.height(); ++y)
      for (int x = 0; x < image.width(); ++x) {
        const QRgb p = image.pixel(x, y);
        if (isBackground(p)) continue;
        ++drawn;
        if (qRed(p) > qBlue(p) + 40 && qGreen(p) > qBlue(p) + 20) ++yellow;
      }
    QVERIFY2(drawn > 2000, qPrintable(QString::number(drawn)));
    QVERIFY2(yellow > drawn * 0.6, qPrintable(QString("%1 of %2").arg(yellow).arg(drawn)));
  }

  void plyPointCloudIsShownAsColouredPoints() {
    const QString path = scratchFile("cloud.ply",
                                     "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                                     "property float z\nproperty uchar red\nproperty uchar green\n"
                                     "property uchar blue\nend_header\n"
                                     "0 0 -0.5 200 30 90\n0.2 0 -0.5 10 240 120\n-0.2 0 -0.5 250 250 5\n");
    const bool opened = widget->OpenMesh(path);
    if (!opened && mapReadersMissing()) QSKIP("the SDK's point cloud reader is not in this build");
    QVERIFY(opened);
    QCOMPARE(widget->getLoadedElementCount(), 3);
    QVERIFY(!widget->loadTexture());
    QVERIFY(!widget->pushMesh());
    QVERIFY(ProgramStates::getBoolAttr(ProgramStates::FUSED_POINT_CLOUD));
    ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 1);
    ProgramStates::setDoubleAttr(ProgramStates::POINT_SIZE, 9.0);
    const QImage image = renderFrame(*widget);
    QVERIFY(near(image.pixel(kWidth / 2, kHeight / 2), 200, 30, 90, 1));
    QVERIFY(countPixels(image, [](QRgb p) { return near(p, 10, 240, 120, 1); }) >= 64);
    QVERIFY(countPixels(image, [](QRgb p) { return near(p, 250, 250, 5, 1); }) >= 64);
  }
};

QTEST_MAIN(TestView3DFiles)
#include "test_view3d_files.moc"

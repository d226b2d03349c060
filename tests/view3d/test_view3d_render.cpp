// Draws the 3D map view for real (Mesa under xvfb) and checks the pixels read back.
#include <QGLFormat>
#include <QtTest>
#include <memory>
#include <mutex>
#include <thread>

#include "OGL3DWidget.h"
#include "ProgramStates.h"
#include "view3d_test_support.h"

using namespace view3d_test;

class TestView3DRender : public QObject {
  Q_OBJECT

 private:
  std::unique_ptr<OGL3DWidget> widget;

  // A shown, exposed widget with the home camera; the test is skipped without a GL context.
  bool openWidget() {
    widget = view3d_test::openWidget();
    return widget != nullptr;
  }

  void liveMesh(int displayMode) {
    ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 1);
    ProgramStates::setIntAttr(ProgramStates::MESH_DISPLAY_MODE, displayMode);
    ProgramStates::setDoubleAttr(ProgramStates::POINT_SIZE, 6.0);
  }

 private slots:
  void init() {
    if (!QGLFormat::hasOpenGL()) QSKIP("no OpenGL");
    if (!openWidget()) QSKIP("no GL context");
  }
  void cleanup() { widget.reset(); }

  void shadersCompileAndClearColourShowsWithNothingToDraw() {
    QVERIFY(widget->shadersLinked());
    QVERIFY(widget->isReady());
    for (int content : {0, 1, 2}) {
      ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, content);
      const QImage image = renderFrame(*widget);
      QCOMPARE(image.size(), QSize(kWidth, kHeight));
      QCOMPARE(countPixels(image, isBackground), kWidth * kHeight);
    }
  }

  void liveMeshChunkIsLitInTheBluishTint() {
    std::mutex mapMutex;
    pv::Mesh mesh;
    mesh.chunks.push_back(quadChunk(0.f, 0.f, -0.5f, 0.3f, {0.f, 1.f, 0.f}));
    widget->setMapSources(&mapMutex, &mesh, nullptr);
    liveMesh(3);
    ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, true);
    const QImage up = renderFrame(*widget);
    const QRgb lit = up.pixel(kWidth / 2, kHeight / 2);
    // Ambient plus the diffuse light from above, clamped blue: red 65..110, green 189..235.
    QVERIFY2(qRed(lit) >= 62 && qRed(lit) <= 112, qPrintable(QColor(lit).name()));
    QVERIFY2(qGreen(lit) >= 186 && qGreen(lit) <= 237, qPrintable(QColor(lit).name()));
    QVERIFY2(qBlue(lit) >= 250, qPrintable(QColor(lit).name()));

    // The same square facing down gets no diffuse light: darker, still bluish.
    mesh.chunks[0] = quadChunk(0.f, 0.f, -0.5f, 0.3f, {0.f, -1.f, 0.f});
    ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, true);
    const QRgb shade = renderFrame(*widget).pixel(kWidth / 2, kHeight / 2);
    QVERIFY2(qBlue(shade) > qGreen(shade) && qGreen(shade) > qRed(shade), qPrintable(QColor(shade).name()));
    QVERIFY2(qGreen(shade) < qGreen(lit) - 40, qPrintable(QColor(shade).name()));
    QVERIFY2(qRed(shade) >= 33 && qRed(shade) <= 60, qPrintable(QColor(shade).name()));
  }

  void displayModesDrawFacesEdgesOrPoints() {
    std::mutex mapMutex;
    pv::Mesh mesh;
    mesh.chunks.push_back(quadChunk(0.f, 0.f, -0.5f, 0.3f, {0.f, 1.f, 0.f}));
    widget->setMapSources(&mapMutex, &mesh, nullptr);
    ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, true);
    const auto notBackground = [](QRgb p) { return !isBackground(p); };
    // A point inside one triangle, away from the diagonal and the outline.
    const QPoint inside(kWidth / 2 + 60, kHeight / 2);

    const auto polygonMode = [this] {
      widget->makeCurrent();
      GLint mode[2] = {0, 0};
      glGetIntegerv(GL_POLYGON_MODE, mode);
      return mode[0];
    };
    liveMesh(3);
    const QImage faces = renderFrame(*widget);
    QCOMPARE(polygonMode(), GLint(GL_FILL));
    liveMesh(2);
    const QImage edges = renderFrame(*widget);
    QCOMPARE(polygonMode(), GLint(GL_LINE));
    liveMesh(1);
    const QImage points = renderFrame(*widget);
    QCOMPARE(polygonMode(), GLint(GL_LINE));  // points leave the polygon mode as it was
    liveMesh(7);                              // any other value also draws points
    const QImage otherMode = renderFrame(*widget);

    const int faceCount = countPixels(faces, notBackground);
    const int edgeCount = countPixels(edges, notBackground);
    const int pointCount = countPixels(points, notBackground);
    QVERIFY2(faceCount > 8000, qPrintable(QString::number(faceCount)));
    QVERIFY2(edgeCount > 300 && edgeCount < faceCount / 10, qPrintable(QString::number(edgeCount)));
    QVERIFY2(pointCount >= 4 * 25 && pointCount <= 4 * 36, qPrintable(QString::number(pointCount)));
    QCOMPARE(countPixels(otherMode, notBackground), pointCount);
    QVERIFY(!isBackground(faces.pixel(inside)));
    QVERIFY(isBackground(edges.pixel(inside)));
    QVERIFY(isBackground(points.pixel(inside)));
  }

  void fusedPointCloudShowsItsPackedColours() {
    std::mutex mapMutex;
    pv::FusedPointCloud cloud;
    pv::PointCloudChunk chunk;
    chunk.vertices = {colouredPoint(0.f, 0.f, -0.5f, 200, 30, 90), colouredPoint(0.2f, 0.f, -0.5f, 10, 240, 120),
                      colouredPoint(-0.2f, 0.f, -0.5f, 250, 250, 5)};
    chunk.has_been_updated = true;
    cloud.chunks.push_back(chunk);
    widget->setMapSources(&mapMutex, nullptr, &cloud);
    ProgramStates::setBoolAttr(ProgramStates::FUSED_POINT_CLOUD, true);
    ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 1);
    ProgramStates::setIntAttr(ProgramStates::MESH_DISPLAY_MODE, 3);  // ignored for a point cloud
    ProgramStates::setDoubleAttr(ProgramStates::POINT_SIZE, 9.0);
    ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, true);
    const QImage image = renderFrame(*widget);
    QVERIFY(near(image.pixel(kWidth / 2, kHeight / 2), 200, 30, 90, 1));
    QVERIFY(countPixels(image, [](QRgb p) { return near(p, 200, 30, 90, 1); }) >= 64);
    QVERIFY(countPixels(image, [](QRgb p) { return near(p, 10, 240, 120, 1); }) >= 64);
    QVERIFY(countPixels(image, [](QRgb p) { return near(p, 250, 250, 5, 1); }) >= 64);
    // Points of size 9: three squares and nothing else.
    QVERIFY(countPixels(image, [](QRgb p) { return !isBackground(p); }) <= 3 * 100);

    // An empty chunk keeps what the slot drew before.
    cloud.chunks[0].vertices.clear();
    ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, true);
    QVERIFY(near(renderFrame(*widget).pixel(kWidth / 2, kHeight / 2), 200, 30, 90, 1));
  }

  void frustumAndPathFollowTheTrackedPose() {
    ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 1);
    ProgramStates::setBoolAttr(ProgramStates::SHOW_PATH, true);
    float pose[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, -0.5f, 0, 0, 0, 1};
    widget->setCameraPose(pose);
    pose[3] = 0.3f;
    widget->setCameraPose(pose);
    QCOMPARE(widget->getPathPointCount(), size_t(4));

    const auto green = [](QRgb p) { return near(p, 39, 174, 96, 2); };
    const auto grey = [](QRgb p) { return near(p, 149, 165, 166, 2); };
    const QImage shown = renderFrame(*widget);
    QVERIFY2(countPixels(shown, green) > 100, qPrintable(QString::number(countPixels(shown, green))));
    QVERIFY2(countPixels(shown, grey) > 200, qPrintable(QString::number(countPixels(shown, grey))));
    // The frustum's apex sits at the last pose, (0.3, 0, -0.5): right of the centre.
    int greenLeft = 0, greenRight = 0;
    for (int y = 0; y < kHeight; ++y)
      for (int x = 0; x < kWidth; ++x)
        if (green(shown.pixel(x, y))) (x < kWidth / 2 ? greenLeft : greenRight)++;
    QVERIFY(greenRight > 10 * std::max(greenLeft, 1));

    ProgramStates::setBoolAttr(ProgramStates::SHOW_PATH, false);
    const QImage hidden = renderFrame(*widget);
    QCOMPARE(countPixels(hidden, green), 0);
    QCOMPARE(countPixels(hidden, grey), 0);

    // A locked camera hides the path whatever SHOW_PATH says.
    ProgramStates::setBoolAttr(ProgramStates::SHOW_PATH, true);
    ProgramStates::setBoolAttr(ProgramStates::LOCK_CAMERA, true);
    const QImage locked = renderFrame(*widget);
    QCOMPARE(countPixels(locked, green), 0);
    QCOMPARE(countPixels(locked, grey), 0);
  }

  void lockedCameraLooksThroughTheTrackedPose() {
    std::mutex mapMutex;
    pv::Mesh mesh;
    // A square 1 m in front of a tracked camera at (5, 0, 0) looking along -z.
    pv::Chunk chunk;
    chunk.vertices = {{4.8f, -0.2f, -1.f}, {5.2f, -0.2f, -1.f}, {5.2f, 0.2f, -1.f}, {4.8f, 0.2f, -1.f}};
    chunk.normals.assign(4, {0.f, 0.f, 1.f});
    chunk.triangles = {{0, 1, 2}, {0, 2, 3}};
    chunk.has_been_updated = true;
    mesh.chunks.push_back(chunk);
    widget->setMapSources(&mapMutex, &mesh, nullptr);
    liveMesh(3);
    ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, true);
    QVERIFY(isBackground(renderFrame(*widget).pixel(kWidth / 2, kHeight / 2)));

    float pose[16] = {1, 0, 0, 5, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    widget->setCameraPose(pose);
    ProgramStates::setBoolAttr(ProgramStates::LOCK_CAMERA, true);
    QVERIFY(!isBackground(renderFrame(*widget).pixel(kWidth / 2, kHeight / 2)));
  }

  void updateMeshHandsTheTurnBackAndShrinks() {
    std::mutex mapMutex;
    pv::Mesh mesh;
    for (int i = 0; i < 3; ++i) mesh.chunks.push_back(quadChunk(-0.3f + 0.3f * i, 0.f, -0.5f, 0.1f, {0.f, 1.f, 0.f}));
    widget->setMapSources(&mapMutex, &mesh, nullptr);
    liveMesh(3);
    widget->setReady(false);
    ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, true);
    ProgramStates::setBoolAttr(ProgramStates::MAP_REQUEST_ALLOWED, false);
    const QImage three = renderFrame(*widget);
    QCOMPARE(ProgramStates::getBoolAttr(ProgramStates::MAP_UPDATE_READY), false);
    QCOMPARE(ProgramStates::getBoolAttr(ProgramStates::MAP_REQUEST_ALLOWED), true);
    QVERIFY(widget->isReady());
    QCOMPARE(widget->getChunkCount(), 3);
    QCOMPARE(widget->getSubMapCapacity(), size_t(503));  // (3 / 500 + 1) * 500, not rounded
    const int left = countPixels(three.copy(0, 0, kWidth / 2 - 40, kHeight), [](QRgb p) { return !isBackground(p); });
    QVERIFY(left > 500);

    // Without the flag nothing is taken, even though the map changed.
    mesh.chunks[0].vertices[0].y = 0.5f;
    QVERIFY(renderFrame(*widget) == three);

    // The map shrinks to its middle chunk: the other slots stay allocated and draw nothing.
    mesh.chunks.erase(mesh.chunks.begin() + 2);
    mesh.chunks.erase(mesh.chunks.begin());
    mesh.chunks[0].has_been_updated = false;  // unchanged chunks keep their upload
    ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, true);
    const QImage one = renderFrame(*widget);
    QCOMPARE(widget->getChunkCount(), 1);
    QCOMPARE(widget->getSubMapCapacity(), size_t(503));
    std::vector<unsigned int> counts;
    for (const SubMapObj& s : widget->getSubMaps()) counts.push_back(s.getIndexCount());
    QCOMPARE(counts[0], 6u);  // still the first square: slot 0 was not updated
    QCOMPARE(counts[1], 0u);
    QCOMPARE(counts[2], 0u);
    QVERIFY(countPixels(one.copy(kWidth / 2 + 40, 0, kWidth / 2 - 40, kHeight),
                        [](QRgb p) { return !isBackground(p); }) == 0);
    QVERIFY(countPixels(one.copy(0, 0, kWidth / 2 - 40, kHeight), [](QRgb p) { return !isBackground(p); }) > 500);

    // A count growing past the capacity: (600 / 500 + 1) * 500 = 1100.
    mesh.chunks.resize(600);
    ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, true);
    renderFrame(*widget);
    QCOMPARE(widget->getSubMapCapacity(), size_t(1100));
    QCOMPARE(widget->getChunkCount(), 600);
  }

  void updateMeshWaitsForTheMapMutex() {
    std::mutex mapMutex;
    pv::Mesh mesh;
    mesh.chunks.push_back(quadChunk(-0.3f, 0.f, -0.5f, 0.1f, {0.f, 1.f, 0.f}));
    widget->setMapSources(&mapMutex, &mesh, nullptr);
    liveMesh(3);
    std::mutex started;
    started.lock();
    std::thread worker([&] {
      std::lock_guard<std::mutex> lock(mapMutex);
      started.unlock();
      std::this_thread::sleep_for(std::chrono::milliseconds(150));
      mesh.chunks[0] = quadChunk(0.3f, 0.f, -0.5f, 0.1f, {0.f, 1.f, 0.f});  // moves to the right
    });
    started.lock();  // the worker holds the map now
    ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, true);
    const QImage image = renderFrame(*widget);
    worker.join();
    started.unlock();
    const auto drawn = [](QRgb p) { return !isBackground(p); };
    QCOMPARE(countPixels(image.copy(0, 0, kWidth / 2, kHeight), drawn), 0);
    QVERIFY(countPixels(image.copy(kWidth / 2, 0, kWidth / 2, kHeight), drawn) > 500);
  }

  void resetClearsTheLiveMap() {
    std::mutex mapMutex;
    pv::Mesh mesh;
    mesh.chunks.push_back(quadChunk(0.f, 0.f, -0.5f, 0.3f, {0.f, 1.f, 0.f}));
    widget->setMapSources(&mapMutex, &mesh, nullptr);
    liveMesh(3);
    float pose[16] = {1, 0, 0, 0.2f, 0, 1, 0, 0, 0, 0, 1, -0.5f, 0, 0, 0, 1};
    widget->setCameraPose(pose);
    ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, true);
    QVERIFY(!isBackground(renderFrame(*widget).pixel(kWidth / 2, kHeight / 2)));
    widget->reset();
    QCOMPARE(ProgramStates::getIntAttr(ProgramStates::VIEW_CONTENT), 0);
    QCOMPARE(widget->getChunkCount(), 0);
    QCOMPARE(widget->getSubMapCapacity(), size_t(0));
    QCOMPARE(widget->getPathPointCount(), size_t(0));
    QVERIFY(!widget->isReady());
    ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 1);
    QCOMPARE(countPixels(renderFrame(*widget), isBackground), kWidth * kHeight);
  }

  void pushMeshShowsAWholeMapOrPointCloud() {
    pv::Mesh& mesh = widget->getLoadedMesh();
    mesh.chunks.push_back(quadChunk(0.f, 0.f, -0.5f, 0.3f, {0.f, 1.f, 0.f}));
    QVERIFY(widget->pushMesh());
    QCOMPARE(widget->getChunkCount(), 1);
    QVERIFY(!ProgramStates::getBoolAttr(ProgramStates::FUSED_POINT_CLOUD));
    liveMesh(3);
    QVERIFY(!isBackground(renderFrame(*widget).pixel(kWidth / 2, kHeight / 2)));

    mesh.clear();
    pv::PointCloudChunk chunk;
    chunk.vertices = {colouredPoint(0.f, 0.f, -0.5f, 20, 100, 220)};
    widget->getLoadedPointCloud().chunks = {chunk, chunk};
    QVERIFY(!widget->pushMesh());
    QCOMPARE(widget->getChunkCount(), 2);
    QVERIFY(ProgramStates::getBoolAttr(ProgramStates::FUSED_POINT_CLOUD));
    QVERIFY(near(renderFrame(*widget).pixel(kWidth / 2, kHeight / 2), 20, 100, 220, 1));
  }

  void texturedMeshSwapsRedAndBlue_data() {
    QTest::addColumn<int>("channels");
    QTest::addColumn<int>("width");
    QTest::newRow("3 channels, padded rows") << 3 << 33;
    QTest::newRow("4 channels") << 4 << 64;
  }

  void texturedMeshSwapsRedAndBlue() {
    QFETCH(int, channels);
    QFETCH(int, width);
    pv::Mesh& mesh = widget->getLoadedMesh();
    const float h = 0.3f;
    mesh.vertices = {{-h, 0.f, -0.5f - h}, {h, 0.f, -0.5f - h}, {h, 0.f, -0.5f + h}, {-h, 0.f, -0.5f + h}};
    mesh.uv = {{0.f, 0.f}, {1.f, 0.f}, {1.f, 1.f}, {0.f, 1.f}};
    mesh.triangles = {{0, 1, 2}, {0, 2, 3}};
    // Left half (blue, green, red) = (200, 40, 10), right half (20, 220, 120): the SDK's byte order.
    QVERIFY(!widget->loadTexture());  // no image yet: nothing happens
    mesh.texture.alloc(width, 16, channels == 3 ? pv::MAT_TYPE::U8_C3 : pv::MAT_TYPE::U8_C4);
    for (int y = 0; y < 16; ++y)
      for (int x = 0; x < width; ++x) {
        unsigned char* p = mesh.texture.getPixel<unsigned char>(x, y);
        const bool left = x < width / 2;
        p[0] = left ? 200 : 20;
        p[1] = left ? 40 : 220;
        p[2] = left ? 10 : 120;
        if (channels == 4) p[3] = 255;
      }
    QVERIFY(widget->loadTexture());
    ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 2);
    const QImage image = renderFrame(*widget);
    QVERIFY2(near(image.pixel(kWidth / 2 - 60, kHeight / 2), 10, 40, 200, 2),
             qPrintable(QColor(image.pixel(kWidth / 2 - 60, kHeight / 2)).name()));
    QVERIFY2(near(image.pixel(kWidth / 2 + 60, kHeight / 2), 120, 220, 20, 2),
             qPrintable(QColor(image.pixel(kWidth / 2 + 60, kHeight / 2)).name()));

    const auto edge = [](QRgb p) { return near(p, 51, 128, 204, 1); };
    QCOMPARE(countPixels(image, edge), 0);
    ProgramStates::setBoolAttr(ProgramStates::DRAW_EDGES, true);
    const QImage edges = renderFrame(*widget);
    QVERIFY2(countPixels(edges, edge) > 100, qPrintable(QString::number(countPixels(edges, edge))));
    QVERIFY(near(edges.pixel(kWidth / 2 + 60, kHeight / 2), 120, 220, 20, 2));
  }
};

QTEST_MAIN(TestView3DRender)
#include "test_view3d_render.moc"

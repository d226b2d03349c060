// The mapping worker on its own thread, scanning synthesized recordings and the virtual camera.
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include "InputThreadModul.h"
#include "ProgramStates.h"
#include "test_utils.h"
#include "worker_harness.h"

// Skips the calling test when no recording could be synthesized.
#define REQUIRE_RECORDING() \
  if (recording_.isEmpty()) QSKIP("recordings cannot be synthesized in this build")

class TestWorker : public QObject {
  Q_OBJECT

 private:
  static constexpr int kFrames = 90;
  QString recording_;  // small VGA room recording
  QString meshes_dir_;

  void resetStates() {
    ProgramStates::resetStates();
    ProgramStates::setIntAttr(ProgramStates::DEPTH_MODE, 1);  // PERFORMANCE
    ProgramStates::qstringAttr(ProgramStates::MESHES_DIR) = meshes_dir_;
  }
  // Opens the recording, starts the worker and the scan; the scan runs to its end.
  bool scanRecording(WorkerRun& run, int filter, bool fused, int memory_mb = 2048) {
    ProgramStates::qstringAttr(ProgramStates::KTR_FILE_PATH) = recording_;
    if (run.open(false) != 0) return false;
    // Started before the worker's first step; the scan reads the recording from its first frame.
    run.start([&] { run.worker->startScan(3.5f, 0.05f, filter, fused, memory_mb); });
    return true;
  }
  // Opens the recording, moves the preview to `frame`, lets it show that frame, then scans from
  // there to the end of the recording.
  bool scanFromFrame(WorkerRun& run, int frame, bool fused) {
    ProgramStates::qstringAttr(ProgramStates::KTR_FILE_PATH) = recording_;
    if (run.open(false) != 0) return false;
    run.start();
    if (!run.waitFor([&] { return run.view_image->count() > 0; }, 60000)) return false;
    const int published = run.view_image->count();
    run.worker->askSetPosition(frame);
    // Every preview step publishes an image: two more, and a step begun after the seek has grabbed.
    if (!run.waitFor([&] { return run.view_image->count() > published + 2; }, 60000)) return false;
    run.worker->startScan(3.5f, 0.05f, 3, fused, 2048);
    return run.waitFor([&] { return run.send_end->count() + run.reset_needed->count() > 0; }, 120000);
  }
  static QStringList filesIn(const QString& dir) { return QDir(dir).entryList(QDir::Files, QDir::Name); }

 private slots:
  // 90 frames: long enough for two map requests (one every 41 frames).
  void initTestCase() { recording_ = synthesizeRecording("room", "room", kFrames, "ffv1"); }

  void init() {
    // Each test writes into its own base folder: two scans of the same recording in the same
    // minute share an output folder name.
    meshes_dir_ =
        QString::fromStdString(mapura::test::scratchDir(std::string("worker-meshes-") + QTest::currentTestFunction()));
    resetStates();
  }

  void recordingOpensAndFramebufferIsDoubleHeight() {
    REQUIRE_RECORDING();
    ProgramStates::qstringAttr(ProgramStates::KTR_FILE_PATH) = recording_;
    InputThreadModul worker;
    QCOMPARE(worker.initPAVO(false), 0);
    QCOMPARE(worker.ktrFrameCount(), kFrames);
    QVERIFY(worker.serialNumber() >= 0);
    QCOMPARE(worker.init(), 0);
    QCOMPARE(worker.state().load(), int(InputThreadModul::PREVIEW));
    // Both views of the camera, one above the other.
    QCOMPARE(int(worker.frameBuffer().getHeight()), 720);
    // Seeking is honoured only during the preview.
    worker.askSetPosition(40);
    QCOMPARE(worker.camera().getKTRPosition(), 40);
    worker.state() = InputThreadModul::SCANNING;
    worker.askSetPosition(10);
    QCOMPARE(worker.camera().getKTRPosition(), 40);
    worker.destruct();
    QVERIFY(!worker.frameBuffer().isInit());
  }

  void outputFolderNamedAfterTheRecording() {
    REQUIRE_RECORDING();
    ProgramStates::qstringAttr(ProgramStates::KTR_FILE_PATH) = recording_;
    InputThreadModul worker;
    QCOMPARE(worker.initPAVO(false), 0);
    worker.init();
    worker.startScan(-1.f, 0.05f, 3, false, 2048);
    const QString out = ProgramStates::qstringAttr(ProgramStates::SCAN_OUTPUT_DIR);
    QVERIFY2(
        QRegularExpression("^" + QRegularExpression::escape(meshes_dir_) + "/room_\\d\\d-\\d\\d-\\d{4}-\\d\\d-\\d\\d/$")
            .match(out)
            .hasMatch(),
        qPrintable(out));
    // Range -1 takes the recommended range for the resolution.
    const float range = worker.mappingParameters().range_meter;
    QVERIFY(range >= 1.f && range <= 20.f);
    QCOMPARE(worker.mappingParameters().use_chunk_only, true);
    QCOMPARE(worker.state().load(), int(InputThreadModul::START_SCAN));
    worker.destruct();
  }

  void scanToEndOfRecordingWritesMesh() {
    REQUIRE_RECORDING();
    WorkerRun run;
    QVERIFY(scanRecording(run, 1, false));
    QVERIFY(run.waitFor([&] { return run.send_end->count() + run.reset_needed->count() > 0; }, 600000));
    QCOMPARE(run.the_end->count(), 1);
    QCOMPARE(run.the_end->at(0).at(0).toInt(), int(InputThreadModul::END_OF_RECORDING));
    QCOMPARE(run.auto_end->count(), 1);
    QCOMPARE(run.send_end->count(), 1);
    QCOMPARE(run.send_end->at(0).at(0).toBool(), false);
    // Signal cadence: every frame a path, a tracking state and a KTR step; an image every 5th.
    const int frames = run.worker->frameCounter();
    QCOMPARE(frames, kFrames);
    QCOMPARE(run.path->count(), frames);
    QCOMPARE(run.track->count(), frames);
    QCOMPARE(run.increment->count(), frames);
    QVERIFY(run.view_image->count() >= frames / 5);
    // Map requests at most every 41 frames, each consumed by the view.
    QVERIFY(run.view->uploads >= 2);
    QVERIFY(run.view->uploads <= frames / 41 + 2);
    const QString out = ProgramStates::qstringAttr(ProgramStates::SCAN_OUTPUT_DIR);
    QCOMPARE(filesIn(out), QStringList({"mesh.ply"}));
  }

  void texturedRawAndFusedFiles() {
    REQUIRE_RECORDING();
    {
      WorkerRun run;
      ProgramStates::setBoolAttr(ProgramStates::APPLY_TEXTURE, true);
      ProgramStates::setBoolAttr(ProgramStates::SAVE_RAW_MESH, true);
      QVERIFY(scanRecording(run, 1, false));
      QVERIFY(run.waitFor([&] { return run.send_end->count() + run.reset_needed->count() > 0; }, 600000));
      QCOMPARE(run.send_end->count(), 1);
      QCOMPARE(run.send_end->at(0).at(0).toBool(), true);
      const QStringList files = filesIn(ProgramStates::qstringAttr(ProgramStates::SCAN_OUTPUT_DIR));
      QVERIFY2(files.contains("mesh.obj") && files.contains("mesh_raw.ply") && !files.contains("mesh.ply"),
               qPrintable(files.join(",")));
    }
    resetStates();
    // Another base folder, so that the second scan of the same minute gets its own output folder.
    ProgramStates::qstringAttr(ProgramStates::MESHES_DIR) =
        QString::fromStdString(mapura::test::scratchDir("worker-meshes-fused"));
    {
      WorkerRun run;
      ProgramStates::setBoolAttr(ProgramStates::FUSED_POINT_CLOUD, true);
      QVERIFY(scanRecording(run, 3, true));
      QVERIFY(run.waitFor([&] { return run.send_end->count() + run.reset_needed->count() > 0; }, 600000));
      QCOMPARE(run.send_end->count(), 1);
      QCOMPARE(filesIn(ProgramStates::qstringAttr(ProgramStates::SCAN_OUTPUT_DIR)),
               QStringList({"fused_point_cloud.ply"}));
    }
  }

  // A 1 MB budget refuses every keyframe (an HD720 image alone is larger), so texturing fails: the
  // result is the untextured mesh, saved as "mesh.ply" and reported as untextured.
  void refusedTexturingGivesTheUntexturedMesh() {
    const QString hd720 = synthesizeRecording("room_hd720", "room", 30, "ffv1", "HD720");
    if (hd720.isEmpty()) QSKIP("recordings cannot be synthesized in this build");
    WorkerRun run;
    ProgramStates::setBoolAttr(ProgramStates::APPLY_TEXTURE, true);
    ProgramStates::qstringAttr(ProgramStates::KTR_FILE_PATH) = hd720;
    QCOMPARE(run.open(false), 0);
    run.start([&] { run.worker->startScan(3.5f, 0.05f, 3, false, 1); });
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^Texturing failed: .*keyframes"));
    QVERIFY(run.waitFor([&] { return run.send_end->count() + run.reset_needed->count() > 0; }, 600000));
    QCOMPARE(run.send_end->count(), 1);
    QCOMPARE(run.send_end->at(0).at(0).toBool(), false);
    QCOMPARE(filesIn(ProgramStates::qstringAttr(ProgramStates::SCAN_OUTPUT_DIR)), QStringList({"mesh.ply"}));
  }

  void scanWithoutAnyFrameGivesResetNeededAndNoFile() {
    REQUIRE_RECORDING();
    WorkerRun run;
    // Moved past the last frame, so the scan meets the end of the recording at once.
    QVERIFY(scanFromFrame(run, kFrames, false));
    QCOMPARE(run.reset_needed->count(), 1);
    QCOMPARE(run.send_end->count(), 0);
    QCOMPARE(run.worker->frameCounter(), 0);
    QCOMPARE(run.the_end->at(0).at(0).toInt(), int(InputThreadModul::END_OF_RECORDING));
    QCOMPARE(filesIn(ProgramStates::qstringAttr(ProgramStates::SCAN_OUTPUT_DIR)), QStringList());
  }

  // The preview has grabbed the frame the slider shows, moving the recording past it; the scan
  // still starts with that frame.
  void scanStartsAtTheFrameShown() {
    REQUIRE_RECORDING();
    WorkerRun run;
    QVERIFY(scanFromFrame(run, kFrames - 20, true));
    QCOMPARE(run.worker->frameCounter(), 20);
  }

  // Stopped half way through the pre-processing pass: the area file is written, the scan starts
  // again from the first frame and covers the whole recording, tracked on from where the first
  // pass stopped.
  void twoPassFlowStoppedDuringPreprocessing() {
    REQUIRE_RECORDING();
    QTemporaryDir cwd;
    const QString previous = QDir::currentPath();
    QDir::setCurrent(cwd.path());
    WorkerRun run;
    ProgramStates::setBoolAttr(ProgramStates::OFFLINE_MODE, true);
    QVERIFY(scanRecording(run, 3, false));
    QVERIFY(run.waitFor([&] { return !run.pre_process->isEmpty() && run.pre_process->last().at(0).toInt() >= 40; },
                        600000));
    run.worker->state() = InputThreadModul::RESTART_AFTER_PREPROCESSING;  // "Stop", as the controller does
    QVERIFY(run.waitFor([&] { return run.pre_process_end->count() > 0; }, 600000));
    QVERIFY(QFileInfo::exists(cwd.path() + "/Foo.ogt"));
    QVERIFY(run.pre_process->last().at(0).toInt() < 100);
    QCOMPARE(run.track->count(), 0);  // no pose during pre-processing
    QCOMPARE(int(run.worker->mappingParameters().map_type), 5);
    QVERIFY(run.waitFor([&] { return run.send_end->count() + run.reset_needed->count() > 0; }, 600000));
    QCOMPARE(run.the_end->at(0).at(0).toInt(), int(InputThreadModul::END_OF_RECORDING));
    QCOMPARE(run.send_end->count(), 1);
    QCOMPARE(run.worker->frameCounter(), kFrames);
    int searching = 0;
    for (const QList<QVariant>& status : *run.track) searching += status.at(0).toInt() != 1;
    QCOMPARE(searching, 0);
    QDir::setCurrent(previous);
  }

  // The worker sets the status text on its own thread through the end of a scan while this
  // (the GUI) thread copies it, as the busy spinner does on every frame. Every text read is one
  // the worker wrote, in the order it wrote them; a ThreadSanitizer build reports the access if
  // the store is left unguarded.
  void statusTextReadWhileTheWorkerWritesIt() {
    REQUIRE_RECORDING();
    const QStringList steps = {"Extracting mesh...", "Filtering mesh ...", "Texturing mesh ..."};
    WorkerRun run;
    ProgramStates::setBoolAttr(ProgramStates::APPLY_TEXTURE, true);
    QVERIFY(scanRecording(run, 1, false));
    QStringList seen;
    int reads = 0;
    QVERIFY(run.waitFor(
        [&] {
          const QString text = ProgramStates::qstringAttr(ProgramStates::STATUS_TEXT);
          ++reads;
          if (!text.isEmpty() && (seen.isEmpty() || seen.last() != text)) seen << text;
          return run.send_end->count() + run.reset_needed->count() > 0;
        },
        600000));
    QCOMPARE(run.send_end->count(), 1);
    QVERIFY(reads > 1);
    int previous = -1;
    for (const QString& text : seen) {
      const int step = steps.indexOf(text);
      QVERIFY2(step > previous, qPrintable(seen.join(" | ")));
      previous = step;
    }
    QCOMPARE(ProgramStates::qstringAttr(ProgramStates::STATUS_TEXT).value(), steps.last());
  }

  void destructDuringTexturingStopsBeforeTheObj() {
    REQUIRE_RECORDING();
    WorkerRun run;
    ProgramStates::setBoolAttr(ProgramStates::APPLY_TEXTURE, true);
    QVERIFY(scanRecording(run, 3, false));
    QVERIFY(run.waitFor(
        [&] {
          return ProgramStates::qstringAttr(ProgramStates::STATUS_TEXT).value() == "Texturing mesh ..." ||
                 run.send_end->count() + run.reset_needed->count() > 0;
        },
        600000));
    QCOMPARE(run.reset_needed->count(), 0);
    if (run.send_end->count() > 0) QSKIP("texturing finished before the reset could be observed");
    run.stop();  // the application is reset while the mesh is being textured
    QCOMPARE(run.send_end->count(), 0);
    QVERIFY(!QFileInfo::exists(ProgramStates::qstringAttr(ProgramStates::SCAN_OUTPUT_DIR) + "mesh.obj"));
  }

  void destructWaitsForAMapRetrieval() {
    REQUIRE_RECORDING();
    WorkerRun run;
    QVERIFY(scanRecording(run, 3, false));
    QVERIFY(run.waitFor([&] { return run.worker->mapRequestState() != 0 || run.the_end->count() > 0; }, 600000));
    run.worker->destruct();
    // destruct() returns only once no retrieval is running on the pool.
    QVERIFY(run.worker->mapRequestState() != 2);
    run.stop();
  }
};

QTEST_MAIN(TestWorker)
#include "test_worker.moc"

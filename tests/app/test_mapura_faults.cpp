// Faults met by a whole scan in the real Mapura window: the disk fills while the map is saved, the
// output folder cannot be made, the camera is unplugged (while mapping, with texturing to come),
// the recording is cut short while it is read, the mapping memory budget is reached. Each test
// checks what the user is told and that every file already written (earlier scans, the recording
// when it is not the fault itself) is byte for byte as it was.
//
// One test function per process (ctest runs them so); each has its own home folder.
#include <sys/resource.h>
#include <QCryptographicHash>
#include <QDirIterator>
#include <QFile>
#include <QMap>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <csignal>
#include <cstring>
#include <memory>

#include "GUI.h"
#include "InputThreadModul.h"
#include "LogoScreen.h"
#include "MainProcess.h"
#include "OGL3DWidget.h"
#include "ProgramStates.h"
#include "e2e_support.h"
#include "pv/mesh.h"

namespace {

constexpr int kScanTimeoutMs = 240000 * e2e::kSlowdown;
const QString kInvalidFile = "Invalid mesh file";
const QString kInvalidFileWhy = "Imported mesh has not been created with Mapura or is corrupted.";

/// SHA-256 of every file under `root` (and a mark for every folder), by path relative to it.
QMap<QString, QByteArray> digests(const QString& root) {
  QMap<QString, QByteArray> out;
  QDirIterator it(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                  QDirIterator::Subdirectories);
  while (it.hasNext()) {
    const QString path = it.next();
    const QString name = QDir(root).relativeFilePath(path);
    if (it.fileInfo().isDir()) {
      out[name] = "<folder>";
      continue;
    }
    QFile f(path);
    out[name] = f.open(QIODevice::ReadOnly) ? QCryptographicHash::hash(f.readAll(), QCryptographicHash::Sha256)
                                            : QByteArray("<unreadable>");
  }
  return out;
}

/// Files of `before` that are missing or changed in `after`, one per line; empty when none.
QString damaged(const QMap<QString, QByteArray>& before, const QMap<QString, QByteArray>& after) {
  QStringList out;
  for (auto it = before.begin(); it != before.end(); ++it) {
    if (!after.contains(it.key()))
      out << it.key() + " is gone";
    else if (after[it.key()] != it.value())
      out << it.key() + " changed";
  }
  return out.join("\n");
}

/// A small textured quad, the kind of map an earlier scan left.
pv::Mesh earlierMesh() {
  pv::Mesh m;
  m.vertices = {{0, 0, -1}, {1, 0, -1}, {1, 1, -1}, {0, 1, -1}};
  m.triangles = {{0, 1, 2}, {0, 2, 3}};
  m.normals.assign(4, {0, 0, 1});
  m.uv = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
  m.texture.alloc(8, 8, pv::MAT_TYPE::U8_C3);
  std::memset(m.texture.getPtr<unsigned char>(), 99, m.texture.getStepBytes() * 8);
  return m;
}

/// Writes every kind of map file into `dir`, as earlier scans do.
bool writeEarlierScan(const QString& dir) {
  QDir().mkpath(dir);
  const pv::Mesh mesh = earlierMesh();
  pv::FusedPointCloud cloud;
  cloud.vertices = {{0, 0, -1, 0}, {1, 0, -1, 0}, {0, 1, -1, 0}};
  const auto path = [&](const char* name) { return (dir + "/" + name).toUtf8(); };
  return mesh.save(path("mesh.obj").constData(), pv::MESH_FILE_FORMAT::OBJ) &&
         mesh.save(path("mesh.ply").constData(), pv::MESH_FILE_FORMAT::PLY) &&
         mesh.save(path("mesh_raw.ply").constData(), pv::MESH_FILE_FORMAT::PLY) &&
         cloud.save(path("fused_point_cloud.ply").constData(), pv::MESH_FILE_FORMAT::PLY);
}

/// Every file this process writes is limited to `bytes` while it lives (SIGXFSZ ignored), so a
/// write past it fails as one on a full disk does.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &old_);
    struct rlimit limited = old_;
    limited.rlim_cur = bytes;
    old_handler_ = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limited);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &old_);
    std::signal(SIGXFSZ, old_handler_);
  }

 private:
  struct rlimit old_;
  void (*old_handler_)(int) = nullptr;
};

}  // namespace

class MapuraFaults : public QObject {
  Q_OBJECT

 public:
  explicit MapuraFaults(MainProcess* app) : app_(app), gui_(app->window()) {}

 private slots:
  void init();
  void cleanup();

  void diskFillsWhileTheMapIsSaved();
  void outputFolderCannotBeMade();
  void cameraUnpluggedWhileMapping();
  void cameraUnpluggedBeforeTexturing();
  void recordingCutShortWhileItIsRead();
  void mappingMemoryBudgetReached();

 private:
  void click(QAbstractButton* button) { QTest::mouseClick(button, Qt::LeftButton); }
  int phase() const { return gui_->phase(); }
  /// A VGA recording of `frames` frames among the documents, or empty with the reason in `why`.
  QString recording(const QString& name, int frames, QString* why);
  /// The earlier files written, then the virtual camera (with `options`) opened on a recording;
  /// empty when the window is ready to scan, else why not.
  QString beginLive(const char* options = "");
  /// Presses Start and waits until the worker maps and has fused about `ms` of frames.
  void startAndMap(int ms);
  /// Waits for the end of the scan: the result shown (phase 5) or a fresh instance after an
  /// "Invalid mesh" / "Invalid mesh file" report.
  bool waitForTheEnd();
  /// A copy of `recording` among the user's documents, so that it is one of the files checked.
  QString documentCopy(const QString& recording, const QString& name);
  /// Writes an earlier scan of every kind and remembers the documents folder; false on failure.
  bool writeEarlierFiles();
  /// Remembers everything in the documents folder (earlier scans, the recordings) as it is now:
  /// the files that must come through untouched.
  void rememberEarlierFiles() { earlier_ = digests(documents_); }
  QString earlierFilesDamaged() const { return damaged(earlier_, digests(documents_)); }

  MainProcess* app_;
  GUI* gui_;
  std::unique_ptr<e2e::DialogAnswerer> answerer_;
  QString documents_;
  QMap<QString, QByteArray> earlier_;
};

void MapuraFaults::init() {
  answerer_ = std::make_unique<e2e::DialogAnswerer>();
  qunsetenv("PAVO_VIRTUAL_CAMERA");
  qunsetenv("PAVO_VIRTUAL_CAMERA_OPTIONS");
  documents_ = QStandardPaths::standardLocations(QStandardPaths::DocumentsLocation).first();
}

void MapuraFaults::cleanup() {
  // What the user was told, for the record of each fault.
  qInfo("message boxes: %s; phase %d; status line \"%s\"", qPrintable(answerer_->describe()), phase(),
        qPrintable(gui_->spinnerLabel->isVisible() ? gui_->spinnerLabel->text() : QString()));
  if (app_->window()) app_->resetApp();
  answerer_.reset();
}

QString MapuraFaults::recording(const QString& name, int frames, QString* why) {
  const QString file = e2e::synthesize(name, frames, "VGA", why);
  if (!why->isEmpty()) return QString();
  *why = e2e::scanningUnavailable(file);
  const QString copy = documentCopy(file, name + ".ktr");
  if (why->isEmpty() && copy.isEmpty()) *why = "cannot copy the recording into the documents folder";
  return copy;
}

QString MapuraFaults::beginLive(const char* options) {
  QString why;
  const QString file = recording("live", 150, &why);
  if (!why.isEmpty()) return why;
  if (!writeEarlierFiles()) return "the earlier files cannot be written";
  qputenv("PAVO_VIRTUAL_CAMERA_OPTIONS", options);
  return e2e::openLive(gui_, *answerer_, file);
}

void MapuraFaults::startAndMap(int ms) {
  click(gui_->startButton);
  QCOMPARE(phase(), 3);
  QVERIFY2(e2e::waitUntil([] { return ProgramStates::getIntAttr(ProgramStates::VIEW_CONTENT) == 1; }, 30000),
           "the worker never began mapping");
  QTest::qWait(ms);
}

bool MapuraFaults::waitForTheEnd() {
  return e2e::waitUntil(
      [&] { return phase() == 5 || answerer_->count("Invalid mesh") > 0 || answerer_->count(kInvalidFile) > 0; },
      kScanTimeoutMs);
}

QString MapuraFaults::documentCopy(const QString& recording, const QString& name) {
  const QString copy = documents_ + "/" + name;
  QFile::remove(copy);
  return QFile::copy(recording, copy) ? copy : QString();
}

bool MapuraFaults::writeEarlierFiles() {
  if (!writeEarlierScan(app_->meshesDir().absolutePath() + "/Earlier_scan")) return false;
  rememberEarlierFiles();
  return earlier_.size() >= 6;
}

// The disk fills while the map is saved: nothing is written, nothing earlier is touched (an
// earlier raw mesh in the very folder the scan writes into included), and the window says that
// the map it was to show cannot be read.
void MapuraFaults::diskFillsWhileTheMapIsSaved() {
  SKIP_IF(beginLive());
  gui_->saveRawMeshCheck->setChecked(true);
  startAndMap(8000);
  // An earlier scan of the same camera in the same minute wrote into the same folder.
  const QString out = ProgramStates::qstringAttr(ProgramStates::SCAN_OUTPUT_DIR);
  QVERIFY(QDir().mkpath(out));
  QVERIFY(earlierMesh().save((out + "mesh_raw.ply").toUtf8().constData(), pv::MESH_FILE_FORMAT::PLY));
  rememberEarlierFiles();
  {
    FileSizeLimit full_disk(512);
    click(gui_->startButton);  // Stop
    QVERIFY2(waitForTheEnd(), qPrintable(answerer_->describe()));
  }
  QCOMPARE(answerer_->count(kInvalidFile), 1);
  QCOMPARE(answerer_->boxes.last().informative, kInvalidFileWhy);
  QVERIFY(gui_->logoScreen->isVisible());
  QCOMPARE(earlierFilesDamaged(), QString());
  // No new file, whole or partial, and no temporary file.
  QCOMPARE(QDir(out).entryList(QDir::Files | QDir::Hidden), QStringList{"mesh_raw.ply"});
}

// The output folder cannot be made (a file stands where it should be; chmod would not stop root):
// the same report, and the file standing there is untouched.
void MapuraFaults::outputFolderCannotBeMade() {
  SKIP_IF(beginLive());
  startAndMap(6000);
  QString out = ProgramStates::qstringAttr(ProgramStates::SCAN_OUTPUT_DIR);
  out.chop(1);
  {
    QFile blocker(out);
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.write("not a folder");
  }
  rememberEarlierFiles();
  click(gui_->startButton);  // Stop
  QVERIFY2(waitForTheEnd(), qPrintable(answerer_->describe()));
  QCOMPARE(answerer_->count(kInvalidFile), 1);
  QVERIFY(gui_->logoScreen->isVisible());
  QCOMPARE(earlierFilesDamaged(), QString());  // the file standing there included
}

// The camera is unplugged while mapping: the user is told, and the map made until then is
// processed, saved beside the earlier scans and shown.
void MapuraFaults::cameraUnpluggedWhileMapping() {
  SKIP_IF(beginLive("disconnect_after=120"));
  click(gui_->startButton);
  QVERIFY2(
      e2e::waitUntil([&] { return answerer_->count("The PAVO has been disconnected. Mapping will be stopped.") == 1; },
                     90000),
      qPrintable(answerer_->describe()));
  QCOMPARE(answerer_->boxes.last().title, QString("PAVO Disconnection"));
  QVERIFY2(waitForTheEnd(), qPrintable(answerer_->describe()));
  QCOMPARE(phase(), 5);
  QCOMPARE(answerer_->boxes.size(), 1);
  const QString out = ProgramStates::qstringAttr(ProgramStates::SCAN_OUTPUT_DIR);
  pv::Mesh saved;
  QVERIFY(saved.load((out + "mesh.ply").toUtf8().constData()));
  QCOMPARE(int(saved.getNumberOfTriangles()), gui_->view3D->getLoadedElementCount());
  QCOMPARE(earlierFilesDamaged(), QString());
}

// Unplugged with texturing to come: the texture is made from the images kept before, and the
// OBJ, its material library and texture are written whole.
void MapuraFaults::cameraUnpluggedBeforeTexturing() {
  SKIP_IF(beginLive("disconnect_after=120"));
  gui_->applyTextureCheck->setChecked(true);
  click(gui_->startButton);
  QVERIFY2(waitForTheEnd(), qPrintable(answerer_->describe()));
  QCOMPARE(answerer_->count("The PAVO has been disconnected. Mapping will be stopped."), 1);
  QCOMPARE(phase(), 5);
  QCOMPARE(ProgramStates::getIntAttr(ProgramStates::VIEW_CONTENT), 2);  // shown textured
  const QString out = ProgramStates::qstringAttr(ProgramStates::SCAN_OUTPUT_DIR);
  QCOMPARE(QDir(out).entryList(QDir::Files | QDir::Hidden), (QStringList{"mesh.mtl", "mesh.obj", "mesh.png"}));
  pv::Mesh saved;
  QVERIFY(saved.load((out + "mesh.obj").toUtf8().constData()));
  QVERIFY(saved.texture.getWidth() > 0);
  QCOMPARE(earlierFilesDamaged(), QString());
}

// The recording is cut short while the scan reads it (the frames past the cut cannot be read any
// more): the scan goes on to the end of what is left, says so, and shows the map.
void MapuraFaults::recordingCutShortWhileItIsRead() {
  QString why;
  const QString file = recording("ktr", 90, &why);
  SKIP_IF(why);
  QVERIFY(writeEarlierFiles());
  SKIP_IF(e2e::openKtr(gui_, *answerer_, file));
  click(gui_->startButton);
  QVERIFY(e2e::waitUntil([&] { return app_->worker()->frameCounter() >= 20 || phase() != 3; }, 60000));
  QVERIFY(QFile::resize(file, QFileInfo(file).size() / 2));
  QVERIFY2(waitForTheEnd(), qPrintable(answerer_->describe()));
  QCOMPARE(answerer_->count("The entire KTR file has been processed."), 1);
  QCOMPARE(phase(), 5);
  QVERIFY(app_->worker()->frameCounter() < 90);
  qInfo("%d of 90 frames scanned before the end of the cut recording", app_->worker()->frameCounter());
  QVERIFY(gui_->view3D->getLoadedElementCount() > 0);
  earlier_.remove(QFileInfo(file).fileName());  // the fault itself
  QCOMPARE(earlierFilesDamaged(), QString());
}

// The mapping memory budget is reached: the user is told, and the map made within the budget is
// saved and shown (or reported too small to be a map).
void MapuraFaults::mappingMemoryBudgetReached() {
  SKIP_IF(beginLive());
  gui_->memorySlider->setMinimum(1);
  gui_->memorySlider->setValue(1);
  click(gui_->startButton);
  QVERIFY2(waitForTheEnd(), qPrintable(answerer_->describe()));
  QCOMPARE(answerer_->count("Maximum Spatial Mapping memory reached. Mapping will be stopped."), 1);
  QCOMPARE(answerer_->boxes.first().title, QString("Spatial Mapping memory insufficient"));
  if (phase() == 5) {
    pv::Mesh saved;
    QVERIFY(saved.load((ProgramStates::qstringAttr(ProgramStates::SCAN_OUTPUT_DIR) + "mesh.ply").toUtf8().constData()));
    QCOMPARE(int(saved.getNumberOfTriangles()), gui_->view3D->getLoadedElementCount());
  } else {
    QCOMPARE(answerer_->count("Invalid mesh"), 1);
  }
  QCOMPARE(earlierFilesDamaged(), QString());
}

int main(int argc, char** argv) { return e2e::runWindowTest<MapuraFaults>(argc, argv); }

#include "test_mapura_faults.moc"

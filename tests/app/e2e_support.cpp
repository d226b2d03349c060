#include "e2e_support.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileDialog>
#include <QFileInfo>
#include <QGuiApplication>
#include <QLineEdit>
#include <QMessageBox>
#include <QPixmap>
#include <QProcess>
#include <QScreen>
#include <QTest>

#include "GUI.h"
#include "pv/camera.h"

namespace e2e {

void useHome(const QString& home) {
  qputenv("HOME", home.toUtf8());
  for (const char* name : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_DOCUMENTS_DIR"}) qunsetenv(name);
  QDir(home).mkpath("Documents");
}

DialogAnswerer::DialogAnswerer() {
  connect(&timer_, &QTimer::timeout, this, &DialogAnswerer::poll);
  timer_.start(25);
}

void DialogAnswerer::poll() {
  QWidget* modal = QApplication::activeModalWidget();
  if (auto* box = qobject_cast<QMessageBox*>(modal)) {
    if (!box->isVisible()) return;
    Box b;
    b.title = box->windowTitle();
    b.text = box->text();
    b.informative = box->informativeText();
    b.icon = box->icon();
    for (QAbstractButton* button : box->buttons()) b.buttons << button->text();
    boxes << b;
    if (!box->buttons().isEmpty()) box->buttons().first()->click();
    return;
  }
  if (auto* dialog = qobject_cast<QFileDialog*>(modal)) {
    if (!dialog->isVisible()) return;
    if (dialog != dialog_) {
      // First sight of this dialog: note where it opened and pick its answer.
      dialog_ = dialog;
      lastDialogDirectory = dialog->directory().absolutePath();
      lastDialogTitle = dialog->windowTitle();
      answer_ = files.isEmpty() ? QString() : files.dequeue();
    }
    if (answer_.isEmpty()) {
      dialog->reject();
    } else {
      // Typed as a user would: an absolute path in the name field, whatever folder is shown.
      if (auto* name = dialog->findChild<QLineEdit*>("fileNameEdit")) name->setText(answer_);
      static_cast<QDialog*>(dialog)->accept();
    }
  }
}

int DialogAnswerer::count(const QString& text) const {
  int n = 0;
  for (const Box& b : boxes) n += b.text == text ? 1 : 0;
  return n;
}

QString DialogAnswerer::describe() const {
  QStringList lines;
  for (const Box& b : boxes) lines << b.text + " / " + b.informative;
  return lines.isEmpty() ? QString("(no message box)") : lines.join("; ");
}

QString synthesize(const QString& name, int frames, const QString& resolution, QString* why) {
  const QString dir = QDir::tempPath() + "/mapura-e2e-recordings";
  QDir().mkpath(dir);
  const QString file = dir + "/" + name + ".ktr";
  if (QFileInfo(file).size() > 0) return file;
  QProcess p;
  p.start(PAVO_TOOL, {"synth", "room", "-o", file, "--frames", QString::number(frames), "--resolution", resolution,
                      "--seed", "7"});
  if (!p.waitForFinished(300000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
    *why = "`pavo synth` cannot make a recording here: " + QString::fromUtf8(p.readAllStandardError()).trimmed();
    QFile::remove(file);
    return QString();
  }
  return file;
}

QString scanningUnavailable(const QString& ktr) {
  pv::Camera camera;
  pv::InitParameters init;
  const QByteArray path = ktr.toUtf8();
  init.input.setFromKTRFile(pv::String(path.constData()));
  const auto text = [](const char* what, pv::ERROR_CODE e) {
    return QString("%1 fails in this SDK build: %2 (%3)")
        .arg(what, pv::toString(e).c_str(), pv::lastErrorDetail().c_str());
  };
  pv::ERROR_CODE e = camera.open(init);
  if (e != pv::ERROR_CODE::SUCCESS) return text("opening a recording", e);
  e = camera.enablePositionalTracking();
  if (e != pv::ERROR_CODE::SUCCESS) return text("positional tracking", e);
  e = camera.enableSpatialMapping();
  if (e != pv::ERROR_CODE::SUCCESS) return text("spatial mapping", e);
  return QString();
}

QString openLive(GUI* gui, DialogAnswerer& answerer, const QString& recording) {
  qputenv("PAVO_VIRTUAL_CAMERA", recording.toUtf8());
  QTest::mouseClick(gui->inputButton, Qt::LeftButton);
  if (!gui->liveButton->isVisible()) return "the Input button did not offer Live and KTR";
  if (!gui->liveButton->isEnabled()) return "the SDK lists no camera for PAVO_VIRTUAL_CAMERA (virtual camera missing)";
  QTest::mouseClick(gui->liveButton, Qt::LeftButton);
  if (!answerer.boxes.isEmpty()) return "the virtual camera does not open: " + answerer.describe();
  return gui->phase() == 1 ? QString() : QString("the window did not reach the ready state");
}

QString openKtr(GUI* gui, DialogAnswerer& answerer, const QString& file) {
  if (gui->inputButton->isVisible()) QTest::mouseClick(gui->inputButton, Qt::LeftButton);
  answerer.files.enqueue(file);
  QTest::mouseClick(gui->ktrButton, Qt::LeftButton);
  if (!answerer.boxes.isEmpty()) return "the KTR file does not open here: " + answerer.describe();
  return gui->phase() == 1 ? QString() : QString("the window did not reach the ready state");
}

void screenshot(const QString& name) {
  const QString dir = qEnvironmentVariable("MAPURA_SCREENSHOT_DIR");
  if (dir.isEmpty()) return;
  QDir().mkpath(dir);
  QApplication::processEvents();
  QGuiApplication::primaryScreen()->grabWindow(0).save(dir + "/" + name + ".png");
}

bool waitUntil(const std::function<bool()>& done, int timeout_ms) {
  QElapsedTimer t;
  t.start();
  while (!done() && t.elapsed() < timeout_ms) QTest::qWait(20);
  return done();
}

}  // namespace e2e

// Support for the end-to-end tests of the Mapura window: a private home folder, an answerer for
// modal message boxes and file dialogs, recordings made with the pavo tool, screenshots.
#pragma once

#include <QFileDialog>
#include <QObject>
#include <QPointer>
#include <QQueue>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <functional>

#include "MainProcess.h"

class GUI;

/// Skips the calling Qt test function with `reason` unless it is empty.
#define SKIP_IF(reason)                           \
  do {                                            \
    const QString why_ = (reason);                \
    if (!why_.isEmpty()) QSKIP(qPrintable(why_)); \
  } while (0)

namespace e2e {

#ifdef MAPURA_SLOW_BUILD
constexpr int kSlowdown = 4;  // a sanitizer build runs several times slower
#else
constexpr int kSlowdown = 1;
#endif

/// Points HOME (and with it the documents folder and the settings) at `home`, creates
/// `home`/Documents, and clears the XDG variables that would lead elsewhere. Call before the
/// application object exists.
void useHome(const QString& home);

/// One modal message box that was answered.
struct Box {
  QString title;
  QString text;
  QString informative;
  int icon = 0;
  QStringList buttons;
};

/// Watches for modal message boxes and file dialogs while the event loop runs (also inside
/// nested modal loops) and answers them: message boxes are recorded and closed with their only
/// button; file dialogs take the next queued path (an empty path cancels).
class DialogAnswerer : public QObject {
  Q_OBJECT

 public:
  DialogAnswerer();
  QList<Box> boxes;
  QQueue<QString> files;
  /// Directory the last answered file dialog was showing.
  QString lastDialogDirectory;
  /// Caption of the last answered file dialog.
  QString lastDialogTitle;
  /// Number of boxes whose text is `text`.
  int count(const QString& text) const;
  /// All recorded boxes as "text / informative" lines, for failure messages.
  QString describe() const;

 private slots:
  void poll();

 private:
  QTimer timer_;
  QPointer<QFileDialog> dialog_;
  QString answer_;
};

/// Runs `pavo synth` (cached per name under the test's scratch root); empty with `why` set when
/// the tool cannot make one.
QString synthesize(const QString& name, int frames, const QString& resolution, QString* why);

/// Empty when the SDK can open `ktr` and enable tracking and spatial mapping on it; otherwise why
/// not (a scan cannot produce a map in this build).
QString scanningUnavailable(const QString& ktr);

/// "Input", then "Live" on the virtual camera playing `recording`; empty when the window is
/// ready to scan, else why not.
QString openLive(GUI* gui, DialogAnswerer& answerer, const QString& recording);
/// "Input" (when shown), then "KTR" with `file` typed into the dialog; empty when the window is
/// ready to scan, else why not.
QString openKtr(GUI* gui, DialogAnswerer& answerer, const QString& file);

/// Saves a picture of the whole screen into $MAPURA_SCREENSHOT_DIR (nothing when unset).
void screenshot(const QString& name);

/// Processes events until `done` or `timeout_ms`; returns `done()`.
bool waitUntil(const std::function<bool()>& done, int timeout_ms);

/// The main() of a window test: a private home folder, the application constructed as main()
/// does, then the Qt Test object `Test(MainProcess*)` run with the command line.
template <class Test>
int runWindowTest(int argc, char** argv) {
  QTemporaryDir home;
  useHome(home.path());
  MainProcess app(argc, argv);
  app.setAttribute(Qt::AA_Use96Dpi, true);
  app.Construct();
  Test test(&app);
  return QTest::qExec(&test, argc, argv);
}

}  // namespace e2e

// The application object and the controller of the whole workflow: owns the main window, the frame
// timer, the mapping worker and its thread; wires every signal; begins and tears down instances
// (input choice, scan, result) without leaving the process.
//
// Threads: every slot and method runs on the GUI thread. The worker lives on its own QThread and
// reaches these slots through queued connections.
#pragma once

#include <QApplication>
#include <QDir>
#include <QMutex>
#include <QString>

class GUI;
class InputThreadModul;
class QShortcut;
class QThread;
class QTimer;

class MainProcess : public QApplication {
  Q_OBJECT

 public:
  /// Builds the QApplication and clears ProgramStates; no window yet.
  MainProcess(int& argc, char** argv);
  ~MainProcess() override;

  /// Creates and wires the main window, the timer, the folders and the first instance. Returns 1.
  int Construct();

  /// Logs and drops a std::exception escaping an event handler, so the event loop goes on.
  bool notify(QObject* receiver, QEvent* event) override;

  // Read access for tests and tools; all owned by this object.
  GUI* window() const { return gui; }
  InputThreadModul* worker() const { return inputThread; }
  QThread* workerThread() const { return workerThreadHandle; }
  QTimer* updateTimer() const { return timer; }
  const QDir& saveDir() const { return saveFolder; }
  const QDir& meshesDir() const { return meshesFolder; }
  bool isInstanceOpen() const { return instanceOpen; }

 public slots:
  // End of scan and result.
  void endOfMPP(bool textured);
  void endMappingWrong();
  /// Shows a saved map; an empty path asks for the file in a dialog.
  void openMesh(QString path = QString());
  // Input and scan.
  void initLive();
  void initKTR();
  void startScan();
  void resetApp();
  void callbackAutoEnd();
  void endOfScan(int code);
  void endOfPreprocess();
  void selectInput(bool show = false);
  // Camera video settings and KTR position.
  void changeKTRframeLabelValue(int frame);
  // Lifecycle.
  void appUpdate();
  void destruct();
  void switchAutoExposure(int state);
  void HandleExposureGain(bool automatic);
  void changeCamSettings(int value);

 private:
  /// Period of the frame timer while an instance runs or an imported map is shown.
  static constexpr int kUpdateIntervalMs = 30;

  void reset();
  void prepareNewInstance();
  void restart();
  void initProcess();
  /// A modal critical box with a title text, an informative sentence and one Close button.
  static void showCritical(const QString& text, const QString& informative);
  /// Hides the status label, resets the application and restores the arrow cursor.
  void abortInput();

  GUI* gui = nullptr;
  InputThreadModul* inputThread = nullptr;
  QThread* workerThreadHandle = nullptr;
  QShortcut* spaceShortcut = nullptr;
  QDir saveFolder;
  QDir meshesFolder;
  bool resetting = false;
  bool instanceOpen = false;
  QTimer* timer = nullptr;
  QMutex lock;
};

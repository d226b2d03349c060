// Mapura: builds the application object, lets it construct the window and runs the event loop.
#include "MainProcess.h"

int main(int argc, char** argv) {
  auto* app = new MainProcess(argc, argv);
  app->Construct();
  const int result = app->exec();
  delete app;
  return result;
}

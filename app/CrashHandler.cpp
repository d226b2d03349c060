// Prints a symbolised stack trace when the program receives a fatal signal. Installed by a static
// initialiser when this file is linked in; nothing calls it.
#define BACKWARD_HAS_DW 1
#include <backward.hpp>
#include <csignal>
#include <vector>

namespace {

const std::vector<int> kFatalSignals = {SIGABRT, SIGBUS, SIGFPE,  SIGILL,  SIGIOT, SIGQUIT,
                                        SIGSEGV, SIGSYS, SIGTRAP, SIGXCPU, SIGXFSZ};

backward::SignalHandling g_crash_handler(kFatalSignals);

}  // namespace

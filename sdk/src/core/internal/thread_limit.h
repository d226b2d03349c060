// How many threads the SDK's parallel loops run on: every core the process may use, or fewer when
// PAVO_THREADS says so (a board shared with other work). The loops of depth, tracking and mapping
// go through TBB, directly or through OpenCV's parallel_for_ (which Debian's OpenCV runs on TBB), so
// one limit on TBB's pool and on OpenCV's thread count covers them all.
#pragma once

#include <string>

namespace pv::internal {

/// The most threads a parallel loop runs on, the thread that starts it included. Read from
/// PAVO_THREADS (a whole number from 1 to kMaxThreadLimit) when the library loads; every core the
/// process may use when it is not set or not valid.
int threadLimit();

/// How the limit was chosen, for people: "all cores", "PAVO_THREADS=3", or why PAVO_THREADS was
/// ignored.
std::string threadLimitSource();

/// The cores this process may run on (its CPU affinity).
int availableCores();

/// Sets the limit for the whole process; 0 goes back to every core. Not thread safe: call it while
/// no SDK work runs (the tests compare thread counts with it).
void setThreadLimit(int threads);

/// True when the grab runs its stages one after the other rather than depth beside tracking
/// (a limit of one thread).
inline bool serialGrab() { return threadLimit() == 1; }

constexpr int kMaxThreadLimit = 256;

}  // namespace pv::internal

// Draws the samples of a long scan as a picture: resident memory and map memory over time, the
// moment the budget was reached, and the CPU time per frame below.
#pragma once

#include <string>

#include "long_scan.h"

namespace mapura::bench {

/// Writes a PNG; false when it cannot.
bool plotLongScan(const LongScanResult& result, const std::string& title, const std::string& path);

/// Reads the CSV that bench_long_scan writes back into samples.
bool readLongScanCsv(const std::string& path, LongScanResult& result);

}  // namespace mapura::bench

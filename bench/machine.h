// Prints the machine a benchmark ran on (CPU model, cores, memory), for side-by-side figures.
#pragma once

#include <fstream>
#include <iostream>
#include <string>
#include <thread>

namespace mapura::bench {

inline std::string cpuModel() {
  std::ifstream f("/proc/cpuinfo");
  std::string line;
  while (std::getline(f, line))
    if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
  return "unknown CPU";
}

inline void printMachine(std::ostream& out = std::cout) {
  std::ifstream mem("/proc/meminfo");
  std::string label, kb;
  mem >> label >> kb;
  out << "machine: " << cpuModel() << ", " << std::thread::hardware_concurrency() << " cores, "
      << (kb.empty() ? 0 : std::stoll(kb) / 1024 / 1024) << " GiB\n";
}

}  // namespace mapura::bench

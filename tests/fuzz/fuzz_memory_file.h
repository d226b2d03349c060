// A fuzz input as a file that a reader opens by path, kept in memory (memfd) so that the fuzzer
// does not wear the disk.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace mapura::fuzz {

class MemoryFile {
 public:
  explicit MemoryFile(const char* name) : fd_(memfd_create(name, 0)), path_("/proc/self/fd/" + std::to_string(fd_)) {
    if (fd_ < 0) std::abort();
  }
  ~MemoryFile() { close(fd_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  /// Makes the file hold exactly `size` bytes of `data`; returns its path.
  const std::string& fill(const uint8_t* data, size_t size) {
    if (ftruncate(fd_, 0) != 0 || (size > 0 && pwrite(fd_, data, size, 0) != ssize_t(size))) std::abort();
    return path_;
  }

 private:
  int fd_;
  std::string path_;
};

}  // namespace mapura::fuzz

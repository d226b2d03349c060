// Writing a file under a temporary name in the destination folder, then renaming it.
#pragma once

#include <functional>
#include <string>

#include "mesh/internal/mesh_data.h"

namespace pv::internal {

/// Calls `write(temporary_path)`, checks it succeeded, then renames the temporary file over
/// `path`. On any failure the temporary file is removed and an earlier `path` is left intact.
FileResult writeFileAtomically(const std::string& path,
                               const std::function<FileResult(const std::string& temporary_path)>& write);

/// Reads a whole file into `bytes`; false when it cannot be opened or read.
bool readWholeFile(const std::string& path, std::string& bytes);

}  // namespace pv::internal

namespace pv::internal {

/// A file written through a large buffer; every write error is remembered and reported by
/// close(), so writers need not check each call.
class OutputFile {
 public:
  explicit OutputFile(const std::string& path);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  void write(const void* data, size_t bytes);
  void text(const std::string& s) { write(s.data(), s.size()); }
  /// Appends a float in its shortest exact decimal form.
  void number(float value);
  void number(long long value);
  void put(char c) { write(&c, 1); }
  /// Flushes, syncs and closes; the result says whether every byte reached the file.
  FileResult close();

 private:
  void flushBuffer();
  std::string path_;
  void* file_ = nullptr;
  std::string buffer_;
  std::string error_;
};

}  // namespace pv::internal

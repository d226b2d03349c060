// Writing a file under a temporary name in the destination folder, then renaming it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "mesh/internal/mesh_data.h"

namespace pv::internal {

/// A hidden name beside `path` for writing it before it is renamed into place
/// (".<name>.<random>.part").
std::string temporaryPathBeside(const std::string& path);

/// Where a write to `path` goes: a link is followed to the file it names; `in_place` when that
/// is a device or a pipe, which is written directly (it cannot be replaced by a rename).
struct WriteTarget {
  std::string path;
  bool in_place = false;
};
WriteTarget writeTargetFor(const std::string& path);

using FileWriter = std::function<FileResult(const std::string& temporary_path)>;

/// Calls `write(temporary_path)`, checks it succeeded, then renames the temporary file over
/// `path`. On any failure the temporary file is removed and an earlier `path` is left intact.
/// A link is replaced through (the file it names is), a device or a pipe is written in place.
FileResult writeFileAtomically(const std::string& path, const FileWriter& write);

/// One file of a set that belongs together (an OBJ, its material library and its texture).
struct FileToWrite {
  std::string path;
  FileWriter write;
};

/// Writes every file of the set under a temporary name beside it, then renames them into place
/// in order. When a write or a rename fails, the files renamed so far are put back as they were
/// (the earlier files are kept under a second name until the whole set is in place) and every
/// temporary file is removed: the folder then holds the earlier set untouched, never a mix.
FileResult writeFilesAtomically(const std::vector<FileToWrite>& files);

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

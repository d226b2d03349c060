#include "mesh/internal/file_util.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>

namespace pv::internal {

namespace fs = std::filesystem;

namespace {

std::string temporaryNameFor(const std::string& path, const char* kind) {
  static thread_local std::mt19937_64 rng{std::random_device{}()};
  const fs::path p(path);
  char suffix[32];
  std::snprintf(suffix, sizeof(suffix), ".%08llx.%s", static_cast<unsigned long long>(rng() & 0xffffffffULL), kind);
  return (p.parent_path() / ("." + p.filename().string() + suffix)).string();
}

// A second name for an existing file (or link), so that it can be put back after a failed
// replacement: a hard link, or a copy where the file system has none. Empty when there is no
// such file; anything else standing there (a folder) makes the rename itself fail.
FileResult keepEarlierFile(const std::string& path, std::string& kept) {
  kept.clear();
  std::error_code ec;
  const fs::file_status status = fs::symlink_status(path, ec);
  if (!fs::is_regular_file(status) && !fs::is_symlink(status)) return FileResult::success();
  const std::string name = temporaryNameFor(path, "old");
  if (::link(path.c_str(), name.c_str()) != 0 && !fs::copy_file(path, name, ec)) {
    std::remove(name.c_str());
    return FileResult::failure("cannot keep the earlier " + path + " while replacing it: " + ec.message());
  }
  kept = name;
  return FileResult::success();
}

void removeQuietly(const std::string& path) {
  if (!path.empty()) std::remove(path.c_str());
}

// One file of a set: where it ends up and the temporary name it is written under first (empty
// when it is written in place).
struct Placement {
  std::string target;
  std::string temporary;
};

// Renames the written temporaries over their files; on a failure puts the earlier files back.
FileResult putInPlace(const std::vector<Placement>& files) {
  std::vector<std::string> kept(files.size());
  FileResult result = FileResult::success();
  // A single file needs no second name: its rename replaces it in one step or not at all.
  for (size_t i = 0; files.size() > 1 && i < files.size() && result.ok; ++i)
    if (!files[i].temporary.empty()) result = keepEarlierFile(files[i].target, kept[i]);
  size_t placed = 0;
  while (result.ok && placed < files.size()) {
    const Placement& f = files[placed];
    if (f.temporary.empty() || std::rename(f.temporary.c_str(), f.target.c_str()) == 0)
      ++placed;
    else
      result = FileResult::failure("cannot rename " + f.temporary + " to " + f.target + ": " + std::strerror(errno));
  }
  if (!result.ok) {
    for (size_t i = 0; i < placed; ++i) {
      if (files[i].temporary.empty()) continue;
      if (kept[i].empty()) {
        removeQuietly(files[i].target);
      } else if (std::rename(kept[i].c_str(), files[i].target.c_str()) == 0) {
        kept[i].clear();
      }
    }
  }
  for (const std::string& name : kept) removeQuietly(name);
  return result;
}

}  // namespace

std::string temporaryPathBeside(const std::string& path) { return temporaryNameFor(path, "part"); }

WriteTarget writeTargetFor(const std::string& path) {
  std::error_code ec;
  fs::path target(path);
  if (fs::is_symlink(fs::symlink_status(target, ec))) {
    const fs::path resolved = fs::weakly_canonical(target, ec);
    if (!ec) target = resolved;
  }
  const fs::file_status status = fs::status(target, ec);
  const bool special = fs::exists(status) && !fs::is_regular_file(status) && !fs::is_directory(status);
  return {target.string(), special};
}

FileResult writeFileAtomically(const std::string& path, const FileWriter& write) {
  return writeFilesAtomically({{path, write}});
}

FileResult writeFilesAtomically(const std::vector<FileToWrite>& files) {
  std::vector<Placement> placements;
  FileResult result = FileResult::success();
  for (const FileToWrite& file : files) {
    if (file.path.empty()) {
      result = FileResult::failure("empty file name");
      break;
    }
    const WriteTarget target = writeTargetFor(file.path);
    placements.push_back({target.path, target.in_place ? std::string() : temporaryPathBeside(target.path)});
    result = file.write(target.in_place ? target.path : placements.back().temporary);
    if (!result.ok) break;
  }
  if (result.ok) result = putInPlace(placements);
  // After a success the temporaries have become the files and are gone under these names.
  for (const Placement& p : placements) removeQuietly(p.temporary);
  return result;
}

bool readWholeFile(const std::string& path, std::string& bytes) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return false;
  bytes.clear();
  // One read of the whole size when it is known (regular files), else chunk by chunk.
  if (std::fseek(f, 0, SEEK_END) == 0) {
    const long size = std::ftell(f);
    if (size > 0 && std::fseek(f, 0, SEEK_SET) == 0) {
      bytes.resize(size_t(size));
      bytes.resize(std::fread(bytes.data(), 1, bytes.size(), f));
    }
  }
  char buffer[1 << 16];
  size_t n;
  while ((n = std::fread(buffer, 1, sizeof(buffer), f)) > 0) bytes.append(buffer, n);
  const bool ok = !std::ferror(f);
  std::fclose(f);
  return ok;
}

bool MeshData::consistent() const {
  const size_t n = positions.size();
  if ((!normals.empty() && normals.size() != n) || (!colors.empty() && colors.size() != n) ||
      (!uv.empty() && uv.size() != n))
    return false;
  for (const uint3& t : triangles)
    if (t.x >= n || t.y >= n || t.z >= n) return false;
  return true;
}

}  // namespace pv::internal

namespace pv::internal {

OutputFile::OutputFile(const std::string& path) : path_(path) {
  file_ = std::fopen(path.c_str(), "wb");
  if (!file_) error_ = "cannot create " + path + ": " + std::strerror(errno);
  buffer_.reserve(1 << 20);
}

OutputFile::~OutputFile() {
  if (file_) std::fclose(static_cast<std::FILE*>(file_));
}

void OutputFile::flushBuffer() {
  if (file_ && error_.empty() && !buffer_.empty() &&
      std::fwrite(buffer_.data(), 1, buffer_.size(), static_cast<std::FILE*>(file_)) != buffer_.size())
    error_ = "cannot write " + path_ + ": " + std::strerror(errno);
  buffer_.clear();
}

void OutputFile::write(const void* data, size_t bytes) {
  if (!error_.empty()) return;
  buffer_.append(static_cast<const char*>(data), bytes);
  if (buffer_.size() >= (1 << 20)) flushBuffer();
}

void OutputFile::number(float value) {
  char text[32];
  const auto r = std::to_chars(text, text + sizeof(text), value);
  write(text, size_t(r.ptr - text));
}

void OutputFile::number(long long value) {
  char text[32];
  const auto r = std::to_chars(text, text + sizeof(text), value);
  write(text, size_t(r.ptr - text));
}

FileResult OutputFile::close() {
  flushBuffer();
  if (file_) {
    auto* f = static_cast<std::FILE*>(file_);
    file_ = nullptr;
    if (std::fflush(f) != 0 && error_.empty()) error_ = "cannot write " + path_ + ": " + std::strerror(errno);
    if (error_.empty() && ::fsync(fileno(f)) != 0 && errno != EINVAL)
      error_ = "cannot sync " + path_ + ": " + std::strerror(errno);
    if (std::fclose(f) != 0 && error_.empty()) error_ = "cannot close " + path_ + ": " + std::strerror(errno);
  }
  return error_.empty() ? FileResult::success() : FileResult::failure(error_);
}

}  // namespace pv::internal

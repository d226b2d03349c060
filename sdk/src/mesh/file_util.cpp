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
std::string temporaryNameFor(const std::string& path) {
  static thread_local std::mt19937_64 rng{std::random_device{}()};
  const fs::path p(path);
  char suffix[32];
  std::snprintf(suffix, sizeof(suffix), ".%08llx.part", static_cast<unsigned long long>(rng() & 0xffffffffULL));
  return (p.parent_path() / ("." + p.filename().string() + suffix)).string();
}
}  // namespace

FileResult writeFileAtomically(const std::string& path,
                               const std::function<FileResult(const std::string& temporary_path)>& write) {
  if (path.empty()) return FileResult::failure("empty file name");
  const std::string temporary = temporaryNameFor(path);
  FileResult result = write(temporary);
  if (result.ok && std::rename(temporary.c_str(), path.c_str()) != 0)
    result = FileResult::failure("cannot rename " + temporary + " to " + path + ": " + std::strerror(errno));
  if (!result.ok) std::remove(temporary.c_str());
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

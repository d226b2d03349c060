// A folder on disk made from a fuzz input, for the readers that take a folder (the stereo folder
// importers). The input is split at NUL bytes into the contents of a fixed list of files; a file
// whose part is empty, or that no part reaches, is absent. Empty images are laid out once: the
// readers only check that a listed image exists.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace mapura::fuzz {

class FuzzFolder {
 public:
  /// `files` are the paths the input parts fill in order; `images` the (empty) files made once.
  FuzzFolder(const std::string& name, std::vector<std::string> files, const std::vector<std::string>& images)
      : files_(std::move(files)) {
    namespace fs = std::filesystem;
    std::error_code ec;
    const fs::path base = fs::is_directory("/dev/shm", ec) ? fs::path("/dev/shm") : fs::temp_directory_path();
    root_ = (base / (name + "-" + std::to_string(getpid()))).string();
    fs::remove_all(root_, ec);
    for (const std::string& image : images) {
      fs::create_directories(fs::path(root_ + "/" + image).parent_path(), ec);
      std::ofstream(root_ + "/" + image).put('\n');
    }
    for (const std::string& file : files_) fs::create_directories(fs::path(root_ + "/" + file).parent_path(), ec);
  }
  ~FuzzFolder() {
    std::error_code ec;
    std::filesystem::remove_all(root_, ec);
  }

  /// Writes the parts of `data` into the files; returns the folder.
  const std::string& fill(const uint8_t* data, size_t size) {
    size_t begin = 0;
    for (size_t k = 0; k < files_.size(); ++k) {
      const std::string path = root_ + "/" + files_[k];
      size_t end = begin;
      while (end < size && data[end] != 0) ++end;
      if (end > begin)
        std::ofstream(path, std::ios::binary | std::ios::trunc)
            .write(reinterpret_cast<const char*>(data + begin), std::streamsize(end - begin));
      else
        std::remove(path.c_str());
      begin = std::min(size, end + 1);
    }
    return root_;
  }

 private:
  std::vector<std::string> files_;
  std::string root_;
};

}  // namespace mapura::fuzz

// PAVO SDK: image container in CPU and/or GPU memory.
#pragma once

#include <cstddef>
#include <memory>

#include "pv/defines.h"
#include "pv/math.h"

namespace pv {

namespace internal {
struct MatBuffer;
}

/// Number of channels of an element type (1..4).
int getChannels(MAT_TYPE type);
/// Bytes of one element (all channels).
size_t getPixelBytes(MAT_TYPE type);

/// True when a usable CUDA device backs MEM::GPU memory in this process. Thread safe.
bool isCudaDeviceAvailable();

/// An image of width x height elements of one MAT_TYPE, held in CPU memory, GPU memory or both.
///
/// Copy and assignment share the memory (reference counted); `free` drops this handle's share
/// and empties the handle, so several holders may each call `free`. A Mat built over memory that
/// someone else owns never frees it. Without a usable CUDA device, MEM::GPU memory is host memory
/// (see isGPUHostBacked), so every code path still runs.
/// Not thread safe: one handle is used by one thread at a time (the pixels may be shared).
class Mat {
 public:
  Mat();
  /// Allocates width x height elements of `type` in `mem`.
  Mat(size_t width, size_t height, MAT_TYPE type, MEM mem = MEM::CPU);
  Mat(Resolution resolution, MAT_TYPE type, MEM mem = MEM::CPU);
  /// Non-owning view over memory someone else owns (CPU or GPU, as `mem` says: CPU or GPU only).
  Mat(Resolution resolution, MAT_TYPE type, unsigned char* ptr, size_t step_bytes, MEM mem);
  Mat(const Mat& other);
  Mat& operator=(const Mat& other);
  Mat(Mat&& other) noexcept;
  Mat& operator=(Mat&& other) noexcept;
  ~Mat();

  /// Allocates (replacing this handle's memory). BOTH allocates both memories.
  ERROR_CODE alloc(size_t width, size_t height, MAT_TYPE type, MEM mem = MEM::CPU);
  ERROR_CODE alloc(Resolution resolution, MAT_TYPE type, MEM mem = MEM::CPU);
  /// Drops this handle's share of `mem`; when no memory is left the handle becomes empty.
  void free(MEM mem = MEM::BOTH);

  /// Copies pixels into `dst`, allocating it when its size or type differ.
  ERROR_CODE copyTo(Mat& dst, COPY_TYPE copy_type = COPY_TYPE::CPU_CPU) const;
  /// Copies pixels from `src` into this Mat, allocating it when its size or type differ.
  ERROR_CODE setFrom(const Mat& src, COPY_TYPE copy_type = COPY_TYPE::CPU_CPU);
  /// Copies GPU pixels to the CPU memory of the same Mat (allocated when missing), or back.
  ERROR_CODE updateCPUfromGPU();
  ERROR_CODE updateGPUfromCPU();
  /// Writes the CPU pixels to an image file; the extension picks the format (PNG for U8 types).
  ERROR_CODE write(const String& path) const;
  /// Reads an image file into a U8_C4 (BGRA) CPU Mat.
  ERROR_CODE read(const String& path);

  /// Sets every element of `mem` to `value` (all channels take the value).
  ERROR_CODE setTo(float value, MEM mem = MEM::CPU);
  ERROR_CODE setTo(uchar4 value, MEM mem = MEM::CPU);

  template <typename T>
  T* getPtr(MEM mem = MEM::CPU) const {
    return reinterpret_cast<T*>(rawPtr(mem));
  }
  /// Pointer to the element (x, y) in CPU memory.
  template <typename T>
  T* getPixel(size_t x, size_t y) const {
    return reinterpret_cast<T*>(rawPtr(MEM::CPU) + y * getStepBytes(MEM::CPU) + x * getPixelBytes());
  }
  size_t getStepBytes(MEM mem = MEM::CPU) const;
  /// Row step in elements.
  size_t getStep(MEM mem = MEM::CPU) const;
  size_t getWidth() const { return width_; }
  size_t getHeight() const { return height_; }
  Resolution getResolution() const { return {width_, height_}; }
  MAT_TYPE getDataType() const { return type_; }
  int getChannels() const { return pv::getChannels(type_); }
  size_t getPixelBytes() const { return pv::getPixelBytes(type_); }
  size_t getWidthBytes() const { return width_ * getPixelBytes(); }
  /// Memories this handle holds: CPU, GPU or BOTH (CPU when empty).
  MEM getMemoryType() const;
  bool isInit() const;
  /// True when this handle owns (shares ownership of) its memory.
  bool isMemoryOwner() const;
  /// True when this handle's GPU memory is host memory standing in for a missing device.
  bool isGPUHostBacked() const;
  /// Number of handles sharing the CPU (or else GPU) memory; 0 when empty.
  long useCount() const;
  /// "640x360 U8_C4 CPU" style description.
  String getInfos() const;

  String name;

 private:
  unsigned char* rawPtr(MEM mem) const;
  size_t width_ = 0;
  size_t height_ = 0;
  MAT_TYPE type_ = MAT_TYPE::U8_C4;
  std::shared_ptr<internal::MatBuffer> cpu_;
  std::shared_ptr<internal::MatBuffer> gpu_;
};

}  // namespace pv

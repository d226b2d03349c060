#include "pv/mat.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "core/internal/error.h"
#include "core/internal/gpu_memory.h"
#include "core/internal/mat_buffer.h"
#include "mesh/internal/file_util.h"

namespace pv {

namespace internal {
MatBuffer::~MatBuffer() {
  if (!owner || !ptr) return;
  if (gpu_memory)
    gpuFree(ptr, host);
  else
    std::free(ptr);
}
}  // namespace internal

namespace {

using internal::fail;
using internal::MatBuffer;

std::shared_ptr<MatBuffer> allocBuffer(size_t width_bytes, size_t height, MEM mem, ERROR_CODE* err) {
  auto buf = std::make_shared<MatBuffer>();
  buf->owner = true;
  if (mem == MEM::GPU) {
    buf->gpu_memory = true;
    *err = internal::gpuAlloc(width_bytes, height, &buf->ptr, &buf->step, &buf->host);
    if (*err != ERROR_CODE::SUCCESS) return nullptr;
    return buf;
  }
  buf->step = (width_bytes + 63) / 64 * 64;
  void* p = nullptr;
  if (posix_memalign(&p, 64, buf->step * (height ? height : 1)) != 0) {
    *err = fail(ERROR_CODE::NOT_ENOUGH_MEMORY, "CPU allocation of a Mat");
    return nullptr;
  }
  buf->ptr = static_cast<unsigned char*>(p);
  *err = ERROR_CODE::SUCCESS;
  return buf;
}

int cvType(MAT_TYPE type) {
  switch (type) {
    case MAT_TYPE::F32_C1: return CV_32FC1;
    case MAT_TYPE::F32_C2: return CV_32FC2;
    case MAT_TYPE::F32_C3: return CV_32FC3;
    case MAT_TYPE::F32_C4: return CV_32FC4;
    case MAT_TYPE::U8_C1: return CV_8UC1;
    case MAT_TYPE::U8_C2: return CV_8UC2;
    case MAT_TYPE::U8_C3: return CV_8UC3;
    case MAT_TYPE::U8_C4: return CV_8UC4;
  }
  return -1;
}

}  // namespace

int getChannels(MAT_TYPE type) {
  switch (type) {
    case MAT_TYPE::F32_C1:
    case MAT_TYPE::U8_C1: return 1;
    case MAT_TYPE::F32_C2:
    case MAT_TYPE::U8_C2: return 2;
    case MAT_TYPE::F32_C3:
    case MAT_TYPE::U8_C3: return 3;
    case MAT_TYPE::F32_C4:
    case MAT_TYPE::U8_C4: return 4;
  }
  return 0;
}

size_t getPixelBytes(MAT_TYPE type) {
  const bool f32 =
      type == MAT_TYPE::F32_C1 || type == MAT_TYPE::F32_C2 || type == MAT_TYPE::F32_C3 || type == MAT_TYPE::F32_C4;
  return size_t(getChannels(type)) * (f32 ? 4 : 1);
}

bool isCudaDeviceAvailable() { return internal::cudaDeviceUsable(); }

Mat::Mat() = default;
Mat::Mat(size_t width, size_t height, MAT_TYPE type, MEM mem) { (void)alloc(width, height, type, mem); }
Mat::Mat(Resolution resolution, MAT_TYPE type, MEM mem) { (void)alloc(resolution, type, mem); }
Mat::Mat(Resolution resolution, MAT_TYPE type, unsigned char* ptr, size_t step_bytes, MEM mem)
    : width_(resolution.width), height_(resolution.height), type_(type) {
  if (!ptr || mem == MEM::BOTH) {
    width_ = height_ = 0;
    return;
  }
  auto buf = std::make_shared<MatBuffer>();
  buf->ptr = ptr;
  buf->step = step_bytes;
  buf->owner = false;
  if (mem == MEM::GPU) {
    buf->gpu_memory = true;
    buf->host = !internal::cudaDeviceUsable();
    gpu_ = std::move(buf);
  } else {
    cpu_ = std::move(buf);
  }
}
Mat::Mat(const Mat& other) = default;
Mat& Mat::operator=(const Mat& other) = default;
Mat::Mat(Mat&& other) noexcept
    : name(std::move(other.name)),
      width_(other.width_),
      height_(other.height_),
      type_(other.type_),
      cpu_(std::move(other.cpu_)),
      gpu_(std::move(other.gpu_)) {
  other.width_ = other.height_ = 0;
}
Mat& Mat::operator=(Mat&& other) noexcept {
  if (this != &other) {
    name = std::move(other.name);
    width_ = other.width_;
    height_ = other.height_;
    type_ = other.type_;
    cpu_ = std::move(other.cpu_);
    gpu_ = std::move(other.gpu_);
    other.width_ = other.height_ = 0;
  }
  return *this;
}
Mat::~Mat() = default;

ERROR_CODE Mat::alloc(size_t width, size_t height, MAT_TYPE type, MEM mem) {
  if (width == 0 || height == 0 || pv::getChannels(type) == 0)
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "Mat::alloc with an empty size or unknown type");
  cpu_.reset();
  gpu_.reset();
  width_ = width;
  height_ = height;
  type_ = type;
  const size_t width_bytes = width * pv::getPixelBytes(type);
  ERROR_CODE err = ERROR_CODE::SUCCESS;
  if (mem == MEM::CPU || mem == MEM::BOTH) {
    cpu_ = allocBuffer(width_bytes, height, MEM::CPU, &err);
    if (!cpu_) {
      free();
      return err;
    }
  }
  if (mem == MEM::GPU || mem == MEM::BOTH) {
    gpu_ = allocBuffer(width_bytes, height, MEM::GPU, &err);
    if (!gpu_) {
      free();
      return err;
    }
  }
  return ERROR_CODE::SUCCESS;
}

ERROR_CODE Mat::alloc(Resolution resolution, MAT_TYPE type, MEM mem) {
  return alloc(resolution.width, resolution.height, type, mem);
}

void Mat::free(MEM mem) {
  if (mem == MEM::CPU || mem == MEM::BOTH) cpu_.reset();
  if (mem == MEM::GPU || mem == MEM::BOTH) gpu_.reset();
  if (!cpu_ && !gpu_) width_ = height_ = 0;
}

unsigned char* Mat::rawPtr(MEM mem) const {
  const auto& buf = mem == MEM::GPU ? gpu_ : cpu_;
  return buf ? buf->ptr : nullptr;
}

size_t Mat::getStepBytes(MEM mem) const {
  const auto& buf = mem == MEM::GPU ? gpu_ : cpu_;
  return buf ? buf->step : 0;
}

size_t Mat::getStep(MEM mem) const {
  const size_t pb = getPixelBytes();
  return pb ? getStepBytes(mem) / pb : 0;
}

MEM Mat::getMemoryType() const {
  if (cpu_ && gpu_) return MEM::BOTH;
  return gpu_ ? MEM::GPU : MEM::CPU;
}

bool Mat::isInit() const { return (cpu_ || gpu_) && width_ > 0 && height_ > 0; }

bool Mat::isMemoryOwner() const {
  if (!cpu_ && !gpu_) return false;
  return (!cpu_ || cpu_->owner) && (!gpu_ || gpu_->owner);
}

bool Mat::isGPUHostBacked() const { return gpu_ && gpu_->host; }

long Mat::useCount() const {
  if (cpu_) return cpu_.use_count();
  return gpu_ ? gpu_.use_count() : 0;
}

String Mat::getInfos() const {
  std::string s = std::to_string(width_) + "x" + std::to_string(height_) + " " + toString(type_).str() + " " +
                  toString(getMemoryType()).str();
  if (isGPUHostBacked()) s += " (GPU memory in host memory)";
  return String(s);
}

ERROR_CODE Mat::copyTo(Mat& dst, COPY_TYPE copy_type) const {
  if (&dst == this) return ERROR_CODE::SUCCESS;
  const bool from_gpu = copy_type == COPY_TYPE::GPU_CPU || copy_type == COPY_TYPE::GPU_GPU;
  const bool to_gpu = copy_type == COPY_TYPE::CPU_GPU || copy_type == COPY_TYPE::GPU_GPU;
  const auto& src_buf = from_gpu ? gpu_ : cpu_;
  if (!src_buf || !isInit()) return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "copy from an empty Mat");
  const MEM dst_mem = to_gpu ? MEM::GPU : MEM::CPU;
  const auto& dst_existing = to_gpu ? dst.gpu_ : dst.cpu_;
  if (!dst_existing || dst.width_ != width_ || dst.height_ != height_ || dst.type_ != type_) {
    Mat fresh;
    ERROR_CODE err = fresh.alloc(width_, height_, type_, dst_mem);
    if (err != ERROR_CODE::SUCCESS) return err;
    fresh.name = dst.name;
    dst = std::move(fresh);
  }
  const auto& dst_buf = to_gpu ? dst.gpu_ : dst.cpu_;
  return internal::copy2D(dst_buf->ptr, dst_buf->step, dst_buf->host, src_buf->ptr, src_buf->step, src_buf->host,
                          getWidthBytes(), height_);
}

ERROR_CODE Mat::setFrom(const Mat& src, COPY_TYPE copy_type) { return src.copyTo(*this, copy_type); }

ERROR_CODE Mat::updateCPUfromGPU() {
  if (!gpu_ || !isInit()) return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "no GPU memory to copy from");
  ERROR_CODE err = ERROR_CODE::SUCCESS;
  if (!cpu_) cpu_ = allocBuffer(getWidthBytes(), height_, MEM::CPU, &err);
  if (!cpu_) return err;
  return internal::copy2D(cpu_->ptr, cpu_->step, true, gpu_->ptr, gpu_->step, gpu_->host, getWidthBytes(), height_);
}

ERROR_CODE Mat::updateGPUfromCPU() {
  if (!cpu_ || !isInit()) return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "no CPU memory to copy from");
  ERROR_CODE err = ERROR_CODE::SUCCESS;
  if (!gpu_) gpu_ = allocBuffer(getWidthBytes(), height_, MEM::GPU, &err);
  if (!gpu_) return err;
  return internal::copy2D(gpu_->ptr, gpu_->step, gpu_->host, cpu_->ptr, cpu_->step, true, getWidthBytes(), height_);
}

ERROR_CODE Mat::setTo(float value, MEM mem) {
  unsigned char pattern[16];
  const int ch = getChannels();
  const bool f32 = getPixelBytes() == size_t(ch) * 4;
  for (int c = 0; c < ch; ++c) {
    if (f32)
      std::memcpy(pattern + 4 * c, &value, 4);
    else
      pattern[c] = static_cast<unsigned char>(value < 0 ? 0 : value > 255 ? 255 : value);
  }
  ERROR_CODE err = ERROR_CODE::SUCCESS;
  for (MEM m : {MEM::CPU, MEM::GPU}) {
    if (mem != m && mem != MEM::BOTH) continue;
    const auto& buf = m == MEM::GPU ? gpu_ : cpu_;
    if (!buf) return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "setTo on a memory the Mat does not hold");
    err = internal::fill2D(buf->ptr, buf->step, buf->host, width_, height_, pattern, getPixelBytes());
    if (err != ERROR_CODE::SUCCESS) return err;
  }
  return err;
}

ERROR_CODE Mat::setTo(uchar4 value, MEM mem) {
  if (getPixelBytes() != size_t(getChannels()))
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "setTo(uchar4) on a float Mat");
  for (MEM m : {MEM::CPU, MEM::GPU}) {
    if (mem != m && mem != MEM::BOTH) continue;
    const auto& buf = m == MEM::GPU ? gpu_ : cpu_;
    if (!buf) return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "setTo on a memory the Mat does not hold");
    ERROR_CODE err = internal::fill2D(buf->ptr, buf->step, buf->host, width_, height_, value.ptr(), getPixelBytes());
    if (err != ERROR_CODE::SUCCESS) return err;
  }
  return ERROR_CODE::SUCCESS;
}

ERROR_CODE Mat::write(const String& path) const {
  Mat host;
  const Mat* src = this;
  if (!cpu_) {
    if (!gpu_) return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "write of an empty Mat");
    ERROR_CODE err = copyTo(host, COPY_TYPE::GPU_CPU);
    if (err != ERROR_CODE::SUCCESS) return err;
    src = &host;
  }
  cv::Mat view(int(height_), int(width_), cvType(type_), src->cpu_->ptr, src->cpu_->step);
  // Encoded first, then written beside the file and renamed over it, so that a failed write
  // leaves an earlier picture intact.
  std::vector<unsigned char> encoded;
  try {
    const std::string extension = std::filesystem::path(path.str()).extension().string();
    if (extension.empty() || !cv::imencode(extension, view, encoded))
      return fail(ERROR_CODE::FILE_IO_ERROR, "cannot encode " + path.str());
  } catch (const cv::Exception& e) {
    return fail(ERROR_CODE::FILE_IO_ERROR, "cannot encode " + path.str() + ": " + e.what());
  }
  const internal::FileResult r = internal::writeFileAtomically(path.str(), [&](const std::string& temporary) {
    internal::OutputFile out(temporary);
    out.write(encoded.data(), encoded.size());
    return out.close();
  });
  return r.ok ? ERROR_CODE::SUCCESS : fail(ERROR_CODE::FILE_IO_ERROR, r.error);
}

ERROR_CODE Mat::read(const String& path) {
  cv::Mat img;
  try {
    img = cv::imread(path.str(), cv::IMREAD_UNCHANGED);
  } catch (const cv::Exception& e) {
    return fail(ERROR_CODE::FILE_IO_ERROR, "cannot read " + path.str() + ": " + e.what());
  }
  if (img.empty() || img.depth() != CV_8U) return fail(ERROR_CODE::FILE_IO_ERROR, "cannot read " + path.str());
  cv::Mat bgra;
  if (img.channels() == 1)
    cv::cvtColor(img, bgra, cv::COLOR_GRAY2BGRA);
  else if (img.channels() == 3)
    cv::cvtColor(img, bgra, cv::COLOR_BGR2BGRA);
  else
    bgra = img;
  ERROR_CODE err = alloc(size_t(bgra.cols), size_t(bgra.rows), MAT_TYPE::U8_C4, MEM::CPU);
  if (err != ERROR_CODE::SUCCESS) return err;
  for (int y = 0; y < bgra.rows; ++y)
    std::memcpy(getPtr<unsigned char>() + y * getStepBytes(), bgra.ptr(y), getWidthBytes());
  return ERROR_CODE::SUCCESS;
}

}  // namespace pv

// The CUDA side of the live image view: registering its GL texture with CUDA and copying a frame
// from device memory into the texture's CUDA array. Only CUDA builds compile the implementation
// (MAPURA_VIEW2D_CUDA); the interface uses no CUDA type, so that nothing which includes this header
// needs the CUDA headers, and a test can stand in for it (a registration failure without a GPU).
//
// Threads: GUI thread only (the GL context and the CUDA context are current there).
#pragma once

#include <QString>
#include <cstddef>
#include <memory>

namespace view2d {

/// One GL texture shared with CUDA. Each call returns an empty string on success, else the CUDA
/// error name.
class TextureInterop {
 public:
  virtual ~TextureInterop() = default;
  /// Registers the GL texture `texture` (a GL_TEXTURE_2D name) with CUDA, without flags.
  virtual QString registerTexture(unsigned int texture) = 0;
  /// Maps the registered texture once, takes its CUDA array (array index 0, mip level 0) and unmaps
  /// it again; copy() then writes that array without mapping again.
  virtual QString mapArray() = 0;
  /// Copies `height` rows of `width_bytes` from device memory (`src`, `src_step` bytes per row) to
  /// the array at offset (0, 0), device to device.
  virtual QString copy(const unsigned char* src, size_t src_step, size_t width_bytes, size_t height) = 0;
};

/// The CUDA implementation; null in a build without CUDA.
std::unique_ptr<TextureInterop> makeCudaTextureInterop();

}  // namespace view2d

// The CUDA side of the live image view: registering its GL texture with CUDA and copying a frame
// from device memory into the texture's CUDA array. Only CUDA builds compile the implementation
// (MAPURA_VIEW2D_CUDA); the declarations use forward-declared CUDA types so that nothing which
// includes this header needs the CUDA headers.
//
// Threads: GUI thread only (the GL context and the CUDA context are current there).
#pragma once

#include <cstddef>

#include <QString>

struct cudaGraphicsResource;
struct cudaArray;

namespace view2d {

/// Registers the GL texture `texture` (a GL_TEXTURE_2D name) with CUDA, without flags. Returns an
/// empty string on success, else the CUDA error name.
QString registerTexture(unsigned int texture, cudaGraphicsResource** resource);

/// Maps the resource once, takes its CUDA array (array index 0, mip level 0) and unmaps it again;
/// the array is then written by copyToArray without mapping again. Returns an empty string or the
/// CUDA error name of the first failed call.
QString mappedArray(cudaGraphicsResource* resource, cudaArray** array);

/// Copies `height` rows of `width_bytes` from device memory (`src`, `src_step` bytes per row) to
/// the array at offset (0, 0), device to device. Returns an empty string or the CUDA error name.
QString copyToArray(cudaArray* array, const unsigned char* src, size_t src_step, size_t width_bytes, size_t height);

}  // namespace view2d

#include "CudaGLInterop.h"

#include <QtGui/qopengl.h>
#include <cuda_gl_interop.h>
#include <cuda_runtime.h>

namespace view2d {

namespace {

QString errorName(cudaError_t result) { return result == cudaSuccess ? QString() : cudaGetErrorName(result); }

}  // namespace

QString registerTexture(unsigned int texture, cudaGraphicsResource** resource) {
  return errorName(cudaGraphicsGLRegisterImage(resource, texture, GL_TEXTURE_2D, cudaGraphicsRegisterFlagsNone));
}

QString mappedArray(cudaGraphicsResource* resource, cudaArray** array) {
  cudaError_t result = cudaGraphicsMapResources(1, &resource, 0);
  if (result != cudaSuccess) return errorName(result);
  const cudaError_t got = cudaGraphicsSubResourceGetMappedArray(array, resource, 0, 0);
  result = cudaGraphicsUnmapResources(1, &resource, 0);
  return errorName(got != cudaSuccess ? got : result);
}

QString copyToArray(cudaArray* array, const unsigned char* src, size_t src_step, size_t width_bytes, size_t height) {
  return errorName(cudaMemcpy2DToArray(array, 0, 0, src, src_step, width_bytes, height, cudaMemcpyDeviceToDevice));
}

}  // namespace view2d

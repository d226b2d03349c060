#include "CudaGLInterop.h"

#include <QtGui/qopengl.h>
#include <cuda_gl_interop.h>
#include <cuda_runtime.h>

namespace view2d {

namespace {

QString errorName(cudaError_t result) { return result == cudaSuccess ? QString() : cudaGetErrorName(result); }

class CudaTextureInterop : public TextureInterop {
 public:
  QString registerTexture(unsigned int texture) override {
    return errorName(cudaGraphicsGLRegisterImage(&resource_, texture, GL_TEXTURE_2D, cudaGraphicsRegisterFlagsNone));
  }

  QString mapArray() override {
    cudaError_t result = cudaGraphicsMapResources(1, &resource_, 0);
    if (result != cudaSuccess) return errorName(result);
    const cudaError_t got = cudaGraphicsSubResourceGetMappedArray(&array_, resource_, 0, 0);
    result = cudaGraphicsUnmapResources(1, &resource_, 0);
    return errorName(got != cudaSuccess ? got : result);
  }

  QString copy(const unsigned char* src, size_t src_step, size_t width_bytes, size_t height) override {
    return errorName(cudaMemcpy2DToArray(array_, 0, 0, src, src_step, width_bytes, height, cudaMemcpyDeviceToDevice));
  }

 private:
  cudaGraphicsResource* resource_ = nullptr;
  cudaArray* array_ = nullptr;
};

}  // namespace

std::unique_ptr<TextureInterop> makeCudaTextureInterop() { return std::make_unique<CudaTextureInterop>(); }

}  // namespace view2d

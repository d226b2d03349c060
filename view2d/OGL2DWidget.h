// The live image view: shows the worker's frame buffer (camera image in the upper half, a second
// view in the lower half, BGRA) as one textured quad.
//
// With a CUDA build, a CUDA context and a frame buffer in device memory, each frame is copied
// device to device into the texture's CUDA array. Otherwise (no GPU or driver: the frame buffer's
// GPU memory is host memory), and when CUDA cannot share the texture (a GL driver it cannot
// register textures of: a software or non-NVIDIA GL, a remote X server), the same texture is
// filled from host memory, after a copy from the device where the frame is there; the picture is
// the same.
//
// Threads: GUI thread only, like every widget.
#pragma once

#include <QGLWidget>
#include <QMatrix4x4>
#include <QVector2D>
#include <QVector3D>
#include <QVector>
#include <memory>

#include "pv/mat.h"

class QGLShaderProgram;
struct CUctx_st;
namespace view2d {
class TextureInterop;
}

class OGL2DWidget : public QGLWidget {
  Q_OBJECT

 public:
  /// `keepAspect`: keep the picture at the aspect 8/9 of a 1280 x 1440 frame buffer, with bars.
  OGL2DWidget(QWidget* parent, bool keepAspect);
  ~OGL2DWidget() override;

  /// The texture sharing the next InitGLProcess tries with a frame buffer in GPU memory, in place
  /// of CUDA's (tests stand in a failing one). Taken by that InitGLProcess.
  void setTextureInterop(std::unique_ptr<view2d::TextureInterop> interop);

  /// Takes the SDK's CUDA context (null without CUDA) and shares the worker's frame buffer
  /// (U8_C4, width w, height 2h); creates the texture and the shaders and emits init(true).
  /// On failure the widget stays not ready and shows only the clear colour.
  void InitGLProcess(CUctx_st*& context, pv::Mat& frameBuffer);
  /// Not ready again; drops the widget's share of the frame buffer and clears the picture.
  void reset();
  /// Builds the shader program (called by InitGLProcess).
  void createShader();

  /// True once InitGLProcess succeeded and until reset().
  bool isReady() const { return ready_; }
  /// True when frames reach the texture through CUDA interop rather than from host memory.
  bool usesCudaInterop() const { return interop_ != nullptr; }

 signals:
  void init(bool success);

 public slots:
  /// Copies the frame buffer's current contents into the texture (no repaint is scheduled).
  void DrawBuffer();

 protected:
  void initializeGL() override;
  void resizeGL(int w, int h) override;
  void paintGL() override;

 private:
  /// Logs a failed CUDA step and drops the interop: frames go through host memory from now on.
  void fallBackToHost(const QString& error);
  void uploadFromHost();
  /// Host-readable pixels of the frame buffer and their row step, or null when there are none.
  const unsigned char* hostPixels(size_t* step_bytes);

  bool keep_aspect_;
  bool ready_ = false;
  pv::Mat image_;
  pv::Mat host_copy_;  ///< the frame copied from device memory, without interop
  CUctx_st* cuda_context_ = nullptr;
  QGLShaderProgram* program_ = nullptr;
  GLuint texture_ = 0;
  std::unique_ptr<view2d::TextureInterop> interop_;
  std::unique_ptr<view2d::TextureInterop> next_interop_;
  QVector<QVector3D> vertices_;
  QVector<QVector2D> tex_coords_;
  QMatrix4x4 matrix_;
};

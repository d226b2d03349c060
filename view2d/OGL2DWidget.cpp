#include "OGL2DWidget.h"

#include <QDebug>
#include <QGLShader>
#include <QGLShaderProgram>
#include <cstdlib>
#include <vector>

#include "CudaGLInterop.h"
#include "core/internal/gpu_memory.h"

namespace {

// Aspect (width / height) of a 1280 x 1440 frame buffer.
constexpr double kAspect = 0.8888889;

const char* const kVertexShader =
    "#version 330 core\n"
    "attribute highp vec4 vertex;\n"
    "attribute mediump vec4 texCoord;\n"
    "varying mediump vec4 texc;\n"
    "uniform mediump mat4 matrix;\n"
    "void main(void)\n"
    "{\n"
    "    gl_Position = matrix * vertex;\n"
    "    texc = texCoord;\n"
    "}\n";

// The frame buffer holds blue, green, red, alpha; the texture is declared RGBA, hence .zyxw.
const char* const kFragmentShader =
    "#version 330 core\n"
    "uniform sampler2D texture;\n"
    "varying mediump vec4 texc;\n"
    "void main(void)\n"
    "{\n"
    "    gl_FragColor = texture2D(texture, texc.st).zyxw;\n"
    "}\n";

}  // namespace

OGL2DWidget::OGL2DWidget(QWidget* parent, bool keepAspect) : QGLWidget(parent), keep_aspect_(keepAspect) {}

void OGL2DWidget::setTextureInterop(std::unique_ptr<view2d::TextureInterop> interop) {
  next_interop_ = std::move(interop);
}

OGL2DWidget::~OGL2DWidget() {
  makeCurrent();
  glDeleteTextures(1, &texture_);
  delete program_;
  image_.free(pv::MEM::BOTH);
}

void OGL2DWidget::initializeGL() {
  makeCurrent();
  glClearColor(0.12f, 0.12f, 0.12f, 1.0f);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
}

void OGL2DWidget::createShader() {
  delete program_;  // a new run builds its own program (its shaders go with it)
  program_ = new QGLShaderProgram(this);
  auto* vshader = new QGLShader(QGLShader::Vertex, program_);
  if (!vshader->compileSourceCode(kVertexShader)) qWarning() << "OGL2DWidget: vertex shader:" << vshader->log();
  auto* fshader = new QGLShader(QGLShader::Fragment, program_);
  if (!fshader->compileSourceCode(kFragmentShader)) qWarning() << "OGL2DWidget: fragment shader:" << fshader->log();
  program_->addShader(vshader);
  program_->addShader(fshader);
  program_->bindAttributeLocation("vertex", 0);
  program_->bindAttributeLocation("texCoord", 1);
  if (!program_->link()) qWarning() << "OGL2DWidget: shader link:" << program_->log();
  program_->bind();
  program_->setUniformValue("texture", 0);
  program_->release();
}

void OGL2DWidget::InitGLProcess(CUctx_st*& context, pv::Mat& frameBuffer) {
  ready_ = false;
  cuda_context_ = context;
  makeCurrent();
  pv::internal::makeContextCurrent(cuda_context_);
  image_ = frameBuffer;

  if (!image_.isInit() || image_.getDataType() != pv::MAT_TYPE::U8_C4) {
    qWarning().noquote() << "OGL2DWidget: the frame buffer must be a U8_C4 image, got" << image_.getInfos().c_str();
    return;
  }
  interop_ = std::move(next_interop_);
#ifdef MAPURA_VIEW2D_CUDA
  const bool device_memory = image_.getMemoryType() != pv::MEM::CPU && !image_.isGPUHostBacked();
  if (!interop_ && device_memory && cuda_context_ != nullptr) interop_ = view2d::makeCudaTextureInterop();
#endif
  if (image_.getMemoryType() == pv::MEM::CPU) interop_.reset();

  glEnable(GL_DEPTH_TEST);
  glEnable(GL_TEXTURE_2D);
  glGenTextures(1, &texture_);
  glBindTexture(GL_TEXTURE_2D, texture_);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
  const auto tex_w = GLsizei(image_.getWidth());
  const auto tex_h = GLsizei(image_.getHeight());
  glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, tex_w, tex_h, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
  {
    std::vector<unsigned char> zeros(size_t(tex_w) * size_t(tex_h) * 4, 0);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, tex_w, tex_h, 0, GL_RGBA, GL_UNSIGNED_BYTE, zeros.data());
  }
  glBindTexture(GL_TEXTURE_2D, 0);

  if (interop_) {
    const QString error = interop_->registerTexture(texture_);
    if (!error.isEmpty()) fallBackToHost(error);
  }

  resizeGL(int(width() * devicePixelRatioF()), int(height() * devicePixelRatioF()));
  createShader();
  tex_coords_ = {QVector2D(0, 1), QVector2D(1, 1), QVector2D(0, 0), QVector2D(1, 0)};
  vertices_ = {QVector3D(-1, -1, 0), QVector3D(1, -1, 0), QVector3D(-1, 1, 0), QVector3D(1, 1, 0)};
  if (interop_) {
    const QString error = interop_->mapArray();
    if (!error.isEmpty()) fallBackToHost(error);
  }
  matrix_.setToIdentity();
  emit init(true);
  ready_ = true;
}

void OGL2DWidget::fallBackToHost(const QString& error) {
  qDebug().noquote() << QString(" CUDA Initialisation failed : ") + error;
  interop_.reset();
}

void OGL2DWidget::resizeGL(int w, int h) {
  if (!keep_aspect_) {
    glViewport(0, 0, w, h);
    return;
  }
  if (double(w) / double(h) > kAspect) {
    const int vw = int(h * kAspect);
    glViewport(std::abs(w - vw) / 2, 0, vw, h);
  } else {
    const int vh = int(w / kAspect);
    glViewport(0, std::abs(h - vh) / 2, w, vh);
  }
}

void OGL2DWidget::DrawBuffer() {
  if (!ready_ || !image_.isInit()) return;
  if (interop_) {
    const QString error = interop_->copy(image_.getPtr<unsigned char>(pv::MEM::GPU), image_.getStepBytes(pv::MEM::GPU),
                                         image_.getWidth() * 4, image_.getHeight());
    if (error.isEmpty()) return;
    qWarning().noquote() << "OGL2DWidget: frame copy failed:" << error << "- copying through host memory from now on";
    interop_.reset();
  }
  uploadFromHost();
}

const unsigned char* OGL2DWidget::hostPixels(size_t* step_bytes) {
  const pv::Mat* source = &image_;
  pv::MEM mem = pv::MEM::CPU;
  if (image_.getMemoryType() != pv::MEM::CPU) {
    mem = pv::MEM::GPU;
    if (!image_.isGPUHostBacked()) {
      if (image_.copyTo(host_copy_, pv::COPY_TYPE::GPU_CPU) != pv::ERROR_CODE::SUCCESS) return nullptr;
      source = &host_copy_;
      mem = pv::MEM::CPU;
    }
  }
  *step_bytes = source->getStepBytes(mem);
  return source->getPtr<unsigned char>(mem);
}

void OGL2DWidget::uploadFromHost() {
  size_t step = 0;
  const unsigned char* pixels = hostPixels(&step);
  if (!pixels) return;
  makeCurrent();
  glBindTexture(GL_TEXTURE_2D, texture_);
  glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
  const auto tex_w = GLsizei(image_.getWidth());
  const auto tex_h = GLsizei(image_.getHeight());
  // Same bytes as the device copy: BGRA rows into the RGBA texture (the shader swaps red and blue).
  if (step % 4 == 0) {
    glPixelStorei(GL_UNPACK_ROW_LENGTH, GLint(step / 4));
    glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, tex_w, tex_h, GL_RGBA, GL_UNSIGNED_BYTE, pixels);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
  } else {
    for (GLsizei y = 0; y < tex_h; ++y)
      glTexSubImage2D(GL_TEXTURE_2D, 0, 0, y, tex_w, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixels + size_t(y) * step);
  }
  glBindTexture(GL_TEXTURE_2D, 0);
}

void OGL2DWidget::paintGL() {
  // Cleared even when there is nothing to show: after a resize the window's buffer holds undefined
  // contents (black with a software GL), and a view without a picture shows the clear colour.
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
  if (!ready_ || !image_.isInit()) return;
  program_->bind();
  program_->setUniformValue("matrix", matrix_);
  program_->enableAttributeArray(0);
  program_->enableAttributeArray(1);
  program_->setAttributeArray(0, vertices_.constData());
  program_->setAttributeArray(1, tex_coords_.constData());
  glBindTexture(GL_TEXTURE_2D, texture_);
  glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
  glBindTexture(GL_TEXTURE_2D, 0);
  program_->release();
}

void OGL2DWidget::reset() {
  ready_ = false;
  image_.free(pv::MEM::BOTH);
  host_copy_.free(pv::MEM::BOTH);
  makeCurrent();
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
}

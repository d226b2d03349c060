// Shows the live image view on a frame buffer and writes what the window shows to a PNG.
//
//   view2d_show OUT.png                      a generated test pattern
//   view2d_show OUT.png REC.ktr [FRAMES]     plays FRAMES frames (default 30) of a recording: the
//                                            left image in the upper half, the depth below
//
// The frame buffer is laid out as the mapping worker lays it out: U8_C4 in GPU memory, width w,
// height 2h, with non-owning views over its two halves.
#include <QApplication>
#include <QPainter>
#include <QScreen>
#include <QTest>
#include <cstdio>
#include <cstring>

#include "OGL2DWidget.h"
#include "pv/camera.h"

namespace {

// The upper view as the camera image and the lower view as a second picture, painted with Qt.
// ARGB32 pixels are stored blue, green, red, alpha in memory on little-endian machines: the
// frame buffer's BGRA order.
bool paintTestPattern(pv::Mat& upper, pv::Mat& lower) {
  const int w = int(upper.getWidth()), h = int(upper.getHeight());
  QImage top(w, h, QImage::Format_ARGB32);
  QImage bottom(w, h, QImage::Format_ARGB32);
  {
    QPainter p(&top);
    const QColor bars[] = {Qt::white, Qt::yellow, Qt::cyan, Qt::green, Qt::magenta, Qt::red, Qt::blue, Qt::black};
    for (int i = 0; i < 8; ++i) p.fillRect(i * w / 8, 0, w / 8 + 1, h * 2 / 3, bars[i]);
    QLinearGradient ramp(0, 0, w, 0);
    ramp.setColorAt(0, Qt::black);
    ramp.setColorAt(1, Qt::white);
    p.fillRect(0, h * 2 / 3, w, h / 3, ramp);
    p.setPen(Qt::black);
    p.setFont(QFont("DejaVu Sans", h / 12, QFont::Bold));
    p.drawText(QRect(0, 0, w, h * 2 / 3), Qt::AlignCenter, "upper: camera image");
  }
  {
    QPainter p(&bottom);
    QRadialGradient glow(w / 2, h / 2, w / 2);
    glow.setColorAt(0, QColor(255, 160, 40));
    glow.setColorAt(1, QColor(20, 30, 120));
    p.fillRect(0, 0, w, h, glow);
    p.setPen(Qt::white);
    p.setFont(QFont("DejaVu Sans", h / 12, QFont::Bold));
    p.drawText(QRect(0, 0, w, h), Qt::AlignCenter, "lower: second view");
  }
  // Through CPU images and the SDK's copy, whether the GPU memory is device or host memory.
  for (auto [image, view] : {std::pair<QImage*, pv::Mat*>{&top, &upper}, {&bottom, &lower}}) {
    pv::Mat cpu(pv::Resolution(size_t(w), size_t(h)), pv::MAT_TYPE::U8_C4, image->bits(), size_t(image->bytesPerLine()),
                pv::MEM::CPU);
    if (cpu.copyTo(*view, pv::COPY_TYPE::CPU_GPU) != pv::ERROR_CODE::SUCCESS) return false;
  }
  return true;
}

int fail(const char* what, pv::ERROR_CODE code) {
  std::fprintf(stderr, "view2d_show: %s: %s (%s)\n", what, pv::toString(code).c_str(), pv::lastErrorDetail().c_str());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  if (argc < 2) {
    std::fprintf(stderr, "usage: view2d_show OUT.png [REC.ktr [FRAMES]]\n");
    return 2;
  }
  const bool play = argc >= 3;
  const int frames = argc >= 4 ? std::atoi(argv[3]) : 30;

  pv::Camera camera;
  size_t w = 1280, h = 720;
  if (play) {
    pv::InitParameters init;
    init.input.setFromKTRFile(argv[2]);
    init.depth_minimum_distance = 0.5f;
    init.coordinate_units = pv::UNIT::METER;
    init.coordinate_system = pv::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
    const pv::ERROR_CODE opened = camera.open(init);
    if (opened != pv::ERROR_CODE::SUCCESS) return fail("open", opened);
    const pv::Resolution res = camera.getCameraInformation().camera_configuration.resolution;
    w = std::min<size_t>(res.width, 1280);
    h = std::min<size_t>(res.height, 720);
  }

  pv::Mat frame_buffer;
  const pv::ERROR_CODE allocated = frame_buffer.alloc(w, 2 * h, pv::MAT_TYPE::U8_C4, pv::MEM::GPU);
  if (allocated != pv::ERROR_CODE::SUCCESS) return fail("frame buffer", allocated);
  unsigned char* base = frame_buffer.getPtr<unsigned char>(pv::MEM::GPU);
  const size_t step = frame_buffer.getStepBytes(pv::MEM::GPU);
  pv::Mat upper(pv::Resolution(w, h), pv::MAT_TYPE::U8_C4, base, step, pv::MEM::GPU);
  pv::Mat lower(pv::Resolution(w, h), pv::MAT_TYPE::U8_C4, base + h * step, step, pv::MEM::GPU);

  OGL2DWidget view(nullptr, true);
  view.setWindowTitle("OGL2DWidget");
  view.resize(720, 600);
  view.show();
  if (!QTest::qWaitForWindowExposed(&view)) return 1;
  CUcontext context = play ? camera.getCUDAContext() : nullptr;
  view.InitGLProcess(context, frame_buffer);
  if (!view.isReady()) {
    std::fprintf(stderr, "view2d_show: the view did not initialise\n");
    return 1;
  }
  std::printf("frame buffer %s, %s path\n", frame_buffer.getInfos().c_str(),
              view.usesCudaInterop() ? "CUDA interop" : "host upload");

  if (!play) {
    if (!paintTestPattern(upper, lower)) return 1;
    view.DrawBuffer();
    view.updateGL();
  }
  for (int i = 0; play && i < frames; ++i) {
    const pv::ERROR_CODE grabbed = camera.grab();
    if (grabbed == pv::ERROR_CODE::END_OF_KTR_FILE_REACHED) break;
    if (grabbed != pv::ERROR_CODE::SUCCESS) return fail("grab", grabbed);
    if (camera.retrieveImage(upper, pv::VIEW::LEFT, pv::MEM::GPU) != pv::ERROR_CODE::SUCCESS ||
        camera.retrieveImage(lower, pv::VIEW::DEPTH, pv::MEM::GPU) != pv::ERROR_CODE::SUCCESS)
      return fail("retrieveImage", pv::ERROR_CODE::FAILURE);
    view.DrawBuffer();
    view.updateGL();
    QApplication::processEvents();
    std::printf("frame %d shown\n", i);
  }
  view.updateGL();
  QTest::qWait(100);
  const QPixmap shot = view.screen()->grabWindow(view.winId());
  if (!shot.save(argv[1])) {
    std::fprintf(stderr, "view2d_show: cannot write %s\n", argv[1]);
    return 1;
  }
  std::printf("wrote %s (%dx%d)\n", argv[1], shot.width(), shot.height());
  return 0;
}

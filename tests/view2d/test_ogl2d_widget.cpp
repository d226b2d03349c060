// The live image view draws real pixels here: each test shows the widget, feeds it a known BGRA
// frame buffer and reads the GL frame buffer back.
#include <QSignalSpy>
#include <QtTest>
#include <memory>

#include "CudaGLInterop.h"
#include "OGL2DWidget.h"
#include "core/internal/gpu_memory.h"
#include "frame_pattern.h"

using view2d_test::Palette;

namespace {

const QColor kClear(31, 31, 31);  // clear colour 0.12 in 8 bits
constexpr int kTolerance = 3;

bool near(QRgb got, const QColor& want, int tolerance = kTolerance) {
  return std::abs(qRed(got) - want.red()) <= tolerance && std::abs(qGreen(got) - want.green()) <= tolerance &&
         std::abs(qBlue(got) - want.blue()) <= tolerance;
}

QString describe(QRgb c) { return QString("(%1,%2,%3)").arg(qRed(c)).arg(qGreen(c)).arg(qBlue(c)); }

// Frame buffer as the worker lays it out: U8_C4 in GPU memory, width w, height 2h.
pv::Mat makeFrameBuffer(size_t w, size_t h, const Palette& palette) {
  pv::Mat frame;
  if (frame.alloc(w, 2 * h, pv::MAT_TYPE::U8_C4, pv::MEM::GPU) != pv::ERROR_CODE::SUCCESS) return {};
  if (!view2d_test::fillPattern(frame, palette)) return {};
  return frame;
}

// Paints into the buffer that grabFrameBuffer reads (no swap after paintGL), so that a grab shows
// exactly what the last paint left.
class GrabbedWidget : public OGL2DWidget {
 public:
  explicit GrabbedWidget(bool keepAspect) : OGL2DWidget(nullptr, keepAspect) { setAutoBufferSwap(false); }
};

}  // namespace

// CUDA sharing that fails the way a GL driver CUDA cannot share textures with makes it fail.
class RefusingInterop : public view2d::TextureInterop {
 public:
  QString registerTexture(unsigned int) override { return "cudaErrorInvalidGraphicsContext"; }
  QString mapArray() override { return "cudaErrorInvalidResourceHandle"; }
  QString copy(const unsigned char*, size_t, size_t, size_t) override { return "cudaErrorInvalidResourceHandle"; }
};

// Initialises `widget` with `frame` (with this machine's CUDA context, if any): the widget is ready
// whatever the GL driver, through CUDA sharing or through host memory.
#define INIT(widget, frame)                                 \
  do {                                                      \
    CUctx_st* context = pv::internal::cudaPrimaryContext(); \
    (widget).InitGLProcess(context, (frame));               \
    QVERIFY((widget).isReady());                            \
  } while (0)

class TestOGL2DWidget : public QObject {
  Q_OBJECT

 private:
  std::unique_ptr<OGL2DWidget> showWidget(int w, int h, bool keepAspect) {
    std::unique_ptr<OGL2DWidget> widget = std::make_unique<GrabbedWidget>(keepAspect);
    widget->resize(w, h);
    widget->show();
    if (!QTest::qWaitForWindowExposed(widget.get())) return nullptr;
    if (!widget->isValid() || !widget->context()->isValid()) return nullptr;
    // Paints no longer swap, and a software GL may take a window's new size only at a swap.
    widget->swapBuffers();
    return widget;
  }

  QImage paintAndGrab(OGL2DWidget& widget) {
    widget.updateGL();
    return widget.grabFrameBuffer();
  }

  static void expectAllClear(const QImage& image) {
    for (int y = 0; y < image.height(); ++y)
      for (int x = 0; x < image.width(); ++x)
        QVERIFY2(
            near(image.pixel(x, y), kClear),
            qPrintable(
                QString("pixel (%1,%2) is %3, not the clear colour").arg(x).arg(y).arg(describe(image.pixel(x, y)))));
  }

  // The picture fills exactly `rect` (widget pixels, y down): the regions show the palette
  // colours, every pixel inside differs from the clear colour and every pixel outside is clear.
  static void expectPicture(const QImage& image, const QRect& rect, const Palette& palette) {
    for (int region = 0; region < 6; ++region) {
      const QPointF c = view2d_test::regionCentre(region);
      const int x = rect.x() + int(c.x() * rect.width());
      const int y = rect.y() + int(c.y() * rect.height());
      QVERIFY2(near(image.pixel(x, y), palette[size_t(region)]),
               qPrintable(QString("region %1 at (%2,%3): got %4, want %5")
                              .arg(region)
                              .arg(x)
                              .arg(y)
                              .arg(describe(image.pixel(x, y)))
                              .arg(describe(palette[size_t(region)].rgb()))));
    }
    for (int y = 0; y < image.height(); ++y) {
      for (int x = 0; x < image.width(); ++x) {
        const bool inside = rect.contains(x, y);
        const bool clear = near(image.pixel(x, y), kClear, 12);
        QVERIFY2(inside != clear, qPrintable(QString("pixel (%1,%2) %3 is %4")
                                                 .arg(x)
                                                 .arg(y)
                                                 .arg(inside ? "inside the picture" : "in a bar")
                                                 .arg(describe(image.pixel(x, y)))));
      }
    }
  }

 private slots:
  void nothingDrawnBeforeInit() {
    auto widget = showWidget(300, 300, true);
    if (!widget) QSKIP("no usable GL context");
    widget->DrawBuffer();  // nothing to copy yet: no effect
    expectAllClear(paintAndGrab(*widget));
    QVERIFY(!widget->isReady());
  }

  void showsBothHalvesWithBars_data() {
    QTest::addColumn<QSize>("size");
    QTest::addColumn<bool>("keepAspect");
    QTest::addColumn<QRect>("picture");
    // Viewports by the 8/9 rule, turned into widget rows (GL counts y from the bottom).
    QTest::newRow("exact 8:9 (one row short by truncation)") << QSize(320, 360) << true << QRect(0, 1, 320, 359);
    QTest::newRow("wide: bars left and right") << QSize(600, 360) << true << QRect(140, 0, 320, 360);
    QTest::newRow("wide, odd width") << QSize(401, 300) << true << QRect(67, 0, 266, 300);
    QTest::newRow("tall: bars top and bottom") << QSize(320, 500) << true << QRect(0, 71, 320, 359);
    QTest::newRow("aspect not kept: stretched") << QSize(500, 300) << false << QRect(0, 0, 500, 300);
  }

  void showsBothHalvesWithBars() {
    QFETCH(QSize, size);
    QFETCH(bool, keepAspect);
    QFETCH(QRect, picture);
    auto widget = showWidget(size.width(), size.height(), keepAspect);
    if (!widget) QSKIP("no usable GL context");
    const Palette palette = view2d_test::primaryPalette();
    pv::Mat frame = makeFrameBuffer(64, 36, palette);
    QVERIFY(frame.isInit());
    INIT(*widget, frame);
    widget->DrawBuffer();
    expectPicture(paintAndGrab(*widget), picture, palette);
  }

  void drawBufferPicksUpNewContents() {
    auto widget = showWidget(600, 360, true);
    if (!widget) QSKIP("no usable GL context");
    const QRect picture(140, 0, 320, 360);
    pv::Mat frame = makeFrameBuffer(64, 36, view2d_test::primaryPalette());
    QVERIFY(frame.isInit());
    INIT(*widget, frame);

    // Until the first copy the texture is zero-filled: a black picture between grey bars.
    const QImage blank = paintAndGrab(*widget);
    QVERIFY(near(blank.pixel(300, 180), QColor(0, 0, 0)));
    QVERIFY(near(blank.pixel(100, 180), kClear));
    QVERIFY(near(blank.pixel(500, 180), kClear));

    widget->DrawBuffer();
    expectPicture(paintAndGrab(*widget), picture, view2d_test::primaryPalette());

    // New contents in the same memory show only after the next DrawBuffer.
    QVERIFY(view2d_test::fillPattern(frame, view2d_test::secondPalette()));
    expectPicture(paintAndGrab(*widget), picture, view2d_test::primaryPalette());
    widget->DrawBuffer();
    expectPicture(paintAndGrab(*widget), picture, view2d_test::secondPalette());
  }

  void nothingDrawnAfterReset() {
    auto widget = showWidget(400, 400, true);
    if (!widget) QSKIP("no usable GL context");
    pv::Mat frame = makeFrameBuffer(64, 36, view2d_test::primaryPalette());
    QVERIFY(frame.isInit());
    INIT(*widget, frame);
    QCOMPARE(frame.useCount(), 2L);  // the widget shares the frame buffer
    widget->DrawBuffer();
    QVERIFY(!near(paintAndGrab(*widget).pixel(100, 100), kClear));

    widget->reset();
    QVERIFY(!widget->isReady());
    QCOMPARE(frame.useCount(), 1L);  // and gave its share back
    widget->DrawBuffer();
    expectAllClear(paintAndGrab(*widget));
    expectAllClear(paintAndGrab(*widget));
  }

  void initSignalAndBadFrameBuffers() {
    auto widget = showWidget(320, 360, true);
    if (!widget) QSKIP("no usable GL context");
    QSignalSpy spy(widget.get(), &OGL2DWidget::init);
    CUctx_st* context = pv::internal::cudaPrimaryContext();

    pv::Mat empty;
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("U8_C4"));
    widget->InitGLProcess(context, empty);
    pv::Mat grey(64, 72, pv::MAT_TYPE::U8_C1, pv::MEM::GPU);
    QVERIFY(grey.isInit());
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("U8_C4"));
    widget->InitGLProcess(context, grey);
    QVERIFY(!widget->isReady());
    QCOMPARE(spy.count(), 0);
    widget->DrawBuffer();
    expectAllClear(paintAndGrab(*widget));

    pv::Mat frame = makeFrameBuffer(64, 36, view2d_test::primaryPalette());
    INIT(*widget, frame);
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(0).toBool(), true);
  }

  // A new run initialises the same widget again, here with an odd-sized buffer whose rows are
  // padded (the row step is larger than the row).
  void reinitialiseForNewRun() {
    auto widget = showWidget(320, 360, true);
    if (!widget) QSKIP("no usable GL context");
    pv::Mat first = makeFrameBuffer(64, 36, view2d_test::primaryPalette());
    INIT(*widget, first);
    widget->DrawBuffer();
    widget->reset();

    pv::Mat second = makeFrameBuffer(37, 23, view2d_test::secondPalette());
    QVERIFY(second.isInit());
    QVERIFY(second.getStepBytes(pv::MEM::GPU) > second.getWidthBytes());
    INIT(*widget, second);
    widget->DrawBuffer();
    expectPicture(paintAndGrab(*widget), QRect(0, 1, 320, 359), view2d_test::secondPalette());
  }

  // CUDA cannot register the texture: the failure is logged and frames go through host memory.
  void failedRegistrationFallsBackToHostUploads() {
    auto widget = showWidget(320, 360, true);
    if (!widget) QSKIP("no usable GL context");
    pv::Mat frame = makeFrameBuffer(64, 36, view2d_test::primaryPalette());
    QVERIFY(frame.isInit());
    widget->setTextureInterop(std::make_unique<RefusingInterop>());
    QTest::ignoreMessage(QtDebugMsg, " CUDA Initialisation failed : cudaErrorInvalidGraphicsContext");
    INIT(*widget, frame);
    QVERIFY(!widget->usesCudaInterop());
    widget->DrawBuffer();
    expectPicture(paintAndGrab(*widget), QRect(0, 1, 320, 359), view2d_test::primaryPalette());
    QVERIFY(view2d_test::fillPattern(frame, view2d_test::secondPalette()));
    widget->DrawBuffer();
    expectPicture(paintAndGrab(*widget), QRect(0, 1, 320, 359), view2d_test::secondPalette());
  }
};

QTEST_MAIN(TestOGL2DWidget)
#include "test_ogl2d_widget.moc"

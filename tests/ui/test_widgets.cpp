// The busy spinner, the logo screen and the pre-processing progress panel.
#include <QtTest>
#include <cmath>

#include "LogoScreen.h"
#include "ProgramStates.h"
#include "ProgressWidget.h"
#include "Style.h"
#include "WaitingSpinnerWidget.h"

class TestWidgets : public QObject {
  Q_OBJECT

 private slots:
  void spinnerCounterAndLabel();
  void spinnerStartStopWithParent();
  void spinnerPaintsFadingRing();
  void logoScreenDrawsWhiteLogo();
  void progressWidgetValueAndBackground();
};

void TestWidgets::spinnerCounterAndLabel() {
  QWidget parent;
  QLabel label(&parent);
  WaitingSpinnerWidget spinner(&parent, false, false);
  spinner.setLabel(&label);
  ProgramStates::qstringAttr(ProgramStates::STATUS_TEXT) = "Extracting mesh...";
  spinner.rotate();  // stopped: nothing
  QCOMPARE(spinner.currentCounter(), 0);
  QVERIFY(label.text().isEmpty());

  // Each turn copies the worker's status text into the label.
  spinner.start();
  spinner.rotate();
  QCOMPARE(label.text(), QString("Extracting mesh..."));
  ProgramStates::qstringAttr(ProgramStates::STATUS_TEXT) = "Texturing mesh ...";
  spinner.rotate();
  QCOMPARE(label.text(), QString("Texturing mesh ..."));

  spinner.stop();
  const int counter = spinner.currentCounter();
  spinner.rotate();
  QCOMPARE(spinner.currentCounter(), counter);
  ProgramStates::qstringAttr(ProgramStates::STATUS_TEXT) = QString();
}

void TestWidgets::spinnerStartStopWithParent() {
  QWidget parent;
  parent.resize(200, 100);
  QLabel label(&parent);
  label.hide();
  WaitingSpinnerWidget spinner(&parent, true, true);
  spinner.setLabel(&label);
  parent.show();
  QVERIFY(QTest::qWaitForWindowExposed(&parent));
  spinner.start();
  QVERIFY(spinner.isVisible());
  QVERIFY(label.isVisible());
  QVERIFY(!parent.isEnabled());
  QCOMPARE(spinner.pos(), QPoint(100 - 14, 50 - 14));
  spinner.stop();
  QVERIFY(!spinner.isVisible());
  QVERIFY(!label.isVisible());
  QVERIFY(parent.isEnabled());
}

void TestWidgets::spinnerPaintsFadingRing() {
  QWidget parent;
  parent.resize(120, 120);
  WaitingSpinnerWidget spinner(&parent, true, false);
  // Fewer, bigger bars than the default so that each can be sampled on its own.
  spinner.setNumberOfLines(12);
  spinner.setInnerRadius(20);
  spinner.setLineLength(20);
  spinner.setLineWidth(6);
  spinner.updateSize();
  parent.show();
  QVERIFY(QTest::qWaitForWindowExposed(&parent));
  spinner.start();
  for (int i = 0; i < 5; ++i) spinner.rotate();  // primary bar 5
  // Rendered without the window background, so the bars' own opacity can be read back.
  QImage image(spinner.size(), QImage::Format_ARGB32);
  image.fill(Qt::transparent);
  spinner.render(&image, QPoint(), QRegion(), QWidget::RenderFlags());
  QCOMPARE(image.size(), QSize(80, 80));
  // Middle of bar i: angle 360 * i / 12 degrees, radius innerRadius + lineLength / 2.
  auto alpha = [&](int bar) {
    const double a = 2 * M_PI * bar / 12.0;
    return qAlpha(image.pixel(static_cast<int>(std::lround(40 + 30 * std::cos(a))),
                              static_cast<int>(std::lround(40 + 30 * std::sin(a)))));
  };
  const QRgb primary = image.pixel(static_cast<int>(std::lround(40 + 30 * std::cos(2 * M_PI * 5 / 12.0))),
                                   static_cast<int>(std::lround(40 + 30 * std::sin(2 * M_PI * 5 / 12.0))));
  QVERIFY2(qAlpha(primary) > 240 && qBlue(primary) > 200 && qRed(primary) < 30,
           qPrintable(QString::number(primary, 16)));
  // Threshold (int)(11 * 0.6) = 6: bars 1..6 behind fade, the others sit at pi percent.
  for (int d = 1; d < 6; ++d) QVERIFY2(alpha(5 - d) > alpha(5 - d - 1), qPrintable(QString::number(d)));
  for (int d = 7; d < 12; ++d) QVERIFY(alpha((5 - d + 12) % 12) <= 10);
  QVERIFY(alpha(5 - 6 + 12) > 10);
  // The centre stays empty.
  QCOMPARE(qAlpha(image.pixel(40, 40)), 0);
}

void TestWidgets::logoScreenDrawsWhiteLogo() {
  QWidget parent;
  parent.setStyleSheet("background-color: rgb(20,20,20);");
  parent.resize(900, 600);
  LogoScreen screen(&parent);
  screen.setGeometry(0, 0, 900, 600);
  parent.show();
  QVERIFY(QTest::qWaitForWindowExposed(&parent));
  const QImage image = parent.grab().toImage();
  const QRectF logo = screen.logoRect();
  int white = 0;
  int outside = 0;
  for (int y = 0; y < image.height(); ++y)
    for (int x = 0; x < image.width(); ++x) {
      const QColor c = image.pixelColor(x, y);
      const bool isWhite = c.red() > 240 && c.green() > 240 && c.blue() > 240;
      if (!isWhite) continue;
      if (logo.adjusted(-1, -1, 1, 1).contains(x, y))
        ++white;
      else
        ++outside;
    }
  QVERIFY2(white > logo.width() * logo.height() / 6, qPrintable(QString::number(white)));
  QCOMPARE(outside, 0);
  // Around the logo the screen clears to transparent (nothing of the grey parent remains).
  QVERIFY(image.pixelColor(5, 5) != QColor(20, 20, 20));
  QCOMPARE(qAlpha(screen.grab().toImage().pixel(5, 5)), 0);
}

void TestWidgets::progressWidgetValueAndBackground() {
  Style style;
  ProgressWidget widget(nullptr, &style);
  widget.resize(1000, 500);
  widget.show();
  QVERIFY(QTest::qWaitForWindowExposed(&widget));
  widget.update(42);
  QCOMPARE(widget.bar()->value(), 42);
  widget.update(140);
  QCOMPARE(widget.bar()->value(), 42);
  // The style sheet's background is painted.
  const QImage image = widget.grab().toImage();
  QCOMPARE(image.pixelColor(10, 10), QColor(72, 72, 72));
}

QTEST_MAIN(TestWidgets)
#include "test_widgets.moc"

// The style sheets' images and fonts in the bundle, and the logos' SVG recolouring.
#include <QApplication>
#include <QDomDocument>
#include <QFile>
#include <QFontDatabase>
#include <QImage>
#include <QPainter>
#include <QRegularExpression>
#include <QSvgRenderer>
#include <QtTest>

#include "Style.h"

class TestStyle : public QObject {
  Q_OBJECT

 private slots:
  void everyNamedImageIsInTheBundle();
  void logosRecolourToOneColour();
};

void TestStyle::everyNamedImageIsInTheBundle() {
  Style style;
  const QStringList sheets = {style.button,         style.button_flat,
                              style.button_hover,   style.button_link,
                              style.button_menu,    style.tab_top,
                              style.tab_bottom,     style.segment_left,
                              style.segment_middle, style.segment_right,
                              style.tool_gear,      style.check_big,
                              style.check_small,    style.check_sized.arg(30).arg(30),
                              style.check_box,      style.combo,
                              style.combo_flat,     style.combo_left,
                              style.slider,         style.spin,
                              style.menu,           style.radio,
                              style.tabs.arg(284),  style.frame,
                              style.group,          style.label,
                              style.window};
  const QRegularExpression url("url\\((:/[^)]+)\\)");
  QSet<QString> named;
  for (const QString& sheet : sheets) {
    for (auto it = url.globalMatch(sheet); it.hasNext();) named.insert(it.next().captured(1));
  }
  QVERIFY(named.size() >= 20);
  for (const QString& path : named) {
    QImage image(path);
    QVERIFY2(!image.isNull(), qPrintable(path));
    // Drawn, not blank: some pixel is opaque.
    bool opaque = false;
    for (int y = 0; y < image.height() && !opaque; ++y)
      for (int x = 0; x < image.width() && !opaque; ++x) opaque = qAlpha(image.pixel(x, y)) > 200;
    QVERIFY2(opaque, qPrintable(path));
  }
  QVERIFY(named.contains(":/images/gear_off.png"));
  QVERIFY(named.contains(":/images/slider_on.png"));
  // The bundled fonts are registered by the style.
  QVERIFY(QFontDatabase().families().contains("Roboto"));
}

void TestStyle::logosRecolourToOneColour() {
  Style style;
  for (const char* file : {":/SVG/logo-mapura.svg", ":/SVG/VelmaroLogo.svg"}) {
    QFile svg(file);
    QVERIFY(svg.open(QIODevice::ReadOnly));
    QDomDocument document;
    QVERIFY(document.setContent(svg.readAll()));
    QVERIFY(document.elementsByTagName("path").size() >= 6);
    QDomElement root = document.documentElement();
    SetAttrRecur(root, "path", "fill", "rgb(0,0,255)");
    QSvgRenderer renderer(document.toByteArray(1));
    QVERIFY(renderer.isValid());
    QImage image(renderer.defaultSize(), QImage::Format_ARGB32);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    renderer.render(&painter);
    painter.end();
    int drawn = 0;
    for (int y = 0; y < image.height(); ++y)
      for (int x = 0; x < image.width(); ++x) {
        const QRgb p = image.pixel(x, y);
        if (qAlpha(p) == 255) {
          ++drawn;
          QCOMPARE(qRed(p), 0);
          QCOMPARE(qBlue(p), 255);
        }
      }
    // A real drawing covers a good part of its box.
    QVERIFY2(drawn > image.width() * image.height() / 5, file);
  }
}

QTEST_MAIN(TestStyle)
#include "test_style.moc"

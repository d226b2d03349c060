// Palette, font scaling, style-sheet images, the widget factory and the SVG recolouring.
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
#include "clr.h"

class TestStyle : public QObject {
  Q_OBJECT

 private slots:
  void toStrDropsAlpha();
  void namedColours();
  void fontsScaleWithReferenceWidth();
  void everyNamedImageIsInTheBundle();
  void fontsAndLogosAreInTheBundle();
  void factorySetsGeometryNameAndSheet();
  void setAttrRecurVisitsAllElements();
  void logosRecolourToOneColour();
};

void TestStyle::toStrDropsAlpha() {
  QCOMPARE(clr::toStr(QColor(1, 22, 255, 123)), QString("rgb(1,22,255)"));
  QCOMPARE(clr::toStr(QColor(1, 22, 255, 123)), clr::toStr(QColor(1, 22, 255, 255)));
  QCOMPARE(clr::toStr(QColor(0, 0, 0)), QString("rgb(0,0,0)"));
}

void TestStyle::namedColours() {
  QCOMPARE(clr::blue, QString("rgb(0,190,255)"));
  QCOMPARE(clr::green, QString("rgb(48,214,149)"));
  QCOMPARE(clr::black, QString("rgb(58,58,58)"));
  QCOMPARE(clr::soft_black, QString("rgb(72,72,72)"));
  QCOMPARE(clr::med_black, QString("rgb(130,130,130)"));
  QCOMPARE(clr::grey, QString("rgb(210,210,210)"));
  QCOMPARE(clr::xAxis, clr::red);
  QCOMPARE(clr::zAxis, clr::blue);
  QCOMPARE(clr::blue_h, QString("rgb(00,149,243)"));
  QCOMPARE(clr::yellow, QString("rgb(255, 205, 0)"));
  // Both unusual spellings are valid style-sheet colours.
  QVERIFY(QColor(0, 149, 243).isValid());
}

void TestStyle::fontsScaleWithReferenceWidth() {
  Style style;
  QFont reference("Arial");
  reference.setPointSize(10);
  const int w = QFontMetrics(reference).horizontalAdvance("1234");
  QVERIFY(w > 0);
  QCOMPARE(style.referenceWidth(), w);
  const float wf = static_cast<float>(w);
  const QFont fonts[] = {style.font_title, style.font_xbold, style.font_regular, style.font_bold,
                         style.font_label, style.font_light, style.font_small};
  const int k[] = {308, 280, 280, 280, 280, 280, 252};
  const int weight[] = {57, 81, 50, 75, 50, 25, 57};
  for (int i = 0; i < 7; ++i) {
    QCOMPARE(fonts[i].pointSize(), static_cast<int>(static_cast<float>(k[i]) / wf));
    QCOMPARE(fonts[i].weight(), weight[i]);
    QCOMPARE(fonts[i].family(), QString("Roboto"));
    QCOMPARE(fonts[i].styleStrategy(), QFont::PreferAntialias);
  }
  QVERIFY(style.font_title.pointSize() >= style.font_small.pointSize());
}

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
}

void TestStyle::fontsAndLogosAreInTheBundle() {
  Style style;
  for (const char* file : {":/font/Roboto-Medium.ttf", ":/font/Roboto-Bold.ttf", ":/font/Roboto-Regular.ttf",
                           ":/font/Helvetica-Neue.ttf", ":/SVG/logo-mapura.svg", ":/SVG/VelmaroLogo.svg"})
    QVERIFY2(QFile(file).size() > 1000, file);
  QVERIFY(QFontDatabase().families().contains("Roboto"));
}

void TestStyle::factorySetsGeometryNameAndSheet() {
  Style style;
  QWidget parent;
  parent.setStyleSheet("QLabel{color:rgb(1,2,3);}");
  QLabel* plain = style.createLabel(&parent, 1, 2, 30, 40, "", style.font_label, "a");
  QCOMPARE(plain->geometry(), QRect(1, 2, 30, 40));
  QVERIFY(plain->styleSheet().isEmpty());
  QCOMPARE(plain->text(), QString("a"));
  QLabel* styled = style.createLabel(&parent, 0, 0, 10, 10, style.label, style.font_bold, "b");
  QCOMPARE(styled->styleSheet(), style.label);
  QCOMPARE(plain->font().pointSize(), style.font_label.pointSize());
  QCOMPARE(plain->font().weight(), style.font_label.weight());
  QCOMPARE(styled->parent(), &parent);

  QSlider* slider = style.createSlider(&parent, 5, 6, 70, 22, style.slider, 3, 9, 42);
  QCOMPARE(slider->objectName(), QString("42"));
  QCOMPARE(slider->orientation(), Qt::Horizontal);
  QCOMPARE(slider->minimum(), 3);
  QCOMPARE(slider->maximum(), 9);
  QCheckBox* check = style.createCheckBox(&parent, 0, 0, 50, 22, "c", style.check_small, style.font_regular, 7, true);
  QVERIFY(check->isChecked());
  QCOMPARE(check->objectName(), QString("7"));
  QComboBox* box = style.createComboBox(&parent, 0, 0, 50, 22, "", style.font_small, 0);
  QCOMPARE(box->objectName(), QString("0"));
  QToolButton* button = style.createButtonTool(&parent, 0, 0, 50, 22, style.button, "Go", 11);
  QCOMPARE(button->text(), QString("Go"));
  QCOMPARE(button->objectName(), QString("11"));

  // The tab sheet takes the tab width; the picture label keeps its selector spelling.
  QVERIFY(style.tabs.arg(284).contains("width : 284 px"));
  QVERIFY(style.picture_label.startsWith("Qlabel{"));
}

void TestStyle::setAttrRecurVisitsAllElements() {
  QDomDocument document;
  QVERIFY(
      document.setContent(QByteArray("<svg><path id='a'/><!-- note --><g>text<path id='b' fill='red'/>"
                                     "<g><path id='c'/></g><rect/></g><Path id='d'/></svg>")));
  QDomElement root = document.documentElement();
  SetAttrRecur(root, "path", "fill", "white");
  const QDomNodeList paths = document.elementsByTagName("path");
  QCOMPARE(paths.size(), 3);
  for (int i = 0; i < paths.size(); ++i) QCOMPARE(paths.at(i).toElement().attribute("fill"), QString("white"));
  QVERIFY(!document.elementsByTagName("rect").at(0).toElement().hasAttribute("fill"));
  // Case-sensitive tag match.
  QVERIFY(!document.elementsByTagName("Path").at(0).toElement().hasAttribute("fill"));
  // The root itself is matched too.
  QDomElement g = document.elementsByTagName("g").at(0).toElement();
  SetAttrRecur(g, "g", "opacity", "0.5");
  QCOMPARE(g.attribute("opacity"), QString("0.5"));
  QCOMPARE(document.elementsByTagName("g").at(1).toElement().attribute("opacity"), QString("0.5"));
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

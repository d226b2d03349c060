#include "Style.h"

#include <QFontDatabase>
#include <QFontMetrics>

static void initSettingsBundle() { Q_INIT_RESOURCE(settings); }

namespace mapura::ui {
void initResources() {
  static const bool done = (initSettingsBundle(), true);
  (void)done;
}
}  // namespace mapura::ui

Style::Style() {
  mapura::ui::initResources();
  for (const char* file :
       {":/font/Roboto-Medium.ttf", ":/font/Roboto-Bold.ttf", ":/font/Roboto-Regular.ttf", ":/font/Helvetica-Neue.ttf"})
    QFontDatabase::addApplicationFont(file);
  buildFonts();
  buildSheets();
}

void Style::buildFonts() {
  QFont reference("Arial");
  reference.setPointSize(10);
  reference_width_ = QFontMetrics(reference).horizontalAdvance("1234");
  // A zero width (no font at all) would divide by zero; such a system gets the 28-pixel sizes.
  const float width = reference_width_ > 0 ? static_cast<float>(reference_width_) : 28.f;

  auto make = [width](int k, int weight) {
    QFont font("Roboto");
    font.setPointSize(static_cast<int>(static_cast<float>(k) / width));
    font.setWeight(weight);
    font.setStyleStrategy(QFont::NoSubpixelAntialias);
    font.setStyleStrategy(QFont::PreferAntialias);
    return font;
  };
  font_title = make(308, 57);
  font_xbold = make(280, 81);
  font_regular = make(280, 50);
  font_bold = make(280, 75);
  font_label = make(280, 50);
  font_light = make(280, 25);
  font_small = make(252, 57);
}

template <class W>
static W* place(W* widget, int x, int y, int w, int h, const QString& sheet) {
  widget->setGeometry(x, y, w, h);
  if (!sheet.isEmpty()) widget->setStyleSheet(sheet);
  return widget;
}

QLabel* Style::createLabel(QWidget* parent, int x, int y, int w, int h, const QString& sheet, const QFont& font,
                           const QString& text) {
  auto* label = place(new QLabel(parent), x, y, w, h, sheet);
  label->setFont(font);
  label->setText(text);
  return label;
}

QComboBox* Style::createComboBox(QWidget* parent, int x, int y, int w, int h, const QString& sheet, const QFont& font,
                                 int id) {
  auto* box = place(new QComboBox(parent), x, y, w, h, sheet);
  box->setObjectName(QString::number(id));
  box->setFont(font);
  return box;
}

QToolButton* Style::createButtonTool(QWidget* parent, int x, int y, int w, int h, const QString& sheet,
                                     const QString& text, int id) {
  auto* button = place(new QToolButton(parent), x, y, w, h, sheet);
  button->setObjectName(QString::number(id));
  button->setText(text);
  return button;
}

QCheckBox* Style::createCheckBox(QWidget* parent, int x, int y, int w, int h, const QString& text, const QString& sheet,
                                 const QFont& font, int id, bool checked) {
  auto* box = place(new QCheckBox(parent), x, y, w, h, sheet);
  box->setObjectName(QString::number(id));
  box->setFont(font);
  box->setText(text);
  box->setChecked(checked);
  return box;
}

QSlider* Style::createSlider(QWidget* parent, int x, int y, int w, int h, const QString& sheet, int minimum,
                             int maximum, int id) {
  auto* slider = place(new QSlider(Qt::Horizontal, parent), x, y, w, h, sheet);
  slider->setMinimum(minimum);
  slider->setMaximum(maximum);
  slider->setObjectName(QString::number(id));
  return slider;
}

void SetAttrRecur(QDomElement& element, QString tagName, QString attribute, QString value) {
  if (element.tagName() == tagName) element.setAttribute(attribute, value);
  for (QDomNode child = element.firstChild(); !child.isNull(); child = child.nextSibling()) {
    if (!child.isElement()) continue;
    QDomElement childElement = child.toElement();
    SetAttrRecur(childElement, tagName, attribute, value);
  }
}

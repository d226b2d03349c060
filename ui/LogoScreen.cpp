#include "LogoScreen.h"

#include <QDomDocument>
#include <QFile>
#include <QPaintEvent>
#include <QPainter>

#include "Style.h"

LogoScreen::LogoScreen(QWidget* parent) : QWidget(parent), logo_(0, 0, 0, 0) {
  mapura::ui::initResources();
  QFile file(":/SVG/logo-mapura.svg");
  file.open(QIODevice::ReadOnly);
  QDomDocument document;
  document.setContent(file.readAll());
  QDomElement root = document.documentElement();
  SetAttrRecur(root, "path", "fill", "white");
  renderer_ = std::make_unique<QSvgRenderer>(document.toByteArray(1));
}

void LogoScreen::resizeEvent(QResizeEvent*) {
  const int w = width();
  const int h = height();
  const QSize svg = renderer_->defaultSize();
  const int logoH = static_cast<int>(h * 0.09);
  const int logoW = svg.height() > 0
                        ? static_cast<int>(static_cast<float>(svg.width()) / static_cast<float>(svg.height()) * logoH)
                        : 0;
  logo_ = QRectF((w - logoW) * 0.5, (h - logoH) * 0.5, logoW, logoH);
}

void LogoScreen::paintEvent(QPaintEvent* event) {
  QPainter painter(this);
  painter.setCompositionMode(QPainter::CompositionMode_Source);
  painter.fillRect(event->rect(), Qt::transparent);
  painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
  if (!logo_.isEmpty()) renderer_->render(&painter, logo_);
}

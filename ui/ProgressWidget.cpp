#include "ProgressWidget.h"

#include <QPainter>
#include <QStyleOption>

#include "Style.h"
#include "clr.h"

ProgressWidget::ProgressWidget(QWidget* parent, Style* style) : QWidget(parent), style_(style) {
  setStyleSheet("QWidget{background-color:" + clr::soft_black + "}");
  caption_ = new QLabel(this);
  caption_->setStyleSheet("QLabel{" + style_->css_label_font + "color:" + clr::white +
                          ";background-color:" + clr::soft_black + ";}");
  caption_->setAlignment(Qt::AlignCenter);
  caption_->setText("Pre-Processing");
  bar_ = new QProgressBar(this);
  bar_->setStyleSheet("QProgressBar{" + style_->css_progress_font + "color:" + clr::white +
                      ";border: 2px solid grey;border-radius: 5px;text-align: "
                      "center;}QProgressBar::Chunk{background-color:" +
                      clr::blue + ";}");
}

void ProgressWidget::resizeEvent(QResizeEvent*) {
  const int w = width();
  const int h = height();
  caption_->setGeometry(static_cast<int>(w * 0.3), static_cast<int>(h * 0.4), static_cast<int>(w * 0.4), 30);
  bar_->setGeometry(static_cast<int>(w * 0.3), static_cast<int>(h * 0.5), static_cast<int>(w * 0.4), 40);
}

void ProgressWidget::paintEvent(QPaintEvent*) {
  QStyleOption option;
  option.initFrom(this);
  QPainter painter(this);
  style()->drawPrimitive(QStyle::PE_Widget, &option, &painter, this);
}

void ProgressWidget::update(int value) { bar_->setValue(value); }

#include "WaitingSpinnerWidget.h"

#include <QPainter>
#include <algorithm>

#include "ProgramStates.h"

WaitingSpinnerWidget::WaitingSpinnerWidget(QWidget* parent, bool centerOnParent, bool disableParentWhenSpinning)
    : QWidget(parent), centerOnParent_(centerOnParent), disableParentWhenSpinning_(disableParentWhenSpinning) {
  initialize();
}

WaitingSpinnerWidget::WaitingSpinnerWidget(Qt::WindowModality modality, QWidget* parent, bool centerOnParent,
                                           bool disableParentWhenSpinning)
    : QWidget(parent, Qt::Dialog | Qt::FramelessWindowHint),
      centerOnParent_(centerOnParent),
      disableParentWhenSpinning_(disableParentWhenSpinning) {
  initialize();
  setWindowModality(modality);
  setAttribute(Qt::WA_TranslucentBackground);
}

void WaitingSpinnerWidget::initialize() {
  label_ = nullptr;
  currentCounter_ = 0;
  color_ = QColor(0, 172, 236, 255);
  roundness_ = 90.0;
  minimumTrailOpacity_ = 3.141592653589793;
  trailFadePercentage_ = 60.0;
  revolutionsPerSecond_ = 1.0;
  numberOfLines_ = 58;
  lineLength_ = 8;
  lineWidth_ = 3;
  innerRadius_ = 6;
  isSpinning_ = false;
  updateSize();
  updateTimer();
  hide();
}

void WaitingSpinnerWidget::start() {
  updatePosition();
  isSpinning_ = true;
  show();
  if (label_) label_->show();
  if (disableParentWhenSpinning_ && parentWidget()) parentWidget()->setEnabled(false);
  currentCounter_ = 0;
}

void WaitingSpinnerWidget::stop() {
  isSpinning_ = false;
  hide();
  if (label_) label_->hide();
  if (disableParentWhenSpinning_ && parentWidget()) parentWidget()->setEnabled(true);
}

void WaitingSpinnerWidget::rotate() {
  if (!isSpinning_) return;
  ++currentCounter_;
  if (currentCounter_ >= numberOfLines_) currentCounter_ = 0;
  if (label_) label_->setText(ProgramStates::qstringAttr(ProgramStates::STATUS_TEXT));
  update();
}

void WaitingSpinnerWidget::setRoundness(double roundness) { roundness_ = std::max(0.0, std::min(100.0, roundness)); }

void WaitingSpinnerWidget::setNumberOfLines(int lines) {
  numberOfLines_ = lines;
  currentCounter_ = 0;
}

void WaitingSpinnerWidget::updateSize() {
  const int size = (innerRadius_ + lineLength_) * 2;
  setFixedSize(size, size);
}

void WaitingSpinnerWidget::updatePosition() {
  if (parentWidget() && centerOnParent_)
    move(parentWidget()->width() / 2 - width() / 2, parentWidget()->height() / 2 - height() / 2);
}

int WaitingSpinnerWidget::lineCountDistanceFromPrimary(int current, int primary, int totalNrOfLines) {
  int distance = primary - current;
  if (distance < 0) distance += totalNrOfLines;
  return distance;
}

QColor WaitingSpinnerWidget::currentLineColor(int countDistance, int totalNrOfLines, double trailFadePerc,
                                              double minOpacity, QColor color) {
  if (countDistance == 0) return color;
  const double minAlpha = minOpacity / 100.0;
  const int threshold = static_cast<int>((totalNrOfLines - 1) * trailFadePerc / 100.0);
  double alpha;
  if (countDistance > threshold) {
    alpha = minAlpha;
  } else {
    const double step = (color.alphaF() - minAlpha) / (threshold + 1);
    alpha = std::max(0.0, std::min(1.0, color.alphaF() - step * countDistance));
  }
  color.setAlphaF(alpha);
  return color;
}

void WaitingSpinnerWidget::paintEvent(QPaintEvent*) {
  updatePosition();
  QPainter painter(this);
  painter.fillRect(rect(), Qt::transparent);
  painter.setRenderHint(QPainter::Antialiasing, true);
  painter.setPen(Qt::NoPen);
  if (currentCounter_ >= numberOfLines_) currentCounter_ = 0;
  const int centre = innerRadius_ + lineLength_;
  for (int i = 0; i < numberOfLines_; ++i) {
    painter.save();
    painter.translate(centre, centre);
    painter.rotate(360.0 * i / numberOfLines_);
    painter.translate(innerRadius_, 0);
    const int distance = lineCountDistanceFromPrimary(i, currentCounter_, numberOfLines_);
    painter.setBrush(
        QBrush(currentLineColor(distance, numberOfLines_, trailFadePercentage_, minimumTrailOpacity_, color_)));
    painter.drawRoundedRect(QRect(0, -(lineWidth_ / 2), lineLength_, lineWidth_), roundness_, roundness_,
                            Qt::RelativeSize);
    painter.restore();
  }
}

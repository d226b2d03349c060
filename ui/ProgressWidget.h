// The panel shown over the map view during the offline pre-processing pass: a centred
// "Pre-Processing" caption above a styled progress bar. GUI thread only.
#pragma once

#include <QLabel>
#include <QProgressBar>
#include <QWidget>

class Style;

class ProgressWidget : public QWidget {
  Q_OBJECT

 public:
  ProgressWidget(QWidget* parent, Style* style);

  QProgressBar* bar() const { return bar_; }
  QLabel* caption() const { return caption_; }

 public:
  using QWidget::update;

 public slots:
  /// Sets the bar's value (values outside the range are ignored, as QProgressBar does).
  void update(int value);

 protected:
  void resizeEvent(QResizeEvent* event) override;
  void paintEvent(QPaintEvent* event) override;

 private:
  QProgressBar* bar_;
  QLabel* caption_;
  Style* style_;
};

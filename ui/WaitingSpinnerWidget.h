// A small busy indicator: a ring of rounded bars, one fully opaque while the bars behind it fade
// out. It has no timer of its own: the application's periodic update calls rotate() on each tick.
// An optional label shows the STATUS_TEXT attribute and is shown and hidden with the spinner.
// GUI thread only.
#pragma once

#include <QColor>
#include <QLabel>
#include <QWidget>

class WaitingSpinnerWidget : public QWidget {
  Q_OBJECT

 public:
  WaitingSpinnerWidget(QWidget* parent = nullptr, bool centerOnParent = true, bool disableParentWhenSpinning = true);
  /// A frameless, translucent dialog with the given modality.
  WaitingSpinnerWidget(Qt::WindowModality modality, QWidget* parent = nullptr, bool centerOnParent = true,
                       bool disableParentWhenSpinning = true);

  void start();
  void stop();

  void setLabel(QLabel* label) { label_ = label; }
  QLabel* label() const { return label_; }

  void setColor(QColor color) { color_ = color; }
  void setRoundness(double roundness);
  void setMinimumTrailOpacity(double minimumTrailOpacity) { minimumTrailOpacity_ = minimumTrailOpacity; }
  void setTrailFadePercentage(double trail) { trailFadePercentage_ = trail; }
  void setRevolutionsPerSecond(double revolutionsPerSecond) { revolutionsPerSecond_ = revolutionsPerSecond; }
  void setNumberOfLines(int lines);
  void setLineLength(int length) { lineLength_ = length; }
  void setLineWidth(int width) { lineWidth_ = width; }
  void setInnerRadius(int radius) { innerRadius_ = radius; }

  QColor color() const { return color_; }
  double roundness() const { return roundness_; }
  double minimumTrailOpacity() const { return minimumTrailOpacity_; }
  double trailFadePercentage() const { return trailFadePercentage_; }
  double revolutionsPersSecond() const { return revolutionsPerSecond_; }
  int numberOfLines() const { return numberOfLines_; }
  int lineLength() const { return lineLength_; }
  int lineWidth() const { return lineWidth_; }
  int innerRadius() const { return innerRadius_; }
  bool isSpinning() const { return isSpinning_; }
  /// Index of the opaque bar.
  int currentCounter() const { return currentCounter_; }

  /// Fixed size (innerRadius + lineLength) * 2 in both directions.
  void updateSize();

  /// Distance of bar `current` behind the primary bar (0 for the primary bar).
  static int lineCountDistanceFromPrimary(int current, int primary, int totalNrOfLines);
  /// Colour of a bar `countDistance` bars behind the primary one.
  static QColor currentLineColor(int countDistance, int totalNrOfLines, double trailFadePerc, double minOpacity,
                                 QColor color);

 public slots:
  /// One step of the animation (only while spinning); refreshes the label from STATUS_TEXT.
  void rotate();

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  void initialize();
  void updateTimer() {}
  void updatePosition();

  QLabel* label_ = nullptr;
  int currentCounter_ = 0;
  QColor color_;
  double roundness_ = 0;
  double minimumTrailOpacity_ = 0;
  double trailFadePercentage_ = 0;
  double revolutionsPerSecond_ = 0;
  int numberOfLines_ = 0;
  int lineLength_ = 0;
  int lineWidth_ = 0;
  int innerRadius_ = 0;
  bool centerOnParent_ = true;
  bool disableParentWhenSpinning_ = true;
  bool isSpinning_ = false;
};

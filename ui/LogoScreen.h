// The program's vector logo, recoloured white and centred at 9 % of the widget's height, over a
// transparent background. Shown over the view area while no input is open. GUI thread only.
#pragma once

#include <QRectF>
#include <QSvgRenderer>
#include <QWidget>
#include <memory>

class LogoScreen : public QWidget {
  Q_OBJECT

 public:
  explicit LogoScreen(QWidget* parent = nullptr);

  /// Where the logo is drawn (zero until the first resize).
  QRectF logoRect() const { return logo_; }
  QSvgRenderer* renderer() const { return renderer_.get(); }

 protected:
  void resizeEvent(QResizeEvent* event) override;
  void paintEvent(QPaintEvent* event) override;

 private:
  std::unique_ptr<QSvgRenderer> renderer_;
  QRectF logo_;
};

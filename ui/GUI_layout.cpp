// Absolute layout of the main window, recomputed from the window size on every resize, and the
// switch between the two-view and the map-only arrangement.
#include <QPainter>
#include <algorithm>

#include "GUI.h"
#include "LogoScreen.h"
#include "OGL2DWidget.h"
#include "OGL3DWidget.h"
#include "ProgressWidget.h"
#include "WaitingSpinnerWidget.h"

namespace {
int textWidth(const QWidget* widget, const QString& text) { return widget->fontMetrics().horizontalAdvance(text); }
int margin(int windowWidth) { return static_cast<int>(windowWidth * 0.007); }
}  // namespace

int GUI::headerHeight() const { return static_cast<int>(logo_.y() + logo_.height()) + margin(width()); }

void GUI::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  logo_renderer_->render(&painter, logo_);
}

void GUI::resizeEvent(QResizeEvent* event) {
  QMainWindow::resizeEvent(event);
  layoutHeader();
  layoutViews();
  const int w = width();
  const int m = margin(w);
  const int top = headerHeight();
  logoScreen->setGeometry(m, top, w - 2 * m, height() - (m + top));
}

void GUI::layoutHeader() {
  const int w = width();
  const int m = margin(w);
  const int l = static_cast<int>(height() * 0.03);
  const QSize svg = logo_renderer_->defaultSize();
  const int logoW = svg.height() > 0 ? static_cast<int>(l * (static_cast<double>(svg.width()) / svg.height())) : 0;
  logo_ = QRectF(m, m, logoW, l);
  const int top = m + l + m;
  const int y = static_cast<int>((top - 22) * 0.5);
  const int x = m + logoW + 4 * m;

  const int depthText = textWidth(depthModeLabel, depthModeLabel->text());
  depthModeLabel->setGeometry(x, y, depthText + 5, 22);
  depthModeBox->setGeometry(x + depthText + 10, y, 157, 22);

  const int inputX = depthModeBox->x() + 157 + m;
  inputButton->setGeometry(inputX, y, 105, 22);
  liveButton->setGeometry(inputX + 105 / 2 - 105, y + 1, 105, 20);
  ktrButton->setGeometry(inputX + 105 / 2, y + 1, 105, 20);
  startButton->setGeometry(inputX, y, 105, 22);

  const int loadX = inputX + 105 + m;
  loadMapButton->setGeometry(loadX, y, 105, 22);
  cancelButton->setGeometry(loadX, y, 105, 22);

  const int offLineX = loadX + 105 + 24;
  offLineCheck->setGeometry(offLineX, y, 105, 22);
  const int nameX = offLineX + 105 + 13;
  ktrNameLabel->setGeometry(nameX, y, static_cast<int>(w * 0.2), 22);
  const int nameText = textWidth(ktrNameLabel, ktrNameLabel->text());
  const int sliderX = nameX + nameText + 24;
  const int sliderRight = w - m - 47 - nameText;
  ktrPosSlider->setGeometry(sliderX, y, sliderRight - sliderX, 22);
  ktrFrameLabel->setGeometry(sliderRight + 13, y, textWidth(ktrFrameLabel, "Frame : 00000"), 22);

  settingsButton->setGeometry(w - m - 105, y, 105, 22);
}

void GUI::SwitchMeshView(bool mapOnly) {
  map_only_ = mapOnly;
  view3D->changeFov(mapOnly);
  layoutViews();
}

void GUI::layoutViews() {
  const int w = width();
  const int h = height();
  const int m = margin(w);
  const int top = headerHeight();
  const int freeHeight = h - m - top;
  int mapX = m;
  if (map_only_) {
    liveFrame->hide();
    view2D->hide();
  } else {
    // The 16:9 alternative applies only when the free height exceeds the window height.
    const int liveW = freeHeight <= h ? static_cast<int>(w * 0.45) : static_cast<int>((h - top - 12) * 1.7777778);
    liveFrame->setGeometry(m, top, liveW, freeHeight);
    view2D->setGeometry(0, 0, liveW, freeHeight);
    liveFrame->show();
    view2D->show();
    mapX = m + liveW + m;
  }
  const int mapW = w - m - mapX;
  mapFrame->setGeometry(mapX, top, mapW, freeHeight);
  view3D->setGeometry(0, 0, mapW, freeHeight);
  progressWidget->setGeometry(0, 0, mapW, freeHeight);
  trackingBar->setGeometry(0, freeHeight - 30, mapW, 30);
  layoutTrackingBar();
}

void GUI::layoutTrackingBar() {
  const int b = trackingBar->width();
  auto at = [](QWidget* widget, int x, int width) { widget->setGeometry(x, 4, width, 22); };
  at(trackingTitleLabel, 12, static_cast<int>(b * 0.2));
  at(trackingValueLabel, 12 + textWidth(trackingTitleLabel, trackingTitleLabel->text()) + 1, static_cast<int>(b * 0.3));
  at(camLockCheck, static_cast<int>(b * 0.4), static_cast<int>(b * 0.15));
  at(showPathCheck, static_cast<int>(b * 0.5), static_cast<int>(b * 0.1));
  at(pointsRadio, static_cast<int>(b * 0.63), static_cast<int>(b * 0.1));
  at(edgesRadio, static_cast<int>(b * 0.74), static_cast<int>(b * 0.1));
  at(drawEdgesCheck, static_cast<int>(b * 0.8), static_cast<int>(b * 0.15));
  at(facesRadio, static_cast<int>(b * 0.85), static_cast<int>(b * 0.1));

  const int valueW = std::max(25, static_cast<int>(b * 0.03));
  const int valueX = b - 4 - valueW;
  at(ptSizeValueLabel, valueX, valueW);
  const int sliderW = std::max(50, static_cast<int>(b * 0.1));
  const int sliderX = valueX - 4 - sliderW;
  at(ptSizeSlider, sliderX, sliderW);
  const int labelW = std::max(50, static_cast<int>(b * 0.075));
  at(ptSizeLabel, sliderX - 4 - labelW, labelW);

  spinner->setGeometry(12, 1, 28, 28);
  at(spinnerLabel, 12 + 28 + 7, static_cast<int>(b * 0.45));
}

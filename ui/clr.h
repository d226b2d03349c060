// The named colours of the interface. A name ending in `_clr` is a QColor; the others are
// style-sheet colour texts, so that style sheets are assembled by joining strings. Each
// translation unit that includes this header has its own copy of the constants.
#pragma once

#include <QColor>
#include <QString>

namespace clr {

/// "rgb(r,g,b)" with the three components in decimal; alpha is dropped.
QString toStr(const QColor& colour);

const QString asphalt = "rgb(52,73,94)";
const QString concrete = "rgb(149,165,166)";
const QString silver = "rgb(189,195,199)";
const QString clouds = "rgb(236,240,241)";

const QColor blue_clr(0, 190, 255, 255);
const QString blue = toStr(blue_clr);
const QString blue_h = "rgb(00,149,243)";
const QString blue_light = "rgba(44,201,255,123)";

const QColor green_clr(48, 214, 149, 255);
const QString green = toStr(green_clr);
const QString green_h = "rgb(38,171,119)";

const QString red = "rgb(255,87,87)";
const QString red_h = "rgb(204,70,70)";

const QString xAxis = red;
const QString yAxis = green;
const QString zAxis = blue;
const QString singleAxis = "rgb(255,87,48)";

const QString white = "rgb(255,255,255)";
const QString transparent = "rgba(255,255,255,0)";

const QColor dark(58, 58, 58, 255);
const QString black = toStr(dark);
const QColor soft_black_clr(72, 72, 72, 255);
const QString soft_black = toStr(soft_black_clr);
const QColor med_black_clr(130, 130, 130, 255);
const QString med_black = toStr(med_black_clr);
const QColor grey_clr(210, 210, 210, 255);
const QString grey = toStr(grey_clr);
const QString lightgrey = "rgb(235,235,235)";
const QString yellow = "rgb(255, 205, 0)";

}  // namespace clr

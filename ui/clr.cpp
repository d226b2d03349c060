#include "clr.h"

namespace clr {

QString toStr(const QColor& colour) {
  return "rgb(" + QString::number(colour.red()) + "," + QString::number(colour.green()) + "," +
         QString::number(colour.blue()) + ")";
}

}  // namespace clr

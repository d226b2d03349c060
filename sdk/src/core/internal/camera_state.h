// Private state behind pv::Camera.
#pragma once

#include "pv/camera.h"

namespace pv::internal {

struct CameraState {
  bool opened = false;
  InitParameters init_parameters;
  CameraInformation information;
};

}  // namespace pv::internal

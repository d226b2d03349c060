// PAVO SDK: the whole public interface.
#pragma once

#include "pv/camera.h"
#include "pv/defines.h"
#include "pv/mat.h"
#include "pv/math.h"
#include "pv/mesh.h"
#include "pv/types.h"

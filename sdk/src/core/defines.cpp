#include "pv/defines.h"

#include "pv/mesh.h"

namespace pv {

namespace {
String unknown(int value) { return String("UNKNOWN " + std::to_string(value)); }
}  // namespace

String toString(ERROR_CODE value) {
  switch (value) {
    case ERROR_CODE::SUCCESS: return "SUCCESS";
    case ERROR_CODE::FAILURE: return "FAILURE";
    case ERROR_CODE::NO_GPU_COMPATIBLE: return "NO GPU COMPATIBLE";
    case ERROR_CODE::NOT_ENOUGH_GPU_MEMORY: return "NOT ENOUGH GPU MEMORY";
    case ERROR_CODE::CAMERA_NOT_DETECTED: return "CAMERA NOT DETECTED";
    case ERROR_CODE::INVALID_RESOLUTION: return "INVALID RESOLUTION";
    case ERROR_CODE::CALIBRATION_FILE_NOT_AVAILABLE: return "CALIBRATION FILE NOT AVAILABLE";
    case ERROR_CODE::INVALID_CALIBRATION_FILE: return "INVALID CALIBRATION FILE";
    case ERROR_CODE::INVALID_KTR_FILE: return "INVALID KTR FILE";
    case ERROR_CODE::UNSUPPORTED_KTR_CODEC: return "UNSUPPORTED KTR CODEC";
    case ERROR_CODE::KTR_RECORDING_ERROR: return "KTR RECORDING ERROR";
    case ERROR_CODE::CAMERA_NOT_INITIALIZED: return "CAMERA NOT INITIALIZED";
    case ERROR_CODE::INVALID_FUNCTION_PARAMETERS: return "INVALID FUNCTION PARAMETERS";
    case ERROR_CODE::CORRUPTED_FRAME: return "CORRUPTED FRAME";
    case ERROR_CODE::END_OF_KTR_FILE_REACHED: return "END OF KTR FILE REACHED";
    case ERROR_CODE::NOT_A_NEW_FRAME: return "NOT A NEW FRAME";
    case ERROR_CODE::MODULE_NOT_ENABLED: return "MODULE NOT ENABLED";
    case ERROR_CODE::INVALID_AREA_FILE: return "INVALID AREA FILE";
    case ERROR_CODE::MAP_NOT_READY: return "MAP NOT READY";
    case ERROR_CODE::AI_MODEL_NOT_AVAILABLE: return "AI MODEL NOT AVAILABLE";
    case ERROR_CODE::CUDA_ERROR: return "CUDA ERROR";
    case ERROR_CODE::FILE_IO_ERROR: return "FILE IO ERROR";
    case ERROR_CODE::UNSUPPORTED_FILE_FORMAT: return "UNSUPPORTED FILE FORMAT";
    case ERROR_CODE::NOT_ENOUGH_MEMORY: return "NOT ENOUGH MEMORY";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(RESOLUTION value) {
  switch (value) {
    case RESOLUTION::HD2K: return "HD2K";
    case RESOLUTION::HD1080: return "HD1080";
    case RESOLUTION::HD720: return "HD720";
    case RESOLUTION::VGA: return "VGA";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(DEPTH_MODE value) {
  switch (value) {
    case DEPTH_MODE::NONE: return "NONE";
    case DEPTH_MODE::PERFORMANCE: return "PERFORMANCE";
    case DEPTH_MODE::QUALITY: return "QUALITY";
    case DEPTH_MODE::ULTRA: return "ULTRA";
    case DEPTH_MODE::NEURAL: return "NEURAL";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(UNIT value) {
  switch (value) {
    case UNIT::MILLIMETER: return "MILLIMETER";
    case UNIT::CENTIMETER: return "CENTIMETER";
    case UNIT::METER: return "METER";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(COORDINATE_SYSTEM value) {
  switch (value) {
    case COORDINATE_SYSTEM::IMAGE: return "IMAGE";
    case COORDINATE_SYSTEM::LEFT_HANDED_Y_UP: return "LEFT HANDED Y UP";
    case COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP: return "RIGHT HANDED Y UP";
    case COORDINATE_SYSTEM::RIGHT_HANDED_Z_UP: return "RIGHT HANDED Z UP";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(MEM value) {
  switch (value) {
    case MEM::CPU: return "CPU";
    case MEM::GPU: return "GPU";
    case MEM::BOTH: return "BOTH";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(MAT_TYPE value) {
  switch (value) {
    case MAT_TYPE::F32_C1: return "F32 C1";
    case MAT_TYPE::F32_C2: return "F32 C2";
    case MAT_TYPE::F32_C3: return "F32 C3";
    case MAT_TYPE::F32_C4: return "F32 C4";
    case MAT_TYPE::U8_C1: return "U8 C1";
    case MAT_TYPE::U8_C2: return "U8 C2";
    case MAT_TYPE::U8_C3: return "U8 C3";
    case MAT_TYPE::U8_C4: return "U8 C4";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(COPY_TYPE value) {
  switch (value) {
    case COPY_TYPE::CPU_CPU: return "CPU CPU";
    case COPY_TYPE::CPU_GPU: return "CPU GPU";
    case COPY_TYPE::GPU_GPU: return "GPU GPU";
    case COPY_TYPE::GPU_CPU: return "GPU CPU";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(VIEW value) {
  switch (value) {
    case VIEW::LEFT: return "LEFT";
    case VIEW::RIGHT: return "RIGHT";
    case VIEW::LEFT_GRAY: return "LEFT GRAY";
    case VIEW::RIGHT_GRAY: return "RIGHT GRAY";
    case VIEW::SIDE_BY_SIDE: return "SIDE BY SIDE";
    case VIEW::DEPTH: return "DEPTH";
    case VIEW::TRACKING: return "TRACKING";
    case VIEW::DEPTH_COLOR: return "DEPTH COLOR";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(MEASURE value) {
  switch (value) {
    case MEASURE::DISPARITY: return "DISPARITY";
    case MEASURE::DEPTH: return "DEPTH";
    case MEASURE::CONFIDENCE: return "CONFIDENCE";
    case MEASURE::XYZRGBA: return "XYZRGBA";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(REFERENCE_FRAME value) {
  switch (value) {
    case REFERENCE_FRAME::WORLD: return "WORLD";
    case REFERENCE_FRAME::CAMERA: return "CAMERA";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(SENSING_MODE value) {
  switch (value) {
    case SENSING_MODE::STANDARD: return "STANDARD";
    case SENSING_MODE::FILL: return "FILL";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(POSITIONAL_TRACKING_STATE value) {
  switch (value) {
    case POSITIONAL_TRACKING_STATE::SEARCHING: return "SEARCHING";
    case POSITIONAL_TRACKING_STATE::OK: return "OK";
    case POSITIONAL_TRACKING_STATE::OFF: return "OFF";
    case POSITIONAL_TRACKING_STATE::FPS_TOO_LOW: return "FPS TOO LOW";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(SPATIAL_MAPPING_STATE value) {
  switch (value) {
    case SPATIAL_MAPPING_STATE::INITIALIZING: return "INITIALIZING";
    case SPATIAL_MAPPING_STATE::OK: return "OK";
    case SPATIAL_MAPPING_STATE::NOT_ENOUGH_MEMORY: return "NOT ENOUGH MEMORY";
    case SPATIAL_MAPPING_STATE::NOT_ENABLED: return "NOT ENABLED";
    case SPATIAL_MAPPING_STATE::FPS_TOO_LOW: return "FPS TOO LOW";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(SPATIAL_MAP_TYPE value) {
  switch (value) {
    case SPATIAL_MAP_TYPE::MESH: return "MESH";
    case SPATIAL_MAP_TYPE::FUSED_POINT_CLOUD: return "FUSED POINT CLOUD";
    case SPATIAL_MAP_TYPE::MESH_OFFLINE: return "MESH OFFLINE";
    case SPATIAL_MAP_TYPE::FUSED_POINT_CLOUD_OFFLINE: return "FUSED POINT CLOUD OFFLINE";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(MAPPING_RESOLUTION value) {
  switch (value) {
    case MAPPING_RESOLUTION::HIGH: return "HIGH";
    case MAPPING_RESOLUTION::MEDIUM: return "MEDIUM";
    case MAPPING_RESOLUTION::LOW: return "LOW";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(MAPPING_RANGE value) {
  switch (value) {
    case MAPPING_RANGE::SHORT: return "SHORT";
    case MAPPING_RANGE::MEDIUM: return "MEDIUM";
    case MAPPING_RANGE::LONG: return "LONG";
    case MAPPING_RANGE::AUTO: return "AUTO";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(MESH_FILE_FORMAT value) {
  switch (value) {
    case MESH_FILE_FORMAT::PLY: return "PLY";
    case MESH_FILE_FORMAT::PLY_ASCII: return "PLY ASCII";
    case MESH_FILE_FORMAT::OBJ: return "OBJ";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(MESH_TEXTURE_FORMAT value) {
  switch (value) {
    case MESH_TEXTURE_FORMAT::RGB: return "RGB";
    case MESH_TEXTURE_FORMAT::RGBA: return "RGBA";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(VIDEO_SETTINGS value) {
  switch (value) {
    case VIDEO_SETTINGS::BRIGHTNESS: return "BRIGHTNESS";
    case VIDEO_SETTINGS::CONTRAST: return "CONTRAST";
    case VIDEO_SETTINGS::HUE: return "HUE";
    case VIDEO_SETTINGS::SATURATION: return "SATURATION";
    case VIDEO_SETTINGS::SHARPNESS: return "SHARPNESS";
    case VIDEO_SETTINGS::GAMMA: return "GAMMA";
    case VIDEO_SETTINGS::GAIN: return "GAIN";
    case VIDEO_SETTINGS::EXPOSURE: return "EXPOSURE";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(AI_MODELS value) {
  switch (value) {
    case AI_MODELS::NEURAL_DEPTH: return "NEURAL DEPTH";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(KTR_COMPRESSION_MODE value) {
  switch (value) {
    case KTR_COMPRESSION_MODE::H264: return "H264";
    case KTR_COMPRESSION_MODE::LOSSLESS: return "LOSSLESS";
    case KTR_COMPRESSION_MODE::MJPEG: return "MJPEG";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(MODEL value) {
  switch (value) {
    case MODEL::PAVO: return "PAVO";
    case MODEL::PAVO_VIRTUAL: return "PAVO VIRTUAL";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(INPUT_TYPE value) {
  switch (value) {
    case INPUT_TYPE::USB: return "USB";
    case INPUT_TYPE::KTR: return "KTR";
    case INPUT_TYPE::VIRTUAL: return "VIRTUAL";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(CAMERA_STATE value) {
  switch (value) {
    case CAMERA_STATE::AVAILABLE: return "AVAILABLE";
    case CAMERA_STATE::NOT_AVAILABLE: return "NOT AVAILABLE";
    default: break;
  }
  return unknown(static_cast<int>(value));
}

String toString(MeshFilterParameters::MESH_FILTER value) {
  switch (value) {
    case MeshFilterParameters::LOW: return "LOW";
    case MeshFilterParameters::MEDIUM: return "MEDIUM";
    case MeshFilterParameters::HIGH: return "HIGH";
  }
  return unknown(static_cast<int>(value));
}

Resolution getResolution(RESOLUTION resolution) {
  switch (resolution) {
    case RESOLUTION::HD2K: return {2560, 1440};
    case RESOLUTION::HD1080: return {1920, 1080};
    case RESOLUTION::HD720: return {1280, 720};
    case RESOLUTION::VGA: return {640, 360};
    default: break;
  }
  return {0, 0};
}

}  // namespace pv

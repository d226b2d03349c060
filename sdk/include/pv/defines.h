// PAVO SDK: enumerations, error codes, small value types shared by every module.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace pv {

/// Result of every SDK call that can fail. 0 is success; never thrown.
enum class ERROR_CODE : int {
  SUCCESS = 0,
  FAILURE = 1,
  NO_GPU_COMPATIBLE = 2,
  NOT_ENOUGH_GPU_MEMORY = 3,
  CAMERA_NOT_DETECTED = 4,  ///< grab: the camera was unplugged
  INVALID_RESOLUTION = 5,
  CALIBRATION_FILE_NOT_AVAILABLE = 6,
  INVALID_CALIBRATION_FILE = 7,
  INVALID_KTR_FILE = 8,
  UNSUPPORTED_KTR_CODEC = 9,
  KTR_RECORDING_ERROR = 10,
  CAMERA_NOT_INITIALIZED = 11,
  INVALID_FUNCTION_PARAMETERS = 12,
  CORRUPTED_FRAME = 13,
  END_OF_KTR_FILE_REACHED = 14,
  NOT_A_NEW_FRAME = 15,
  MODULE_NOT_ENABLED = 16,
  INVALID_AREA_FILE = 17,
  MAP_NOT_READY = 18,
  AI_MODEL_NOT_AVAILABLE = 19,
  CUDA_ERROR = 20,
  FILE_IO_ERROR = 21,
  UNSUPPORTED_FILE_FORMAT = 22,
  NOT_ENOUGH_MEMORY = 23,
  LAST = 24
};

/// Camera resolution of one eye.
enum class RESOLUTION : int { HD2K = 0, HD1080 = 1, HD720 = 2, VGA = 3, LAST = 4 };

/// Stereo depth computation mode; NEURAL needs a model that is not shipped.
enum class DEPTH_MODE : int { NONE = 0, PERFORMANCE = 1, QUALITY = 2, ULTRA = 3, NEURAL = 4, LAST = 5 };

/// Unit of every distance handed out or taken in.
enum class UNIT : int { MILLIMETER = 0, CENTIMETER = 1, METER = 2, LAST = 3 };

/// Axis convention of positions and poses.
enum class COORDINATE_SYSTEM : int {
  IMAGE = 0,              ///< x right, y down, z forward
  LEFT_HANDED_Y_UP = 1,   ///< x right, y up, z forward
  RIGHT_HANDED_Y_UP = 2,  ///< x right, y up, camera looks along -z
  RIGHT_HANDED_Z_UP = 3,  ///< x right, z up, camera looks along +y
  LAST = 4
};

/// Where a Mat's memory lives.
enum class MEM : int { CPU = 1, GPU = 2, BOTH = 3 };

/// Element type of a Mat.
enum class MAT_TYPE : int {
  F32_C1 = 0,
  F32_C2 = 1,
  F32_C3 = 2,
  F32_C4 = 3,
  U8_C1 = 4,
  U8_C2 = 5,
  U8_C3 = 6,
  U8_C4 = 7
};

/// Direction of a copy between memories.
enum class COPY_TYPE : int { CPU_CPU = 0, CPU_GPU = 1, GPU_GPU = 2, GPU_CPU = 3 };

/// Images that retrieveImage hands out, as U8_C4 in blue, green, red, alpha order.
enum class VIEW : int {
  LEFT = 0,
  RIGHT = 1,
  LEFT_GRAY = 2,
  RIGHT_GRAY = 3,
  SIDE_BY_SIDE = 4,
  DEPTH = 5,         ///< grey picture of the depth, near is bright
  TRACKING = 113,    ///< left image with the tracked features (green used, red rejected)
  DEPTH_COLOR = 119  ///< depth through a perceptual colour map, invalid pixels black
};

/// Measures that retrieveMeasure hands out.
enum class MEASURE : int {
  DISPARITY = 0,   ///< F32_C1, pixels at the measure's resolution
  DEPTH = 1,       ///< F32_C1, in coordinate_units; NaN where invalid
  CONFIDENCE = 2,  ///< F32_C1, 1 (sure) .. 100 (unsure)
  XYZRGBA = 3,     ///< F32_C4, position in the chosen coordinate system, colour packed in w
  LAST = 4
};

/// Frame in which a pose is expressed.
enum class REFERENCE_FRAME : int { WORLD = 0, CAMERA = 1 };

/// Depth hole handling.
enum class SENSING_MODE : int { STANDARD = 0, FILL = 1 };

enum class POSITIONAL_TRACKING_STATE : int { SEARCHING = 0, OK = 1, OFF = 2, FPS_TOO_LOW = 3, LAST = 4 };

enum class SPATIAL_MAPPING_STATE : int {
  INITIALIZING = 0,
  OK = 1,
  NOT_ENOUGH_MEMORY = 2,
  NOT_ENABLED = 3,
  FPS_TOO_LOW = 4,
  LAST = 5
};

/// Kind of spatial map. The offline values (5, 6) fuse at the refined poses of a tracking pre-pass.
enum class SPATIAL_MAP_TYPE : int { MESH = 0, FUSED_POINT_CLOUD = 1, MESH_OFFLINE = 5, FUSED_POINT_CLOUD_OFFLINE = 6 };

enum class MAPPING_RESOLUTION : int { HIGH = 0, MEDIUM = 1, LOW = 2, LAST = 3 };

enum class MAPPING_RANGE : int { SHORT = 0, MEDIUM = 1, LONG = 2, AUTO = 3, LAST = 4 };

enum class MESH_FILE_FORMAT : int { PLY = 0, PLY_ASCII = 1, OBJ = 2, LAST = 3 };

enum class MESH_TEXTURE_FORMAT : int { RGB = 0, RGBA = 1, LAST = 2 };

/// Camera controls; the value -1 hands a control back to automatic.
enum class VIDEO_SETTINGS : int {
  BRIGHTNESS = 0,
  CONTRAST = 1,
  HUE = 2,
  SATURATION = 3,
  SHARPNESS = 4,
  GAMMA = 5,
  GAIN = 6,
  EXPOSURE = 7,
  LAST = 8
};

/// Neural models; lower values are reserved.
enum class AI_MODELS : int { NEURAL_DEPTH = 8, LAST = 9 };

/// Compression of a KTR recording.
enum class KTR_COMPRESSION_MODE : int { H264 = 0, LOSSLESS = 1, MJPEG = 2, LAST = 3 };

/// Camera kinds the SDK drives.
enum class MODEL : int { PAVO = 0, PAVO_VIRTUAL = 1, LAST = 2 };

/// Where the frames of an open camera come from.
enum class INPUT_TYPE : int { USB = 0, KTR = 1, VIRTUAL = 2, LAST = 3 };

enum class CAMERA_STATE : int { AVAILABLE = 0, NOT_AVAILABLE = 1, LAST = 2 };

/// Small owning string that crosses the SDK interface.
class String {
 public:
  String() = default;
  String(const char* text) : text_(text ? text : "") {}  // NOLINT: implicit by design
  String(const std::string& text) : text_(text) {}       // NOLINT: implicit by design
  const char* c_str() const { return text_.c_str(); }
  const char* get() const { return text_.c_str(); }
  std::string str() const { return text_; }
  size_t size() const { return text_.size(); }
  bool empty() const { return text_.empty(); }
  void set(const char* text) { text_ = text ? text : ""; }
  bool operator==(const String& o) const { return text_ == o.text_; }
  bool operator!=(const String& o) const { return text_ != o.text_; }

 private:
  std::string text_;
};

/// Width and height in pixels.
struct Resolution {
  size_t width = 0;
  size_t height = 0;
  Resolution() = default;
  Resolution(size_t w, size_t h) : width(w), height(h) {}
  size_t area() const { return width * height; }
  bool operator==(const Resolution& o) const { return width == o.width && height == o.height; }
  bool operator!=(const Resolution& o) const { return !(*this == o); }
};

/// Pixel size of one eye for a camera resolution.
Resolution getResolution(RESOLUTION resolution);

/// Upper-case text of a value, words separated by blanks ("END OF KTR FILE REACHED").
String toString(ERROR_CODE value);
String toString(RESOLUTION value);
String toString(DEPTH_MODE value);
String toString(UNIT value);
String toString(COORDINATE_SYSTEM value);
String toString(MEM value);
String toString(MAT_TYPE value);
String toString(COPY_TYPE value);
String toString(VIEW value);
String toString(MEASURE value);
String toString(REFERENCE_FRAME value);
String toString(SENSING_MODE value);
String toString(POSITIONAL_TRACKING_STATE value);
String toString(SPATIAL_MAPPING_STATE value);
String toString(SPATIAL_MAP_TYPE value);
String toString(MAPPING_RESOLUTION value);
String toString(MAPPING_RANGE value);
String toString(MESH_FILE_FORMAT value);
String toString(MESH_TEXTURE_FORMAT value);
String toString(VIDEO_SETTINGS value);
String toString(AI_MODELS value);
String toString(KTR_COMPRESSION_MODE value);
String toString(MODEL value);
String toString(INPUT_TYPE value);
String toString(CAMERA_STATE value);

/// Explanation of the most recent failure on the calling thread, for logs. Thread safe.
String lastErrorDetail();

}  // namespace pv

// KTR recordings: a Matroska file (libavformat) holding one video stream of raw left|right
// side-by-side frames, the `pavo.json` attachment and a frame-count tag written at the end.
//
// Odd sizes: the codecs work on even sizes, so each eye is coded grown by a copy of its last
// column and row to the next even width and height ([left|pad|right|pad]); pavo.json keeps the
// true size and the reader hands out the eyes without the padding.
//
// Timestamps: Matroska stores milliseconds, so each frame keeps its capture time as
// time_origin_ns (in pavo.json) plus its stream timestamp in milliseconds.
#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <string>

#include "io/internal/ktr_metadata.h"
#include "pv/defines.h"

namespace pv::internal {

/// The coded width or height of one eye for a true one: the next even number.
inline int ktrCodedSize(int size) { return size + (size & 1); }

/// Codec name in the file for a compression mode: "h264", "ffv1", "mjpeg".
const char* ktrCodecName(KTR_COMPRESSION_MODE mode);
/// The compression mode of a codec name ("h264", "ffv1", "mjpeg"); false for another name.
bool ktrCompressionFromName(const std::string& name, KTR_COMPRESSION_MODE& mode);

/// Appends frames to a new KTR file. Not thread safe.
class KtrWriter {
 public:
  KtrWriter();
  ~KtrWriter();  ///< closes (finishing the file)
  KtrWriter(const KtrWriter&) = delete;
  KtrWriter& operator=(const KtrWriter&) = delete;

  /// Creates `path`. An earlier file there is replaced only when the new recording is closed
  /// complete; until then it is written beside it, and a failed recording leaves it untouched.
  /// The metadata's width/height are one eye's.
  [[nodiscard]] ERROR_CODE open(const std::string& path, const KtrMetadata& metadata,
                                KTR_COMPRESSION_MODE mode = KTR_COMPRESSION_MODE::H264);
  /// Appends one side-by-side CV_8UC3 BGR frame (2 * width x height). Timestamps must grow;
  /// one that does not is moved 1 ms after the previous frame.
  [[nodiscard]] ERROR_CODE write(const cv::Mat& side_by_side_bgr, int64_t timestamp_ns);
  /// Flushes the encoder, writes the index and the frame-count tag. Idempotent. A recording
  /// that fails here keeps its complete frames when it is a new file.
  ERROR_CODE close();
  bool isOpen() const;
  int framesWritten() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// Reads a KTR file: every complete frame, in order, with exact seeking. Not thread safe.
class KtrReader {
 public:
  KtrReader();
  ~KtrReader();
  KtrReader(const KtrReader&) = delete;
  KtrReader& operator=(const KtrReader&) = delete;

  /// Opens and indexes the file. INVALID_KTR_FILE for anything that is not a KTR recording,
  /// UNSUPPORTED_KTR_CODEC for a codec this build cannot decode, INVALID_CALIBRATION_FILE for
  /// a recording without a usable calibration.
  [[nodiscard]] ERROR_CODE open(const std::string& path);
  void close();
  bool isOpen() const;

  const KtrMetadata& metadata() const;
  /// Complete frames in the file.
  int frameCount() const;
  /// The frame-count tag, or -1 when the recording was cut off before it was written.
  int taggedFrameCount() const;
  std::string codecName() const;

  /// Next frame to be read (0..frameCount()).
  int position() const;
  /// The next read returns frame `index` (clamped to 0..frameCount()).
  void seek(int index);
  /// Hands frames out as CV_8UC4 BGRA instead of CV_8UC3 BGR (faster to rectify).
  void setBgraOutput(bool bgra);
  /// Decodes the next frame as a side-by-side CV_8UC3 BGR image (or BGRA, see setBgraOutput). END_OF_KTR_FILE_REACHED
  /// after the last frame; CORRUPTED_FRAME when it cannot be decoded (the position still advances).
  [[nodiscard]] ERROR_CODE read(cv::Mat& side_by_side_bgr, int64_t& timestamp_ns, int& index);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace pv::internal

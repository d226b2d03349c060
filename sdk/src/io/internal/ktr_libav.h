// FFmpeg headers and small helpers shared by the KTR reader and writer.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include <string>

namespace pv::internal {

/// Global tag holding the number of frames, written when a recording is finished.
constexpr const char kFrameCountTag[] = "PAVO_FRAME_COUNT";

/// Keeps FFmpeg's own log off the terminal; callers report errors through ERROR_CODE.
inline void quietLibav() {
  static const bool once = [] {
    av_log_set_level(AV_LOG_FATAL);
    return true;
  }();
  (void)once;
}

/// FFmpeg's text for an error number.
inline std::string avError(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {0};
  av_strerror(code, text, sizeof(text));
  return text;
}

}  // namespace pv::internal

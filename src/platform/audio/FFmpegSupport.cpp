#include "platform/audio/FFmpegSupport.h"

#include <mutex>

extern "C" {
#include <libavutil/error.h>
#include <libavutil/log.h>
}

namespace vexo::audio {

void quietFFmpeg() {
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_level(AV_LOG_QUIET); });
}

std::string errorText(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

} // namespace vexo::audio

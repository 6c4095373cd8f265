#include "platform/audio/FFmpegSupport.h"

#include <mutex>

#include "platform/base/SystemError.h"

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

Error ffmpegError(int code, const std::string& message) {
    // FFmpeg's own codes are tags far outside errno's range.
    const int errnoValue = AVUNERROR(code);
    const ErrorKind kind =
        errnoValue > 0 && errnoValue < 4096 ? errorKindOfErrno(errnoValue) : ErrorKind::SystemFailure;
    return Error(kind, message + ": " + errorText(code));
}

} // namespace vexo::audio

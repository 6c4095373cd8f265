#pragma once

#include <string>

#include "platform/base/Error.h"

// What the decoder and the writer share of FFmpeg: its error texts, and its own log kept off
// standard error (our messages say what went wrong, in words of their own).
namespace vexo::audio {

// Sets FFmpeg's log level to quiet, once per process.
void quietFFmpeg();

// FFmpeg's text for an error code.
[[nodiscard]] std::string errorText(int code);

// An Error for FFmpeg's error `code`: "`message`: <FFmpeg's text>", of the kind the system
// error behind it means (a missing file or folder NotFound), else SystemFailure.
[[nodiscard]] Error ffmpegError(int code, const std::string& message);

} // namespace vexo::audio

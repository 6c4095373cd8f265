#pragma once

#include <string>

// What the decoder and the writer share of FFmpeg: its error texts, and its own log kept off
// standard error (our messages say what went wrong, in words of their own).
namespace vexo::audio {

// Sets FFmpeg's log level to quiet, once per process.
void quietFFmpeg();

// FFmpeg's text for an error code.
[[nodiscard]] std::string errorText(int code);

} // namespace vexo::audio

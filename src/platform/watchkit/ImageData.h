#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Encoded image bytes set on an interface object, as the image store keeps them.
namespace vexo::watchkit {

struct ImageData {
    // The content hash that names these bytes in snapshots and image requests; equal bytes
    // have equal identifiers.
    std::string id;
    std::vector<std::uint8_t> bytes;
    // "image/png", "image/jpeg" or "application/octet-stream", sniffed from the bytes.
    std::string mediaType;
    // The pixel size read from a PNG header; 0 x 0 for anything else.
    int width = 0;
    int height = 0;
};

} // namespace vexo::watchkit

#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "platform/graphics/Image.h"

// Test pictures made in code: encoded with libpng and libjpeg directly, so that the
// decoder under test never checks its own encoder's output.
namespace vexo::graphics::test {

using Bytes = std::vector<std::uint8_t>;
using PixelFunction = std::function<Rgba8(int x, int y)>;

// A PNG of 8-bit RGBA (or RGB when `alpha` is false), optionally Adam7-interlaced.
Bytes makePng(int width, int height, const PixelFunction& pixel, bool alpha = true, bool interlaced = false);

// A PNG of 16-bit grey, every pixel `level` (0 to 65535).
Bytes makeGray16Png(int width, int height, std::uint16_t level);

// A palette PNG of two colours with the second one fully transparent via tRNS; the left
// half of each row uses the first colour.
Bytes makePalettePng(int width, int height, Rgba8 opaque);

// A baseline (or progressive) RGB JPEG of the given quality.
Bytes makeJpeg(int width, int height, const PixelFunction& pixel, int quality = 90, bool progressive = false);

// A CMYK JPEG (with the Adobe marker libjpeg writes for CMYK) of one flat colour, given
// as the four stored bytes.
Bytes makeCmykJpeg(int width, int height, const std::uint8_t cmyk[4]);

// `jpeg` with an EXIF APP1 marker carrying `orientation` inserted after its SOI marker,
// in big-endian (Motorola) or little-endian (Intel) byte order.
Bytes withExifOrientation(const Bytes& jpeg, std::uint16_t orientation, bool bigEndian = true);

// A picture `width` wide whose left half is `left` and right half `right`.
PixelFunction halves(int width, Rgba8 left, Rgba8 right);

// A flat colour.
PixelFunction solid(Rgba8 color);

// Rewrites the width and height of a PNG's IHDR chunk and its CRC.
void setPngSize(Bytes& png, std::uint32_t width, std::uint32_t height);

// Rewrites the width and height in a JPEG's first frame header.
void setJpegSize(Bytes& jpeg, std::uint16_t width, std::uint16_t height);

} // namespace vexo::graphics::test

#include "platform/graphics/ImageDecoder.h"

#include <algorithm>
#include <string>

#include "platform/graphics/JpegDecoder.h"
#include "platform/graphics/PngDecoder.h"
#include "platform/log/Log.h"

namespace vexo::graphics {

namespace {

constexpr std::string_view kComponent = "graphics";

} // namespace

ImageDecoder::ImageDecoder(DecodeLimits limits)
    : m_limits(limits) {}

std::optional<ImageDecoder::Format> ImageDecoder::sniff(std::span<const std::uint8_t> data) {
    static constexpr std::uint8_t png[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    if (data.size() >= sizeof png && std::equal(std::begin(png), std::end(png), data.begin()))
        return Format::Png;
    if (data.size() >= 3 && data[0] == 0xFF && data[1] == 0xD8 && data[2] == 0xFF)
        return Format::Jpeg;
    return std::nullopt;
}

std::optional<ImageDecoder::Header> ImageDecoder::readHeader(std::span<const std::uint8_t> data) const {
    std::optional<Format> format = sniff(data);
    if (!format)
        return std::nullopt;
    std::optional<Size> size = *format == Format::Png ? PngDecoder::readSize(data) : JpegDecoder::readSize(data);
    if (!size)
        return std::nullopt;
    return Header{*format, size->width, size->height};
}

std::optional<Image> ImageDecoder::decode(std::span<const std::uint8_t> data, Size target) const {
    if (data.size() > m_limits.maxInputBytes) {
        log::debug(kComponent, "image not decoded: " + std::to_string(data.size()) + " bytes is over the limit");
        return std::nullopt;
    }
    std::optional<Format> format = sniff(data);
    if (!format) {
        log::debug(kComponent, "image not decoded: neither JPEG nor PNG");
        return std::nullopt;
    }
    return *format == Format::Png ? PngDecoder::decode(data, m_limits, target)
                                  : JpegDecoder::decode(data, m_limits, target);
}

} // namespace vexo::graphics

#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <vector>

#include "platform/graphics/Image.h"
#include "platform/graphics/ImageDecoder.h"
#include "platform/graphics/PngEncoder.h"

// Pictures for the screens' artwork: encoded as the phone sends them, decoded as a test reads
// what a screen made of them.
namespace vexo::ui::testing {

// A PNG of `width` x `height` pixels in vertical stripes of equal width, one per colour, left
// to right.
inline std::vector<std::uint8_t> stripedPng(int width, int height, std::initializer_list<graphics::Rgba8> stripes) {
    graphics::Image image(width, height, graphics::Image::Alpha::Opaque);
    const std::vector<graphics::Rgba8> colours(stripes);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image.setPixel(x, y,
                           colours[static_cast<std::size_t>(x) * colours.size() / static_cast<std::size_t>(width)]);
    return *graphics::PngEncoder::encode(image);
}

inline std::optional<graphics::Image> decodePicture(const std::optional<std::vector<std::uint8_t>>& data) {
    if (!data)
        return std::nullopt;
    return graphics::ImageDecoder().decode(*data);
}

inline constexpr graphics::Rgba8 kRed{255, 0, 0, 255};
inline constexpr graphics::Rgba8 kGreen{0, 255, 0, 255};
inline constexpr graphics::Rgba8 kBlue{0, 0, 255, 255};
inline constexpr graphics::Rgba8 kWhite{255, 255, 255, 255};

} // namespace vexo::ui::testing

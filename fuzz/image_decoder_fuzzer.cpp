// Artwork bytes from the phone or from a tag, through the image decoder: the first byte picks
// the size the picture is decoded towards (none, a badge, the screen), the rest is the file.
// Whatever arrives, the decoder returns a picture within its limits or nothing, without a
// crash, a hang or a sanitizer report; what it decodes also has a header it can read.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "platform/graphics/ImageDecoder.h"
#include "platform/log/Log.h"

using namespace vexo::graphics;

namespace {

// Small limits keep each input fast; the checks that refuse larger pictures are the same.
constexpr DecodeLimits kLimits{1u << 20, 4'000'000, 4'000};
constexpr Size kTargets[] = {{0, 0}, {8, 8}, {92, 92}, {184, 184}};

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vexo::log::setLevel(vexo::log::Level::Off);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const Size target = kTargets[data[0] % std::size(kTargets)];
    const std::span<const std::uint8_t> file(data + 1, size - 1);
    const ImageDecoder decoder(kLimits);
    const auto header = decoder.readHeader(file);
    const auto image = decoder.decode(file, target);
    if (!image)
        return 0;
    if (!header || image->width() <= 0 || image->height() <= 0 ||
        static_cast<std::uint64_t>(image->width()) * static_cast<std::uint64_t>(image->height()) > kLimits.maxPixels)
        std::abort();
    // Every pixel word is there: reading the last one must stay inside the picture.
    static_cast<void>(image->pixel(image->width() - 1, image->height() - 1));
    return 0;
}

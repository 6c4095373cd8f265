#include "platform/graphics/PngDecoder.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <string>
#include <vector>

#include <png.h>

#include "platform/graphics/BoxReducer.h"
#include "platform/log/Log.h"

namespace vexo::graphics {

namespace {

constexpr std::string_view kComponent = "graphics";

// Ancillary chunks (text, ICC profiles) are skipped by us anyway; this only bounds what
// libpng may allocate to parse them.
constexpr png_alloc_size_t kMaxChunkBytes = 8u << 20;

constexpr std::uint8_t kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};

// Everything a decode touches lives here, in the caller's frame, so that a longjmp out
// of libpng never skips a C++ destructor.
struct Session {
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::span<const std::uint8_t> data;
    std::size_t position = 0;
    std::string message;
    std::optional<Image> full;
    std::optional<BoxReducer> reducer;
    std::vector<std::uint32_t> rows;

    Session() = default;
    ~Session() {
        if (png)
            png_destroy_read_struct(&png, info ? &info : nullptr, nullptr);
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
};

void onError(png_structp png, png_const_charp message) {
    auto* session = static_cast<Session*>(png_get_error_ptr(png));
    // Assigning may allocate; a failure there must not throw through libpng.
    try {
        session->message = message;
    } catch (...) {
    }
    png_longjmp(png, 1);
}

void onWarning(png_structp, png_const_charp message) {
    if (log::enabled(log::Level::Debug))
        log::debug(kComponent, std::string("png warning: ") + message);
}

void readFromMemory(png_structp png, png_bytep out, png_size_t length) {
    auto* session = static_cast<Session*>(png_get_io_ptr(png));
    if (session->data.size() - session->position < length)
        png_error(png, "data ends early");
    std::memcpy(out, session->data.data() + session->position, length);
    session->position += length;
}

// Premultiplies a row of straight 0xAARRGGBB words in place.
void premultiply(std::uint32_t* row, int width) {
    for (int x = 0; x < width; ++x) {
        std::uint32_t word = row[x];
        std::uint32_t a = word >> 24;
        if (a == 255)
            continue;
        auto channel = [a](std::uint32_t c) { return (c * a + 127) / 255; };
        row[x] = (a << 24) | (channel((word >> 16) & 0xFF) << 16) | (channel((word >> 8) & 0xFF) << 8) |
                 channel(word & 0xFF);
    }
}

// Only trivially destructible locals below the setjmp: see Session.
bool decodeInto(Session& session, const DecodeLimits& limits, Size target) {
    session.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &session, onError, onWarning);
    if (!session.png)
        return false;
    session.info = png_create_info_struct(session.png);
    if (!session.info)
        return false;
    png_structp png = session.png;
    png_infop info = session.info;
    if (setjmp(png_jmpbuf(png)))
        return false;

    png_set_read_fn(png, &session, readFromMemory);
    png_set_user_limits(png, limits.maxDimension, limits.maxDimension);
    png_set_chunk_malloc_max(png, kMaxChunkBytes);
    png_read_info(png, info);

    std::uint64_t width = png_get_image_width(png, info);
    std::uint64_t height = png_get_image_height(png, info);
    if (width * height > limits.maxPixels)
        png_error(png, "declared size is over the pixel limit");

    int colorType = png_get_color_type(png, info);
    bool hasAlpha = (colorType & PNG_COLOR_MASK_ALPHA) || png_get_valid(png, info, PNG_INFO_tRNS);
    int w = static_cast<int>(width), h = static_cast<int>(height);
    int factor = BoxReducer::factorFor(w, h, target.width, target.height);
    // An opaque image that is going to be reduced stays at three bytes a pixel: the
    // reducer reads those directly, which spares libpng widening every row.
    bool rgbRows = !hasAlpha && factor > 1;
    png_set_expand(png);
    png_set_scale_16(png);
    if (!(colorType & PNG_COLOR_MASK_COLOR))
        png_set_gray_to_rgb(png);
    if (!rgbRows && std::endian::native == std::endian::little) {
        png_set_bgr(png);
        png_set_filler(png, 0xFF, PNG_FILLER_AFTER);
    } else if (!rgbRows) {
        png_set_filler(png, 0xFF, PNG_FILLER_BEFORE);
        png_set_swap_alpha(png);
    }
    int passes = png_set_interlace_handling(png);
    png_read_update_info(png, info);
    std::size_t bytesPerPixel = rgbRows ? 3 : 4;
    if (png_get_rowbytes(png, info) != width * bytesPerPixel)
        png_error(png, "unexpected row layout");

    Image::Alpha alpha = hasAlpha ? Image::Alpha::Premultiplied : Image::Alpha::Opaque;
    if (factor == 1) {
        session.full.emplace(w, h, alpha);
        for (int pass = 0; pass < passes; ++pass) {
            for (int y = 0; y < h; ++y)
                png_read_row(png, reinterpret_cast<png_bytep>(session.full->row(y)), nullptr);
        }
        if (hasAlpha) {
            for (int y = 0; y < h; ++y)
                premultiply(session.full->row(y), w);
        }
    } else {
        session.reducer.emplace(w, h, factor, alpha);
        // Interlaced images fill every row on each pass, so they need the whole frame; the
        // usual non-interlaced ones stream through a single row.
        // Rows are held in words (three-byte rows rounded up) and read bytewise by libpng.
        std::size_t rowWords = (static_cast<std::size_t>(w) * bytesPerPixel + 3) / 4;
        session.rows.resize(passes > 1 ? rowWords * h : rowWords);
        for (int pass = 0; pass < passes; ++pass) {
            for (int y = 0; y < h; ++y) {
                std::uint32_t* words = session.rows.data() + (passes > 1 ? rowWords * y : 0);
                png_read_row(png, reinterpret_cast<png_bytep>(words), nullptr);
                if (pass + 1 < passes)
                    continue;
                if (rgbRows) {
                    session.reducer->addRgbRow(reinterpret_cast<const std::uint8_t*>(words));
                    continue;
                }
                if (hasAlpha)
                    premultiply(words, w);
                session.reducer->addRow(words);
            }
        }
    }
    return true;
}

std::uint32_t bigEndian32(const std::uint8_t* p) {
    return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) | p[3];
}

} // namespace

std::optional<Size> PngDecoder::readSize(std::span<const std::uint8_t> data) {
    // Signature, then the IHDR chunk: length 13, type, width, height.
    if (data.size() < 24 || !std::equal(std::begin(kSignature), std::end(kSignature), data.begin()) ||
        std::memcmp(data.data() + 12, "IHDR", 4) != 0)
        return std::nullopt;
    std::uint32_t width = bigEndian32(data.data() + 16), height = bigEndian32(data.data() + 20);
    if (width == 0 || height == 0 || width > 0x7FFFFFFF || height > 0x7FFFFFFF)
        return std::nullopt;
    return Size{static_cast<int>(width), static_cast<int>(height)};
}

std::optional<Image> PngDecoder::decode(std::span<const std::uint8_t> data, const DecodeLimits& limits, Size target) {
    Session session;
    session.data = data;
    if (!decodeInto(session, limits, target)) {
        log::debug(kComponent, "png not decoded: " + session.message);
        return std::nullopt;
    }
    if (session.reducer)
        return session.reducer->finish();
    return std::move(session.full);
}

} // namespace vexo::graphics

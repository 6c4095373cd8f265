#include "platform/graphics/JpegDecoder.h"

#include <bit>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "platform/graphics/BoxReducer.h"
#include "platform/log/Log.h"

// jpeglib.h needs FILE and size_t declared first.
#include <jerror.h>
#include <jpeglib.h>

namespace vexo::graphics {

namespace {

constexpr std::string_view kComponent = "graphics";

// A progressive file can repeat scans without end, each one a pass over the whole image.
constexpr int kMaxScans = 500;

// libjpeg keeps its own allocator; this caps it (coefficient buffers of progressive files
// are the largest thing it allocates).
constexpr long kMaxLibraryMemory = 512L << 20;

struct ErrorManager {
    jpeg_error_mgr base;
    std::jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

[[noreturn]] void fail(j_common_ptr cinfo) {
    auto* errors = reinterpret_cast<ErrorManager*>(cinfo->err);
    (*cinfo->err->format_message)(cinfo, errors->message);
    std::longjmp(errors->jump, 1);
}

// Warnings are logged; running out of data is fatal, because libjpeg would otherwise
// pad the picture with grey and call it decoded.
void emitMessage(j_common_ptr cinfo, int level) {
    if (level >= 0)
        return;
    if (cinfo->err->msg_code == JWRN_JPEG_EOF)
        fail(cinfo);
    if (log::enabled(log::Level::Debug)) {
        char message[JMSG_LENGTH_MAX];
        (*cinfo->err->format_message)(cinfo, message);
        log::debug(kComponent, std::string("jpeg warning: ") + message);
    }
}

void checkScans(j_common_ptr cinfo) {
    if (cinfo->is_decompressor && reinterpret_cast<j_decompress_ptr>(cinfo)->input_scan_number > kMaxScans) {
        cinfo->err->msg_code = JERR_BAD_SCAN_SCRIPT;
        fail(cinfo);
    }
}

void outputMessage(j_common_ptr) {}

// Everything a decode touches lives here, in the caller's frame, so that a longjmp out
// of libjpeg never skips a C++ destructor.
struct Session {
    jpeg_decompress_struct cinfo{};
    ErrorManager errors{};
    jpeg_progress_mgr progress{};
    bool created = false;
    std::optional<Image> full;
    std::optional<BoxReducer> reducer;
    std::vector<std::uint8_t> rows;
    int orientation = 1;

    Session() {
        cinfo.err = jpeg_std_error(&errors.base);
        errors.base.error_exit = fail;
        errors.base.emit_message = emitMessage;
        errors.base.output_message = outputMessage;
        errors.message[0] = 0;
    }
    ~Session() {
        if (created)
            jpeg_destroy_decompress(&cinfo);
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
};

bool isCmyk(J_COLOR_SPACE space) {
    return space == JCS_CMYK || space == JCS_YCCK;
}

// Adobe writes CMYK inverted (as most CMYK JPEGs in the wild are); others store ink.
std::uint32_t cmykToWord(const std::uint8_t* p, bool inverted) {
    unsigned c = p[0], m = p[1], y = p[2], k = p[3];
    if (!inverted) {
        c = 255 - c;
        m = 255 - m;
        y = 255 - y;
        k = 255 - k;
    }
    unsigned r = (c * k + 127) / 255, g = (m * k + 127) / 255, b = (y * k + 127) / 255;
    return 0xFF000000u | (r << 16) | (g << 8) | b;
}

// The EXIF orientation (1 to 8) in an APP1 marker, or 1 when there is none or it cannot
// be read. Phone cameras store pictures sideways and say so here; the host platform's
// image drawing honours it, so we do too.
int exifOrientation(jpeg_saved_marker_ptr marker) {
    for (; marker; marker = marker->next) {
        const std::uint8_t* p = marker->data;
        std::size_t size = marker->data_length;
        if (marker->marker != JPEG_APP0 + 1 || size < 14 || std::memcmp(p, "Exif\0\0", 6) != 0)
            continue;
        p += 6;
        size -= 6;
        bool little = p[0] == 'I' && p[1] == 'I';
        if (!little && !(p[0] == 'M' && p[1] == 'M'))
            continue;
        auto u16 = [&](std::size_t at) {
            return little ? std::uint32_t(p[at] | p[at + 1] << 8) : std::uint32_t(p[at] << 8 | p[at + 1]);
        };
        auto u32 = [&](std::size_t at) { return little ? u16(at) | u16(at + 2) << 16 : u16(at) << 16 | u16(at + 2); };
        std::size_t directory = u32(4);
        if (directory > size - 2)
            continue;
        std::size_t count = u16(directory);
        for (std::size_t i = 0; i < count; ++i) {
            std::size_t entry = directory + 2 + i * 12;
            if (entry + 12 > size)
                break;
            // Tag 0x0112, type SHORT, one value.
            if (u16(entry) == 0x0112 && u16(entry + 2) == 3 && u32(entry + 4) == 1) {
                std::uint32_t value = u16(entry + 8);
                return value >= 1 && value <= 8 ? static_cast<int>(value) : 1;
            }
        }
    }
    return 1;
}

// `image` as it is to be shown under EXIF `orientation`; orientations 5 to 8 swap the sides.
Image oriented(Image image, int orientation) {
    if (orientation <= 1 || orientation > 8)
        return image;
    int w = image.width(), h = image.height();
    bool swap = orientation >= 5;
    Image out(swap ? h : w, swap ? w : h, image.alpha());
    for (int y = 0; y < out.height(); ++y) {
        std::uint32_t* row = out.row(y);
        for (int x = 0; x < out.width(); ++x) {
            int sx = x, sy = y;
            switch (orientation) {
            case 2:
                sx = w - 1 - x;
                break;
            case 3:
                sx = w - 1 - x;
                sy = h - 1 - y;
                break;
            case 4:
                sy = h - 1 - y;
                break;
            case 5:
                sx = y;
                sy = x;
                break;
            case 6:
                sx = y;
                sy = h - 1 - x;
                break;
            case 7:
                sx = w - 1 - y;
                sy = h - 1 - x;
                break;
            case 8:
                sx = w - 1 - y;
                sy = x;
                break;
            }
            row[x] = image.pixels()[static_cast<std::size_t>(sy) * w + sx];
        }
    }
    return out;
}

bool readHeaderInto(Session& session, std::span<const std::uint8_t> data) {
    if (setjmp(session.errors.jump))
        return false;
    jpeg_create_decompress(&session.cinfo);
    session.created = true;
    jpeg_mem_src(&session.cinfo, data.data(), static_cast<unsigned long>(data.size()));
    return jpeg_read_header(&session.cinfo, TRUE) == JPEG_HEADER_OK;
}

// Only trivially destructible locals below the setjmp: see Session.
bool decodeInto(Session& session, std::span<const std::uint8_t> data, const DecodeLimits& limits, Size target) {
    if (setjmp(session.errors.jump))
        return false;
    jpeg_decompress_struct& cinfo = session.cinfo;
    jpeg_create_decompress(&cinfo);
    session.created = true;
    cinfo.mem->max_memory_to_use = kMaxLibraryMemory;
    session.progress.progress_monitor = checkScans;
    cinfo.progress = &session.progress;
    jpeg_mem_src(&cinfo, data.data(), static_cast<unsigned long>(data.size()));
    jpeg_save_markers(&cinfo, JPEG_APP0 + 1, 0xFFFF);
    if (jpeg_read_header(&cinfo, TRUE) != JPEG_HEADER_OK)
        return false;
    session.orientation = exifOrientation(cinfo.marker_list);
    // The target is for the picture as shown; a sideways source meets it with swapped sides.
    if (session.orientation >= 5)
        target = {target.height, target.width};

    std::uint64_t width = cinfo.image_width, height = cinfo.image_height;
    if (width == 0 || height == 0 || width > limits.maxDimension || height > limits.maxDimension ||
        width * height > limits.maxPixels) {
        std::snprintf(session.errors.message, sizeof session.errors.message,
                      "declared size %llux%llu is over the limit", static_cast<unsigned long long>(width),
                      static_cast<unsigned long long>(height));
        return false;
    }

    bool cmyk = isCmyk(cinfo.jpeg_color_space);
    if (cmyk)
        cinfo.out_color_space = JCS_CMYK;
    else
        cinfo.out_color_space = std::endian::native == std::endian::little ? JCS_EXT_BGRA : JCS_EXT_ARGB;
    cinfo.scale_num = static_cast<unsigned>(
        JpegDecoder::scaleNumeratorFor({static_cast<int>(width), static_cast<int>(height)}, target));
    cinfo.scale_denom = 8;
    jpeg_start_decompress(&cinfo);

    int outWidth = static_cast<int>(cinfo.output_width);
    int outHeight = static_cast<int>(cinfo.output_height);
    int factor = BoxReducer::factorFor(outWidth, outHeight, target.width, target.height);
    bool inverted = cinfo.saw_Adobe_marker;
    if (factor == 1 && !cmyk) {
        // Straight into the image: libjpeg writes the exact pixel words we keep.
        session.full.emplace(outWidth, outHeight, Image::Alpha::Opaque);
        while (cinfo.output_scanline < cinfo.output_height) {
            JSAMPROW row = reinterpret_cast<JSAMPROW>(session.full->row(static_cast<int>(cinfo.output_scanline)));
            jpeg_read_scanlines(&cinfo, &row, 1);
        }
    } else {
        session.reducer.emplace(outWidth, outHeight, factor, Image::Alpha::Opaque);
        std::size_t rowBytes = static_cast<std::size_t>(outWidth) * 4;
        // Room for the decoded row plus, for CMYK, the converted words after it.
        session.rows.resize(cmyk ? rowBytes * 2 : rowBytes);
        while (cinfo.output_scanline < cinfo.output_height) {
            JSAMPROW row = session.rows.data();
            jpeg_read_scanlines(&cinfo, &row, 1);
            auto* words = reinterpret_cast<std::uint32_t*>(session.rows.data() + (cmyk ? rowBytes : 0));
            if (cmyk) {
                for (int x = 0; x < outWidth; ++x)
                    words[x] = cmykToWord(session.rows.data() + static_cast<std::size_t>(x) * 4, inverted);
            }
            session.reducer->addRow(words);
        }
    }
    jpeg_finish_decompress(&cinfo);
    return true;
}

} // namespace

int JpegDecoder::scaleNumeratorFor(Size source, Size target) {
    if (target.width <= 0 || target.height <= 0)
        return 8;
    auto scaled = [](int side, int numerator) { return (static_cast<long long>(side) * numerator + 7) / 8; };
    for (int numerator = 1; numerator < 8; ++numerator) {
        if (scaled(source.width, numerator) >= target.width && scaled(source.height, numerator) >= target.height)
            return numerator;
    }
    return 8;
}

std::optional<Size> JpegDecoder::readSize(std::span<const std::uint8_t> data) {
    Session session;
    if (!readHeaderInto(session, data))
        return std::nullopt;
    return Size{static_cast<int>(session.cinfo.image_width), static_cast<int>(session.cinfo.image_height)};
}

std::optional<Image> JpegDecoder::decode(std::span<const std::uint8_t> data, const DecodeLimits& limits, Size target) {
    Session session;
    if (!decodeInto(session, data, limits, target)) {
        log::debug(kComponent, std::string("jpeg not decoded: ") + session.errors.message);
        return std::nullopt;
    }
    Image image = session.reducer ? session.reducer->finish() : std::move(*session.full);
    return oriented(std::move(image), session.orientation);
}

} // namespace vexo::graphics

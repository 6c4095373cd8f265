#include "TestImages.h"

#include <cstdio>
#include <cstring>
#include <functional>
#include <stdexcept>

#include <jpeglib.h>
#include <png.h>
#include <zlib.h>

namespace vexo::graphics::test {

namespace {

void appendToBytes(png_structp png, png_bytep data, png_size_t length) {
    auto* out = static_cast<Bytes*>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + length);
}

template <typename FillRows>
Bytes writePng(int width, int height, int bitDepth, int colorType, bool interlaced, FillRows&& fillRows) {
    Bytes out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png)))
        throw std::runtime_error("test PNG could not be written");
    png_set_write_fn(png, &out, appendToBytes, nullptr);
    png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), bitDepth, colorType,
                 interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    fillRows(png, info);
    png_destroy_write_struct(&png, &info);
    return out;
}

} // namespace

Bytes makePng(int width, int height, const PixelFunction& pixel, bool alpha, bool interlaced) {
    int channels = alpha ? 4 : 3;
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(width) * height * channels);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            Rgba8 p = pixel(x, y);
            std::uint8_t* out = &pixels[(static_cast<std::size_t>(y) * width + x) * channels];
            out[0] = p.red;
            out[1] = p.green;
            out[2] = p.blue;
            if (alpha)
                out[3] = p.alpha;
        }
    }
    return writePng(width, height, 8, alpha ? PNG_COLOR_TYPE_RGBA : PNG_COLOR_TYPE_RGB, interlaced,
                    [&](png_structp png, png_infop info) {
                        std::vector<png_bytep> rows(static_cast<std::size_t>(height));
                        for (int y = 0; y < height; ++y)
                            rows[y] = &pixels[static_cast<std::size_t>(y) * width * channels];
                        png_set_rows(png, info, rows.data());
                        png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
                    });
}

Bytes makeGray16Png(int width, int height, std::uint16_t level) {
    std::vector<std::uint8_t> row(static_cast<std::size_t>(width) * 2);
    for (int x = 0; x < width; ++x) {
        row[x * 2] = static_cast<std::uint8_t>(level >> 8);
        row[x * 2 + 1] = static_cast<std::uint8_t>(level & 0xFF);
    }
    return writePng(width, height, 16, PNG_COLOR_TYPE_GRAY, false, [&](png_structp png, png_infop info) {
        std::vector<png_bytep> rows(static_cast<std::size_t>(height), row.data());
        png_set_rows(png, info, rows.data());
        png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    });
}

Bytes makePalettePng(int width, int height, Rgba8 opaque) {
    std::vector<std::uint8_t> row(static_cast<std::size_t>(width));
    for (int x = 0; x < width; ++x)
        row[x] = x < width / 2 ? 0 : 1;
    return writePng(width, height, 8, PNG_COLOR_TYPE_PALETTE, false, [&](png_structp png, png_infop info) {
        png_color palette[2] = {{opaque.red, opaque.green, opaque.blue}, {0, 0, 0}};
        png_set_PLTE(png, info, palette, 2);
        png_byte transparency[2] = {255, 0};
        png_set_tRNS(png, info, transparency, 2, nullptr);
        std::vector<png_bytep> rows(static_cast<std::size_t>(height), row.data());
        png_set_rows(png, info, rows.data());
        png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    });
}

namespace {

// Compresses rows of `components` bytes per pixel that `fillRow` writes for each line.
Bytes compressJpeg(int width, int height, int components, J_COLOR_SPACE colorSpace, int quality, bool progressive,
                   const std::function<void(int y, std::uint8_t* row)>& fillRow) {
    jpeg_compress_struct cinfo{};
    jpeg_error_mgr errors{};
    cinfo.err = jpeg_std_error(&errors);
    jpeg_create_compress(&cinfo);
    unsigned char* buffer = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&cinfo, &buffer, &size);
    cinfo.image_width = static_cast<JDIMENSION>(width);
    cinfo.image_height = static_cast<JDIMENSION>(height);
    cinfo.input_components = components;
    cinfo.in_color_space = colorSpace;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, quality, TRUE);
    if (progressive)
        jpeg_simple_progression(&cinfo);
    jpeg_start_compress(&cinfo, TRUE);
    std::vector<std::uint8_t> row(static_cast<std::size_t>(width) * static_cast<std::size_t>(components));
    while (cinfo.next_scanline < cinfo.image_height) {
        fillRow(static_cast<int>(cinfo.next_scanline), row.data());
        JSAMPROW rowPointer = row.data();
        jpeg_write_scanlines(&cinfo, &rowPointer, 1);
    }
    jpeg_finish_compress(&cinfo);
    Bytes out(buffer, buffer + size);
    std::free(buffer);
    jpeg_destroy_compress(&cinfo);
    return out;
}

} // namespace

Bytes makeJpeg(int width, int height, const PixelFunction& pixel, int quality, bool progressive) {
    return compressJpeg(width, height, 3, JCS_RGB, quality, progressive, [&](int y, std::uint8_t* row) {
        for (int x = 0; x < width; ++x) {
            const Rgba8 p = pixel(x, y);
            row[x * 3] = p.red;
            row[x * 3 + 1] = p.green;
            row[x * 3 + 2] = p.blue;
        }
    });
}

Bytes makeCmykJpeg(int width, int height, const std::uint8_t cmyk[4]) {
    return compressJpeg(width, height, 4, JCS_CMYK, 95, false, [&](int, std::uint8_t* row) {
        for (int x = 0; x < width; ++x)
            std::memcpy(&row[static_cast<std::size_t>(x) * 4], cmyk, 4);
    });
}

Bytes withExifOrientation(const Bytes& jpeg, std::uint16_t orientation, bool bigEndian) {
    Bytes tiff;
    auto u16 = [&](std::uint32_t v) {
        std::uint8_t a = static_cast<std::uint8_t>(v >> 8), b = static_cast<std::uint8_t>(v);
        tiff.insert(tiff.end(),
                    bigEndian ? std::initializer_list<std::uint8_t>{a, b} : std::initializer_list<std::uint8_t>{b, a});
    };
    auto u32 = [&](std::uint32_t v) {
        if (bigEndian) {
            u16(v >> 16);
            u16(v & 0xFFFF);
        } else {
            u16(v & 0xFFFF);
            u16(v >> 16);
        }
    };
    tiff = bigEndian ? Bytes{'M', 'M'} : Bytes{'I', 'I'};
    u16(42);
    u32(8);      // first directory right after the header
    u16(1);      // one entry
    u16(0x0112); // orientation
    u16(3);      // SHORT
    u32(1);      // one value
    u16(orientation);
    u16(0); // padding of the value field
    u32(0); // no next directory
    Bytes segment = {0xFF, 0xE1, 0, 0, 'E', 'x', 'i', 'f', 0, 0};
    segment.insert(segment.end(), tiff.begin(), tiff.end());
    std::size_t length = segment.size() - 2;
    segment[2] = static_cast<std::uint8_t>(length >> 8);
    segment[3] = static_cast<std::uint8_t>(length & 0xFF);
    Bytes out(jpeg.begin(), jpeg.begin() + 2);
    out.insert(out.end(), segment.begin(), segment.end());
    out.insert(out.end(), jpeg.begin() + 2, jpeg.end());
    return out;
}

PixelFunction halves(int width, Rgba8 left, Rgba8 right) {
    return [=](int x, int) { return x < width / 2 ? left : right; };
}

PixelFunction solid(Rgba8 color) {
    return [=](int, int) { return color; };
}

void setPngSize(Bytes& png, std::uint32_t width, std::uint32_t height) {
    auto put = [&](std::size_t at, std::uint32_t value) {
        for (int i = 0; i < 4; ++i)
            png[at + i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
    };
    put(16, width);
    put(20, height);
    // The CRC covers the chunk type and data: bytes 12 to 29.
    put(29, static_cast<std::uint32_t>(crc32(0, png.data() + 12, 17)));
}

void setJpegSize(Bytes& jpeg, std::uint16_t width, std::uint16_t height) {
    for (std::size_t i = 2; i + 9 < jpeg.size(); ++i) {
        if (jpeg[i] == 0xFF && (jpeg[i + 1] == 0xC0 || jpeg[i + 1] == 0xC2)) {
            // FF C0, length (2), precision (1), height (2), width (2).
            jpeg[i + 5] = static_cast<std::uint8_t>(height >> 8);
            jpeg[i + 6] = static_cast<std::uint8_t>(height & 0xFF);
            jpeg[i + 7] = static_cast<std::uint8_t>(width >> 8);
            jpeg[i + 8] = static_cast<std::uint8_t>(width & 0xFF);
            return;
        }
    }
    throw std::runtime_error("no frame header in test JPEG");
}

} // namespace vexo::graphics::test

// Round artwork against its floor: the screens' 92-point badge made from a 3000 x 3000 JPEG
// and from a 1000 x 1000 PNG, each timed in the same iteration as a bare library decode of
// the same file (libjpeg-turbo at the same DCT scale, libpng at full size). The counter
// "ratio" is ours / floor; the goal is at most 1.2.
//
//   bench_images                       run the benchmarks
//   bench_images --write-inputs DIR    write the two generated pictures (for the
//                                      ImageMagick comparison in images-vs-imagemagick.sh)

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <jpeglib.h>
#include <png.h>

#include "platform/graphics/ImageDecoder.h"
#include "platform/graphics/JpegDecoder.h"
#include "platform/graphics/RoundArtworkRenderer.h"
#include "platform/graphics/TestImages.h"

namespace {

using namespace vexo::graphics;
using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;

// A photo-like field: smooth colour gradients with grain, so neither codec has it easy.
std::vector<std::uint8_t> noisyRgb(int width, int height) {
    std::vector<std::uint8_t> rgb(static_cast<std::size_t>(width) * height * 3);
    std::mt19937 random(42);
    std::uniform_int_distribution<int> grain(-24, 24);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            std::uint8_t* p = &rgb[(static_cast<std::size_t>(y) * width + x) * 3];
            int base[3] = {x * 255 / width, y * 255 / height, 255 - (x + y) * 255 / (width + height)};
            for (int c = 0; c < 3; ++c)
                p[c] = static_cast<std::uint8_t>(std::clamp(base[c] + grain(random), 0, 255));
        }
    }
    return rgb;
}

// The same field as a pixel function for the test images' encoders.
test::PixelFunction noisyField(int width, int height) {
    auto rgb = std::make_shared<std::vector<std::uint8_t>>(noisyRgb(width, height));
    return [rgb, width](int x, int y) {
        const std::uint8_t* p = &(*rgb)[(static_cast<std::size_t>(y) * width + x) * 3];
        return Rgba8{p[0], p[1], p[2], 255};
    };
}

Bytes encodeJpeg(int width, int height) {
    return test::makeJpeg(width, height, noisyField(width, height), 90);
}

Bytes encodePng(int width, int height) {
    return test::makePng(width, height, noisyField(width, height), /*alpha=*/false);
}

const Bytes& jpegInput() {
    static const Bytes data = encodeJpeg(3000, 3000);
    return data;
}

const Bytes& pngInput() {
    static const Bytes data = encodePng(1000, 1000);
    return data;
}

// The floor: libjpeg-turbo's plain decode to RGB at the scale our decoder picks.
std::size_t bareJpegDecode(const Bytes& data, unsigned scaleNumerator) {
    jpeg_decompress_struct cinfo{};
    jpeg_error_mgr errors{};
    cinfo.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, data.data(), static_cast<unsigned long>(data.size()));
    jpeg_read_header(&cinfo, TRUE);
    cinfo.scale_num = scaleNumerator;
    cinfo.scale_denom = 8;
    jpeg_start_decompress(&cinfo);
    std::vector<std::uint8_t> row(static_cast<std::size_t>(cinfo.output_width) * cinfo.output_components);
    std::size_t checksum = 0;
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW rowPointer = row.data();
        jpeg_read_scanlines(&cinfo, &rowPointer, 1);
        checksum += row[0];
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return checksum;
}

struct PngReader {
    const Bytes* data;
    std::size_t position = 0;
};

void readPng(png_structp png, png_bytep out, png_size_t length) {
    auto* reader = static_cast<PngReader*>(png_get_io_ptr(png));
    std::memcpy(out, reader->data->data() + reader->position, length);
    reader->position += length;
}

// The floor: libpng's plain row-by-row decode, no transformations.
std::size_t barePngDecode(const Bytes& data) {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    PngReader reader{&data};
    png_set_read_fn(png, &reader, readPng);
    png_read_info(png, info);
    std::vector<std::uint8_t> row(png_get_rowbytes(png, info));
    std::size_t checksum = 0;
    for (png_uint_32 y = 0; y < png_get_image_height(png, info); ++y) {
        png_read_row(png, row.data(), nullptr);
        checksum += row[0];
    }
    png_destroy_read_struct(&png, &info, nullptr);
    return checksum;
}

double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Each iteration times our full path (a cold renderer: hash, decode, draw, encode) and the
// floor back to back, so that both see the same machine state.
template <typename Floor> void compareWithFloor(benchmark::State& state, const Bytes& input, Floor&& floor) {
    double ours = 0, bare = 0;
    for (auto _ : state) {
        Clock::time_point start = Clock::now();
        RoundArtworkRenderer renderer;
        auto png = renderer.render(input, RoundArtworkStyle::deckPage());
        benchmark::DoNotOptimize(png);
        ours += millisecondsSince(start);
        if (!png)
            state.SkipWithError("round artwork failed");

        start = Clock::now();
        benchmark::DoNotOptimize(floor());
        bare += millisecondsSince(start);
    }
    double n = static_cast<double>(state.iterations());
    state.counters["ours_ms"] = ours / n;
    state.counters["floor_ms"] = bare / n;
    state.counters["ratio"] = ours / bare;
    state.counters["input_MB"] = static_cast<double>(input.size()) / 1e6;
}

void BM_RoundArtwork92_Jpeg3000(benchmark::State& state) {
    const Bytes& input = jpegInput();
    unsigned numerator = static_cast<unsigned>(JpegDecoder::scaleNumeratorFor({3000, 3000}, {92, 92}));
    compareWithFloor(state, input, [&] { return bareJpegDecode(input, numerator); });
}
BENCHMARK(BM_RoundArtwork92_Jpeg3000)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_RoundArtwork92_Png1000(benchmark::State& state) {
    const Bytes& input = pngInput();
    compareWithFloor(state, input, [&] { return barePngDecode(input); });
}
BENCHMARK(BM_RoundArtwork92_Png1000)->Unit(benchmark::kMillisecond)->UseRealTime();

// A repaint of artwork already drawn: only the hash of the bytes and a copy of the PNG.
void BM_RoundArtwork92_CachedJpeg3000(benchmark::State& state) {
    const Bytes& input = jpegInput();
    RoundArtworkRenderer renderer;
    (void)renderer.render(input, RoundArtworkStyle::deckPage());
    for (auto _ : state)
        benchmark::DoNotOptimize(renderer.render(input, RoundArtworkStyle::deckPage()));
}
BENCHMARK(BM_RoundArtwork92_CachedJpeg3000)->Unit(benchmark::kMicrosecond);

bool writeInputs(const std::filesystem::path& directory) {
    std::filesystem::create_directories(directory);
    for (auto [name, data] : {std::pair{"input-3000.jpg", &jpegInput()}, std::pair{"input-1000.png", &pngInput()}}) {
        std::ofstream out(directory / name, std::ios::binary);
        out.write(reinterpret_cast<const char*>(data->data()), static_cast<std::streamsize>(data->size()));
        if (!out)
            return false;
    }
    return true;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "--write-inputs") == 0)
        return writeInputs(argv[2]) ? 0 : 1;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

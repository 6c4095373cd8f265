// Decoding throughput of the program's decoder (read to the end, 48 kHz stereo float out)
// against a bare decode of the same file with the same library: libavformat and libavcodec
// decoding every packet, libswresample converting to the same format, the samples thrown
// away. Best of three runs each; seconds of audio per second and the ratio of the times.
// Goal: at most 1.2.
//
//   bench_audio_decode [--seconds S]     (length of each generated song, default 180)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/audio/AudioFixture.h"
#include "platform/audio/Decoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
}

namespace {

constexpr int kRate = 48000;

double secondsOf(const auto& work) {
    double best = 1e9;
    for (int run = 0; run < 3; ++run) {
        const auto start = std::chrono::steady_clock::now();
        work();
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

std::size_t ours(const std::filesystem::path& path) {
    const auto decoder = vexo::audio::Decoder::open(path, kRate).valueOr(nullptr);
    if (!decoder)
        return 0;
    std::vector<float> buffer(16384 * 2);
    std::size_t frames = 0;
    while (const std::size_t got = decoder->read(buffer.data(), 16384))
        frames += got;
    return frames;
}

std::size_t bare(const std::filesystem::path& path) {
    AVFormatContext* format = nullptr;
    avformat_open_input(&format, path.c_str(), nullptr, nullptr);
    avformat_find_stream_info(format, nullptr);
    const AVCodec* codec = nullptr;
    const int stream = av_find_best_stream(format, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    AVCodecContext* context = avcodec_alloc_context3(codec);
    avcodec_parameters_to_context(context, format->streams[stream]->codecpar);
    avcodec_open2(context, codec, nullptr);
    SwrContext* resampler = nullptr;
    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    swr_alloc_set_opts2(&resampler, &stereo, AV_SAMPLE_FMT_FLT, kRate, &context->ch_layout, context->sample_fmt,
                        context->sample_rate, 0, nullptr);
    swr_init(resampler);
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    std::vector<float> out(65536 * 2);
    std::size_t frames = 0;
    const auto drain = [&] {
        while (avcodec_receive_frame(context, frame) == 0) {
            auto* target = reinterpret_cast<std::uint8_t*>(out.data());
            const int made = swr_convert(resampler, &target, 65536,
                                         const_cast<const std::uint8_t**>(frame->extended_data), frame->nb_samples);
            frames += static_cast<std::size_t>(std::max(made, 0));
        }
    };
    while (av_read_frame(format, packet) >= 0) {
        if (packet->stream_index == stream && avcodec_send_packet(context, packet) >= 0)
            drain();
        av_packet_unref(packet);
    }
    avcodec_send_packet(context, nullptr);
    drain();
    av_frame_free(&frame);
    av_packet_free(&packet);
    swr_free(&resampler);
    avcodec_free_context(&context);
    avformat_close_input(&format);
    return frames;
}

} // namespace

int main(int argc, char** argv) {
    double seconds = 180;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--seconds" && i + 1 < argc) {
            seconds = std::max(1.0, std::atof(argv[++i]));
        } else {
            std::fprintf(stderr, "usage: bench_audio_decode [--seconds S]\n");
            return argument == "--help" || argument == "-h" ? 0 : 2;
        }
    }
    char pattern[] = "/tmp/vexo-bench-decode-XXXXXX";
    if (::mkdtemp(pattern) == nullptr)
        return 1;
    const std::filesystem::path folder = pattern;
    std::printf("decoding %.0f s songs to 48 kHz stereo float, best of 3:\n", seconds);
    for (const auto& [name, rate] :
         {std::pair{"song.flac", 44100}, {"song.mp3", 44100}, {"song.wav", 48000}, {"song.m4a", 48000}}) {
        const auto path = folder / name;
        if (auto written = vexo::audio::testing::writeToneFile(path, {rate, seconds, 440, 0.5, 124}); !written) {
            std::printf("  %-10s skipped: %s\n", name, written.error().message().c_str());
            continue;
        }
        std::size_t oursFrames = 0, bareFrames = 0;
        const double oursTime = secondsOf([&] { oursFrames = ours(path); });
        const double bareTime = secondsOf([&] { bareFrames = bare(path); });
        std::printf("  %-10s ours %7.0fx real time (%zu frames)   bare %7.0fx (%zu frames)   ratio %.2f\n", name,
                    seconds / oursTime, oursFrames, seconds / bareTime, bareFrames, oursTime / bareTime);
    }
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    return 0;
}

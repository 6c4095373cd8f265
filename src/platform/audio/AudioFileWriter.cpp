#include "platform/audio/AudioFileWriter.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libswresample/swresample.h>
}

#include "platform/audio/AudioFormat.h"
#include "platform/audio/FFmpegSupport.h"

namespace vexo::audio {
namespace {

struct Kind {
    std::string_view extension;
    const char* muxer;
    AVCodecID codec;
    // An encoder to prefer by name (the native Vorbis encoder is experimental); else any.
    const char* encoder;
    // 24 for FLAC, 0 for the encoder's default.
    int bits;
};

constexpr std::array<Kind, 8> kKinds{{
    {".wav", "wav", AV_CODEC_ID_PCM_S16LE, nullptr, 0},
    {".flac", "flac", AV_CODEC_ID_FLAC, nullptr, 24},
    {".aif", "aiff", AV_CODEC_ID_PCM_S16BE, nullptr, 0},
    {".aiff", "aiff", AV_CODEC_ID_PCM_S16BE, nullptr, 0},
    {".mp3", "mp3", AV_CODEC_ID_MP3, "libmp3lame", 0},
    {".m4a", "ipod", AV_CODEC_ID_AAC, "aac", 0},
    {".ogg", "ogg", AV_CODEC_ID_VORBIS, "libvorbis", 0},
    {".opus", "opus", AV_CODEC_ID_OPUS, "libopus", 0},
}};

const Kind* kindOf(const std::filesystem::path& path) {
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const Kind& kind : kKinds)
        if (kind.extension == extension)
            return &kind;
    return nullptr;
}

// The encoder's sample format: planar float for the lossy codecs, else what it takes first.
AVSampleFormat sampleFormatFor(const AVCodec& encoder, int bits) {
    const AVSampleFormat* formats = encoder.sample_fmts;
    if (formats == nullptr)
        return AV_SAMPLE_FMT_FLTP;
    for (const AVSampleFormat* format = formats; *format != AV_SAMPLE_FMT_NONE; ++format)
        if ((bits == 24 && *format == AV_SAMPLE_FMT_S32) || (bits == 0 && *format == AV_SAMPLE_FMT_FLTP))
            return *format;
    return formats[0];
}

// The rate nearest to `wanted` that the encoder takes (Opus takes 48 kHz and a few below).
int sampleRateFor(const AVCodec& encoder, int wanted) {
    const int* rates = encoder.supported_samplerates;
    if (rates == nullptr)
        return wanted;
    int best = rates[0];
    for (const int* rate = rates; *rate != 0; ++rate) {
        if (*rate == wanted)
            return wanted;
        if (*rate >= wanted && (best < wanted || *rate < best))
            best = *rate;
    }
    return best;
}

} // namespace

struct AudioFileWriter::State {
    ~State() {
        av_audio_fifo_free(fifo);
        av_frame_free(&frame);
        av_packet_free(&packet);
        swr_free(&resampler);
        avcodec_free_context(&codec);
        if (format != nullptr) {
            if (format->pb != nullptr)
                avio_closep(&format->pb);
            avformat_free_context(format);
        }
    }

    std::filesystem::path path;
    AVFormatContext* format = nullptr;
    AVStream* stream = nullptr;
    AVCodecContext* codec = nullptr;
    SwrContext* resampler = nullptr;
    AVAudioFifo* fifo = nullptr;
    AVFrame* frame = nullptr;
    AVPacket* packet = nullptr;
    int frameSize = 1024;
    std::int64_t nextPts = 0;
    bool finished = false;

    // Ends the file where it is; nothing more is taken.
    Error fail(Error error) {
        finished = true;
        if (format != nullptr && format->pb != nullptr)
            avio_closep(&format->pb);
        return error;
    }
    Error fail(std::string message) { return fail(Error(ErrorKind::SystemFailure, std::move(message))); }
    Error fail(int code, const std::string& message) { return fail(ffmpegError(code, message)); }

    // Sends `input` (null: the end) to the encoder and writes every packet it gives back.
    Expected<void> encode(AVFrame* input) {
        if (const int sent = avcodec_send_frame(codec, input); sent < 0 && sent != AVERROR_EOF)
            return fail(sent, "cannot encode " + path.string());
        for (;;) {
            const int received = avcodec_receive_packet(codec, packet);
            if (received == AVERROR(EAGAIN) || received == AVERROR_EOF)
                break;
            if (received < 0)
                return fail(received, "cannot encode " + path.string());
            av_packet_rescale_ts(packet, codec->time_base, stream->time_base);
            packet->stream_index = stream->index;
            const int written = av_interleaved_write_frame(format, packet);
            if (written < 0)
                return fail(written, "cannot write " + path.string());
        }
        if (format->pb != nullptr && format->pb->error < 0)
            return fail(format->pb->error, "cannot write " + path.string());
        return {};
    }

    // Encodes whole frames from the queue; with `all`, the last short one too.
    Expected<void> drain(bool all) {
        while (av_audio_fifo_size(fifo) >= frameSize || (all && av_audio_fifo_size(fifo) > 0)) {
            const int count = std::min(frameSize, av_audio_fifo_size(fifo));
            av_frame_unref(frame);
            frame->nb_samples = count;
            frame->format = codec->sample_fmt;
            frame->sample_rate = codec->sample_rate;
            av_channel_layout_copy(&frame->ch_layout, &codec->ch_layout);
            if (av_frame_get_buffer(frame, 0) < 0)
                return fail("out of memory writing " + path.string());
            av_audio_fifo_read(fifo, reinterpret_cast<void**>(frame->extended_data), count);
            frame->pts = nextPts;
            nextPts += count;
            if (auto encoded = encode(frame); !encoded)
                return encoded;
        }
        return {};
    }

    // Converts `frames` interleaved float frames (null: what the resampler still holds) into
    // the queue.
    Expected<void> queue(const float* interleaved, std::size_t frames) {
        const int room = swr_get_out_samples(resampler, static_cast<int>(frames));
        if (room <= 0)
            return {};
        if (av_audio_fifo_realloc(fifo, av_audio_fifo_size(fifo) + room) < 0)
            return fail("out of memory writing " + path.string());
        std::uint8_t** out = nullptr;
        int lineSize = 0;
        if (av_samples_alloc_array_and_samples(&out, &lineSize, kChannels, room, codec->sample_fmt, 0) < 0)
            return fail("out of memory writing " + path.string());
        const auto* in = reinterpret_cast<const std::uint8_t*>(interleaved);
        const int made =
            swr_convert(resampler, out, room, interleaved != nullptr ? &in : nullptr, static_cast<int>(frames));
        if (made > 0)
            av_audio_fifo_write(fifo, reinterpret_cast<void**>(out), made);
        av_freep(&out[0]);
        av_freep(&out);
        if (made < 0)
            return fail("cannot convert the audio for " + path.string());
        return {};
    }
};

AudioFileWriter::AudioFileWriter(std::unique_ptr<State> state)
    : m_state(std::move(state)) {}

AudioFileWriter::~AudioFileWriter() {
    (void)finish();
}

bool AudioFileWriter::supportsExtension(const std::filesystem::path& path) {
    return kindOf(path) != nullptr;
}

Expected<std::unique_ptr<AudioFileWriter>> AudioFileWriter::create(const std::filesystem::path& path, int sampleRate) {
    const auto fail = [](std::string message, ErrorKind kind = ErrorKind::SystemFailure) {
        return Error(kind, std::move(message));
    };
    quietFFmpeg();
    const Kind* kind = kindOf(path);
    if (kind == nullptr)
        return fail("cannot write " + path.string() +
                        ": the file name must end in .wav, .flac, .aif, .aiff, .mp3, .m4a, .ogg or .opus",
                    ErrorKind::Unsupported);
    if (sampleRate <= 0)
        return fail("no sample rate to write " + path.string() + " at", ErrorKind::InvalidData);
    const AVCodec* encoder = kind->encoder != nullptr ? avcodec_find_encoder_by_name(kind->encoder) : nullptr;
    if (encoder == nullptr)
        encoder = avcodec_find_encoder(kind->codec);
    if (encoder == nullptr)
        return fail("cannot write " + path.string() + ": this machine's FFmpeg has no encoder for it",
                    ErrorKind::Unsupported);

    auto state = std::make_unique<State>();
    state->path = path;
    if (avformat_alloc_output_context2(&state->format, nullptr, kind->muxer, path.c_str()) < 0 ||
        state->format == nullptr)
        return fail("cannot write " + path.string() + ": this machine's FFmpeg cannot make such files",
                    ErrorKind::Unsupported);
    state->stream = avformat_new_stream(state->format, nullptr);
    state->codec = avcodec_alloc_context3(encoder);
    state->frame = av_frame_alloc();
    state->packet = av_packet_alloc();
    if (state->stream == nullptr || state->codec == nullptr || state->frame == nullptr || state->packet == nullptr)
        return fail("out of memory writing " + path.string());

    AVCodecContext& codec = *state->codec;
    codec.sample_fmt = sampleFormatFor(*encoder, kind->bits);
    codec.sample_rate = sampleRateFor(*encoder, sampleRate);
    codec.ch_layout = AV_CHANNEL_LAYOUT_STEREO;
    codec.time_base = AVRational{1, codec.sample_rate};
    if (kind->bits != 0)
        codec.bits_per_raw_sample = kind->bits;
    if (kind->codec == AV_CODEC_ID_MP3 || kind->codec == AV_CODEC_ID_AAC || kind->codec == AV_CODEC_ID_VORBIS ||
        kind->codec == AV_CODEC_ID_OPUS)
        codec.bit_rate = 192000;
    if (state->format->oformat->flags & AVFMT_GLOBALHEADER)
        codec.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (const int opened = avcodec_open2(&codec, encoder, nullptr); opened < 0)
        return ffmpegError(opened, "cannot write " + path.string());
    avcodec_parameters_from_context(state->stream->codecpar, &codec);
    state->stream->time_base = codec.time_base;
    state->frameSize =
        (encoder->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE) || codec.frame_size <= 0 ? 4096 : codec.frame_size;

    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    if (swr_alloc_set_opts2(&state->resampler, &codec.ch_layout, codec.sample_fmt, codec.sample_rate, &stereo,
                            AV_SAMPLE_FMT_FLT, sampleRate, 0, nullptr) < 0 ||
        swr_init(state->resampler) < 0)
        return fail("cannot convert the audio for " + path.string());
    state->fifo = av_audio_fifo_alloc(codec.sample_fmt, kChannels, state->frameSize * 2);
    if (state->fifo == nullptr)
        return fail("out of memory writing " + path.string());

    if (const int opened = avio_open(&state->format->pb, path.c_str(), AVIO_FLAG_WRITE); opened < 0)
        return ffmpegError(opened, "cannot create " + path.string());
    if (const int written = avformat_write_header(state->format, nullptr); written < 0)
        return ffmpegError(written, "cannot write " + path.string());
    return std::unique_ptr<AudioFileWriter>(new AudioFileWriter(std::move(state)));
}

Expected<void> AudioFileWriter::write(const float* interleaved, std::size_t frames) {
    State& state = *m_state;
    if (state.finished)
        return Error(ErrorKind::InvalidData, "cannot write " + state.path.string() + ": it is finished");
    if (auto queued = state.queue(interleaved, frames); !queued)
        return queued;
    return state.drain(false);
}

Expected<void> AudioFileWriter::finish() {
    State& state = *m_state;
    if (state.finished)
        return {};
    // What the resampler holds, then the last short frame, then what the encoder holds.
    if (auto queued = state.queue(nullptr, 0); !queued)
        return queued;
    if (auto drained = state.drain(true); !drained)
        return drained;
    if (auto flushed = state.encode(nullptr); !flushed)
        return flushed;
    state.finished = true;
    const int trailer = av_write_trailer(state.format);
    const int flushed = state.format->pb != nullptr ? state.format->pb->error : 0;
    const int closed = avio_closep(&state.format->pb);
    const int failure = trailer < 0 ? trailer : (flushed < 0 ? flushed : closed);
    if (failure < 0)
        return ffmpegError(failure, "cannot write " + state.path.string());
    return {};
}

} // namespace vexo::audio

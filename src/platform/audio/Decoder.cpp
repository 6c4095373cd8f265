#include "platform/audio/Decoder.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <system_error>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include "platform/audio/AudioFormat.h"
#include "platform/audio/FFmpegSupport.h"

namespace vexo::audio {
namespace {

// Bad packets in a row after which a file counts as undecodable from there on.
constexpr int kMaximumBadPackets = 16;
// A seek starts decoding this far (in seconds) before the frame asked for: lossy decoders
// (MP3's bit reservoir, AAC's and Opus's overlapping windows) need some frames before they
// give the right samples, and the resampler needs its filter filled.
constexpr double kSeekPrerollSeconds = 0.2;

} // namespace

struct Decoder::State {
    ~State() {
        av_packet_free(&packet);
        av_frame_free(&frame);
        swr_free(&resampler);
        av_channel_layout_uninit(&inputLayout);
        avcodec_free_context(&codec);
        avformat_close_input(&format);
    }

    std::filesystem::path path;
    int sampleRate = kDefaultSampleRate;
    AVFormatContext* format = nullptr;
    AVCodecContext* codec = nullptr;
    SwrContext* resampler = nullptr;
    AVPacket* packet = nullptr;
    AVFrame* frame = nullptr;
    int stream = -1;
    // The input the resampler was set up for.
    int inputRate = 0;
    int inputFormat = -1;
    AVChannelLayout inputLayout{};

    // Converted frames not handed out yet, from `pendingOffset` on.
    std::vector<float> pending;
    std::size_t pendingOffset = 0;
    // The frame (at sampleRate) that the next frame handed out is.
    std::int64_t position = 0;
    // Frames still to drop after a seek, to land on the frame asked for.
    std::int64_t skip = 0;
    // After a seek, the next decoded frame tells where it is; until then `position` is unknown.
    bool locating = false;
    bool draining = false;
    bool ended = false;
    std::optional<Error> error;

    [[nodiscard]] std::size_t pendingFrames() const { return (pending.size() - pendingOffset) / kChannels; }

    bool configureResampler(const AVFrame& input) {
        swr_free(&resampler);
        AVChannelLayout out = AV_CHANNEL_LAYOUT_STEREO;
        AVChannelLayout in{};
        av_channel_layout_copy(&in, &input.ch_layout);
        const int made = swr_alloc_set_opts2(&resampler, &out, AV_SAMPLE_FMT_FLT, sampleRate, &in,
                                             static_cast<AVSampleFormat>(input.format), input.sample_rate, 0, nullptr);
        av_channel_layout_uninit(&in);
        if (made < 0)
            return false;
        // A mono song plays at full level on both sides, not 3 dB down as a centre channel.
        if (input.ch_layout.nb_channels == 1)
            av_opt_set_double(resampler, "center_mix_level", 1.0, 0);
        if (swr_init(resampler) < 0)
            return false;
        inputRate = input.sample_rate;
        inputFormat = input.format;
        av_channel_layout_uninit(&inputLayout);
        av_channel_layout_copy(&inputLayout, &input.ch_layout);
        return true;
    }

    // Appends what the resampler gives for `input` (nothing: what it still holds).
    void convert(const AVFrame* input) {
        const int inputFrames = input != nullptr ? input->nb_samples : 0;
        const int room = swr_get_out_samples(resampler, inputFrames);
        if (room <= 0)
            return;
        const std::size_t start = pending.size();
        pending.resize(start + static_cast<std::size_t>(room) * kChannels);
        auto* out = reinterpret_cast<std::uint8_t*>(pending.data() + start);
        const int made = swr_convert(
            resampler, &out, room, input != nullptr ? const_cast<const std::uint8_t**>(input->extended_data) : nullptr,
            inputFrames);
        pending.resize(start + static_cast<std::size_t>(std::max(made, 0)) * kChannels);
    }

    // Converts the frame just decoded, placing it after a seek.
    void take(AVFrame& decoded) {
        if (resampler == nullptr || decoded.sample_rate != inputRate || decoded.format != inputFormat ||
            av_channel_layout_compare(&decoded.ch_layout, &inputLayout) != 0) {
            if (!configureResampler(decoded)) {
                error = Error(ErrorKind::Unsupported, "cannot convert the audio of " + path.string());
                ended = true;
                return;
            }
        }
        if (locating) {
            locating = false;
            const AVStream* audio = format->streams[stream];
            const std::int64_t pts = decoded.best_effort_timestamp;
            std::int64_t at = 0;
            if (pts != AV_NOPTS_VALUE) {
                const std::int64_t start = audio->start_time != AV_NOPTS_VALUE ? audio->start_time : 0;
                at = av_rescale_q(pts - start, audio->time_base, AVRational{1, sampleRate});
            }
            // `position` holds the frame asked for until here.
            skip = std::max<std::int64_t>(0, position - at);
        }
        convert(&decoded);
    }

    // Decodes until some converted frames are pending, or the end. False at the end.
    bool decodeMore() {
        for (;;) {
            decodePacketsUntilPending();
            // Frames before the one a seek asked for are dropped here.
            const std::size_t dropped = std::min<std::size_t>(static_cast<std::size_t>(skip), pendingFrames());
            pendingOffset += dropped * kChannels;
            skip -= static_cast<std::int64_t>(dropped);
            if (pendingFrames() > 0)
                return true;
            pending.clear();
            pendingOffset = 0;
            if (ended)
                return false;
        }
    }

    void decodePacketsUntilPending() {
        int badPackets = 0;
        while (pendingFrames() == 0 && !ended) {
            const int received = avcodec_receive_frame(codec, frame);
            if (received == 0) {
                take(*frame);
                av_frame_unref(frame);
                continue;
            }
            if (received == AVERROR_EOF) {
                if (resampler != nullptr)
                    convert(nullptr);
                ended = true;
                break;
            }
            if (received != AVERROR(EAGAIN)) {
                error = Error(ErrorKind::InvalidData, "cannot decode " + path.string() + ": " + errorText(received));
                ended = true;
                break;
            }
            if (draining) {
                ended = true;
                break;
            }
            const int read = av_read_frame(format, packet);
            if (read < 0) {
                if (read != AVERROR_EOF)
                    error = ffmpegError(read, "cannot read " + path.string());
                draining = true;
                avcodec_send_packet(codec, nullptr);
                continue;
            }
            if (packet->stream_index == stream) {
                const int sent = avcodec_send_packet(codec, packet);
                if (sent < 0 && sent != AVERROR(EAGAIN)) {
                    // A damaged packet is skipped; a run of them ends the song there.
                    if (++badPackets >= kMaximumBadPackets) {
                        error =
                            Error(ErrorKind::InvalidData, "cannot decode " + path.string() + ": " + errorText(sent));
                        draining = true;
                        avcodec_send_packet(codec, nullptr);
                    }
                } else {
                    badPackets = 0;
                }
            }
            av_packet_unref(packet);
        }
    }
};

Decoder::Decoder(std::unique_ptr<State> state)
    : m_state(std::move(state)) {}

Decoder::~Decoder() = default;

Expected<std::unique_ptr<Decoder>> Decoder::open(const std::filesystem::path& path, int sampleRate) {
    const auto fail = [](std::string message, ErrorKind kind = ErrorKind::InvalidData) {
        return Error(kind, std::move(message));
    };
    quietFFmpeg();
    std::error_code code;
    if (!std::filesystem::exists(path, code))
        return fail("no such file: " + path.string(), ErrorKind::NotFound);
    if (std::filesystem::is_directory(path, code))
        return fail(path.string() + " is a folder, not a song");
    if (sampleRate < 0)
        return fail("no sample rate to decode to");

    auto state = std::make_unique<State>();
    state->path = path;
    state->sampleRate = sampleRate;
    if (const int opened = avformat_open_input(&state->format, path.c_str(), nullptr, nullptr); opened < 0)
        return fail("not an audio file this program can read: " + path.string() + " (" + errorText(opened) + ")");
    if (avformat_find_stream_info(state->format, nullptr) < 0)
        return fail("not an audio file this program can read: " + path.string());
    const AVCodec* decoder = nullptr;
    state->stream = av_find_best_stream(state->format, AVMEDIA_TYPE_AUDIO, -1, -1, &decoder, 0);
    if (state->stream < 0)
        return fail("no audio in " + path.string());
    if (decoder == nullptr)
        return fail("no decoder for the audio in " + path.string(), ErrorKind::Unsupported);
    state->codec = avcodec_alloc_context3(decoder);
    state->packet = av_packet_alloc();
    state->frame = av_frame_alloc();
    if (state->codec == nullptr || state->packet == nullptr || state->frame == nullptr)
        return fail("out of memory opening " + path.string(), ErrorKind::SystemFailure);
    if (avcodec_parameters_to_context(state->codec, state->format->streams[state->stream]->codecpar) < 0 ||
        avcodec_open2(state->codec, decoder, nullptr) < 0)
        return fail("cannot decode the audio in " + path.string());
    if (sampleRate == kSourceSampleRate) {
        if (state->codec->sample_rate <= 0)
            return fail("no sample rate in " + path.string());
        state->sampleRate = state->codec->sample_rate;
    }
    // Only the audio stream is read; cover art and other streams are skipped by the demuxer.
    for (unsigned index = 0; index < state->format->nb_streams; ++index)
        if (static_cast<int>(index) != state->stream)
            state->format->streams[index]->discard = AVDISCARD_ALL;

    if (!state->decodeMore())
        return fail("cannot decode " + path.string() +
                    (state->error ? ": " + state->error->message() : std::string(": no audio frames")));
    state->error.reset();
    return std::unique_ptr<Decoder>(new Decoder(std::move(state)));
}

int Decoder::sampleRate() const {
    return m_state->sampleRate;
}

std::int64_t Decoder::estimatedFrames() const {
    const AVStream* audio = m_state->format->streams[m_state->stream];
    if (audio->duration != AV_NOPTS_VALUE && audio->duration > 0)
        return av_rescale_q(audio->duration, audio->time_base, AVRational{1, m_state->sampleRate});
    if (m_state->format->duration != AV_NOPTS_VALUE && m_state->format->duration > 0)
        return av_rescale_q(m_state->format->duration, AVRational{1, AV_TIME_BASE}, AVRational{1, m_state->sampleRate});
    return 0;
}

std::size_t Decoder::read(float* out, std::size_t capacity) {
    State& state = *m_state;
    std::size_t written = 0;
    while (written < capacity) {
        if (state.pendingFrames() == 0) {
            state.pending.clear();
            state.pendingOffset = 0;
            if (!state.decodeMore())
                break;
        }
        const std::size_t count = std::min(capacity - written, state.pendingFrames());
        std::memcpy(out + written * kChannels, state.pending.data() + state.pendingOffset,
                    count * kChannels * sizeof(float));
        state.pendingOffset += count * kChannels;
        written += count;
    }
    state.position += static_cast<std::int64_t>(written);
    return written;
}

Expected<void> Decoder::seek(std::int64_t frame) {
    State& state = *m_state;
    frame = std::max<std::int64_t>(0, frame);
    const AVStream* audio = state.format->streams[state.stream];
    const std::int64_t start = audio->start_time != AV_NOPTS_VALUE ? audio->start_time : 0;
    const std::int64_t preroll = static_cast<std::int64_t>(kSeekPrerollSeconds * state.sampleRate);
    const std::int64_t timestamp = start + av_rescale_q(std::max<std::int64_t>(0, frame - preroll),
                                                        AVRational{1, state.sampleRate}, audio->time_base);
    if (const int sought = av_seek_frame(state.format, state.stream, timestamp, AVSEEK_FLAG_BACKWARD); sought < 0) {
        state.error = Error(ErrorKind::InvalidData, "cannot seek in " + state.path.string() + ": " + errorText(sought));
        return *state.error;
    }
    avcodec_flush_buffers(state.codec);
    // A fresh resampler: what the old one held belongs to the place left.
    swr_free(&state.resampler);
    state.inputRate = 0;
    state.pending.clear();
    state.pendingOffset = 0;
    state.position = frame;
    state.skip = 0;
    // From the very start, decoding goes as it did when the file was opened (lossy formats drop
    // their encoder's priming there), so only the frames before `frame` are dropped.
    state.locating = frame - preroll > 0;
    if (!state.locating)
        state.skip = frame;
    state.draining = false;
    state.ended = false;
    state.error.reset();
    // The first decoded frame tells where the seek landed; frames before `frame` are dropped.
    state.decodeMore();
    return {};
}

const std::optional<Error>& Decoder::error() const {
    return m_state->error;
}

} // namespace vexo::audio

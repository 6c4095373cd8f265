// The audio engine as vexo-phone runs it, on a null output paced in real time, with a watch
// polling it through the phone's socket:
//
// 1. The audio callback's compute time per buffer, as a share of the buffer period (p50, p99,
//    p99.9, max), with both decks playing, keylock on one at +6 % (sync to a song tagged 113
//    BPM from one tagged 120), Reverb and the low-pass filter on the other, and the mix
//    recorded to FLAC. Goal: p99.9 at most 25 % of the period.
// 2. Xruns of the null output over the run (a buffer rendered after its deadline). Goal: 0.
// 3. From an action datagram sent to the phone's socket (deck action 10, the loop on and off)
//    to the end of the first output buffer that carries its change, p50 and p99, against the
//    floor measured in the same run, interleaved with it: a bare datagram between two sockets
//    to a thread blocked in recv. Goal: p99 within one buffer period plus the floor's p99.
//
//   bench_audio_engine [--seconds S | --minutes M] [--buffer-frames N] [--sample-rate HZ]
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include "audio/AudioEngine.h"
#include "phone/Catalog.h"
#include "phone/Engine.h"
#include "phone/PhoneLink.h"
#include "phone/SoundLink.h"
#include "platform/audio/AudioFixture.h"
#include "platform/audio/NullOutput.h"
#include "platform/audio/Recorder.h"
#include "platform/ipc/Container.h"
#include "platform/ipc/SocketParentApplication.h"
#include "platform/log/Log.h"
#include "platform/media/FileURL.h"
#include "platform/runtime/AsioRunLoop.h"
#include "platform/runtime/Timer.h"

using namespace vexo;

namespace {

constexpr const char* kGroup = "group.bench.audio";

double monotonicSeconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

double percentile(std::vector<double> values, double p) {
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, static_cast<std::size_t>(p * static_cast<double>(values.size())))];
}

plist::Value deckAction(std::int64_t deck, std::int64_t code, plist::Value params = {}) {
    plist::Dictionary contents{{"turntable", plist::Value(deck)}, {"action", plist::Value(code)}};
    if (!params.isNull())
        contents.emplace("params", std::move(params));
    return plist::Value(plist::Dictionary{{"identifier", plist::Value("turntableAction")},
                                          {"contents", plist::Value(std::move(contents))}});
}

plist::Value mixerAction(std::int64_t code) {
    return plist::Value(
        plist::Dictionary{{"identifier", plist::Value("mixerAction")},
                          {"contents", plist::Value(plist::Dictionary{{"action", plist::Value(code)}})}});
}

// Two songs of a few minutes: a chord of tones over a click track, one as 44.1 kHz FLAC (so
// it is resampled) tagged 120 BPM, one as 48 kHz WAVE tagged 113 BPM.
class BenchCatalog final : public phone::Catalog {
public:
    explicit BenchCatalog(const std::filesystem::path& folder) {
        const struct {
            const char* file;
            int rate;
            std::int64_t bpm;
            double frequency;
        } songs[] = {{"one.flac", 44100, 120, 330}, {"two.wav", 48000, 113, 440}};
        media::PersistentID id = 1;
        for (const auto& song : songs) {
            const auto path = folder / song.file;
            if (auto written = audio::testing::writeToneFile(
                    path, {song.rate, 240, song.frequency, 0.4, static_cast<double>(song.bpm)});
                !written) {
                std::fprintf(stderr, "bench_audio_engine: cannot write %s: %s\n", path.c_str(),
                             written.error().message().c_str());
                std::exit(1);
            }
            media::MediaItem::Properties properties;
            properties.persistentID = id++;
            properties.title = song.file;
            properties.artist = "Bench";
            properties.playbackDuration = 240;
            properties.assetURL = media::FileURL::fromPath(path);
            properties.beatsPerMinute = song.bpm;
            m_items.emplace_back(properties, std::nullopt);
        }
    }
    std::optional<media::MediaItem> item(media::PersistentID id) const override {
        if (id >= 1 && id <= m_items.size())
            return m_items[id - 1];
        return std::nullopt;
    }
    std::vector<media::MediaItem> items() const override { return m_items; }
    std::vector<media::MediaPlaylist> playlists() const override { return {}; }

private:
    std::vector<media::MediaItem> m_items;
};

// The floor: one datagram from one socket to another, received by a thread blocked in recv.
class DatagramFloor {
public:
    DatagramFloor() {
        if (::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, m_sockets) != 0)
            std::exit(1);
        m_thread = std::thread([this] {
            char byte;
            while (::recv(m_sockets[1], &byte, 1, 0) == 1 && byte != 'q')
                m_received.store(monotonicSeconds());
        });
    }
    ~DatagramFloor() {
        const char quit = 'q';
        (void)!::send(m_sockets[0], &quit, 1, 0);
        m_thread.join();
        ::close(m_sockets[0]);
        ::close(m_sockets[1]);
    }
    // Seconds from the send to the receiving thread holding the datagram.
    double measure() {
        m_received.store(0);
        const double start = monotonicSeconds();
        const char byte = 'x';
        (void)!::send(m_sockets[0], &byte, 1, 0);
        while (m_received.load() == 0)
            std::this_thread::yield();
        return m_received.load() - start;
    }

private:
    int m_sockets[2] = {-1, -1};
    std::atomic<double> m_received{0};
    std::thread m_thread;
};

struct Options {
    double seconds = 20;
    std::size_t bufferFrames = 512;
    int sampleRate = 48000;
};

int run(const Options& options, const std::filesystem::path& root) {
    const std::filesystem::path container = root / kGroup;
    std::filesystem::create_directories(container);
    std::fprintf(stderr, "writing two songs of 4 minutes...\n");
    BenchCatalog catalog(root);

    runtime::AsioRunLoop loop;
    runtime::RunLoop::CurrentScope current(&loop);
    sound::AudioEngine audioEngine(options.sampleRate, options.bufferFrames);
    phone::SoundLink soundLink(audioEngine);
    phone::PhoneLink link(kGroup, container, loop);
    if (!link.isListening()) {
        std::fprintf(stderr, "bench_audio_engine: cannot listen in %s\n", container.c_str());
        return 1;
    }
    phone::Engine engine(loop, catalog, link, {}, &soundLink);
    link.setEngine(&engine);
    engine.start();
    auto started = audio::Recorder::start(root / "mix.flac", options.sampleRate);
    if (!started) {
        std::fprintf(stderr, "bench_audio_engine: cannot record: %s\n", started.error().message().c_str());
        return 1;
    }
    const std::unique_ptr<audio::Recorder> recorder = std::move(started).value();
    audioEngine.setRecorder(recorder.get());

    // The callback: render, time it, and note when deck 1's loop changes.
    const double period = static_cast<double>(options.bufferFrames) / options.sampleRate;
    std::vector<double> computeTimes(static_cast<std::size_t>(options.seconds / period) + 1024);
    std::atomic<std::size_t> renders{0};
    std::atomic<double> loopChanged{0};
    bool lastLooping = false;
    audio::NullOutput output(options.sampleRate, options.bufferFrames);
    if (!output.start([&](float* out, std::size_t frames) {
            const double start = monotonicSeconds();
            audioEngine.render(out, frames);
            const double end = monotonicSeconds();
            const std::size_t index = renders.load(std::memory_order_relaxed);
            if (index < computeTimes.size()) {
                computeTimes[index] = end - start;
                renders.store(index + 1, std::memory_order_relaxed);
            }
            if (const bool looping = audioEngine.deckStatus(1).looping; looping != lastLooping) {
                lastLooping = looping;
                loopChanged.store(end, std::memory_order_relaxed);
            }
        })) {
        std::fprintf(stderr, "bench_audio_engine: the null output does not start\n");
        return 1;
    }

    // The watch: loads and plays both songs, syncs (deck 2 follows deck 1 at +6 %), turns on
    // Reverb and the low-pass on deck 1, and polls as its decks and pages do.
    ipc::SocketParentApplication watch(container, loop, std::nullopt);
    for (std::int64_t deck = 1; deck <= 2; ++deck)
        watch.openParentApplication(
            deckAction(deck, 6, plist::Value(plist::Dictionary{{"itemID", plist::Value(std::to_string(deck))}})));
    watch.openParentApplication(plist::Value(plist::Dictionary{
        {"identifier", plist::Value("mixerAction")},
        {"contents", plist::Value(plist::Dictionary{
                         {"action", plist::Value(std::int64_t{2})},
                         {"params", plist::Value(plist::Dictionary{{"crossfaderPosition", plist::Value(0.25)}})}})}}));
    watch.openParentApplication(deckAction(1, 0));
    loop.runFor(0.3);
    watch.openParentApplication(deckAction(2, 0));
    watch.openParentApplication(mixerAction(0));
    for (int step = 0; step < 3; ++step)
        watch.openParentApplication(deckAction(1, 11));
    watch.openParentApplication(deckAction(1, 13));
    watch.openParentApplication(deckAction(1, 14));
    std::vector<std::shared_ptr<runtime::Timer>> timers;
    timers.push_back(runtime::Timer::scheduledTimer(loop, 0.5, runtime::Timer::Repeats::Yes, [&](runtime::Timer&) {
        watch.openParentApplication(deckAction(1, 16));
        watch.openParentApplication(deckAction(2, 16));
        watch.openParentApplication(mixerAction(11));
    }));
    loop.runFor(1);

    // Latency, interleaved with the floor.
    DatagramFloor floor;
    std::vector<double> latencies, floors;
    const double end = monotonicSeconds() + options.seconds;
    while (monotonicSeconds() < end) {
        loopChanged.store(0);
        const double sent = monotonicSeconds();
        watch.openParentApplication(deckAction(1, 10));
        if (loop.runUntil([&] { return loopChanged.load() != 0; }, 2))
            latencies.push_back(loopChanged.load() - sent);
        floors.push_back(floor.measure());
        loop.runFor(0.2 + 0.1 * static_cast<double>(latencies.size() % 3));
    }
    output.stop();
    audioEngine.setRecorder(nullptr);
    recorder->stop();
    link.setEngine(nullptr);

    computeTimes.resize(std::min(renders.load(), computeTimes.size()));
    const auto share = [&](double p) { return 100 * percentile(computeTimes, p) / period; };
    std::printf("audio callback, %zu buffers of %zu frames at %d Hz (period %.2f ms), both decks, keylock at %+.1f %%, "
                "Reverb and low-pass, recording:\n",
                computeTimes.size(), options.bufferFrames, options.sampleRate, period * 1e3,
                (engine.deck(2).rate() - 1) * 100);
    std::printf(
        "  compute time per buffer: p50 %6.1f us (%5.2f %%)  p99 %6.1f us (%5.2f %%)  p99.9 %6.1f us (%5.2f %%)  "
        "max %6.1f us (%5.2f %%)\n",
        percentile(computeTimes, 0.5) * 1e6, share(0.5), percentile(computeTimes, 0.99) * 1e6, share(0.99),
        percentile(computeTimes, 0.999) * 1e6, share(0.999), percentile(computeTimes, 1.0) * 1e6, share(1.0));
    std::printf("  goal: p99.9 at most 25 %% of the period: %s\n", share(0.999) <= 25 ? "met" : "NOT met");
    std::printf("null output xruns over %.0f s: %llu (goal 0); recording dropped %llu frames\n", options.seconds,
                static_cast<unsigned long long>(output.xruns()),
                static_cast<unsigned long long>(recorder->framesDropped()));
    const double l50 = percentile(latencies, 0.5) * 1e3, l99 = percentile(latencies, 0.99) * 1e3;
    const double f50 = percentile(floors, 0.5) * 1e3, f99 = percentile(floors, 0.99) * 1e3;
    std::printf("action datagram to the first buffer that carries it, %zu actions:\n", latencies.size());
    std::printf("  engine: p50 %7.3f ms  p99 %7.3f ms\n", l50, l99);
    std::printf("  floor (bare datagram): p50 %7.3f ms  p99 %7.3f ms\n", f50, f99);
    std::printf("  p99 against one period plus the floor's p99 (%.3f ms): %.2f (goal at most 1)\n", period * 1e3 + f99,
                l99 / (period * 1e3 + f99));
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--seconds" && i + 1 < argc)
            options.seconds = std::max(2.0, std::atof(argv[++i]));
        else if (argument == "--minutes" && i + 1 < argc)
            options.seconds = std::max(2.0, 60 * std::atof(argv[++i]));
        else if (argument == "--buffer-frames" && i + 1 < argc)
            options.bufferFrames = static_cast<std::size_t>(std::max(32, std::atoi(argv[++i])));
        else if (argument == "--sample-rate" && i + 1 < argc)
            options.sampleRate = std::max(8000, std::atoi(argv[++i]));
        else {
            std::fprintf(
                stderr,
                "usage: bench_audio_engine [--seconds S | --minutes M] [--buffer-frames N] [--sample-rate HZ]\n");
            return argument == "--help" || argument == "-h" ? 0 : 2;
        }
    }
    log::setLevel(log::Level::Error);
    const char* runtimeDirectory = std::getenv("XDG_RUNTIME_DIR");
    std::string pattern =
        std::string(runtimeDirectory != nullptr ? runtimeDirectory : "/dev/shm") + "/vexo-bench-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        std::fprintf(stderr, "bench_audio_engine: cannot make %s: %s\n", pattern.c_str(), std::strerror(errno));
        return 1;
    }
    const std::filesystem::path root = pattern;
    ipc::Container::setLocation({.root = root.string()});
    const int status = run(options, root);
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
    return status;
}

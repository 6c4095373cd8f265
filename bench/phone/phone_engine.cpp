// Two figures of the phone application's engine:
//
// 1. Latency, in one process on one loop as the program runs it: from a deck status request
//    (action 16) handed to the parent-application socket to the watch's listener holding the
//    status it caused (receive, decode, handle, coalesce, encode, write, rename, notify, wake,
//    read, decode). The floor, measured in the same run and interleaved with it, is the
//    transport alone: passMessageObject of the same status to the same listener. Reported
//    as p50 and p99 and their ratio to the floor's.
// 2. CPU: a child process runs the engine with both decks playing while this process polls
//    it as a watch does (action 16 twice a second per deck, from the deck model and its page,
//    reading every status it announces). Reported as the child's CPU time over the wall
//    time, in percent of one core; the goal is under 1 %.
//
//   bench_phone_engine [--messages N] [--seconds S]
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "phone/Catalog.h"
#include "phone/Engine.h"
#include "phone/PhoneLink.h"
#include "platform/ipc/Container.h"
#include "platform/ipc/SocketParentApplication.h"
#include "platform/log/Log.h"
#include "platform/runtime/AsioRunLoop.h"
#include "platform/runtime/Timer.h"
#include "transport/MMWormhole.h"

using namespace vexo;

namespace {

constexpr const char* kGroup = "group.bench.phone";

class BenchCatalog final : public phone::Catalog {
public:
    BenchCatalog() {
        for (media::PersistentID id = 1; id <= 2; ++id) {
            media::MediaItem::Properties properties;
            properties.persistentID = id;
            properties.title = "Long Mix " + std::to_string(id);
            properties.artist = "Bench";
            properties.playbackDuration = 3600;
            properties.assetURL = "file:///bench/" + std::to_string(id);
            properties.beatsPerMinute = 120 + static_cast<std::int64_t>(id);
            properties.initialKey = "8A";
            m_items.emplace_back(properties, std::vector<std::uint8_t>(30000, 0x5A));
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

plist::Value deckAction(std::int64_t deck, std::int64_t code, plist::Value params = {}) {
    plist::Dictionary contents{{"turntable", plist::Value(deck)}, {"action", plist::Value(code)}};
    if (!params.isNull())
        contents.emplace("params", std::move(params));
    return plist::Value(plist::Dictionary{{"identifier", plist::Value("turntableAction")},
                                          {"contents", plist::Value(std::move(contents))}});
}

double percentile(std::vector<double> values, double p) {
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, static_cast<std::size_t>(p * static_cast<double>(values.size())))];
}

double cpuSeconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// The engine with both decks loaded and playing, on `loop`.
struct Phone {
    Phone(const std::filesystem::path& container, runtime::RunLoop& loop)
        : link(kGroup, container, loop),
          engine(loop, catalog, link, {}) {
        if (!link.isListening()) {
            std::fprintf(stderr, "bench_phone_engine: cannot listen in %s\n", container.c_str());
            std::exit(1);
        }
        link.setEngine(&engine);
        engine.start();
        for (std::int64_t deck = 1; deck <= 2; ++deck) {
            engine.handleParentApplicationDictionary(
                deckAction(deck, 6, plist::Value(plist::Dictionary{{"itemID", plist::Value(std::to_string(deck))}})));
            engine.handleParentApplicationDictionary(deckAction(deck, 0));
        }
    }
    ~Phone() { link.setEngine(nullptr); }

    BenchCatalog catalog;
    phone::PhoneLink link;
    phone::Engine engine;
};

void latency(const std::filesystem::path& container, int messages) {
    runtime::AsioRunLoop loop;
    runtime::RunLoop::CurrentScope current(&loop);
    Phone phone(container, loop);
    ipc::SocketParentApplication watch(container, loop, std::nullopt);
    transport::MMWormhole reader(kGroup, std::string("messages"), &loop);
    transport::MMWormhole writer(kGroup, std::string("messages"), &loop);
    int received = 0;
    reader.listenForMessageWithIdentifier("turntableStatus1", [&](const plist::Value& message) {
        if (message.asDictionary() != nullptr)
            ++received;
    });
    loop.runFor(0.2);
    const plist::Value status = phone.engine.deck(1).status(loop.now());

    std::vector<double> engineTimes, floorTimes;
    for (int i = 0; i < messages; ++i) {
        for (const bool throughEngine : {true, false}) {
            received = 0;
            const double start = loop.now();
            if (throughEngine)
                watch.openParentApplication(deckAction(1, 16));
            else
                writer.passMessageObject(status, "turntableStatus1");
            if (!loop.runUntil([&] { return received > 0; }, 5)) {
                std::fprintf(stderr, "bench_phone_engine: no status within 5 s\n");
                std::exit(1);
            }
            (throughEngine ? engineTimes : floorTimes).push_back((loop.now() - start) * 1e6);
        }
    }
    const double e50 = percentile(engineTimes, 0.5), e99 = percentile(engineTimes, 0.99);
    const double f50 = percentile(floorTimes, 0.5), f99 = percentile(floorTimes, 0.99);
    std::printf("action to status read, %d messages:\n", messages);
    std::printf("  engine:          p50 %8.1f us   p99 %8.1f us\n", e50, e99);
    std::printf("  transport floor: p50 %8.1f us   p99 %8.1f us\n", f50, f99);
    std::printf("  ratio:           p50 %8.2f      p99 %8.2f\n", e50 / f50, e99 / f99);
}

void cpu(const std::filesystem::path& container, double seconds) {
    int ready[2], done[2];
    if (::pipe(ready) != 0 || ::pipe(done) != 0)
        std::exit(1);
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(ready[0]);
        ::close(done[1]);
        runtime::AsioRunLoop loop;
        runtime::RunLoop::CurrentScope current(&loop);
        Phone phone(container, loop);
        loop.runFor(0.2);
        const double startCpu = cpuSeconds();
        const double startWall = loop.now();
        (void)!::write(ready[1], "r", 1);
        // The parent closing its end says stop.
        auto watch = loop.watchReadable(done[0], [&] { loop.stop(); });
        loop.run();
        watch.reset();
        char line[128];
        const int length =
            std::snprintf(line, sizeof line, "%.6f %.6f", cpuSeconds() - startCpu, loop.now() - startWall);
        (void)!::write(ready[1], line, static_cast<std::size_t>(length));
        ::_exit(0);
    }
    ::close(ready[1]);
    ::close(done[0]);
    char byte;
    if (::read(ready[0], &byte, 1) != 1)
        std::exit(1);

    runtime::AsioRunLoop loop;
    runtime::RunLoop::CurrentScope current(&loop);
    ipc::SocketParentApplication watch(container, loop, std::nullopt);
    transport::MMWormhole reader(kGroup, std::string("messages"), &loop);
    int statuses = 0;
    for (const char* identifier : {"turntableStatus1", "turntableStatus2"})
        reader.listenForMessageWithIdentifier(identifier, [&](const plist::Value&) { ++statuses; });
    int polls = 0;
    // Each deck is polled by its model and by its page, each once a second, out of step.
    std::vector<std::shared_ptr<runtime::Timer>> timers;
    for (std::int64_t deck = 1; deck <= 2; ++deck) {
        for (int poller = 0; poller < 2; ++poller) {
            timers.push_back(
                runtime::Timer::scheduledTimer(loop, 1.0, runtime::Timer::Repeats::Yes, [&, deck](runtime::Timer&) {
                    watch.openParentApplication(deckAction(deck, 16));
                    ++polls;
                }));
            loop.runFor(0.25);
        }
    }
    loop.runFor(seconds);
    for (const auto& timer : timers)
        timer->invalidate();
    ::close(done[1]);
    char line[128] = {};
    const ssize_t length = ::read(ready[0], line, sizeof line - 1);
    int status = 0;
    ::waitpid(child, &status, 0);
    double cpuUsed = 0, wall = 1;
    if (length <= 0 || std::sscanf(line, "%lf %lf", &cpuUsed, &wall) != 2)
        std::exit(1);
    std::printf("engine CPU with both decks playing and the watch polling (%d polls, %d statuses read):\n", polls,
                statuses);
    std::printf("  %.3f s CPU in %.1f s: %.3f %% of one core (goal: under 1 %%)\n", cpuUsed, wall,
                100 * cpuUsed / wall);
}

} // namespace

int main(int argc, char** argv) {
    int messages = 2000;
    double seconds = 20;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--messages" && i + 1 < argc)
            messages = std::max(1, std::atoi(argv[++i]));
        else if (argument == "--seconds" && i + 1 < argc)
            seconds = std::max(1.0, std::atof(argv[++i]));
        else {
            std::fprintf(stderr, "usage: bench_phone_engine [--messages N] [--seconds S]\n");
            return argument == "--help" || argument == "-h" ? 0 : 2;
        }
    }
    log::setLevel(log::Level::Error);
    // A private container on a tmpfs, like the runtime directory the program uses.
    const char* runtimeDirectory = std::getenv("XDG_RUNTIME_DIR");
    std::string pattern =
        std::string(runtimeDirectory != nullptr ? runtimeDirectory : "/dev/shm") + "/vexo-bench-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        std::fprintf(stderr, "bench_phone_engine: cannot make %s: %s\n", pattern.c_str(), std::strerror(errno));
        return 1;
    }
    const std::filesystem::path root = pattern;
    ipc::Container::setLocation({.root = root.string()});
    const std::filesystem::path container = root / kGroup;
    std::filesystem::create_directories(container);

    latency(container, messages);
    cpu(container, seconds);
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
    return 0;
}

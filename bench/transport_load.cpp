// The transport under load and faults, between real processes:
//
// 1. Writers and listeners: 4 writer processes write tens of thousands of messages to the same
//    4 identifiers that 4 listener processes listen for, while writers are killed with SIGKILL
//    at random moments and restarted. No listener may read a partial, undecodable or foreign
//    message; once the writers are gone, a last message per identifier must be each
//    listener's last read; no temporary file may be left once writers wrote again; listener
//    memory must stay bounded.
// 2. A burst of 10,000 notifications to a listener that is stopped (SIGSTOP) completes without
//    blocking the writer, and the listener works on afterwards.
// 3. 1,000 registrations whose processes were killed are cleared by one post, and the live
//    listener still hears every post.
//
// Figures are printed at the end; only the properties above decide the exit status (0 pass,
// 1 fail, 2 usage), never a timing.
//
//   bench_transport_load [--messages N] [--kills N] [--burst N] [--dead N] [--root DIR]
#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/ipc/Container.h"
#include "platform/ipc/NotifyCenter.h"
#include "platform/ipc/NotifyName.h"
#include "platform/plist/KeyedUnarchiver.h"
#include "platform/runtime/AsioRunLoop.h"
#include "platform/runtime/DeterministicRunLoop.h"
#include "transport/MMWormhole.h"

using namespace vexo;
namespace fs = std::filesystem;
using plist::Dictionary;
using plist::Value;
using transport::MMWormhole;

namespace {

constexpr const char* kGroup = "group.test.load";
constexpr const char* kDirectory = "messages";
constexpr int kWriters = 4;
constexpr int kListeners = 4;
constexpr std::array<const char*, 4> kIdentifiers = {"loadStatus0", "loadStatus1", "loadStatus2", "loadStatus3"};
// A listener that has not finished by then has lost a message for good.
constexpr double kListenerTimeoutSeconds = 120;
#if defined(__SANITIZE_ADDRESS__)
#define VEXO_LOAD_TEST_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VEXO_LOAD_TEST_SANITIZED 1
#endif
#endif

// Listener growth allowed between its first reads and its last; sanitizers keep freed memory
// in quarantine, so their bound is wider. A sanitized build is several times slower, so it
// writes half as many messages by default and stays well under a minute.
#ifdef VEXO_LOAD_TEST_SANITIZED
constexpr long kMemoryGrowthBoundKiB = 512 * 1024;
constexpr std::uint64_t kDefaultMessages = 10000;
constexpr int kDefaultKills = 12;
#else
constexpr long kMemoryGrowthBoundKiB = 16 * 1024;
constexpr std::uint64_t kDefaultMessages = 20000;
constexpr int kDefaultKills = 24;
#endif

struct Options {
    std::uint64_t messages = kDefaultMessages;
    int kills = kDefaultKills;
    int burst = 10000;
    int dead = 1000;
    fs::path root;
};

// What the processes share: counters the parent reads and each listener's verdict.
struct ListenerReport {
    std::atomic<std::uint64_t> reads{0};
    std::atomic<std::uint64_t> bad{0};
    std::atomic<int> finalsSeen{0};
    std::atomic<int> lastIsFinal{0};
    std::atomic<long> firstRssKiB{0};
    std::atomic<long> lastRssKiB{0};
    char firstProblem[256] = {};
};

struct Shared {
    std::atomic<std::uint64_t> written{0};
    std::atomic<int> stop{0};
    std::atomic<std::uint64_t> finalNonce{0};
    ListenerReport listeners[kListeners];
};

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

long residentKiB() {
    std::ifstream statm("/proc/self/statm");
    long pages = 0, resident = 0;
    statm >> pages >> resident;
    return resident * (::sysconf(_SC_PAGESIZE) / 1024);
}

std::uint64_t digestOf(const plist::Data& bytes) {
    std::uint64_t hash = 1469598103934665603ull;
    for (std::uint8_t byte : bytes)
        hash = (hash ^ byte) * 1099511628211ull;
    return hash;
}

// A message whose every part can be checked by its reader: the payload's length varies, so
// a file cut short or mixed with another shows as an undecodable archive or a wrong digest.
Value loadMessage(int writer, int generation, std::uint64_t sequence, const char* identifier) {
    plist::Data payload((sequence * 97) % 6000 + 1);
    for (std::size_t i = 0; i < payload.size(); ++i)
        payload[i] = static_cast<std::uint8_t>((i * 31 + sequence * 7 + static_cast<std::uint64_t>(writer)) & 0xFF);
    const std::uint64_t digest = digestOf(payload);
    return Value(Dictionary{{"identifier", Value(identifier)},
                            {"writer", Value(writer)},
                            {"generation", Value(generation)},
                            {"sequence", Value(sequence)},
                            {"payload", Value(std::move(payload))},
                            {"digest", Value(digest)}});
}

Value finalMessage(std::uint64_t nonce, const char* identifier) {
    return Value(Dictionary{{"identifier", Value(identifier)}, {"final", Value(nonce)}});
}

// Why `message` is not a whole message for `identifier`; empty when it is.
std::string problemWith(const Value& message, const char* identifier) {
    if (message.asDictionary() == nullptr)
        return "not a dictionary (a partial or missing file)";
    if (message["identifier"].stringValue() != std::string(identifier))
        return "a message of another identifier";
    if (!message["final"].isNull())
        return {};
    const plist::Data* payload = message["payload"].asData();
    if (payload == nullptr || digestOf(*payload) != message["digest"].unsignedLongLongValue())
        return "payload does not match its digest";
    return {};
}

void setUpProcessLoop(runtime::RunLoop& loop) {
    runtime::RunLoop::setCurrent(&loop);
}

void writeByte(int fd) {
    const char byte = 1;
    while (::write(fd, &byte, 1) < 0 && errno == EINTR) {
    }
}

// Blocks until a byte arrives or `timeoutSeconds` pass; false on timeout or end of file.
bool readByte(int fd, double timeoutSeconds) {
    pollfd entry{fd, POLLIN, 0};
    const int ready = ::poll(&entry, 1, static_cast<int>(timeoutSeconds * 1000));
    char byte;
    return ready == 1 && ::read(fd, &byte, 1) == 1;
}

[[noreturn]] void runListener(Shared& shared, int index, int readyFd) {
    ListenerReport& report = shared.listeners[index];
    runtime::AsioRunLoop loop;
    setUpProcessLoop(loop);
    std::array<bool, kIdentifiers.size()> finalSeen{};
    bool done = false;
    {
        MMWormhole wormhole(kGroup, kDirectory);
        for (std::size_t i = 0; i < kIdentifiers.size(); ++i) {
            const char* identifier = kIdentifiers[i];
            wormhole.listenForMessageWithIdentifier(identifier, [&, i, identifier](const Value& message) {
                const std::uint64_t reads = ++report.reads;
                if (reads == 1000)
                    report.firstRssKiB = residentKiB();
                const std::string problem = problemWith(message, identifier);
                if (!problem.empty()) {
                    if (report.bad++ == 0)
                        std::snprintf(report.firstProblem, sizeof report.firstProblem, "%s: %s", identifier,
                                      problem.c_str());
                    return;
                }
                const std::uint64_t nonce = shared.finalNonce.load();
                const bool isFinal = nonce != 0 && message["final"].unsignedLongLongValue() == nonce;
                if (finalSeen[i] && !isFinal) {
                    // Nobody writes after the final message: reading anything else is a stale read.
                    if (report.bad++ == 0)
                        std::snprintf(report.firstProblem, sizeof report.firstProblem,
                                      "%s: an older message after the last one", identifier);
                }
                finalSeen[i] = finalSeen[i] || isFinal;
                done = std::all_of(finalSeen.begin(), finalSeen.end(), [](bool seen) { return seen; });
            });
        }
        writeByte(readyFd);
        loop.runUntil([&] { return done; }, kListenerTimeoutSeconds);
    }
    report.finalsSeen = static_cast<int>(std::count(finalSeen.begin(), finalSeen.end(), true));
    report.lastIsFinal = done ? 1 : 0;
    report.lastRssKiB = residentKiB();
    if (report.firstRssKiB == 0)
        report.firstRssKiB = report.lastRssKiB.load();
    runtime::RunLoop::setCurrent(nullptr);
    ::_exit(0);
}

[[noreturn]] void runWriter(Shared& shared, int writer, int generation, int progressFd) {
    runtime::DeterministicRunLoop loop;
    setUpProcessLoop(loop);
    {
        MMWormhole wormhole(kGroup, kDirectory);
        std::mt19937_64 random(static_cast<std::uint64_t>(writer) * 7919 + static_cast<std::uint64_t>(generation));
        for (std::uint64_t sequence = 0; shared.stop.load() == 0; ++sequence) {
            const char* identifier = kIdentifiers[random() % kIdentifiers.size()];
            wormhole.passMessageObject(loadMessage(writer, generation, sequence, identifier), identifier);
            if (++shared.written % 32 == 0) {
                // Progress for the parent; a full pipe only means it has enough to read.
                const char byte = 1;
                [[maybe_unused]] const auto ignored = ::write(progressFd, &byte, 1);
            }
        }
    }
    runtime::RunLoop::setCurrent(nullptr);
    ::_exit(0);
}

pid_t spawn(const std::function<void()>& child) {
    std::fflush(stdout);
    const pid_t pid = ::fork();
    if (pid < 0) {
        std::perror("fork");
        std::exit(1);
    }
    if (pid == 0) {
        child();
        ::_exit(0);
    }
    return pid;
}

bool waitFor(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::vector<std::string> temporaryFiles(const fs::path& directory) {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(directory, error)) {
        const std::string name = entry.path().filename().string();
        if (!name.empty() && name[0] == '.')
            names.push_back(name);
    }
    return names;
}

std::size_t socketsIn(const fs::path& directory) {
    std::size_t count = 0;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(directory, error))
        count += entry.is_socket() ? 1 : 0;
    return count;
}

int failures = 0;

void check(bool condition, const std::string& what) {
    if (!condition) {
        ++failures;
        std::printf("FAILED: %s\n", what.c_str());
    }
}

void writersAndListeners(const Options& options, const fs::path& container) {
    auto* shared = static_cast<Shared*>(
        ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    if (shared == MAP_FAILED) {
        std::perror("mmap");
        std::exit(1);
    }
    new (shared) Shared;
    const auto start = std::chrono::steady_clock::now();

    int ready[2], progress[2];
    if (::pipe2(ready, O_CLOEXEC) != 0 || ::pipe2(progress, O_CLOEXEC) != 0)
        std::exit(1);
    ::fcntl(progress[1], F_SETFL, O_NONBLOCK);

    std::vector<pid_t> listeners;
    for (int i = 0; i < kListeners; ++i)
        listeners.push_back(spawn([&, i] { runListener(*shared, i, ready[1]); }));
    for (int i = 0; i < kListeners; ++i)
        check(readByte(ready[0], 60), "listener " + std::to_string(i) + " started");

    std::vector<pid_t> writers(kWriters);
    std::vector<int> generations(kWriters, 0);
    for (int w = 0; w < kWriters; ++w)
        writers[static_cast<std::size_t>(w)] = spawn([&, w] { runWriter(*shared, w, 0, progress[1]); });

    // Kills are spread over the run at random message counts; each killed writer comes back
    // as a new process at once.
    std::mt19937 random(20261123);
    const std::uint64_t spacing =
        std::max<std::uint64_t>(1, options.messages / static_cast<std::uint64_t>(options.kills + 1));
    std::uniform_int_distribution<std::uint64_t> jitter(spacing / 2, spacing + spacing / 2);
    std::uint64_t nextKill = jitter(random);
    int kills = 0;
    while (shared->written.load() < options.messages) {
        if (!readByte(progress[0], 60)) {
            check(false, "the writers make progress");
            break;
        }
        if (kills < options.kills && shared->written.load() >= nextKill) {
            const int w = static_cast<int>(random() % kWriters);
            ::kill(writers[static_cast<std::size_t>(w)], SIGKILL);
            int status = 0;
            ::waitpid(writers[static_cast<std::size_t>(w)], &status, 0);
            const int generation = ++generations[static_cast<std::size_t>(w)];
            writers[static_cast<std::size_t>(w)] =
                spawn([&, w, generation] { runWriter(*shared, w, generation, progress[1]); });
            ++kills;
            nextKill += jitter(random);
        }
    }
    shared->stop = 1;
    for (pid_t writer : writers)
        check(waitFor(writer), "a writer stopped cleanly");

    // The last word, from a writer of our own: every listener must end on it.
    runtime::DeterministicRunLoop loop;
    setUpProcessLoop(loop);
    {
        MMWormhole wormhole(kGroup, kDirectory);
        shared->finalNonce = 0x5EED0000ull + static_cast<std::uint64_t>(::getpid());
        for (const char* identifier : kIdentifiers)
            wormhole.passMessageObject(finalMessage(shared->finalNonce, identifier), identifier);
    }
    runtime::RunLoop::setCurrent(nullptr);
    for (pid_t listener : listeners)
        check(waitFor(listener), "a listener finished");

    std::uint64_t reads = 0, bad = 0;
    long growth = 0, largest = 0;
    for (int i = 0; i < kListeners; ++i) {
        const ListenerReport& report = shared->listeners[i];
        reads += report.reads;
        bad += report.bad;
        growth = std::max(growth, report.lastRssKiB.load() - report.firstRssKiB.load());
        largest = std::max(largest, report.lastRssKiB.load());
        check(report.bad == 0, "listener " + std::to_string(i) + " read only whole messages (first problem: " +
                                   std::string(report.firstProblem) + ")");
        check(report.lastIsFinal == 1,
              "listener " + std::to_string(i) + " ended on the last message of every identifier (" +
                  std::to_string(report.finalsSeen.load()) + " of " + std::to_string(kIdentifiers.size()) + ")");
    }
    const auto leftovers = temporaryFiles(container / kDirectory);
    check(leftovers.empty(), "no temporary file is left (found " + std::to_string(leftovers.size()) +
                                 (leftovers.empty() ? std::string() : ", e.g. " + leftovers.front()) + ")");
    check(growth <= kMemoryGrowthBoundKiB, "listener memory stays bounded (grew " + std::to_string(growth) + " KiB)");

    std::printf("writers and listeners: %d writers, %d listeners, %zu identifiers\n", kWriters, kListeners,
                kIdentifiers.size());
    std::printf("  messages written       %llu (+%zu last ones)\n",
                static_cast<unsigned long long>(shared->written.load()), kIdentifiers.size());
    std::printf("  writers killed         %d, each restarted\n", kills);
    std::printf("  reads checked          %llu, %llu partial, undecodable or stale\n",
                static_cast<unsigned long long>(reads), static_cast<unsigned long long>(bad));
    std::printf("  temporary files left   %zu\n", leftovers.size());
    std::printf("  listener memory        %ld KiB resident at most, grew %ld KiB\n", largest, growth);
    std::printf("  time                   %.2f s\n", secondsSince(start));
    ::munmap(shared, sizeof(Shared));
    ::close(ready[0]);
    ::close(ready[1]);
    ::close(progress[0]);
    ::close(progress[1]);
}

void burstToAStoppedListener(const Options& options) {
    int ready[2], heard[2];
    if (::pipe2(ready, O_CLOEXEC) != 0 || ::pipe2(heard, O_CLOEXEC) != 0)
        std::exit(1);
    auto* delivered = static_cast<std::atomic<std::uint64_t>*>(
        ::mmap(nullptr, sizeof(std::atomic<std::uint64_t>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    new (delivered) std::atomic<std::uint64_t>(0);
    const pid_t listener = spawn([&] {
        runtime::AsioRunLoop loop;
        setUpProcessLoop(loop);
        MMWormhole wormhole(kGroup, kDirectory);
        bool after = false;
        wormhole.listenForMessageWithIdentifier("burst", [&](const Value& message) {
            ++*delivered;
            after = after || message["after"].boolValue();
        });
        writeByte(ready[1]);
        const bool finished = loop.runUntil([&] { return after; }, kListenerTimeoutSeconds);
        writeByte(heard[1]);
        ::_exit(finished ? 0 : 1);
    });
    check(readByte(ready[0], 60), "the burst listener started");
    ::kill(listener, SIGSTOP);

    runtime::DeterministicRunLoop loop;
    setUpProcessLoop(loop);
    double burstSeconds = 0;
    {
        // One message, then the burst of notifications alone, as a phone that posts faster
        // than the watch reads would send them.
        MMWormhole wormhole(kGroup, kDirectory);
        wormhole.passMessageObject(Value(Dictionary{{"after", Value(false)}}), "burst");
        const auto center = ipc::NotifyCenter::forContainer(*ipc::Container::pathForGroup(kGroup), loop);
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < options.burst; ++i)
            center->post("burst");
        burstSeconds = secondsSince(start);
        ::kill(listener, SIGCONT);
        wormhole.passMessageObject(Value(Dictionary{{"after", Value(true)}}), "burst");
    }
    runtime::RunLoop::setCurrent(nullptr);
    check(readByte(heard[0], kListenerTimeoutSeconds), "the listener heard the message after the burst");
    check(waitFor(listener), "the listener read the message after the burst and ended cleanly");
    std::printf("burst: %d notifications to a stopped listener written in %.3f s (%.1f us each); "
                "%llu reached it, then the message after the burst did\n",
                options.burst, burstSeconds, burstSeconds * 1e6 / options.burst,
                static_cast<unsigned long long>(delivered->load()));
    ::munmap(delivered, sizeof(std::atomic<std::uint64_t>));
    for (int fd : {ready[0], ready[1], heard[0], heard[1]})
        ::close(fd);
}

double medianPostMicroseconds(ipc::NotifyCenter& center, runtime::DeterministicRunLoop& loop, const char* name) {
    std::vector<double> samples;
    for (int i = 0; i < 201; ++i) {
        const auto start = std::chrono::steady_clock::now();
        center.post(name);
        samples.push_back(secondsSince(start) * 1e6);
        loop.runUntilIdle();
    }
    std::nth_element(samples.begin(), samples.begin() + 100, samples.end());
    return samples[100];
}

void deadRegistrations(const Options& options, const fs::path& container) {
    constexpr const char* kName = "deadRegistrations";
    const fs::path sockets = container / ".notify" / ipc::NotifyName::fileName(kName);
    runtime::DeterministicRunLoop loop;
    setUpProcessLoop(loop);
    auto center = ipc::NotifyCenter::forContainer(container, loop);
    int heard = 0;
    center->addObserver(&heard, kName, [&](const std::string&) { ++heard; });
    const double before = medianPostMicroseconds(*center, loop, kName);
    const int heardBefore = heard;

    // Registrations in processes that are then killed, a few hundred per process.
    constexpr int kPerProcess = 250;
    int ready[2];
    if (::pipe2(ready, O_CLOEXEC) != 0)
        std::exit(1);
    std::vector<pid_t> doomed;
    for (int made = 0; made < options.dead; made += kPerProcess) {
        const int count = std::min(kPerProcess, options.dead - made);
        doomed.push_back(spawn([&, count] {
            runtime::DeterministicRunLoop childLoop;
            ipc::NotifyCenter childCenter(container, childLoop);
            std::vector<int> observers(static_cast<std::size_t>(count));
            for (int& observer : observers)
                childCenter.addObserver(&observer, kName, [](const std::string&) {});
            writeByte(ready[1]);
            ::pause();
        }));
    }
    for (std::size_t i = 0; i < doomed.size(); ++i)
        check(readByte(ready[0], 60), "a process made its registrations");
    for (pid_t pid : doomed) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
    const std::size_t socketsBefore = socketsIn(sockets);
    check(socketsBefore == static_cast<std::size_t>(options.dead) + 1,
          "the dead registrations are there before the post (" + std::to_string(socketsBefore) + ")");

    const auto start = std::chrono::steady_clock::now();
    center->post(kName);
    const double clearing = secondsSince(start);
    loop.runUntilIdle();
    check(socketsIn(sockets) == 1,
          "one post cleared every dead registration (" + std::to_string(socketsIn(sockets)) + " sockets left)");
    const double after = medianPostMicroseconds(*center, loop, kName);
    check(heard == heardBefore + 1 + 201, "the live listener heard every post (" + std::to_string(heard) + ")");
    center->removeEveryObserver(&heard);
    runtime::RunLoop::setCurrent(nullptr);
    std::printf("dead registrations: %d cleared by one post in %.2f ms; a post costs %.1f us before, %.1f us after\n",
                options.dead, clearing * 1e3, before, after);
    ::close(ready[0]);
    ::close(ready[1]);
}

bool parseCount(const char* text, std::uint64_t& value) {
    char* end = nullptr;
    errno = 0;
    const unsigned long long parsed = std::strtoull(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || text[0] == '-')
        return false;
    value = parsed;
    return true;
}

int usage(const char* program, int code) {
    std::fprintf(code == 0 ? stdout : stderr,
                 "usage: %s [--messages N] [--kills N] [--burst N] [--dead N] [--root DIR]\n"
                 "  --messages N  messages the writers write together (default %llu)\n"
                 "  --kills N     writers killed with SIGKILL and restarted (default %d)\n"
                 "  --burst N     notifications sent to a stopped listener (default 10000)\n"
                 "  --dead N      registrations of killed processes to clear (default 1000)\n"
                 "  --root DIR    where the temporary container goes (default /dev/shm, else the\n"
                 "                temporary directory)\n"
                 "Runs longer with larger counts, e.g. --messages 500000 --kills 500.\n",
                 program, static_cast<unsigned long long>(kDefaultMessages), kDefaultKills);
    return code;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    options.root = fs::is_directory("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--help" || argument == "-h")
            return usage(argv[0], 0);
        if (i + 1 >= argc)
            return usage(argv[0], 2);
        const char* value = argv[++i];
        std::uint64_t number = 0;
        if (argument == "--root") {
            options.root = value;
        } else if (!parseCount(value, number)) {
            return usage(argv[0], 2);
        } else if (argument == "--messages" && number > 0) {
            options.messages = number;
        } else if (argument == "--kills" && number <= 1'000'000) {
            options.kills = static_cast<int>(number);
        } else if (argument == "--burst" && number <= 100'000'000) {
            options.burst = static_cast<int>(number);
        } else if (argument == "--dead" && number <= 100'000) {
            options.dead = static_cast<int>(number);
        } else {
            return usage(argv[0], 2);
        }
    }

    std::string pattern = (options.root / "vexo-load-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    const fs::path root = pattern;
    ipc::Container::setLocation({.root = root.string()});
    const fs::path container = root / kGroup;
    // A post to a listener that is gone must not end us.
    std::signal(SIGPIPE, SIG_IGN);

    const auto start = std::chrono::steady_clock::now();
    writersAndListeners(options, container);
    burstToAStoppedListener(options);
    deadRegistrations(options, container);
    std::error_code ignored;
    fs::remove_all(root, ignored);
    std::printf("%s in %.2f s\n", failures == 0 ? "passed" : "FAILED", secondsSince(start));
    return failures == 0 ? 0 : 1;
}

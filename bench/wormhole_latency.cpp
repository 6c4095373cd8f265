// One-way latency of a whole message through the transport, from a writer process's
// passMessageObject to a reader process's listener (encode, write, rename, notify, wake, read,
// decode, listener), against a floor measured in the same run: a raw UNIX-datagram wake-up
// between two processes plus a temporary-file write, rename and read of the same bytes.
//
//   build/bench/bench_wormhole_latency [--messages N] [--root DIR]
//
// The container lives under $XDG_RUNTIME_DIR, else /dev/shm (both tmpfs, the usual home of a
// runtime directory); --root measures another file system.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/ipc/Container.h"
#include "platform/plist/KeyedArchiver.h"
#include "platform/runtime/AsioRunLoop.h"
#include "transport/MMWormhole.h"

using namespace vexo;

namespace {

constexpr const char* kGroup = "group.bench.latency";
constexpr const char* kIdentifier = "turntableStatus1";

std::int64_t monotonicNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

// A twelve-key deck status, stamped with the time it was handed to the transport.
plist::Value statusMessage(std::int64_t sentAt, int sequence) {
    return plist::Value(plist::Dictionary{
        {"playing", plist::Value(true)},
        {"currentTime", plist::Value(sequence)},
        {"currentDisplayTime", plist::Value("3:03")},
        {"autoLoopBeatInterval", plist::Value(0.25f)},
        {"looping", plist::Value(false)},
        {"fxName", plist::Value("Echo")},
        {"fxEnabled", plist::Value(true)},
        {"fxLowPassEnabled", plist::Value(false)},
        {"fxHighPassEnabled", plist::Value(true)},
        {"bpm", plist::Value(128)},
        {"key", plist::Value("8A")},
        {"sentAt", plist::Value(sentAt)},
    });
}

struct Summary {
    double median;
    double p99;
};

Summary summarise(std::vector<double> microseconds) {
    std::sort(microseconds.begin(), microseconds.end());
    const auto at = [&](double q) {
        return microseconds[static_cast<std::size_t>(q * static_cast<double>(microseconds.size() - 1))];
    };
    return {at(0.5), at(0.99)};
}

void writeByte(int fd) {
    const char byte = 1;
    [[maybe_unused]] const auto n = ::write(fd, &byte, 1);
}

bool readByte(int fd) {
    char byte = 0;
    return ::read(fd, &byte, 1) == 1;
}

void writeDoubles(int fd, const std::vector<double>& values) {
    const auto* bytes = reinterpret_cast<const char*>(values.data());
    std::size_t left = values.size() * sizeof(double);
    while (left > 0) {
        const ssize_t n = ::write(fd, bytes, left);
        if (n <= 0)
            return;
        bytes += n;
        left -= static_cast<std::size_t>(n);
    }
}

std::vector<double> readDoubles(int fd, std::size_t count) {
    std::vector<double> values(count);
    auto* bytes = reinterpret_cast<char*>(values.data());
    std::size_t left = count * sizeof(double);
    while (left > 0) {
        const ssize_t n = ::read(fd, bytes, left);
        if (n <= 0)
            break;
        bytes += n;
        left -= static_cast<std::size_t>(n);
    }
    return values;
}

// Runs `reader` in a child process and `writer` here. The reader acknowledges each message
// on `ack` and finally sends its latencies back on `results`.
template <class Reader, class Writer>
std::vector<double> inTwoProcesses(std::size_t count, Reader reader, Writer writer) {
    int ack[2], results[2], ready[2];
    if (::pipe(ack) != 0 || ::pipe(results) != 0 || ::pipe(ready) != 0)
        std::exit(1);
    const pid_t child = ::fork();
    if (child == 0) {
        std::vector<double> latencies = reader(ready[1], ack[1]);
        writeDoubles(results[1], latencies);
        ::_exit(0);
    }
    readByte(ready[0]);
    writer(ack[0]);
    std::vector<double> latencies = readDoubles(results[0], count);
    ::waitpid(child, nullptr, 0);
    for (int fd : {ack[0], ack[1], results[0], results[1], ready[0], ready[1]})
        ::close(fd);
    return latencies;
}

std::vector<double> measureWormhole(std::size_t count) {
    return inTwoProcesses(
        count,
        [count](int readyFd, int ackFd) {
            runtime::AsioRunLoop loop;
            runtime::RunLoop::setCurrent(&loop);
            std::vector<double> latencies;
            latencies.reserve(count);
            {
                transport::MMWormhole wormhole(kGroup, "messages");
                wormhole.listenForMessageWithIdentifier(kIdentifier, [&](const plist::Value& message) {
                    const std::int64_t now = monotonicNanoseconds();
                    latencies.push_back(static_cast<double>(now - message["sentAt"].integerValue()) / 1000.0);
                    writeByte(ackFd);
                    if (latencies.size() == count)
                        loop.stop();
                });
                writeByte(readyFd);
                loop.run();
            }
            runtime::RunLoop::setCurrent(nullptr);
            return latencies;
        },
        [count](int ackFd) {
            runtime::AsioRunLoop loop;
            runtime::RunLoop::setCurrent(&loop);
            {
                transport::MMWormhole wormhole(kGroup, "messages");
                for (std::size_t i = 0; i < count; ++i) {
                    wormhole.passMessageObject(statusMessage(monotonicNanoseconds(), static_cast<int>(i)), kIdentifier);
                    readByte(ackFd);
                }
            }
            runtime::RunLoop::setCurrent(nullptr);
        });
}

// A bare datagram wake-up: the sender stamps, the blocked receiver reads the stamp.
std::vector<double> measureDatagrams(std::size_t count, const std::filesystem::path& directory) {
    const std::string path = (directory / "floor.sock").string();
    ::unlink(path.c_str());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    const int receiver = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (::bind(receiver, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        std::exit(1);
    auto latencies = inTwoProcesses(
        count,
        [&](int readyFd, int ackFd) {
            std::vector<double> values;
            writeByte(readyFd);
            for (std::size_t i = 0; i < count; ++i) {
                std::int64_t sentAt = 0;
                if (::recv(receiver, &sentAt, sizeof sentAt, 0) != sizeof sentAt)
                    break;
                values.push_back(static_cast<double>(monotonicNanoseconds() - sentAt) / 1000.0);
                writeByte(ackFd);
            }
            return values;
        },
        [&](int ackFd) {
            const int sender = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
            for (std::size_t i = 0; i < count; ++i) {
                const std::int64_t sentAt = monotonicNanoseconds();
                ::sendto(sender, &sentAt, sizeof sentAt, 0, reinterpret_cast<sockaddr*>(&address), sizeof address);
                readByte(ackFd);
            }
            ::close(sender);
        });
    ::close(receiver);
    ::unlink(path.c_str());
    return latencies;
}

// Temporary-file write, rename over the target and read back of the message's bytes.
std::vector<double> measureFiles(std::size_t count, const std::filesystem::path& directory) {
    const plist::Data bytes = *plist::KeyedArchiver::archivedData(statusMessage(0, 0));
    const std::string target = (directory / "floor.archive").string();
    const std::string temporary = (directory / ".floor.archive.tmp").string();
    std::vector<double> latencies;
    std::vector<std::uint8_t> back(bytes.size() + 1);
    for (std::size_t i = 0; i < count; ++i) {
        const std::int64_t start = monotonicNanoseconds();
        const int out = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        [[maybe_unused]] const auto written = ::write(out, bytes.data(), bytes.size());
        ::close(out);
        ::rename(temporary.c_str(), target.c_str());
        const int in = ::open(target.c_str(), O_RDONLY | O_CLOEXEC);
        [[maybe_unused]] const auto got = ::read(in, back.data(), back.size());
        ::close(in);
        latencies.push_back(static_cast<double>(monotonicNanoseconds() - start) / 1000.0);
    }
    ::unlink(target.c_str());
    return latencies;
}

std::filesystem::path defaultRoot() {
    if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime && *runtime)
        return runtime;
    if (std::filesystem::is_directory("/dev/shm"))
        return "/dev/shm";
    return std::filesystem::temp_directory_path();
}

} // namespace

int main(int argc, char** argv) {
    std::size_t count = 10000;
    std::filesystem::path root = defaultRoot();
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--messages" && i + 1 < argc) {
            count = std::strtoul(argv[++i], nullptr, 10);
        } else if (argument == "--root" && i + 1 < argc) {
            root = argv[++i];
        } else {
            std::printf("usage: %s [--messages N] [--root DIR]\n", argv[0]);
            return argument == "--help" || argument == "-h" ? 0 : 2;
        }
    }
    if (count < 100)
        count = 100;

    char pattern[] = "vexo-latency-XXXXXX";
    const std::filesystem::path base = root / pattern;
    std::string baseText = base.string();
    if (!::mkdtemp(baseText.data())) {
        std::perror("mkdtemp");
        return 1;
    }
    const std::filesystem::path container = baseText;
    ipc::Container::setLocation({.root = container.string()});
    std::filesystem::create_directories(container / kGroup / "messages");

    std::printf("%zu messages, container under %s\n", count, container.c_str());
    const Summary wormhole = summarise(measureWormhole(count));
    const Summary datagram = summarise(measureDatagrams(count, container));
    const Summary file = summarise(measureFiles(count, container / kGroup / "messages"));
    std::filesystem::remove_all(container);

    const double floorMedian = datagram.median + file.median;
    const double floorP99 = datagram.p99 + file.p99;
    std::printf("\n%-44s %10s %10s\n", "one-way latency (microseconds)", "median", "p99");
    std::printf("%-44s %10.1f %10.1f\n", "datagram wake-up between two processes", datagram.median, datagram.p99);
    std::printf("%-44s %10.1f %10.1f\n", "temporary-file write, rename and read", file.median, file.p99);
    std::printf("%-44s %10.1f %10.1f\n", "floor (sum of the two)", floorMedian, floorP99);
    std::printf("%-44s %10.1f %10.1f\n", "whole message through the wormhole", wormhole.median, wormhole.p99);
    std::printf("%-44s %10.2f %10.2f\n", "ratio to the floor", wormhole.median / floorMedian, wormhole.p99 / floorP99);
    std::printf("goal: median at most 2x the floor and under 100 us, p99 under 1000 us\n");
    return 0;
}

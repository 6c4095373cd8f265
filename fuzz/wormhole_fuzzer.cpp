// The transport's mailboxes under whatever another process may leave in the message
// directory. Each input is a script of steps over three identifiers: pass a message, drop
// raw bytes in as a message file (a foreign or damaged writer), drop raw bytes in as a
// temporary file (a writer killed before its rename), clear one, remove the directory, read.
// A read must give the last message passed, nothing after a clear, and anything but a crash
// after foreign bytes; every listener hears exactly what a read then gives.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include <unistd.h>

#include "platform/ipc/Container.h"
#include "platform/log/Log.h"
#include "platform/runtime/DeterministicRunLoop.h"
#include "transport/MMWormhole.h"

using namespace vexo;

namespace {

constexpr std::string_view kGroup = "group.fuzz.wormhole";
constexpr const char* kIdentifiers[] = {"mixerStatus", "turntableStatus1", "libraryItems"};

// What a read of an identifier must give: a known value, or anything when foreign bytes
// were dropped in since the last pass or clear.
struct Expected {
    bool known = true;
    plist::Value value;
};

// The process's container and loop, made once; the mailboxes are made per input, so that
// a finding replays from its input alone.
struct Rig {
    Rig() {
        std::string pattern = (std::filesystem::temp_directory_path() / "vexo-fuzz-wormhole-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr)
            std::abort();
        ::setenv("VEXO_CONTAINER_ROOT", pattern.c_str(), 1);
        runtime::RunLoop::setCurrent(&loop);
        const auto container = ipc::Container::pathForGroup(kGroup);
        if (!container)
            std::abort();
        messages = *container / "messages";
    }

    runtime::DeterministicRunLoop loop;
    std::filesystem::path messages;
};

// Reads the input a byte at a time; zeros once it is used up.
struct Reader {
    const std::uint8_t* data;
    std::size_t size;
    std::size_t at = 0;
    [[nodiscard]] bool done() const { return at >= size; }
    std::uint8_t byte() { return at < size ? data[at++] : 0; }
    std::string bytes() {
        const std::size_t length = std::min<std::size_t>(byte() * 8u, size - std::min(size, at));
        std::string taken(reinterpret_cast<const char*>(data) + at, length);
        at += length;
        return taken;
    }
};

void drop(const std::filesystem::path& path, const std::string& bytes) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

void require(bool condition) {
    if (!condition)
        __builtin_trap();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    log::setLevel(log::Level::Off);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Rig* const rig = new Rig;
    std::filesystem::remove_all(rig->messages);
    transport::MMWormhole writer(std::string(kGroup), "messages", &rig->loop);
    transport::MMWormhole reader(std::string(kGroup), "messages", &rig->loop);
    std::optional<plist::Value> heard[std::size(kIdentifiers)];
    for (std::size_t i = 0; i < std::size(kIdentifiers); ++i)
        reader.listenForMessageWithIdentifier(kIdentifiers[i],
                                              [&heard, i](const plist::Value& message) { heard[i] = message; });
    Expected expected[std::size(kIdentifiers)];
    Reader in{data, size};
    for (int step = 0; step < 32 && !in.done(); ++step) {
        const std::uint8_t operation = in.byte();
        const std::size_t index = in.byte() % std::size(kIdentifiers);
        const char* identifier = kIdentifiers[index];
        const std::string fileName = std::string(identifier) + ".archive";
        switch (operation % 6) {
        case 0: {
            const std::string payload = in.bytes();
            const plist::Value message(
                plist::Dictionary{{"step", plist::Value(static_cast<std::int64_t>(step))},
                                  {"payload", plist::Value(plist::Data(payload.begin(), payload.end()))}});
            heard[index].reset();
            writer.passMessageObject(message, identifier);
            rig->loop.runUntilIdle();
            require(heard[index] == message);
            expected[index] = {true, message};
            break;
        }
        case 1:
            drop(rig->messages / fileName, in.bytes());
            expected[index].known = false;
            break;
        case 2:
            drop(rig->messages / ("." + fileName + "." + std::to_string(in.byte()) + ".1.tmp"), in.bytes());
            break;
        case 3:
            writer.clearMessageContentsForIdentifier(identifier);
            expected[index] = {};
            break;
        case 4:
            std::filesystem::remove_all(rig->messages);
            for (Expected& each : expected)
                each = {};
            break;
        default: {
            const plist::Value read = reader.messageWithIdentifier(identifier);
            if (expected[index].known)
                require(read == expected[index].value);
            break;
        }
        }
    }
    return 0;
}

// The phone engine behind its real link: each input is a little script of steps, each step
// reaching the engine the way the watch's messages do. Arbitrary datagram bytes go to the
// parent-application socket; actions made from the input's bytes go there too, as keyed
// archives; library actions go through the shared "libraryAction" file and a wake-up; and
// virtual time moves, so that decks end, loops wrap, transitions run and automix loads.
// After every step the engine's state must stay within its ranges.
//
// A fresh engine per input keeps a crash reproducible from its input alone; its status
// messages are encoded, not stored (see EncodingSink).
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <sys/socket.h>
#include <sys/un.h>

#include "model/VXAWProtocol.h"
#include "phone/Catalog.h"
#include "phone/Engine.h"
#include "phone/PhoneLink.h"
#include "platform/ipc/Container.h"
#include "platform/ipc/DatagramEndpoint.h"
#include "platform/log/Log.h"
#include "platform/plist/KeyedArchiver.h"
#include "platform/runtime/DeterministicRunLoop.h"
#include "transport/MMWormhole.h"

using namespace vexo;

namespace {

constexpr std::string_view kGroup = "group.fuzz";

class FuzzCatalog final : public phone::Catalog {
public:
    FuzzCatalog() {
        for (media::PersistentID id = 1; id <= 12; ++id) {
            media::MediaItem::Properties properties;
            properties.persistentID = id;
            properties.title = "Song " + std::to_string(id);
            properties.artist = id % 2 ? "A" : "";
            properties.playbackDuration = id == 3 ? 0 : static_cast<double>(id * 7);
            if (id != 5)
                properties.assetURL = "file:///fuzz/" + std::to_string(id);
            properties.beatsPerMinute = id % 4 == 0 ? 0 : static_cast<std::int64_t>(60 + id * 10);
            m_items.emplace_back(properties);
        }
        m_playlists = {media::MediaPlaylist(100, "Odd", {m_items[0], m_items[2], m_items[4], m_items[6]}),
                       media::MediaPlaylist(101, "Empty", {}), media::MediaPlaylist(102, "All", m_items)};
    }
    std::optional<media::MediaItem> item(media::PersistentID id) const override {
        if (id >= 1 && id <= m_items.size())
            return m_items[id - 1];
        return std::nullopt;
    }
    std::vector<media::MediaItem> items() const override { return m_items; }
    std::vector<media::MediaPlaylist> playlists() const override { return m_playlists; }

private:
    std::vector<media::MediaItem> m_items;
    std::vector<media::MediaPlaylist> m_playlists;
};

// Status messages are encoded by the engine but not written: the transport has its own
// fuzz target, and files would make every input a hundred times slower.
class EncodingSink final : public phone::StatusSink {
public:
    void passMessageObject(const plist::Value& message, std::string_view identifier) override {
        if (identifier.empty() || !plist::KeyedArchiver::archivedData(message))
            __builtin_trap();
    }
};

struct Rig {
    Rig() {
        std::string pattern = (std::filesystem::temp_directory_path() / "vexo-fuzz-phone-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr)
            std::abort();
        root = pattern;
        ipc::Container::setLocation({.root = root.string()});
        container = root / kGroup;
        std::filesystem::create_directories(container);
        link = std::make_unique<phone::PhoneLink>(std::string(kGroup), container, loop);
        if (!link->isListening())
            std::abort();
        wormhole = std::make_unique<transport::MMWormhole>(std::string(kGroup), std::string("messages"), &loop);
        if (ipc::kParentApplicationEndpoint.openDirectory(container, ipc::SocketDirectory::Create::No, directory) !=
            ipc::SocketDirectory::Lookup::Opened)
            std::abort();
        address = *directory.address(ipc::kParentApplicationEndpoint.socketName);
        sender = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    }

    void send(const std::uint8_t* data, std::size_t size) const {
        (void)::sendto(sender, data, size, 0, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    void send(const plist::Value& value) const {
        if (const auto archive = plist::KeyedArchiver::archivedData(value))
            send(archive->data(), archive->size());
    }

    std::filesystem::path root;
    std::filesystem::path container;
    runtime::DeterministicRunLoop loop;
    FuzzCatalog catalog;
    EncodingSink sink;
    std::unique_ptr<phone::PhoneLink> link;
    std::unique_ptr<transport::MMWormhole> wormhole;
    ipc::SocketDirectory directory;
    sockaddr_un address{};
    int sender = -1;
};

// Reads the input a byte at a time; zeros once it is used up.
struct Reader {
    const std::uint8_t* data;
    std::size_t size;
    std::size_t at = 0;
    [[nodiscard]] bool done() const { return at >= size; }
    std::uint8_t byte() { return at < size ? data[at++] : 0; }
};

// A parameter value of some type, most often a plausible one.
plist::Value someValue(Reader& in) {
    const std::uint8_t kind = in.byte();
    switch (kind % 8) {
    case 0:
        return plist::Value(static_cast<double>(in.byte()) / 200.0 - 0.1);
    case 1:
        return plist::Value(static_cast<std::int64_t>(static_cast<std::int8_t>(in.byte())));
    case 2:
        return plist::Value(std::string(phone::Mixer::kTransitionTypes[in.byte() % 4]));
    case 3: {
        char text[8];
        std::snprintf(text, sizeof text, "%X", in.byte() % 14);
        return plist::Value(std::string(text));
    }
    case 4:
        return plist::Value(in.byte() % 2 == 0);
    case 5:
        return plist::Value(std::nan(""));
    case 6:
        return plist::Value(plist::Array{plist::Value(1)});
    default:
        return plist::Value();
    }
}

plist::Value someParams(Reader& in) {
    static constexpr std::string_view keys[] = {"itemID", "volume", "crossfaderPosition", "transitionType", "x"};
    plist::Dictionary params;
    const std::size_t count = in.byte() % 3;
    for (std::size_t i = 0; i < count; ++i)
        params.emplace(std::string(keys[in.byte() % 5]), someValue(in));
    return in.byte() % 8 == 0 ? someValue(in) : plist::Value(std::move(params));
}

void checkRanges(const phone::Engine& engine, double now) {
    const phone::Mixer& mixer = engine.mixer();
    const double crossfader = mixer.crossfaderPosition(now);
    if (!(crossfader >= 0 && crossfader <= 1) || !(mixer.volume() >= 0 && mixer.volume() <= 1))
        __builtin_trap();
    for (std::int64_t number = 1; number <= 2; ++number) {
        const phone::Deck& deck = engine.deck(number);
        const double position = deck.position(now);
        const double duration = deck.song() ? deck.song()->duration : 0;
        if (!(position >= 0 && position <= duration) || deck.loopBeats() < phone::Deck::kMinimumLoopBeats ||
            deck.loopBeats() > phone::Deck::kMaximumLoopBeats || !(deck.rate() > 0))
            __builtin_trap();
    }
    const std::int64_t glance = engine.glanceDeckNumber();
    if (glance != 1 && glance != 2)
        __builtin_trap();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    log::setLevel(log::Level::Off);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Rig* const rig = new Rig;
    std::vector<ipc::LocalNotification> notifications;
    phone::Engine engine(rig->loop, rig->catalog, rig->sink,
                         [&](const ipc::LocalNotification& n) { notifications.push_back(n); });
    rig->link->setEngine(&engine);
    engine.start();

    Reader in{data, size};
    for (int step = 0; step < 64 && !in.done(); ++step) {
        switch (in.byte() % 6) {
        case 0: {
            // Raw bytes, straight to the socket.
            const std::size_t length = std::min<std::size_t>(in.byte() * 4u, size - std::min(size, in.at));
            rig->send(data + in.at, length);
            in.at += length;
            break;
        }
        case 1: {
            plist::Dictionary contents{{"turntable", plist::Value(static_cast<std::int64_t>(in.byte() % 4) - 1)},
                                       {"action", plist::Value(static_cast<std::int64_t>(in.byte() % 20))}};
            if (in.byte() % 2 == 0)
                contents.emplace("params", someParams(in));
            rig->send(plist::Value(plist::Dictionary{{"identifier", plist::Value("turntableAction")},
                                                     {"contents", plist::Value(std::move(contents))}}));
            break;
        }
        case 2: {
            plist::Dictionary contents{{"action", plist::Value(static_cast<std::int64_t>(in.byte() % 14))}};
            if (in.byte() % 2 == 0)
                contents.emplace("params", someParams(in));
            rig->send(plist::Value(plist::Dictionary{{"identifier", plist::Value("mixerAction")},
                                                     {"contents", plist::Value(std::move(contents))}}));
            break;
        }
        case 3: {
            // A library action through the shared file, then the wake-up.
            plist::Value message(plist::Dictionary{{"action", plist::Value(static_cast<std::int64_t>(in.byte() % 7))},
                                                   {"params", someParams(in)}});
            rig->wormhole->passMessageObject(in.byte() % 8 == 0 ? someValue(in) : message, "libraryAction");
            rig->send(plist::Value(plist::Dictionary{}));
            break;
        }
        case 4:
            (void)engine.openLibraryEntry(in.byte() % 5);
            break;
        default:
            rig->loop.advance(static_cast<double>(in.byte()) / 8);
            break;
        }
        rig->loop.runUntilIdle();
        checkRanges(engine, rig->loop.now());
    }
    rig->loop.advance(1);
    checkRanges(engine, rig->loop.now());
    rig->link->setEngine(nullptr);
    if (!rig->link->isListening())
        __builtin_trap();
    return 0;
}

#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "model/VXAWProtocol.h"
#include "phone/Catalog.h"
#include "phone/Engine.h"
#include "phone/StatusSink.h"
#include "platform/runtime/DeterministicRunLoop.h"
#include "support/ActionEnvelopes.h"

namespace vexo::phone::testing {

using vexo::testing::deckAction;
using vexo::testing::envelope;
using vexo::testing::mixerAction;

// Songs and playlists made in memory, in the order given.
class MemoryCatalog final : public Catalog {
public:
    std::optional<media::MediaItem> item(media::PersistentID persistentID) const override {
        for (const media::MediaItem& item : songs)
            if (item.persistentID() == persistentID)
                return item;
        return std::nullopt;
    }
    std::vector<media::MediaItem> items() const override { return songs; }
    std::vector<media::MediaPlaylist> playlists() const override { return lists; }

    std::vector<media::MediaItem> songs;
    std::vector<media::MediaPlaylist> lists;
};

inline media::MediaItem makeSong(media::PersistentID id, std::string title, double seconds, std::int64_t bpm = 120,
                                 std::string key = "8A", bool gone = false) {
    media::MediaItem::Properties properties;
    properties.persistentID = id;
    properties.title = std::move(title);
    properties.artist = "Artist " + std::to_string(id % 3);
    properties.albumTitle = "Album " + std::to_string(id % 2);
    properties.playbackDuration = seconds;
    if (!gone)
        properties.assetURL = "file:///music/" + std::to_string(id) + ".mp3";
    properties.beatsPerMinute = bpm;
    properties.initialKey = std::move(key);
    return media::MediaItem(properties,
                            std::vector<std::uint8_t>{0xFF, 0xD8, static_cast<std::uint8_t>(id), 0xFF, 0xD9});
}

// Every message published, with the loop time it went out at.
class RecordingSink final : public StatusSink {
public:
    explicit RecordingSink(const runtime::RunLoop& loop)
        : m_loop(loop) {}

    struct Write {
        std::string identifier;
        plist::Value message;
        double time;
    };

    void passMessageObject(const plist::Value& message, std::string_view identifier) override {
        writes.push_back({std::string(identifier), message, m_loop.now()});
    }

    // The last message under `identifier`, or nothing.
    plist::Value last(std::string_view identifier) const {
        for (auto write = writes.rbegin(); write != writes.rend(); ++write)
            if (write->identifier == identifier)
                return write->message;
        return {};
    }
    std::vector<Write> of(std::string_view identifier) const {
        std::vector<Write> found;
        for (const Write& write : writes)
            if (write.identifier == identifier)
                found.push_back(write);
        return found;
    }

    std::vector<Write> writes;

private:
    const runtime::RunLoop& m_loop;
};

class EngineTest : public ::testing::Test {
protected:
    // Hands `dictionary` to the engine as the watch would, and lets the loop publish.
    void send(const plist::Value& dictionary) {
        engine().handleParentApplicationDictionary(dictionary);
        m_loop.runUntilIdle();
    }
    void load(std::int64_t deck, media::PersistentID id) {
        send(deckAction(deck, 6, plist::Value(plist::Dictionary{{"itemID", plist::Value(persistentIDHex(id))}})));
    }
    static std::string persistentIDHex(media::PersistentID id) {
        char text[17];
        std::snprintf(text, sizeof text, "%llX", static_cast<unsigned long long>(id));
        return text;
    }

    Engine& engine() {
        if (!m_engine) {
            m_engine = std::make_unique<Engine>(
                m_loop, m_catalog, m_sink, [this](const ipc::LocalNotification& n) { m_notifications.push_back(n); },
                m_sound);
            m_engine->start();
            m_loop.runUntilIdle();
        }
        return *m_engine;
    }

    plist::Value status(std::int64_t deck) const { return m_sink.last("turntableStatus" + std::to_string(deck)); }
    plist::Value songID(std::int64_t deck) const {
        return m_sink.last("turntableSongInfo" + std::to_string(deck))["currentSong"]["songID"];
    }

    runtime::DeterministicRunLoop m_loop;
    MemoryCatalog m_catalog;
    RecordingSink m_sink{m_loop};
    std::vector<ipc::LocalNotification> m_notifications;
    // Set before the first engine() to play as sound.
    SoundLink* m_sound = nullptr;
    std::unique_ptr<Engine> m_engine;
};

} // namespace vexo::phone::testing

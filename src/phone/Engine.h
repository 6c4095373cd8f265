#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "phone/Catalog.h"
#include "phone/Deck.h"
#include "phone/LibraryBrowser.h"
#include "phone/Mixer.h"
#include "phone/SoundLink.h"
#include "phone/StatusSink.h"
#include "platform/ipc/LocalNotification.h"
#include "platform/plist/Value.h"
#include "platform/runtime/RunLoop.h"
#include "platform/text/Localization.h"

namespace vexo::runtime {
class Timer;
}

// The phone application's mixing engine: two decks, the mixer with automix and automatic
// transitions, and the library browser. It answers every action the watch sends and publishes
// every status message the watch reads. Given a SoundLink it plays as sound, and its decks'
// clocks are the frames heard; without one its decks are clocks on the loop's time.
//
// Units on the wire: "currentTime" and a song's "duration" are whole seconds of the song;
// "currentDisplayTime" is the position as "m:ss" ("h:mm:ss" from an hour on);
// "transitionDuration" is seconds; "autoLoopBeatInterval" is beats.
//
// Status goes out on every change the engine makes and on request (deck action 16, mixer
// action 11, deck action 17 for the glance). Writes of one identifier are coalesced per loop
// turn: a burst of actions handled in one turn publishes each changed message once, after
// the burst. The library list goes out in pages of ten, one page per kPageInterval.
//
// Everything runs on the loop given at construction; the engine's timers are the loop's
// timers, so tests drive it in virtual time. Malformed input
// (an unknown target or code, a deck number other than 1 and 2 (0 only with action 17),
// parameters missing or of the wrong type, an unknown item or transition type) changes
// nothing and is logged at debug level.
namespace vexo::phone {

class Engine {
public:
    using NotificationSink = std::function<void(const ipc::LocalNotification&)>;

    // Seconds between two pages of the library list, so that the watch reads each one
    // before the next replaces it in the mailbox.
    static constexpr double kPageInterval = 0.05;
    // Pages published per list at most; "numberOfItems" still tells the whole count.
    static constexpr std::size_t kMaximumPages = 50;
    // Seconds between two mixer status messages while the crossfader moves.
    static constexpr double kTransitionStatusInterval = 0.05;
    // While a deck plays as sound, the engine reads the sound's clock at least this often.
    static constexpr double kSoundPollInterval = 0.25;
    // Status key (beside the watch's) that tells why the last load on a deck failed; the
    // watch ignores it, the protocol log shows it.
    static constexpr std::string_view kLoadErrorKey = "loadError";

    // REQUIRES: `loop`, `catalog`, `sink` and `sound` (when given) outlive the engine.
    // `notify` (may be empty) receives the local notifications for the watch. Publishes
    // nothing until start().
    Engine(runtime::RunLoop& loop, const Catalog& catalog, StatusSink& sink, NotificationSink notify,
           SoundLink* sound = nullptr);
    ~Engine();

    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    // Publishes every status message (both decks, their song information, the glance's, the
    // mixer's) and the first page of the library list, replacing what an earlier run left.
    void start();

    // Whether songs loaded from now on take their tempo and key from the tags first (the
    // default) or from the analysis first.
    void setValuePreference(media::ValuePreference preference) { m_valuePreference = preference; }

    // The texts of the notifications from now on (the process's language by default).
    // REQUIRES: `texts` outlives the engine.
    void setLocalization(const text::Localization& texts) { m_texts = &texts; }

    // A dictionary handed over by the watch: {"identifier": "turntableAction" or
    // "mixerAction", "contents": {...}}. Any other dictionary (the empty one that wakes us
    // for a library action among them) is not an action and returns false.
    bool handleParentApplicationDictionary(const plist::Value& dictionary);
    // The contents of a "turntableAction": {"turntable": n, "action": code, "params": ...}.
    void handleTurntableAction(const plist::Value& contents);
    // The contents of a "mixerAction": {"action": code, "params": ...}.
    void handleMixerAction(const plist::Value& contents);
    // The "libraryAction" message: {"action": code, "params": ...}.
    void handleLibraryAction(const plist::Value& message);

    // The media library changed: the browser reads it again and republishes its list.
    void catalogDidChange();

    // The phone's own browsing (no watch action opens an entry): opens entry `index` of the
    // list shown and republishes it. False when nothing opened.
    bool openLibraryEntry(std::size_t index);

    // REQUIRES: `number` is 1 or 2.
    [[nodiscard]] const Deck& deck(std::int64_t number) const {
        return m_decks.at(static_cast<std::size_t>(number - 1));
    }
    [[nodiscard]] const Mixer& mixer() const { return m_mixer; }
    [[nodiscard]] const LibraryBrowser& libraryBrowser() const { return m_browser; }
    // The deck the glance reports: the playing deck nearer the crossfader's side (the one
    // started last when the crossfader stands in the middle), else the one played last,
    // else the first with a song, else deck 1.
    [[nodiscard]] std::int64_t glanceDeckNumber() const;

    // The string table of the notifications' texts, in every language's folder; its keys
    // are the English texts.
    static constexpr std::string_view kNotificationTable = "Notifications";

    // The notification that asks the user to load a song on deck `turntable`, its texts
    // in the language of `texts`.
    [[nodiscard]] static ipc::LocalNotification
    loadNotification(std::int64_t turntable, const text::Localization& texts = text::Localization::main());
    // The notification that offers automix as the song heard nears its end.
    [[nodiscard]] static ipc::LocalNotification
    automixNotification(const text::Localization& texts = text::Localization::main());

private:
    enum Message : std::size_t { Status1, Status2, SongInfo1, SongInfo2, SongInfo0, MixerStatus, MessageCount };

    Deck& mutableDeck(std::int64_t number) { return m_decks.at(static_cast<std::size_t>(number - 1)); }
    [[nodiscard]] double now() const;

    void loadItem(std::int64_t deck, const plist::Value& params);
    void stepSong(std::int64_t deck, int direction);
    [[nodiscard]] std::vector<media::MediaItem> orderHolding(const media::MediaItem& song) const;
    [[nodiscard]] std::optional<media::MediaItem> neighbour(const media::MediaItem& song, int direction) const;
    // False, the deck as it was, when the song cannot play.
    bool load(std::int64_t deck, const media::MediaItem& item);
    void startTransition(double target);
    void startAutomix(std::int64_t from);

    // Brings everything to now: transitions that ended, decks that reached their end, songs
    // nearing their end, the tempo of a synced deck, the glance's deck; then sets the timers
    // for what comes next.
    void update();
    void applySync();
    // Hands the sound what changed and reads back its clocks (when playing as sound).
    void syncSound();
    void observeSound();
    void schedule();
    void notify(const ipc::LocalNotification& notification);

    void markChanged(Message message);
    void markDeckChanged(std::int64_t deck) { markChanged(deck == 1 ? Status1 : Status2); }
    // The song information of `deck`, and the glance's when it shows that deck.
    void markSongChanged(std::int64_t deck);
    void flush();
    void publishLibrary();
    void publishNextPage();

    runtime::RunLoop& m_loop;
    const Catalog& m_catalog;
    StatusSink& m_sink;
    NotificationSink m_notify;
    SoundLink* m_sound;
    // Why the last load on each deck failed; empty once one succeeds.
    std::array<std::string, 2> m_loadErrors;
    media::ValuePreference m_valuePreference = media::ValuePreference::Tags;
    const text::Localization* m_texts = &text::Localization::main();
    std::array<Deck, 2> m_decks{Deck(1), Deck(2)};
    Mixer m_mixer;
    LibraryBrowser m_browser;
    std::int64_t m_glanceDeck = 1;
    // The load of each deck whose approaching end has been dealt with (automix or notice).
    std::array<std::uint64_t, 2> m_nearEndHandled{};
    // The deck an automix transition fades out; it stops when the transition ends.
    std::optional<std::int64_t> m_automixOutgoing;
    // While sync is on, the deck whose tempo the other one follows.
    std::optional<std::int64_t> m_syncMaster;

    std::bitset<MessageCount> m_changed;
    bool m_flushPosted = false;
    std::shared_ptr<runtime::Timer> m_eventTimer;
    std::shared_ptr<runtime::Timer> m_transitionTimer;
    std::shared_ptr<runtime::Timer> m_pageTimer;
    std::size_t m_nextPage = 0;
    // Posted work holds this weakly, so that work still queued when the engine goes finds
    // nothing to call.
    std::shared_ptr<Engine*> m_alive;
};

} // namespace vexo::phone

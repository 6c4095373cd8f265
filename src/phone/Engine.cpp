#include "phone/Engine.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "model/VXAWProtocol.h"
#include "phone/PersistentIDText.h"
#include "platform/log/Log.h"
#include "platform/runtime/Timer.h"

namespace vexo::phone {
namespace {

using namespace vexo::model;

constexpr std::string_view kLogComponent = "phone";
// Where a notification's text takes its deck number.
constexpr std::string_view kNumberField = "%ld";

// The shortest wait for the sound's clock: about one buffer, the time a change takes to be
// heard.
constexpr double kMinimumSoundWait = 0.01;

// An integer as the watch sends it: an integer number, or a real with no fraction.
std::optional<std::int64_t> integerOf(const plist::Value& value) {
    if (const plist::Integer* integer = value.asInteger())
        return integer->isUnsigned ? std::nullopt : std::optional<std::int64_t>(integer->asSigned());
    if (const plist::Real* real = value.asReal()) {
        if (std::isfinite(real->value) && std::trunc(real->value) == real->value && std::fabs(real->value) < 1e15)
            return static_cast<std::int64_t>(real->value);
    }
    return std::nullopt;
}

// A fraction as the watch sends it: a real or an integer number, never a boolean or a text.
std::optional<double> numberOf(const plist::Value& value) {
    if (value.asReal() != nullptr || value.asInteger() != nullptr) {
        const double number = value.doubleValue();
        if (std::isfinite(number))
            return number;
    }
    return std::nullopt;
}

void ignored(std::string_view what) {
    log::debug(kLogComponent, "ignored " + std::string(what));
}

std::string identifierOf(std::string_view base, std::int64_t deck) {
    return std::string(base) + std::to_string(deck);
}

Deck::Song songFor(const media::MediaItem& item, media::ValuePreference preference) {
    Deck::Song song;
    song.item = item;
    song.duration = item.playbackDuration();
    song.beatsPerMinute = item.chosenBeatsPerMinute(preference);
    song.key = item.chosenKey(preference);
    song.firstBeat = item.chosenFirstBeatSeconds(preference);
    if (item.analysis()) {
        song.loudnessLUFS = item.analysis()->loudnessLUFS;
        song.truePeakDBTP = item.analysis()->truePeakDBTP;
    }
    return song;
}

} // namespace

Engine::Engine(runtime::RunLoop& loop, const Catalog& catalog, StatusSink& sink, NotificationSink notify,
               SoundLink* sound)
    : m_loop(loop),
      m_catalog(catalog),
      m_sink(sink),
      m_notify(std::move(notify)),
      m_sound(sound),
      m_browser(catalog),
      m_alive(std::make_shared<Engine*>(this)) {}

Engine::~Engine() {
    for (const auto& timer : {m_eventTimer, m_transitionTimer, m_pageTimer})
        if (timer)
            timer->invalidate();
}

double Engine::now() const {
    return m_loop.now();
}

void Engine::start() {
    m_changed.set();
    m_glanceDeck = glanceDeckNumber();
    flush();
    publishLibrary();
    syncSound();
    schedule();
}

bool Engine::handleParentApplicationDictionary(const plist::Value& dictionary) {
    const std::string* identifier = dictionary[VXAWMessageIdentifierKey].asString();
    if (identifier == nullptr)
        return false;
    const plist::Value& contents = dictionary[VXAWMessageContentsKey];
    if (*identifier == VXAWTurntableActionMessageIdentifier)
        handleTurntableAction(contents);
    else if (*identifier == VXAWMixerActionMessageIdentifier)
        handleMixerAction(contents);
    else
        ignored("an action for the unknown target \"" + *identifier + "\"");
    return true;
}

void Engine::handleTurntableAction(const plist::Value& contents) {
    if (contents.asDictionary() == nullptr)
        return ignored("a deck action without contents");
    const std::optional<std::int64_t> number = integerOf(contents[kActionTurntableKey]);
    const std::optional<std::int64_t> code = integerOf(contents[kActionCodeKey]);
    if (!number || !code)
        return ignored("a deck action without an integer deck number and code");
    if (*code == VXAWTurntableActionGlanceRefresh) {
        if (*number < 0 || *number > 2)
            return ignored("a glance refresh for deck " + std::to_string(*number));
        update();
        return markChanged(SongInfo0);
    }
    if (*number != 1 && *number != 2)
        return ignored("deck action " + std::to_string(*code) + " for deck " + std::to_string(*number));

    update();
    Deck& deck = mutableDeck(*number);
    const double time = now();
    switch (*code) {
    case VXAWTurntableActionPlay:
        if (deck.play(time) && m_automixOutgoing == *number)
            m_automixOutgoing.reset();
        break;
    case VXAWTurntableActionPause:
        deck.pause(time);
        break;
    case VXAWTurntableActionSkipForward:
        deck.skip(Deck::kSkipSeconds, time);
        break;
    case VXAWTurntableActionSkipBackward:
        deck.skip(-Deck::kSkipSeconds, time);
        break;
    case VXAWTurntableActionNext:
        stepSong(*number, +1);
        break;
    case VXAWTurntableActionPrevious:
        stepSong(*number, -1);
        break;
    case VXAWTurntableActionLoadItem:
        loadItem(*number, contents[kActionParamsKey]);
        break;
    case VXAWTurntableActionAutoLoopHalf:
        deck.halveLoop(time);
        break;
    case VXAWTurntableActionAutoLoopDouble:
        deck.doubleLoop(time);
        break;
    case VXAWTurntableActionToggleLooping:
        deck.toggleLooping(time);
        break;
    case VXAWTurntableActionFxSelectNext:
        deck.selectNextEffect();
        break;
    case VXAWTurntableActionFxSelectPrevious:
        deck.selectPreviousEffect();
        break;
    case VXAWTurntableActionToggleFx:
        deck.toggleEffect();
        break;
    case VXAWTurntableActionToggleFxLowPass:
        deck.toggleLowPass();
        break;
    case VXAWTurntableActionToggleFxHighPass:
        deck.toggleHighPass();
        break;
    case VXAWTurntableActionRequestStatus:
        break;
    default:
        return ignored("the unknown deck action " + std::to_string(*code));
    }
    // A request, and an action that changed nothing, still answer with the status: the
    // watch shows whatever the last status said.
    markDeckChanged(*number);
    update();
}

void Engine::handleMixerAction(const plist::Value& contents) {
    if (contents.asDictionary() == nullptr)
        return ignored("a mixer action without contents");
    const std::optional<std::int64_t> code = integerOf(contents[kActionCodeKey]);
    if (!code)
        return ignored("a mixer action without an integer code");
    const plist::Value& params = contents[kActionParamsKey];
    update();
    switch (*code) {
    case VXAWMixerActionSync:
        m_mixer.toggleSync();
        break;
    case VXAWMixerActionSetVolume: {
        const std::optional<double> volume = numberOf(params[VXAWMixerVolumeKey]);
        if (!volume || !m_mixer.setVolume(*volume))
            return ignored("a volume that is not a number");
        break;
    }
    case VXAWMixerActionSetCrossfaderPosition: {
        const std::optional<double> position = numberOf(params[VXAWMixerCrossfaderPositionKey]);
        if (!position || !m_mixer.setCrossfaderPosition(*position))
            return ignored("a crossfader position that is not a number");
        m_automixOutgoing.reset();
        break;
    }
    case VXAWMixerActionTransitionLeft:
        startTransition(0);
        break;
    case VXAWMixerActionTransitionMiddle:
        startTransition(0.5);
        break;
    case VXAWMixerActionTransitionRight:
        startTransition(1);
        break;
    case VXAWMixerActionAutomixOn:
        m_mixer.setAutomixActive(true);
        break;
    case VXAWMixerActionAutomixOff:
        m_mixer.setAutomixActive(false);
        break;
    case VXAWMixerActionTransitionDurationNext:
        m_mixer.selectNextTransitionDuration();
        break;
    case VXAWMixerActionTransitionDurationPrevious:
        m_mixer.selectPreviousTransitionDuration();
        break;
    case VXAWMixerActionSetTransitionType: {
        const std::string* type = params[VXAWMixerTransitionTypeKey].asString();
        if (type == nullptr || !m_mixer.setTransitionType(*type))
            return ignored("an unknown transition type");
        break;
    }
    case VXAWMixerActionRequestStatus:
        break;
    default:
        return ignored("the unknown mixer action " + std::to_string(*code));
    }
    markChanged(MixerStatus);
    update();
}

void Engine::handleLibraryAction(const plist::Value& message) {
    if (message.asDictionary() == nullptr)
        return ignored("a library action that is no dictionary");
    const std::optional<std::int64_t> code = integerOf(message[kActionCodeKey]);
    if (!code)
        return ignored("a library action without an integer code");
    switch (*code) {
    case VXAWLibraryActionResetItems:
        break;
    case VXAWLibraryActionBack:
        m_browser.back();
        break;
    case VXAWLibraryActionPreviousTab:
        m_browser.previousSection();
        break;
    case VXAWLibraryActionNextTab:
        m_browser.nextSection();
        break;
    default:
        return ignored("the unknown library action " + std::to_string(*code));
    }
    publishLibrary();
}

void Engine::catalogDidChange() {
    m_browser.reload();
    publishLibrary();
}

bool Engine::openLibraryEntry(std::size_t index) {
    if (!m_browser.open(index))
        return false;
    publishLibrary();
    return true;
}

void Engine::loadItem(std::int64_t deck, const plist::Value& params) {
    const std::string* text = params[VXAWLibraryItemIDKey].asString();
    if (text == nullptr)
        return ignored("a load without an item identifier");
    const std::optional<media::PersistentID> persistentID = persistentIDFromText(*text);
    if (!persistentID)
        return ignored("a load of the malformed item identifier \"" + *text + "\"");
    const std::optional<media::MediaItem> item = m_catalog.item(*persistentID);
    if (!item)
        return ignored("a load of the unknown item " + *text);
    if (!item->assetURL())
        return ignored("a load of item " + *text + ", whose file has gone");
    load(deck, *item);
}

bool Engine::load(std::int64_t deck, const media::MediaItem& item) {
    Deck::Song song = songFor(item, m_valuePreference);
    std::string& loadError = m_loadErrors.at(static_cast<std::size_t>(deck - 1));
    std::shared_ptr<sound::Track> track;
    if (m_sound) {
        auto opened = m_sound->open(song);
        if (!opened) {
            loadError = "cannot load \"" + item.title() + "\": " + opened.error().message();
            log::warning(kLogComponent, "deck " + std::to_string(deck) + " " + loadError);
            markDeckChanged(deck);
            return false;
        }
        track = std::move(opened).value();
        // The watch is told the decoded length, not the tags'.
        song.duration = m_sound->durationOf(*track);
    }
    loadError.clear();
    mutableDeck(deck).load(std::move(song), now());
    if (m_sound)
        m_sound->load(this->deck(deck), std::move(track));
    if (m_automixOutgoing == deck)
        m_automixOutgoing.reset();
    markDeckChanged(deck);
    markSongChanged(deck);
    return true;
}

void Engine::markSongChanged(std::int64_t deck) {
    markChanged(deck == 1 ? SongInfo1 : SongInfo2);
    if (m_glanceDeck == deck)
        markChanged(SongInfo0);
}

void Engine::stepSong(std::int64_t deck, int direction) {
    Deck& target = mutableDeck(deck);
    if (!target.song())
        return ignored("next or previous on an empty deck");
    const std::optional<media::MediaItem> item = neighbour(target.song()->item, direction);
    if (!item)
        return ignored(direction > 0 ? "next after the last song" : "previous before the first song");
    const bool wasPlaying = target.isPlaying();
    if (!load(deck, *item))
        return;
    if (wasPlaying)
        target.play(now());
}

std::vector<media::MediaItem> Engine::orderHolding(const media::MediaItem& song) const {
    const auto holds = [&](const std::vector<media::MediaItem>& items) {
        return std::any_of(items.begin(), items.end(),
                           [&](const media::MediaItem& item) { return item.persistentID() == song.persistentID(); });
    };
    if (const std::vector<media::MediaItem>* open = m_browser.openSongs(); open != nullptr && holds(*open))
        return *open;
    for (media::MediaPlaylist& playlist : m_catalog.playlists())
        if (holds(playlist.items()))
            return playlist.items();
    return m_catalog.items();
}

std::optional<media::MediaItem> Engine::neighbour(const media::MediaItem& song, int direction) const {
    const std::vector<media::MediaItem> order = orderHolding(song);
    const auto found = std::find_if(order.begin(), order.end(), [&](const media::MediaItem& item) {
        return item.persistentID() == song.persistentID();
    });
    if (found == order.end())
        return std::nullopt;
    // Songs whose file has gone cannot play and are stepped over.
    auto index = static_cast<std::ptrdiff_t>(found - order.begin());
    for (index += direction; index >= 0 && index < static_cast<std::ptrdiff_t>(order.size()); index += direction)
        if (order[static_cast<std::size_t>(index)].assetURL())
            return order[static_cast<std::size_t>(index)];
    return std::nullopt;
}

void Engine::startTransition(double target) {
    m_mixer.startTransition(target, now());
    if (m_sound)
        m_sound->startTransition(target, m_mixer.transitionDuration(), m_mixer.transitionType());
    m_automixOutgoing.reset();
    // A transition to one side brings that deck in: it starts if it has a song.
    if (target != 0.5) {
        const std::int64_t incoming = target < 0.5 ? 1 : 2;
        if (mutableDeck(incoming).play(now()))
            markDeckChanged(incoming);
    }
}

void Engine::startAutomix(std::int64_t from) {
    const std::int64_t to = 3 - from;
    Deck& incoming = mutableDeck(to);
    if (!incoming.isPlaying()) {
        const std::optional<media::MediaItem> next = neighbour(deck(from).song()->item, +1);
        if (!next)
            return ignored("automix at the end of the list: nothing follows");
        if (!load(to, *next))
            return;
        // The song coming in starts on a beat of the one going out, so that they play in time.
        if (m_sound && incoming.play(now())) {
            m_sound->playOnBeatOf(incoming, from);
            markDeckChanged(to);
        }
    }
    startTransition(to == 1 ? 0 : 1);
    m_automixOutgoing = from;
}

void Engine::update() {
    observeSound();
    const double time = now();
    if (m_mixer.update(time)) {
        markChanged(MixerStatus);
        if (m_automixOutgoing) {
            if (mutableDeck(*m_automixOutgoing).pause(time))
                markDeckChanged(*m_automixOutgoing);
            m_automixOutgoing.reset();
        }
    }
    for (Deck& deck : m_decks) {
        if (!deck.update(time))
            continue;
        markDeckChanged(deck.number());
        const Deck& other = this->deck(3 - deck.number());
        if (!other.isPlaying())
            notify(loadNotification(deck.number(), *m_texts));
    }

    // The song heard nears its end: automix takes over, or the user is offered automix.
    const std::int64_t heard = glanceDeckNumber();
    const Deck& heardDeck = deck(heard);
    const std::optional<double> toEnd = heardDeck.secondsToEnd(time);
    std::uint64_t& handled = m_nearEndHandled.at(static_cast<std::size_t>(heard - 1));
    if (toEnd && *toEnd <= m_mixer.transitionDuration() && handled != heardDeck.loadCount()) {
        handled = heardDeck.loadCount();
        if (m_mixer.isAutomixActive())
            startAutomix(heard);
        else
            notify(automixNotification(*m_texts));
    }

    applySync();
    const std::int64_t glance = glanceDeckNumber();
    if (glance != m_glanceDeck) {
        m_glanceDeck = glance;
        markChanged(SongInfo0);
    }
    syncSound();
    schedule();
}

void Engine::syncSound() {
    if (!m_sound)
        return;
    for (const Deck& deck : m_decks)
        m_sound->sync(deck, now());
    m_sound->syncMixer(m_mixer, now());
    m_sound->collect();
}

void Engine::observeSound() {
    if (!m_sound)
        return;
    for (Deck& deck : m_decks)
        if (m_sound->observe(deck, now())) {
            markDeckChanged(deck.number());
            markSongChanged(deck.number());
        }
}

void Engine::applySync() {
    const double time = now();
    // The master is the deck heard when sync came on; it hands over only when it stops while
    // the other plays, so that starting a deck never changes the tempo heard.
    if (!m_mixer.isSyncActive()) {
        m_syncMaster.reset();
    } else {
        if (!m_syncMaster)
            m_syncMaster = glanceDeckNumber();
        if (!deck(*m_syncMaster).isPlaying() && deck(3 - *m_syncMaster).isPlaying())
            m_syncMaster = 3 - *m_syncMaster;
    }
    for (Deck& deck : m_decks) {
        double rate = 1;
        const Deck& other = this->deck(3 - deck.number());
        if (m_syncMaster && deck.number() != *m_syncMaster && deck.song() && other.song() &&
            deck.song()->beatsPerMinute > 0 && other.song()->beatsPerMinute > 0)
            rate = other.song()->beatsPerMinute / deck.song()->beatsPerMinute;
        if (rate != deck.rate()) {
            deck.setRate(rate, time);
            markDeckChanged(deck.number());
            // Matching the tempo is half of sync; the beats then fall together.
            if (m_sound && m_syncMaster && rate != 1) {
                m_sound->sync(deck, time);
                m_sound->alignBeats(deck, *m_syncMaster);
            }
        }
    }
}

void Engine::schedule() {
    const double time = now();
    double next = std::numeric_limits<double>::infinity();
    for (const Deck& deck : m_decks)
        if (const std::optional<double> toEnd = deck.secondsToEnd(time)) {
            next = std::min(next, time + *toEnd);
            if (deck.number() == m_glanceDeck &&
                m_nearEndHandled.at(static_cast<std::size_t>(deck.number() - 1)) != deck.loadCount())
                next = std::min(next, time + std::max(0.0, *toEnd - m_mixer.transitionDuration()));
        }

    if (const std::optional<double> end = m_mixer.transitionEnd())
        next = std::min(next, *end);
    if (m_sound) {
        // The sound's clock is read on a timer: an end comes from the frames played, a little
        // after the loop's clock foresaw it, and a decoded length can differ from the tags'.
        if (deck(1).isPlaying() || deck(2).isPlaying())
            next = std::min(next, time + kSoundPollInterval);
        if (std::isfinite(next))
            next = std::max(next, time + kMinimumSoundWait);
    }

    // Positions are recomputed on every call, so the same event comes out a hair apart; a
    // timer within a microsecond of it is kept rather than made anew for every action.
    if (m_eventTimer &&
        (!m_eventTimer->isValid() || !std::isfinite(next) || std::fabs(m_eventTimer->fireDate() - next) > 1e-6)) {
        m_eventTimer->invalidate();
        m_eventTimer.reset();
    }
    if (!m_eventTimer && std::isfinite(next)) {
        const std::weak_ptr<Engine*> alive = m_alive;
        m_eventTimer = runtime::Timer::scheduledTimer(m_loop, std::max(0.0, next - time), runtime::Timer::Repeats::No,
                                                      [alive](runtime::Timer&) {
                                                          if (const auto engine = alive.lock()) {
                                                              (*engine)->m_eventTimer.reset();
                                                              (*engine)->update();
                                                          }
                                                      });
    }

    if (m_mixer.isTransitioning() && !m_transitionTimer) {
        const std::weak_ptr<Engine*> alive = m_alive;
        m_transitionTimer = runtime::Timer::scheduledTimer(m_loop, kTransitionStatusInterval,
                                                           runtime::Timer::Repeats::Yes, [alive](runtime::Timer&) {
                                                               if (const auto engine = alive.lock()) {
                                                                   (*engine)->markChanged(MixerStatus);
                                                                   (*engine)->update();
                                                               }
                                                           });
    } else if (!m_mixer.isTransitioning() && m_transitionTimer) {
        m_transitionTimer->invalidate();
        m_transitionTimer.reset();
    }
}

void Engine::notify(const ipc::LocalNotification& notification) {
    log::debug(kLogComponent, "local notification: " + notification.alertTitle);
    if (m_notify)
        m_notify(notification);
}

void Engine::markChanged(Message message) {
    m_changed.set(message);
    if (m_flushPosted)
        return;
    m_flushPosted = true;
    const std::weak_ptr<Engine*> alive = m_alive;
    m_loop.post([alive] {
        if (const auto engine = alive.lock())
            (*engine)->flush();
    });
}

void Engine::flush() {
    m_flushPosted = false;
    observeSound();
    const double time = now();
    const std::bitset<MessageCount> changed = std::exchange(m_changed, {});
    for (std::int64_t number = 1; number <= 2; ++number) {
        if (changed.test(number == 1 ? Status1 : Status2)) {
            plist::Value status = deck(number).status(time);
            if (const std::string& error = m_loadErrors.at(static_cast<std::size_t>(number - 1)); !error.empty())
                status.asDictionary()->emplace(std::string(kLoadErrorKey), plist::Value(error));
            m_sink.passMessageObject(status, identifierOf(VXAWTurntableStatusMessageIdentifier, number));
        }
        if (changed.test(number == 1 ? SongInfo1 : SongInfo2))
            m_sink.passMessageObject(deck(number).songInfo(),
                                     identifierOf(VXAWTurntableSongInfoMessageIdentifier, number));
    }
    if (changed.test(SongInfo0))
        m_sink.passMessageObject(deck(m_glanceDeck).songInfo(),
                                 identifierOf(VXAWTurntableSongInfoMessageIdentifier, kGlanceTurntableNumber));
    if (changed.test(MixerStatus))
        m_sink.passMessageObject(m_mixer.status(time), VXAWMixerStatusMessageIdentifier);
}

void Engine::publishLibrary() {
    if (m_pageTimer) {
        m_pageTimer->invalidate();
        m_pageTimer.reset();
    }
    m_nextPage = 0;
    publishNextPage();
    if (m_nextPage < std::min(m_browser.pageCount(), kMaximumPages)) {
        const std::weak_ptr<Engine*> alive = m_alive;
        m_pageTimer = runtime::Timer::scheduledTimer(m_loop, kPageInterval, runtime::Timer::Repeats::Yes,
                                                     [alive](runtime::Timer&) {
                                                         if (const auto engine = alive.lock())
                                                             (*engine)->publishNextPage();
                                                     });
    }
}

void Engine::publishNextPage() {
    const std::size_t pages = std::min(m_browser.pageCount(), kMaximumPages);
    if (m_nextPage < pages)
        m_sink.passMessageObject(m_browser.pageMessage(m_nextPage++), VXAWLibraryItemsMessageIdentifier);
    if (m_nextPage >= pages && m_pageTimer) {
        m_pageTimer->invalidate();
        m_pageTimer.reset();
    }
}

std::int64_t Engine::glanceDeckNumber() const {
    const Deck& one = deck(1);
    const Deck& two = deck(2);
    const auto startedLater = [](const Deck& a, const Deck& b) {
        return a.lastStarted().value_or(-1) > b.lastStarted().value_or(-1);
    };
    if (one.isPlaying() && two.isPlaying()) {
        const double position = m_mixer.crossfaderPosition(now());
        if (position < 0.5)
            return 1;
        if (position > 0.5)
            return 2;
        return startedLater(two, one) ? 2 : 1;
    }
    if (one.isPlaying() || two.isPlaying())
        return one.isPlaying() ? 1 : 2;
    if (one.lastStarted() || two.lastStarted())
        return startedLater(two, one) ? 2 : 1;
    return !one.song() && two.song() ? 2 : 1;
}

ipc::LocalNotification Engine::loadNotification(std::int64_t turntable, const text::Localization& texts) {
    ipc::LocalNotification notification;
    notification.alertTitle = texts.localizedString("Deck %ld has stopped", {}, kNotificationTable);
    if (const std::size_t field = notification.alertTitle.find(kNumberField); field != std::string::npos)
        notification.alertTitle.replace(field, kNumberField.size(), std::to_string(turntable));
    notification.alertBody =
        texts.localizedString("Its song has ended and nothing follows. Load another one?", {}, kNotificationTable);
    notification.category = "VXTUserNotificationCategoryLoad";
    notification.userInfo =
        plist::Value(plist::Dictionary{{std::string(kActionTurntableKey), plist::Value(turntable)}});
    notification.actions = {
        {std::string(VXTUserNotificationActionLoad), texts.localizedString("Load a song", {}, kNotificationTable)}};
    return notification;
}

ipc::LocalNotification Engine::automixNotification(const text::Localization& texts) {
    ipc::LocalNotification notification;
    notification.alertTitle = texts.localizedString("Song ending", {}, kNotificationTable);
    notification.alertBody =
        texts.localizedString("The song you hear ends soon. Let automix carry on?", {}, kNotificationTable);
    notification.category = "VXTUserNotificationCategoryAutomix";
    notification.actions = {
        {std::string(VXTUserNotificationActionAutomix), texts.localizedString("Automix", {}, kNotificationTable)}};
    return notification;
}

} // namespace vexo::phone

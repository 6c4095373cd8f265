#include "platform/runtime/Observable.h"

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using namespace vexo::runtime;

namespace {

class Deck : public Observable {
public:
    void setPlaying(bool playing) { setAndNotify("playing", m_playing, playing); }
    void setTitle(std::string title) { setAndNotify("title", m_title, std::move(title)); }

    // A property changed without a setter, the way a subclass brackets a computed change.
    void setTempo(double tempo) {
        willChangeValueForKey("tempo");
        m_tempo = tempo;
        didChangeValueForKey("tempo");
    }

    std::any valueForKey(std::string_view key) const override {
        if (key == "playing")
            return m_playing;
        if (key == "title")
            return m_title;
        if (key == "tempo")
            return m_tempo;
        return {};
    }

private:
    bool m_playing = false;
    std::string m_title = "first";
    double m_tempo = 120;
};

struct Notice {
    std::string keyPath;
    bool isInitial;
    bool hasOld;
    bool hasNew;
    std::string oldTitle;
    std::string newTitle;
};

class RecordingObserver : public KeyValueObserver {
public:
    void observeValueForKeyPath(std::string_view keyPath, Observable&, const KeyValueChange& change) override {
        Notice notice{std::string(keyPath), change.isInitial, change.oldValue.has_value(),
                      change.newValue.has_value(), "", ""};
        if (const auto* title = change.oldValueAs<std::string>())
            notice.oldTitle = *title;
        if (const auto* title = change.newValueAs<std::string>())
            notice.newTitle = *title;
        notices.push_back(notice);
        if (onNotice)
            onNotice();
    }

    std::vector<Notice> notices;
    std::function<void()> onNotice;
};

} // namespace

TEST(ObservableTest, OptionsDecideTheInitialNoticeAndTheValuesCarried) {
    using O = ObservingOptions;
    const struct {
        ObservingOptions options;
        bool initialNotice;
        bool initialHasNew;
        bool changeHasOld;
        bool changeHasNew;
    } rows[] = {
        {O::None, false, false, false, false},
        {O::New, false, false, false, true},
        {O::Old, false, false, true, false},
        {O::New | O::Old, false, false, true, true},
        {O::Initial, true, false, false, false},
        {O::Initial | O::New, true, true, false, true},
        {O::Initial | O::Old | O::New, true, true, true, true},
    };
    for (const auto& row : rows) {
        const auto options = static_cast<unsigned>(row.options);
        Deck deck;
        RecordingObserver observer;
        deck.addObserver(observer, "title", row.options);
        ASSERT_EQ(observer.notices.size(), row.initialNotice ? 1u : 0u) << options;
        if (row.initialNotice) {
            const Notice& initial = observer.notices[0];
            EXPECT_TRUE(initial.isInitial) << options;
            EXPECT_FALSE(initial.hasOld) << "the initial notice never has an old value; options " << options;
            EXPECT_EQ(initial.hasNew, row.initialHasNew) << options;
            EXPECT_EQ(initial.newTitle, row.initialHasNew ? "first" : "") << options;
        }
        observer.notices.clear();
        deck.setTitle("second");
        ASSERT_EQ(observer.notices.size(), 1u) << options;
        const Notice& change = observer.notices[0];
        EXPECT_FALSE(change.isInitial) << options;
        EXPECT_EQ(change.oldTitle, row.changeHasOld ? "first" : "") << options;
        EXPECT_EQ(change.newTitle, row.changeHasNew ? "second" : "") << options;
        deck.removeObserver(observer, "title");
    }
}

TEST(ObservableTest, EverySetNotifiesOnlyTheObserversOfItsKey) {
    Deck deck;
    RecordingObserver playing, title;
    deck.addObserver(playing, "playing", ObservingOptions::Old | ObservingOptions::New);
    deck.addObserver(title, "title", ObservingOptions::New);
    deck.setPlaying(true);
    deck.setPlaying(true);
    deck.setPlaying(false);
    ASSERT_EQ(playing.notices.size(), 3u) << "setting an unchanged value notifies too";
    EXPECT_TRUE(title.notices.empty());
    deck.removeObserver(playing, "playing");
    deck.removeObserver(title, "title");
}

TEST(ObservableTest, ManualBracketsTakeValuesFromValueForKeyAndMayNest) {
    Deck deck;
    std::vector<std::pair<double, double>> changes;
    struct TempoObserver : KeyValueObserver {
        std::vector<std::pair<double, double>>* changes;
        void observeValueForKeyPath(std::string_view, Observable&, const KeyValueChange& change) override {
            changes->emplace_back(*change.oldValueAs<double>(), *change.newValueAs<double>());
        }
    } observer;
    observer.changes = &changes;
    deck.addObserver(observer, "tempo", ObservingOptions::Old | ObservingOptions::New);
    deck.setTempo(125);
    deck.willChangeValueForKey("tempo");
    deck.setTempo(130);  // inner bracket: 125 -> 130
    deck.didChangeValueForKey("tempo");  // outer bracket: 125 -> 130 as well
    const std::vector<std::pair<double, double>> expected{{120, 125}, {125, 130}, {125, 130}};
    EXPECT_EQ(changes, expected);
    deck.removeObserver(observer, "tempo");
}

TEST(ObservableTest, ObserversRemovedDuringANotificationAreNotCalled) {
    Deck deck;
    RecordingObserver first, second, third;
    deck.addObserver(first, "playing", ObservingOptions::New);
    deck.addObserver(second, "playing", ObservingOptions::New);
    deck.addObserver(third, "playing", ObservingOptions::New);
    first.onNotice = [&] {
        deck.removeObserver(first, "playing");
        deck.removeObserver(second, "playing");
    };
    deck.setPlaying(true);
    EXPECT_EQ(first.notices.size(), 1u);
    EXPECT_TRUE(second.notices.empty());
    EXPECT_EQ(third.notices.size(), 1u);
    deck.setPlaying(false);
    EXPECT_EQ(first.notices.size(), 1u);
    EXPECT_EQ(third.notices.size(), 2u);
    deck.removeObserver(third, "playing");
}

TEST(ObservableTest, RegisteringTwiceNotifiesTwiceAndRemovalUndoesOne) {
    Deck deck;
    RecordingObserver observer;
    deck.addObserver(observer, "playing", ObservingOptions::None);
    deck.addObserver(observer, "playing", ObservingOptions::Initial);
    EXPECT_EQ(observer.notices.size(), 1u);
    deck.setPlaying(true);
    EXPECT_EQ(observer.notices.size(), 3u);
    deck.removeObserver(observer, "playing");
    deck.setPlaying(false);
    EXPECT_EQ(observer.notices.size(), 4u);
    deck.removeObserver(observer, "playing");
    deck.removeObserver(observer, "playing");  // not registered any more: ignored
    deck.setPlaying(true);
    EXPECT_EQ(observer.notices.size(), 4u);
}

TEST(ObservableTest, ObserverRemovingItselfInTheInitialNoticeIsGone) {
    Deck deck;
    RecordingObserver observer;
    observer.onNotice = [&] { deck.removeObserver(observer, "title"); };
    deck.addObserver(observer, "title", ObservingOptions::Initial | ObservingOptions::New);
    deck.setTitle("later");
    EXPECT_EQ(observer.notices.size(), 1u);
}

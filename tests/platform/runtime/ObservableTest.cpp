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

    // A change bracketed by hand, the way a subclass reports a computed property.
    void setTempo(double tempo) {
        willChangeValueForKey("tempo");
        m_tempo = tempo;
        didChangeValueForKey("tempo");
    }

    std::any valueForKey(std::string_view key) const override {
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

// Records each notice as "key initial? old->new" with the values it could read as `T`.
template <class T> class Recorder : public KeyValueObserver {
public:
    void observeValueForKeyPath(std::string_view keyPath, Observable&, const KeyValueChange& change) override {
        const auto text = [](const T* value) { return value ? ::testing::PrintToString(*value) : std::string("-"); };
        notices.push_back(std::string(keyPath) + (change.isInitial ? " initial " : " ") +
                          text(change.template oldValueAs<T>()) + "->" + text(change.template newValueAs<T>()));
        if (onNotice)
            onNotice();
    }

    std::vector<std::string> notices;
    std::function<void()> onNotice;
};

} // namespace

TEST(ObservableTest, OptionsDecideTheInitialNoticeAndTheValuesCarried) {
    using O = ObservingOptions;
    const struct {
        ObservingOptions options;
        std::vector<std::string> expected;
    } rows[] = {
        {O::None, {"title -->-"}},
        {O::New, {"title -->\"second\""}},
        {O::Old, {"title \"first\"->-"}},
        {O::Initial, {"title initial -->-", "title -->-"}},
        {O::Initial | O::New, {"title initial -->\"first\"", "title -->\"second\""}},
        {O::Initial | O::Old | O::New, {"title initial -->\"first\"", "title \"first\"->\"second\""}},
    };
    for (const auto& row : rows) {
        Deck deck;
        Recorder<std::string> observer;
        deck.addObserver(observer, "title", row.options);
        deck.setTitle("second");
        EXPECT_EQ(observer.notices, row.expected) << static_cast<unsigned>(row.options);
        deck.removeObserver(observer, "title");
    }
}

TEST(ObservableTest, EveryChangeNotifiesTheObserversOfItsKeyOnly) {
    Deck deck;
    Recorder<bool> playing;
    Recorder<double> tempo;
    deck.addObserver(playing, "playing", ObservingOptions::Old | ObservingOptions::New);
    deck.addObserver(tempo, "tempo", ObservingOptions::Old | ObservingOptions::New);
    deck.setPlaying(true);
    deck.setPlaying(true);
    deck.setTempo(125);
    deck.willChangeValueForKey("tempo");
    deck.setTempo(130);
    deck.didChangeValueForKey("tempo");
    EXPECT_EQ(playing.notices, (std::vector<std::string>{"playing false->true", "playing true->true"}))
        << "setting an unchanged value notifies too; the setter supplies values valueForKey lacks";
    EXPECT_EQ(tempo.notices, (std::vector<std::string>{"tempo 120->125", "tempo 125->130", "tempo 125->130"}))
        << "nested brackets each report their own change";
    deck.removeObserver(playing, "playing");
    deck.removeObserver(tempo, "tempo");
}

TEST(ObservableTest, RemovalDuringANotificationTakesEffectAtOnce) {
    Deck deck;
    Recorder<bool> first, second, third;
    deck.addObserver(first, "playing", ObservingOptions::None);
    deck.addObserver(second, "playing", ObservingOptions::None);
    deck.addObserver(third, "playing", ObservingOptions::None);
    deck.addObserver(third, "playing", ObservingOptions::None);
    first.onNotice = [&] {
        deck.removeObserver(first, "playing");
        deck.removeObserver(second, "playing");
        deck.removeObserver(third, "playing");
    };
    deck.setPlaying(true);
    deck.setPlaying(false);
    EXPECT_EQ(first.notices.size(), 1u);
    EXPECT_EQ(second.notices.size(), 0u);
    EXPECT_EQ(third.notices.size(), 2u) << "of two registrations, one was removed before its turn";

    Recorder<std::string> once;
    once.onNotice = [&] { deck.removeObserver(once, "title"); };
    deck.addObserver(once, "title", ObservingOptions::Initial);
    deck.setTitle("later");
    EXPECT_EQ(once.notices.size(), 1u) << "removed itself in its initial notice";
    deck.removeObserver(third, "playing");
}

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "platform/plist/Value.h"

// What passed between the watch and the phone, for a person to read beside the face: every
// dictionary handed to the phone link and every status message a receiver processed.
//
// A record, as JSON:
//   {"sequence": n, "identifier": "turntableStatus1", "direction": "toPhone" | "fromPhone",
//    "time": <milliseconds since 1970>, "contents": <the message as JSON>}
// Contents are the message with data shown by its length only ({"$dataLength": n}), a date
// as {"$date": <seconds since 2001-01-01>}, an absent value as null; nesting beyond
// kMaxContentDepth is cut to the string "...". Sequence numbers start at 1 and never repeat.
//
// At most kCapacity records are kept, the oldest dropped first. Main loop's thread only.
namespace vexo::face {

enum class Direction { ToPhone, FromPhone };

class ProtocolLog {
public:
    static constexpr std::size_t kCapacity = 500;
    static constexpr int kMaxContentDepth = 32;

    using Clock = std::function<std::chrono::system_clock::time_point()>;
    using Listener = std::function<void(const nlohmann::json& record)>;

    // `clock` dates the records; the system clock when empty.
    explicit ProtocolLog(Clock clock = {});
    ProtocolLog(const ProtocolLog&) = delete;
    ProtocolLog& operator=(const ProtocolLog&) = delete;

    // Adds a record and hands it to every listener.
    void record(std::string_view identifier, Direction direction, const plist::Value& contents);

    // The records kept, oldest first.
    [[nodiscard]] nlohmann::json records() const;
    [[nodiscard]] std::size_t size() const { return m_records.size(); }

    // Calls `listener` with each new record; gives the number for unsubscribe().
    std::uint64_t subscribe(Listener listener);
    void unsubscribe(std::uint64_t id);

    // `value` as record contents (see above).
    [[nodiscard]] static nlohmann::json contentsJson(const plist::Value& value);

private:
    Clock m_clock;
    std::deque<nlohmann::json> m_records;
    std::uint64_t m_nextSequence = 1;
    std::map<std::uint64_t, Listener> m_listeners;
    std::uint64_t m_nextListener = 1;
};

} // namespace vexo::face

#include "face/ProtocolLog.h"

#include <cmath>
#include <vector>

namespace vexo::face {

namespace {

nlohmann::json convert(const plist::Value& value, int depth) {
    if (depth > ProtocolLog::kMaxContentDepth)
        return "...";
    switch (value.type()) {
    case plist::Value::Type::Null:
        return nullptr;
    case plist::Value::Type::Dictionary: {
        nlohmann::json object = nlohmann::json::object();
        for (const auto& [key, element] : *value.asDictionary())
            object[key] = convert(element, depth + 1);
        return object;
    }
    case plist::Value::Type::Array: {
        nlohmann::json array = nlohmann::json::array();
        for (const auto& element : *value.asArray())
            array.push_back(convert(element, depth + 1));
        return array;
    }
    case plist::Value::Type::String:
        return *value.asString();
    case plist::Value::Type::Integer: {
        const plist::Integer& integer = *value.asInteger();
        return integer.isUnsigned ? nlohmann::json(integer.bits) : nlohmann::json(integer.asSigned());
    }
    case plist::Value::Type::Real: {
        double real = value.asReal()->value;
        // JSON has no infinities or NaN; they are shown as text rather than lost as null.
        return std::isfinite(real) ? nlohmann::json(real) : nlohmann::json(std::to_string(real));
    }
    case plist::Value::Type::Boolean:
        return *value.asBoolean();
    case plist::Value::Type::Data:
        return {{"$dataLength", value.asData()->size()}};
    case plist::Value::Type::Date:
        return {{"$date", value.asDate()->secondsSinceReferenceDate}};
    }
    return nullptr;
}

} // namespace

ProtocolLog::ProtocolLog(Clock clock)
    : m_clock(std::move(clock)) {
    if (!m_clock)
        m_clock = [] { return std::chrono::system_clock::now(); };
}

nlohmann::json ProtocolLog::contentsJson(const plist::Value& value) {
    return convert(value, 0);
}

void ProtocolLog::record(std::string_view identifier, Direction direction, const plist::Value& contents) {
    auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(m_clock().time_since_epoch()).count();
    nlohmann::json entry = {{"sequence", m_nextSequence++},
                            {"identifier", std::string(identifier)},
                            {"direction", direction == Direction::ToPhone ? "toPhone" : "fromPhone"},
                            {"time", millis},
                            {"contents", contentsJson(contents)}};
    m_records.push_back(entry);
    while (m_records.size() > kCapacity)
        m_records.pop_front();
    // A listener may unsubscribe itself (or another) while we deliver.
    std::vector<Listener> listeners;
    for (const auto& [id, listener] : m_listeners)
        listeners.push_back(listener);
    for (const auto& listener : listeners)
        listener(entry);
}

nlohmann::json ProtocolLog::records() const {
    nlohmann::json out = nlohmann::json::array();
    for (const auto& entry : m_records)
        out.push_back(entry);
    return out;
}

std::uint64_t ProtocolLog::subscribe(Listener listener) {
    std::uint64_t id = m_nextListener++;
    m_listeners.emplace(id, std::move(listener));
    return id;
}

void ProtocolLog::unsubscribe(std::uint64_t id) {
    m_listeners.erase(id);
}

} // namespace vexo::face

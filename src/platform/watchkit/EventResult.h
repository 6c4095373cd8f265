#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

// The answer to an input event: done, or refused with the reason (for the log, a test, or
// the browser that sent it). A refusal is either about the event itself (malformed: not an
// event of the JSON format) or about what is on screen (the event is well formed but does
// not fit); a server answers the first with 400 and the second with 409.
namespace vexo::watchkit {

class [[nodiscard]] EventResult {
public:
    static EventResult success() { return EventResult(std::nullopt); }
    static EventResult failure(std::string reason) { return EventResult(std::move(reason)); }
    static EventResult malformed(std::string reason) {
        EventResult result(std::move(reason));
        result.m_malformed = true;
        return result;
    }

    [[nodiscard]] bool ok() const { return !m_error; }
    // True for a refusal of the event's form rather than of what it asks for.
    [[nodiscard]] bool isMalformed() const { return m_malformed; }
    // The reason of a refusal; empty on success.
    [[nodiscard]] const std::string& error() const {
        static const std::string none;
        return m_error ? *m_error : none;
    }

    // {"ok": true} or {"ok": false, "error": "<reason>"}.
    [[nodiscard]] nlohmann::json toJson() const {
        return m_error ? nlohmann::json{{"ok", false}, {"error", *m_error}} : nlohmann::json{{"ok", true}};
    }

private:
    explicit EventResult(std::optional<std::string> error)
        : m_error(std::move(error)) {}

    std::optional<std::string> m_error;
    bool m_malformed = false;
};

} // namespace vexo::watchkit

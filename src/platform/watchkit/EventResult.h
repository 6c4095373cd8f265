#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

// The answer to an input event: done, or refused with the reason (for the log, a test, or
// the browser that sent it).
namespace vexo::watchkit {

class [[nodiscard]] EventResult {
public:
    static EventResult success() { return EventResult(std::nullopt); }
    static EventResult failure(std::string reason) { return EventResult(std::move(reason)); }

    [[nodiscard]] bool ok() const { return !m_error; }
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
    explicit EventResult(std::optional<std::string> error) : m_error(std::move(error)) {}

    std::optional<std::string> m_error;
};

} // namespace vexo::watchkit

#pragma once

#include <map>
#include <optional>
#include <string>

namespace vexo::testing {

// Sets or unsets environment variables for the lifetime of the object and restores every
// variable it touched afterwards, so that one test's container root never leaks into another.
class ScopedEnvironment {
public:
    ScopedEnvironment() = default;
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

    // Sets `name` to `value`, or unsets it when `value` is nothing.
    void set(const std::string& name, const std::optional<std::string>& value);

private:
    std::map<std::string, std::optional<std::string>> m_saved;
};

} // namespace vexo::testing

#include "support/ScopedEnvironment.h"

#include <cstdlib>

namespace vexo::testing {
namespace {

void apply(const std::string& name, const std::optional<std::string>& value) {
    if (value)
        ::setenv(name.c_str(), value->c_str(), 1);
    else
        ::unsetenv(name.c_str());
}

} // namespace

ScopedEnvironment::~ScopedEnvironment() {
    for (const auto& [name, value] : m_saved)
        apply(name, value);
}

void ScopedEnvironment::set(const std::string& name, const std::optional<std::string>& value) {
    if (!m_saved.contains(name)) {
        const char* previous = std::getenv(name.c_str());
        m_saved[name] = previous ? std::optional<std::string>(previous) : std::nullopt;
    }
    apply(name, value);
}

} // namespace vexo::testing

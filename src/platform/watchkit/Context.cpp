#include "platform/watchkit/Context.h"

#include <cstdint>
#include <cstdlib>
#include <memory>

#include <cxxabi.h>

#include "platform/plist/Json.h"
#include "platform/plist/Value.h"
#include "platform/watchkit/SnapshotFormat.h"

namespace vexo::watchkit {

namespace {

std::string readableTypeName(const std::type_info& type) {
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> demangled(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status),
                                                     std::free);
    return status == 0 && demangled ? std::string(demangled.get()) : std::string(type.name());
}

template <class T> bool put(const std::any& value, nlohmann::json& out) {
    if (const T* typed = std::any_cast<T>(&value)) {
        out = *typed;
        return true;
    }
    return false;
}

nlohmann::json describeValue(const std::any& value) {
    nlohmann::json out;
    if (const std::string* text = std::any_cast<std::string>(&value))
        return snapshot::text(*text);
    if (put<bool>(value, out) || put<int>(value, out) || put<long>(value, out) || put<long long>(value, out) ||
        put<unsigned>(value, out) || put<unsigned long>(value, out) || put<double>(value, out) ||
        put<float>(value, out))
        return out;
    if (const char* const* text = std::any_cast<const char*>(&value))
        return *text ? snapshot::text(std::string(*text)) : nlohmann::json(nullptr);
    if (const plist::Value* plistValue = std::any_cast<plist::Value>(&value))
        return plist::json::toJson(*plistValue);
    if (!value.has_value())
        return nullptr;
    return {{"$type", readableTypeName(value.type())}};
}

} // namespace

nlohmann::json Context::describe() const {
    nlohmann::json out = nlohmann::json::object();
    for (const auto& [key, value] : m_entries)
        out[key] = describeValue(value);
    return out;
}

} // namespace vexo::watchkit

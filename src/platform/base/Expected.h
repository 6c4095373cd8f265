#pragma once

#include <concepts>
#include <type_traits>
#include <utility>
#include <variant>

#include "platform/base/Error.h"

namespace vexo {

// The result of a call that can fail for a reason the caller shows: a value, or an Error.
//
//     Expected<Value> read(std::span<const std::uint8_t> bytes);
//     ...
//     if (auto value = read(bytes)) use(*value);
//     else log::warning(component, value.error().message());
//
// A function returns its value or an Error as it is (`return Error(ErrorKind::NotFound,
// "no such file")`); both convert implicitly. Reading the value of an error, or the error
// of a value, is a programming error (checked in debug builds by std::get).
template <typename T> class [[nodiscard]] Expected {
    static_assert(!std::is_reference_v<T> && !std::is_same_v<std::remove_cv_t<T>, Error>);

public:
    template <typename U = T>
    requires std::constructible_from<T, U&&> &&
        (!std::same_as<std::remove_cvref_t<U>, Error>)&&(!std::same_as<std::remove_cvref_t<U>, Expected>)
            Expected(U&& value)
        : m_state(std::in_place_index<0>, std::forward<U>(value)) {}
    Expected(Error error)
        : m_state(std::in_place_index<1>, std::move(error)) {}

    bool hasValue() const { return m_state.index() == 0; }
    explicit operator bool() const { return hasValue(); }

    T& value() & { return std::get<0>(m_state); }
    const T& value() const& { return std::get<0>(m_state); }
    T&& value() && { return std::get<0>(std::move(m_state)); }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }
    T&& operator*() && { return std::move(*this).value(); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }

    // The value, or `fallback` when this is an error.
    template <typename U> T valueOr(U&& fallback) const& {
        return hasValue() ? value() : static_cast<T>(std::forward<U>(fallback));
    }
    template <typename U> T valueOr(U&& fallback) && {
        return hasValue() ? std::move(*this).value() : static_cast<T>(std::forward<U>(fallback));
    }

    const Error& error() const& { return std::get<1>(m_state); }
    Error&& error() && { return std::get<1>(std::move(m_state)); }

private:
    std::variant<T, Error> m_state;
};

// A call that yields nothing but can fail: success is `Expected<void>()` or `{}`.
template <> class [[nodiscard]] Expected<void> {
public:
    Expected() = default;
    Expected(Error error)
        : m_error(std::move(error)),
          m_failed(true) {}

    bool hasValue() const { return !m_failed; }
    explicit operator bool() const { return hasValue(); }

    // REQUIRES: !hasValue().
    const Error& error() const& { return m_error; }
    Error&& error() && { return std::move(m_error); }

private:
    Error m_error{ErrorKind::InvalidData, {}};
    bool m_failed = false;
};

} // namespace vexo

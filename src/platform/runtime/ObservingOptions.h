#pragma once

namespace vexo::runtime {

// What an observer asks to receive (Observable::addObserver); combine with `|`.
enum class ObservingOptions : unsigned {
    None = 0,
    // Each change carries the value after it.
    New = 1u << 0,
    // Each change carries the value before it (never the initial notice).
    Old = 1u << 1,
    // One notice at once on registration, carrying the current value when New is asked too.
    Initial = 1u << 2,
};

constexpr ObservingOptions operator|(ObservingOptions a, ObservingOptions b) {
    return static_cast<ObservingOptions>(static_cast<unsigned>(a) | static_cast<unsigned>(b));
}

// True when `options` contains every option of `wanted`.
constexpr bool contains(ObservingOptions options, ObservingOptions wanted) {
    return (static_cast<unsigned>(options) & static_cast<unsigned>(wanted)) == static_cast<unsigned>(wanted);
}

} // namespace vexo::runtime

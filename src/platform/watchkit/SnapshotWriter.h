#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/watchkit/ChangeStream.h"

// What is on screen as JSON: the host's snapshots and its change batches (the format is
// documented in ExtensionHost.h). The host hands in plain views of its screens; the writer
// lays them out, writes them, and records which frames listeners have been told of
// (InterfaceObject::reportedFrame), so that an object that only moved is reported too.
// Main loop's thread only, like the host.
namespace vexo::watchkit {

class Context;
class Screen;
struct ControllerLayout;

class SnapshotWriter {
public:
    // One controller's screen as the host holds it.
    struct ScreenView {
        const Screen* screen = nullptr;
        const ControllerLayout* layout = nullptr;
        std::string_view role; // "page", "modal" or "glance"
        const Context* context = nullptr;
        bool active = false;
    };

    // Where the user is. Screens are named by their views above.
    struct Navigation {
        bool started = false;
        std::size_t currentPage = 0;
        const Screen* visible = nullptr;
        std::vector<ScreenView> pages;
        // Bottom first.
        std::vector<ScreenView> modals;
        bool glanceVisible = false;
        // The glance once it was made; its screen is nullptr before.
        ScreenView glance;
    };

    // A face of `width` x `height` pixels.
    SnapshotWriter(double width, double height)
        : m_width(width),
          m_height(height) {}

    // The whole snapshot after change batch `revision`.
    [[nodiscard]] nlohmann::json snapshot(std::uint64_t revision, const Navigation& navigation) const;

    // One screen; with `markReported`, its frames count as told to listeners.
    [[nodiscard]] nlohmann::json screen(const ScreenView& view, bool markReported) const;

    // The navigation record's fields (without "change").
    [[nodiscard]] nlohmann::json navigation(const Navigation& navigation) const;

    // The records of one change batch for what `pending` holds, in the documented order;
    // empty when nothing is left to tell (screens that went before anyone saw them, say).
    [[nodiscard]] nlohmann::json changeRecords(const ChangeStream::Pending& pending,
                                               const Navigation& navigation) const;

private:
    // Every screen that is there: pages, modals, the glance.
    [[nodiscard]] static std::vector<ScreenView> liveScreens(const Navigation& navigation);

    double m_width;
    double m_height;
};

} // namespace vexo::watchkit

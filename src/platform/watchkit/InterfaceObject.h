#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/graphics/Rect.h"
#include "platform/watchkit/FrameMap.h"
#include "platform/watchkit/ImageContent.h"
#include "platform/watchkit/ObjectKind.h"
#include "platform/watchkit/ObjectLayout.h"

// The common part of every interface object (group, button, label, ...): identity, the
// layout it was made from, visibility, the objects it contains, and reporting of changes.
//
// Interface objects are made and owned by a Screen, one per controller on screen, and
// reached by controllers through Outlet<T>. Each remembers what was set on it and reports
// every change to the host. Every member is for the main loop's thread.
//
// Each kind has a "nil" stand-in (T::nil()) that an empty outlet hands out: it accepts
// every call, changes nothing and logs at debug level, as a message to nil does on the
// host platform.
namespace vexo::watchkit {

class Screen;

// What a Screen gives an object it makes.
struct ObjectInit {
    // The owning screen; nullptr makes a nil stand-in.
    Screen* screen = nullptr;
    // REQUIRES (when `screen` is set): not nullptr, and outlives the object.
    const ObjectLayout* layout = nullptr;
    // The identifier in snapshots and input events, unique within the host.
    std::string id;
};

class InterfaceObject : public std::enable_shared_from_this<InterfaceObject> {
public:
    virtual ~InterfaceObject();
    InterfaceObject(const InterfaceObject&) = delete;
    InterfaceObject& operator=(const InterfaceObject&) = delete;
    InterfaceObject(InterfaceObject&&) = delete;
    InterfaceObject& operator=(InterfaceObject&&) = delete;

    [[nodiscard]] ObjectKind kind() const { return m_kind; }
    // Stable for the object's life: "<screen>.<n>". Empty for a nil stand-in.
    [[nodiscard]] const std::string& identifier() const { return m_id; }
    // The outlet name the layout gives it, if any.
    [[nodiscard]] const std::optional<std::string>& outletName() const { return m_layout->outlet; }
    [[nodiscard]] const ObjectLayout& layout() const { return *m_layout; }
    // True for the stand-in that empty outlets hand out.
    [[nodiscard]] bool isNil() const { return m_nil; }

    // A hidden object is not drawn, takes no room, and takes no input; nor do its contents.
    void setHidden(bool hidden);
    [[nodiscard]] bool isHidden() const { return m_hidden; }

    // The objects inside a group or button, in layout order. Table rows are separate
    // (Table::rows()).
    [[nodiscard]] const std::vector<std::shared_ptr<InterfaceObject>>& children() const { return m_children; }

    // The object's state as JSON: id, kind, outlet, frame (when `frames` has one), hidden,
    // action, style, accessibilityLabel, then the kind's own state. Children are included whole when
    // `withChildren`, otherwise by identifier.
    [[nodiscard]] nlohmann::json toJson(const FrameMap& frames, bool withChildren) const;

    // Host side. Adds a child while the screen is being built.
    void appendChild(std::shared_ptr<InterfaceObject> child);
    // Host side. Forgets the screen (and so stops reporting), with every child and row.
    virtual void detach();
    // Host side. The frame last sent to change subscribers, to find objects that moved.
    [[nodiscard]] const std::optional<graphics::Rect>& reportedFrame() const { return m_reportedFrame; }
    void setReportedFrame(const graphics::Rect& frame) const { m_reportedFrame = frame; }
    void clearReportedFrame() const { m_reportedFrame.reset(); }

protected:
    InterfaceObject(ObjectKind kind, ObjectInit init);

    // False for a nil stand-in, after logging `operation` as a message to nil.
    [[nodiscard]] bool acceptChange(std::string_view operation) const;
    // Reports a change of state to the host.
    void didChange();
    [[nodiscard]] Screen* screen() const { return m_screen; }

    // Sets an image slot to the asset `name` or, when nothing, to no image; true when the
    // slot changed.
    bool assignImageNamed(ImageContent& slot, std::optional<std::string> name);
    // Sets an image slot to `data` (kept in the host's image store) or, when nothing, to no
    // image; data the store refuses leaves the slot as it was. True when the slot changed.
    bool assignImageData(ImageContent& slot, std::optional<std::vector<std::uint8_t>> data);
    // The layout's text for this object, localised when the host localises layout texts.
    [[nodiscard]] std::optional<std::string> layoutText() const;
    // A text of the layout, localised when the host localises layout texts.
    [[nodiscard]] std::string localized(const std::string& text) const;

    // Adds the kind's own state to `out`.
    virtual void writeState(nlohmann::json& out, const FrameMap& frames) const = 0;

private:
    ObjectKind m_kind;
    Screen* m_screen;
    const ObjectLayout* m_layout;
    std::string m_id;
    bool m_nil;
    bool m_hidden;
    std::vector<std::shared_ptr<InterfaceObject>> m_children;
    mutable std::optional<graphics::Rect> m_reportedFrame;
};

} // namespace vexo::watchkit

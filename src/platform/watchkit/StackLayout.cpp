#include "platform/watchkit/StackLayout.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "platform/watchkit/Group.h"
#include "platform/watchkit/InterfaceObject.h"
#include "platform/watchkit/Screen.h"
#include "platform/watchkit/Table.h"

namespace vexo::watchkit {

namespace {

using graphics::Rect;
using Objects = std::vector<std::shared_ptr<InterfaceObject>>;

// Heights of objects that fit content they do not have, in pixels of the face.
double naturalHeight(ObjectKind kind) {
    switch (kind) {
    case ObjectKind::Label:
    case ObjectKind::Timer:
        return 28;
    case ObjectKind::Button:
    case ObjectKind::Slider:
    case ObjectKind::Switch:
    case ObjectKind::Image:
        return 44;
    default:
        return 0;
    }
}

bool isVertical(const ObjectLayout& layout) {
    return layout.orientation == Orientation::Vertical;
}

Objects visibleOf(const Objects& objects) {
    Objects visible;
    for (const auto& object : objects) {
        if (!object->isHidden())
            visible.push_back(object);
    }
    return visible;
}

// A dimension other than Fill, resolved against the container's size; Fit asks `fit`.
template <class Fit> double resolve(const Dimension& dimension, double containerSize, Fit fit) {
    switch (dimension.mode) {
    case Dimension::Mode::Fixed:
        return std::max(0.0, dimension.value);
    case Dimension::Mode::Relative:
        return std::max(0.0, dimension.value * containerSize);
    case Dimension::Mode::Fit:
        return fit();
    case Dimension::Mode::Fill:
        return containerSize;
    }
    return 0;
}

class Placer {
public:
    explicit Placer(FrameMap& frames)
        : m_frames(frames) {}

    // Lays out `children` of a container laid out by `container` inside `inner`.
    void stack(const Objects& children, const ObjectLayout& container, const Rect& inner) {
        Objects visible = visibleOf(children);
        if (visible.empty())
            return;
        bool vertical = isVertical(container);
        double mainRoom = vertical ? inner.height : inner.width;
        double crossRoom = vertical ? inner.width : inner.height;

        std::vector<double> main(visible.size(), 0);
        std::vector<double> cross(visible.size(), 0);
        std::vector<bool> fills(visible.size(), false);
        double used = container.spacing * static_cast<double>(visible.size() - 1);
        std::size_t fillCount = 0;
        for (std::size_t i = 0; i < visible.size(); ++i) {
            const InterfaceObject& child = *visible[i];
            const ObjectLayout& layout = child.layout();
            if (vertical) {
                cross[i] = resolve(layout.width, crossRoom, [&] { return fitWidth(child, crossRoom, mainRoom); });
                if (layout.height.mode == Dimension::Mode::Fill)
                    fills[i] = true;
                else
                    main[i] = resolve(layout.height, mainRoom, [&] { return fitHeight(child, cross[i], mainRoom); });
            } else {
                if (layout.width.mode == Dimension::Mode::Fill)
                    fills[i] = true;
                else
                    main[i] = resolve(layout.width, mainRoom, [&] { return fitWidth(child, mainRoom, crossRoom); });
            }
            if (fills[i])
                ++fillCount;
            else
                used += main[i];
        }
        double share = fillCount ? std::max(0.0, (mainRoom - used) / static_cast<double>(fillCount)) : 0;
        for (std::size_t i = 0; i < visible.size(); ++i) {
            if (fills[i])
                main[i] = share;
            if (!vertical) {
                const InterfaceObject& child = *visible[i];
                cross[i] =
                    resolve(child.layout().height, crossRoom, [&] { return fitHeight(child, main[i], crossRoom); });
            }
        }

        std::vector<double> start =
            mainPositions(visible, main, container, vertical ? inner.y : inner.x, mainRoom, fillCount > 0);
        for (std::size_t i = 0; i < visible.size(); ++i) {
            const ObjectLayout& layout = visible[i]->layout();
            double offset = 0;
            if (vertical) {
                if (layout.horizontalAlignment == HorizontalAlignment::Center)
                    offset = (crossRoom - cross[i]) / 2;
                else if (layout.horizontalAlignment == HorizontalAlignment::Right)
                    offset = crossRoom - cross[i];
                place(*visible[i], {inner.x + offset, start[i], cross[i], main[i]});
            } else {
                if (layout.verticalAlignment == VerticalAlignment::Center)
                    offset = (crossRoom - cross[i]) / 2;
                else if (layout.verticalAlignment == VerticalAlignment::Bottom)
                    offset = crossRoom - cross[i];
                place(*visible[i], {start[i], inner.y + offset, main[i], cross[i]});
            }
        }
    }

    void place(const InterfaceObject& object, const Rect& frame) {
        m_frames[&object] = frame;
        if (object.kind() == ObjectKind::Table) {
            const auto& table = static_cast<const Table&>(object);
            double y = frame.y;
            for (const TableRow& row : table.rows()) {
                double height = rowHeight(*row.group, frame.width, frame.height);
                place(*row.group, {frame.x, y, frame.width, height});
                y += height + object.layout().spacing;
            }
            return;
        }
        if (!object.children().empty())
            stack(object.children(), object.layout(), inset(frame, object.layout().insets));
    }

    // The height of a container's content when it is `width` wide.
    double contentHeight(const InterfaceObject& object, double width, double room) {
        const ObjectLayout& layout = object.layout();
        double innerWidth = std::max(0.0, width - layout.insets.left - layout.insets.right);
        Objects visible = visibleOf(object.children());
        double height = 0;
        for (const auto& child : visible) {
            const ObjectLayout& childLayout = child->layout();
            if (isVertical(layout)) {
                if (childLayout.height.mode == Dimension::Mode::Fill)
                    continue;
                double childWidth =
                    resolve(childLayout.width, innerWidth, [&] { return fitWidth(*child, innerWidth, room); });
                height += resolve(childLayout.height, room, [&] { return fitHeight(*child, childWidth, room); });
            } else {
                double childWidth =
                    childLayout.width.mode == Dimension::Mode::Fill
                        ? innerWidth
                        : resolve(childLayout.width, innerWidth, [&] { return fitWidth(*child, innerWidth, room); });
                if (childLayout.height.mode != Dimension::Mode::Fill)
                    height = std::max(
                        height, resolve(childLayout.height, room, [&] { return fitHeight(*child, childWidth, room); }));
            }
        }
        if (isVertical(layout) && visible.size() > 1)
            height += layout.spacing * static_cast<double>(visible.size() - 1);
        return height + layout.insets.top + layout.insets.bottom;
    }

private:
    static Rect inset(const Rect& frame, const Insets& insets) {
        return {frame.x + insets.left, frame.y + insets.top, std::max(0.0, frame.width - insets.left - insets.right),
                std::max(0.0, frame.height - insets.top - insets.bottom)};
    }

    double rowHeight(const InterfaceObject& group, double width, double room) {
        const Dimension& height = group.layout().height;
        if (height.mode == Dimension::Mode::Fixed)
            return std::max(0.0, height.value);
        return contentHeight(group, width, room);
    }

    double fitWidth(const InterfaceObject& object, double room, double crossRoom) {
        if (object.children().empty() || object.kind() == ObjectKind::Table)
            return room;
        const ObjectLayout& layout = object.layout();
        double innerRoom = std::max(0.0, room - layout.insets.left - layout.insets.right);
        Objects visible = visibleOf(object.children());
        double width = 0;
        for (const auto& child : visible) {
            const Dimension& childWidth = child->layout().width;
            double size = childWidth.mode == Dimension::Mode::Fill
                              ? (isVertical(layout) ? innerRoom : 0)
                              : resolve(childWidth, innerRoom, [&] { return fitWidth(*child, innerRoom, crossRoom); });
            width = isVertical(layout) ? std::max(width, size) : width + size;
        }
        if (!isVertical(layout) && visible.size() > 1)
            width += layout.spacing * static_cast<double>(visible.size() - 1);
        return width + layout.insets.left + layout.insets.right;
    }

    double fitHeight(const InterfaceObject& object, double width, double room) {
        if (object.kind() == ObjectKind::Table) {
            const auto& table = static_cast<const Table&>(object);
            double height = 0;
            for (const TableRow& row : table.rows())
                height += rowHeight(*row.group, width, room);
            if (table.rows().size() > 1)
                height += object.layout().spacing * static_cast<double>(table.rows().size() - 1);
            return height;
        }
        if (object.children().empty())
            return object.kind() == ObjectKind::Group ? 0 : naturalHeight(object.kind());
        return contentHeight(object, width, room);
    }

    // Where each object starts along the stack.
    static std::vector<double> mainPositions(const Objects& visible, const std::vector<double>& sizes,
                                             const ObjectLayout& container, double origin, double room, bool hasFill) {
        bool vertical = isVertical(container);
        auto alignment = [&](std::size_t i) {
            const ObjectLayout& layout = visible[i]->layout();
            if (vertical)
                return static_cast<int>(layout.verticalAlignment);
            return static_cast<int>(layout.horizontalAlignment);
        };
        std::vector<double> positions(visible.size(), origin);
        double total = container.spacing * static_cast<double>(visible.size() - 1);
        for (double size : sizes)
            total += size;
        if (hasFill || total >= room) {
            double position = origin;
            for (std::size_t i = 0; i < visible.size(); ++i) {
                positions[i] = position;
                position += sizes[i] + container.spacing;
            }
            return positions;
        }
        // Alignment values: 0 start, 1 centre, 2 end (Left/Top, Center, Right/Bottom).
        double runs[3] = {0, 0, 0};
        int counts[3] = {0, 0, 0};
        for (std::size_t i = 0; i < visible.size(); ++i) {
            runs[alignment(i)] += sizes[i];
            ++counts[alignment(i)];
        }
        for (int run = 0; run < 3; ++run) {
            if (counts[run] > 1)
                runs[run] += container.spacing * (counts[run] - 1);
        }
        double startEnd = origin + runs[0] + (counts[0] ? container.spacing : 0);
        double endStart = origin + room - runs[2];
        double cursor[3] = {origin, startEnd + std::max(0.0, (endStart - startEnd - runs[1]) / 2), endStart};
        for (std::size_t i = 0; i < visible.size(); ++i) {
            int run = alignment(i);
            positions[i] = cursor[run];
            cursor[run] += sizes[i] + container.spacing;
        }
        return positions;
    }

    FrameMap& m_frames;
};

} // namespace

StackLayout::Result StackLayout::layoutScreen(const Screen& screen, double width, double height) {
    Result result;
    Placer placer(result.frames);
    const ObjectLayout& root = screen.layout().root;
    Rect inner{root.insets.left, root.insets.top, std::max(0.0, width - root.insets.left - root.insets.right),
               std::max(0.0, height - root.insets.top - root.insets.bottom)};
    placer.stack(screen.objects(), root, inner);
    double bottom = 0;
    for (const auto& [object, frame] : result.frames)
        bottom = std::max(bottom, frame.y + frame.height);
    result.contentHeight = std::max(height, bottom + root.insets.bottom);
    return result;
}

} // namespace vexo::watchkit

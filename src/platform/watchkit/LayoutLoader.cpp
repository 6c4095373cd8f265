#include "platform/watchkit/LayoutLoader.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "platform/watchkit/ControllerRegistry.h"

namespace vexo::watchkit {

namespace {

using nlohmann::json;

// Larger than any layout of ours by far.
constexpr std::uintmax_t kMaxLayoutBytes = 4u << 20;
constexpr int kMaxNesting = 32;

const std::set<std::string, std::less<>> kCommonKeys = {"kind",
                                                        "outlet",
                                                        "width",
                                                        "height",
                                                        "horizontalAlignment",
                                                        "verticalAlignment",
                                                        "hidden",
                                                        "style",
                                                        "accessibilityLabel"};
const std::set<std::string, std::less<>> kContainerKeys = {"layout", "spacing", "insets", "objects"};

const std::set<std::string, std::less<>>& keysOf(ObjectKind kind) {
    static const std::map<ObjectKind, std::set<std::string, std::less<>>> keys = {
        {ObjectKind::Group, {"backgroundImage", "backgroundColor", "animation"}},
        {ObjectKind::Button,
         {"title", "backgroundImage", "backgroundColor", "enabled", "action", "segue", "adjusts",
          "accessibilityLabelByImage"}},
        {ObjectKind::Label, {"text", "textColor"}},
        {ObjectKind::Image, {"image"}},
        {ObjectKind::Slider, {"value", "minimum", "maximum", "steps", "color", "enabled", "action"}},
        {ObjectKind::Switch, {"title", "on", "color", "enabled", "action"}},
        {ObjectKind::Table, {"rowTypes", "spacing"}},
        {ObjectKind::Timer, {"running"}},
    };
    static const std::set<std::string, std::less<>> none;
    auto found = keys.find(kind);
    return found == keys.end() ? none : found->second;
}

bool isContainer(ObjectKind kind) {
    return kind == ObjectKind::Group || kind == ObjectKind::Button;
}

std::optional<Color> namedColor(std::string_view name) {
    static const std::map<std::string, Color, std::less<>> names = {
        {"white", colors::white()}, {"lightGray", colors::lightGray()}, {"darkGray", colors::darkGray()},
        {"black", colors::black()}, {"clear", Color::clear()},          {"selection", colors::selection()},
    };
    auto found = names.find(name);
    if (found != names.end())
        return found->second;
    if ((name.size() != 7 && name.size() != 9) || name.front() != '#')
        return std::nullopt;
    double components[4] = {0, 0, 0, 1};
    for (std::size_t i = 0; i * 2 + 1 < name.size(); ++i) {
        int value = 0;
        for (char digit : name.substr(1 + i * 2, 2)) {
            int nibble = std::isdigit(static_cast<unsigned char>(digit)) ? digit - '0'
                         : (digit >= 'a' && digit <= 'f')                ? digit - 'a' + 10
                         : (digit >= 'A' && digit <= 'F')                ? digit - 'A' + 10
                                                                         : -1;
            if (nibble < 0)
                return std::nullopt;
            value = value * 16 + nibble;
        }
        components[i] = value / 255.0;
    }
    return Color{components[0], components[1], components[2], components[3]};
}

// Names and outlets of one controller or one row type, for checking against its class.
struct Connections {
    std::map<std::string, const ObjectLayout*, std::less<>> outlets;
    std::vector<const ObjectLayout*> actions;
    std::vector<const ObjectLayout*> adjusters;
};

class Parser {
public:
    Parser(std::string source, const ControllerRegistry& registry, MissingClasses missing)
        : m_source(std::move(source)),
          m_registry(registry),
          m_missing(missing) {}

    Expected<InterfaceLayout> run(std::string_view text) {
        json document;
        try {
            document = json::parse(text, nullptr, true, true);
        } catch (const json::parse_error& error) {
            return Error(ErrorKind::InvalidData, m_source + ": not valid JSON: " + error.what());
        }
        InterfaceLayout layout = readLayout(document);
        if (!m_errors.empty()) {
            std::string message = m_errors.front();
            for (std::size_t i = 1; i < m_errors.size(); ++i)
                message += "\n" + m_errors[i];
            return Error(ErrorKind::InvalidData, std::move(message));
        }
        layout.uncheckedClasses.assign(m_missingClasses.begin(), m_missingClasses.end());
        return layout;
    }

private:
    void fail(const std::string& where, const std::string& message) {
        m_errors.push_back(m_source + ": " + (where.empty() ? "" : where + ": ") + message);
    }

    void checkKeys(const json& object, const std::set<std::string, std::less<>>& allowed,
                   const std::set<std::string, std::less<>>& alsoAllowed, const std::string& where) {
        for (const auto& [key, value] : object.items()) {
            if (!allowed.contains(key) && !alsoAllowed.contains(key))
                fail(where, "unknown property '" + key + "'");
        }
    }

    std::optional<std::string> readString(const json& object, std::string_view key, const std::string& where,
                                          bool required = false) {
        auto found = object.find(key);
        if (found == object.end()) {
            if (required)
                fail(where, "'" + std::string(key) + "' is missing");
            return std::nullopt;
        }
        if (!found->is_string() || found->get_ref<const std::string&>().empty()) {
            fail(where, "'" + std::string(key) + "' must be a non-empty string");
            return std::nullopt;
        }
        return found->get<std::string>();
    }

    std::optional<std::string> readText(const json& object, std::string_view key, const std::string& where) {
        auto found = object.find(key);
        if (found == object.end())
            return std::nullopt;
        if (!found->is_string()) {
            fail(where, "'" + std::string(key) + "' must be a string");
            return std::nullopt;
        }
        return found->get<std::string>();
    }

    void readBool(const json& object, std::string_view key, bool& out, const std::string& where) {
        auto found = object.find(key);
        if (found == object.end())
            return;
        if (!found->is_boolean())
            fail(where, "'" + std::string(key) + "' must be true or false");
        else
            out = found->get<bool>();
    }

    void readNumber(const json& object, std::string_view key, double& out, const std::string& where,
                    double minimum = -1e9) {
        auto found = object.find(key);
        if (found == object.end())
            return;
        if (!found->is_number() || !std::isfinite(found->get<double>()) || found->get<double>() < minimum)
            fail(where, "'" + std::string(key) + "' must be a number" +
                            (minimum > -1e9 ? " of at least " + std::to_string(static_cast<int>(minimum)) : ""));
        else
            out = found->get<double>();
    }

    void readColor(const json& object, std::string_view key, std::optional<Color>& out, const std::string& where) {
        auto found = object.find(key);
        if (found == object.end())
            return;
        std::optional<Color> color =
            found->is_string() ? namedColor(found->get_ref<const std::string&>()) : std::nullopt;
        if (!color)
            fail(where, "'" + std::string(key) +
                            "' must be \"#rrggbb\", \"#rrggbbaa\" or one of white, lightGray, "
                            "darkGray, black, clear, selection");
        else
            out = color;
    }

    Dimension readDimension(const json& object, std::string_view key, Dimension fallback, const std::string& where) {
        auto found = object.find(key);
        if (found == object.end())
            return fallback;
        const json& value = *found;
        if (value.is_number() && value.get<double>() >= 0 && std::isfinite(value.get<double>()))
            return {Dimension::Mode::Fixed, value.get<double>()};
        if (value == "fill")
            return {Dimension::Mode::Fill, 0};
        if (value == "fit")
            return {Dimension::Mode::Fit, 0};
        if (value.is_object() && value.size() == 1 && value.contains("relative") && value["relative"].is_number() &&
            value["relative"].get<double>() >= 0)
            return {Dimension::Mode::Relative, value["relative"].get<double>()};
        fail(where, "'" + std::string(key) + "' must be pixels, \"fill\", \"fit\" or {\"relative\": fraction}");
        return fallback;
    }

    void readContainer(const json& object, ObjectLayout& layout, const std::string& where) {
        if (auto orientation = object.find("layout"); orientation != object.end()) {
            if (*orientation == "horizontal")
                layout.orientation = Orientation::Horizontal;
            else if (*orientation == "vertical")
                layout.orientation = Orientation::Vertical;
            else
                fail(where, "'layout' must be \"horizontal\" or \"vertical\"");
        }
        readNumber(object, "spacing", layout.spacing, where, 0);
        if (auto insets = object.find("insets"); insets != object.end()) {
            if (insets->is_number() && insets->get<double>() >= 0) {
                double all = insets->get<double>();
                layout.insets = {all, all, all, all};
            } else if (insets->is_object()) {
                checkKeys(*insets, {"top", "left", "bottom", "right"}, {}, where + " insets");
                readNumber(*insets, "top", layout.insets.top, where, 0);
                readNumber(*insets, "left", layout.insets.left, where, 0);
                readNumber(*insets, "bottom", layout.insets.bottom, where, 0);
                readNumber(*insets, "right", layout.insets.right, where, 0);
            } else {
                fail(where, "'insets' must be pixels or {\"top\", \"left\", \"bottom\", \"right\"}");
            }
        }
    }

    void readChildren(const json& object, ObjectLayout& layout, const std::string& where, int depth) {
        auto objects = object.find("objects");
        if (objects == object.end())
            return;
        if (!objects->is_array()) {
            fail(where, "'objects' must be an array");
            return;
        }
        std::size_t index = 0;
        for (const json& child : *objects)
            layout.children.push_back(readObject(child, layout.path, index++, depth + 1));
    }

    ObjectLayout readObject(const json& object, const std::string& parentPath, std::size_t index, int depth) {
        ObjectLayout layout;
        std::string fallbackName = "#" + std::to_string(index);
        layout.path = parentPath.empty() ? fallbackName : parentPath + "/" + fallbackName;
        std::string where = m_where + "object " + layout.path;
        if (depth > kMaxNesting) {
            fail(where, "objects nest deeper than " + std::to_string(kMaxNesting));
            return layout;
        }
        if (!object.is_object()) {
            fail(where, "an object must be a JSON object");
            return layout;
        }
        layout.outlet = readString(object, "outlet", where);
        if (layout.outlet) {
            layout.path = parentPath.empty() ? *layout.outlet : parentPath + "/" + *layout.outlet;
            where = m_where + "object " + layout.path;
        }
        std::optional<std::string> kindText = readString(object, "kind", where, true);
        std::optional<ObjectKind> kind = kindText ? kindNamed(*kindText) : std::nullopt;
        if (!kind || *kind == ObjectKind::Menu) {
            if (kindText)
                fail(where, "unknown kind '" + *kindText + "'");
            return layout;
        }
        layout.kind = *kind;
        std::set<std::string, std::less<>> allowed = keysOf(layout.kind);
        if (isContainer(layout.kind))
            allowed.insert(kContainerKeys.begin(), kContainerKeys.end());
        checkKeys(object, kCommonKeys, allowed, where);
        if (isContainer(layout.kind)) {
            readContainer(object, layout, where);
            readChildren(object, layout, where, depth);
        } else if (layout.kind == ObjectKind::Table) {
            readNumber(object, "spacing", layout.spacing, where, 0);
        }
        if (!isContainer(layout.kind)) {
            for (const char* key : {"layout", "insets", "objects"}) {
                if (object.contains(key))
                    fail(where, "a " + std::string(kindName(layout.kind)) + " holds no objects ('" + key + "')");
            }
        }

        layout.width = readDimension(object, "width", {Dimension::Mode::Fill, 0}, where);
        layout.height = readDimension(object, "height", {Dimension::Mode::Fit, 0}, where);
        readAlignment(object, layout, where);
        readBool(object, "hidden", layout.hidden, where);
        if (auto style = object.find("style"); style != object.end()) {
            if (style->is_object())
                layout.style = *style;
            else
                fail(where, "'style' must be an object");
        }

        layout.text = readText(object, layout.kind == ObjectKind::Label ? "text" : "title", where);
        layout.image = readString(object, layout.kind == ObjectKind::Image ? "image" : "backgroundImage", where);
        readColor(object, "textColor", layout.textColor, where);
        readColor(object, "backgroundColor", layout.backgroundColor, where);
        readColor(object, "color", layout.color, where);
        readBool(object, "enabled", layout.enabled, where);
        readBool(object, "on", layout.on, where);
        readBool(object, "running", layout.running, where);
        readNumber(object, "value", layout.value, where);
        readNumber(object, "minimum", layout.minimum, where);
        readNumber(object, "maximum", layout.maximum, where);
        double steps = layout.steps;
        readNumber(object, "steps", steps, where, 1);
        layout.steps = static_cast<int>(std::min(steps, 1000.0));
        if (layout.kind == ObjectKind::Slider && layout.maximum <= layout.minimum)
            fail(where, "the slider's maximum must be above its minimum");
        layout.action = readString(object, "action", where);
        readSegue(object, layout, where);
        readAdjusts(object, layout, where);
        if ((layout.action ? 1 : 0) + (layout.segue ? 1 : 0) + (layout.adjusts ? 1 : 0) > 1)
            fail(where, "a button has one of an action, a segue or a slider it adjusts");
        readAccessibility(object, layout, where);
        readAnimation(object, layout, where);
        if (layout.kind == ObjectKind::Table)
            readRowTypes(object, layout, where, depth);
        return layout;
    }

    void readAlignment(const json& object, ObjectLayout& layout, const std::string& where) {
        if (auto found = object.find("horizontalAlignment"); found != object.end()) {
            if (*found == "left")
                layout.horizontalAlignment = HorizontalAlignment::Left;
            else if (*found == "center")
                layout.horizontalAlignment = HorizontalAlignment::Center;
            else if (*found == "right")
                layout.horizontalAlignment = HorizontalAlignment::Right;
            else
                fail(where, "'horizontalAlignment' must be \"left\", \"center\" or \"right\"");
        }
        if (auto found = object.find("verticalAlignment"); found != object.end()) {
            if (*found == "top")
                layout.verticalAlignment = VerticalAlignment::Top;
            else if (*found == "center")
                layout.verticalAlignment = VerticalAlignment::Center;
            else if (*found == "bottom")
                layout.verticalAlignment = VerticalAlignment::Bottom;
            else
                fail(where, "'verticalAlignment' must be \"top\", \"center\" or \"bottom\"");
        }
    }

    void readSegue(const json& object, ObjectLayout& layout, const std::string& where) {
        auto found = object.find("segue");
        if (found == object.end())
            return;
        if (!found->is_object()) {
            fail(where, "'segue' must be {\"destination\": name, \"identifier\": name}");
            return;
        }
        checkKeys(*found, {"destination", "identifier"}, {}, where + " segue");
        std::optional<std::string> destination = readString(*found, "destination", where + " segue", true);
        if (!destination)
            return;
        std::optional<std::string> identifier = readString(*found, "identifier", where + " segue");
        layout.segue = SegueLayout{identifier.value_or(*destination), *destination};
        m_segues.emplace_back(where, *destination);
    }

    void readAdjusts(const json& object, ObjectLayout& layout, const std::string& where) {
        auto found = object.find("adjusts");
        if (found == object.end())
            return;
        const std::string here = where + " adjusts";
        const std::string shape = "must be {\"slider\": outlet, \"by\": steps other than 0}";
        if (!found->is_object()) {
            fail(here, shape);
            return;
        }
        checkKeys(*found, {"slider", "by"}, {}, here);
        std::optional<std::string> slider = readString(*found, "slider", here, true);
        auto by = found->find("by");
        // Read as a double: any integer JSON holds converts without overflow.
        const double steps = by != found->end() && by->is_number_integer() ? by->get<double>() : 0;
        if (steps == 0 || std::abs(steps) > 1000) {
            fail(here, shape);
            return;
        }
        if (slider)
            layout.adjusts = SliderStepLayout{*slider, static_cast<int>(steps)};
    }

    void readAccessibility(const json& object, ObjectLayout& layout, const std::string& where) {
        layout.accessibilityLabel = readString(object, "accessibilityLabel", where);
        auto found = object.find("accessibilityLabelByImage");
        if (found == object.end())
            return;
        if (!found->is_object() || found->empty()) {
            fail(where, "'accessibilityLabelByImage' must map image names to labels");
            return;
        }
        for (const auto& [image, label] : found->items()) {
            if (image.empty() || !label.is_string() || label.get_ref<const std::string&>().empty())
                fail(where, "'accessibilityLabelByImage' must map image names to labels");
            else
                layout.accessibilityLabelByImage.emplace(image, label.get<std::string>());
        }
    }

    void readAnimation(const json& object, ObjectLayout& layout, const std::string& where) {
        auto found = object.find("animation");
        if (found == object.end())
            return;
        std::string here = where + " animation";
        if (!found->is_object()) {
            fail(here, "must be an object");
            return;
        }
        checkKeys(*found, {"frames", "prefix", "count", "duration", "repeatCount"}, {}, here);
        AnimationLayout animation;
        if (auto frames = found->find("frames"); frames != found->end()) {
            if (!frames->is_array())
                fail(here, "'frames' must be an array of image names");
            for (const json& frame : frames->is_array() ? *frames : json::array()) {
                if (frame.is_string() && !frame.get_ref<const std::string&>().empty())
                    animation.frames.push_back(frame.get<std::string>());
                else
                    fail(here, "'frames' must be an array of image names");
            }
        } else if (std::optional<std::string> prefix = readString(*found, "prefix", here)) {
            // The host platform's animated image: "<prefix>0", "<prefix>1", ...
            double count = 0;
            readNumber(*found, "count", count, here, 1);
            for (int i = 0; i < static_cast<int>(std::min(count, 1000.0)); ++i)
                animation.frames.push_back(*prefix + std::to_string(i));
        }
        if (animation.frames.empty())
            fail(here, "needs 'frames', or a 'prefix' and a 'count'");
        readNumber(*found, "duration", animation.duration, here, 0);
        double repeatCount = 0;
        readNumber(*found, "repeatCount", repeatCount, here, 0);
        animation.repeatCount = static_cast<int>(std::min(repeatCount, 1e6));
        layout.animation = std::move(animation);
    }

    void readRowTypes(const json& object, ObjectLayout& layout, const std::string& where, int depth) {
        auto found = object.find("rowTypes");
        if (found == object.end())
            return;
        if (!found->is_object()) {
            fail(where, "'rowTypes' must map row type identifiers to rows");
            return;
        }
        for (const auto& [identifier, row] : found->items()) {
            std::string here = where + " row type '" + identifier + "'";
            RowTypeLayout rowType;
            rowType.identifier = identifier;
            if (!row.is_object()) {
                fail(here, "must be an object");
                continue;
            }
            checkKeys(row,
                      {"class", "selectable", "height", "layout", "spacing", "insets", "backgroundColor",
                       "backgroundImage", "objects"},
                      {}, here);
            rowType.className = readString(row, "class", here);
            readBool(row, "selectable", rowType.selectable, here);
            ObjectLayout& group = rowType.group;
            group.kind = ObjectKind::Group;
            group.path = layout.path + "/" + identifier;
            group.height = readDimension(row, "height", {Dimension::Mode::Fit, 0}, here);
            readContainer(row, group, here);
            readColor(row, "backgroundColor", group.backgroundColor, here);
            group.image = readString(row, "backgroundImage", here);
            readChildren(row, group, here, depth);
            layout.rowTypes.push_back(std::move(rowType));
        }
    }

    // A controller with "like": "<name>" is that controller's JSON with its own properties
    // over it: two pages of one design with different classes.
    json resolveLike(const std::string& identifier, const json& object, const json& controllers) {
        if (!object.is_object() || !object.contains("like"))
            return object;
        std::string where = "controller '" + identifier + "'";
        const json& like = object["like"];
        auto model = like.is_string() ? controllers.find(like.get<std::string>()) : controllers.end();
        if (model == controllers.end() || !model->is_object() || model->contains("like")) {
            fail(where, "'like' must name another controller of the layout, itself without 'like'");
            return json::object();
        }
        json merged = *model;
        for (const auto& [key, value] : object.items()) {
            if (key != "like")
                merged[key] = value;
        }
        return merged;
    }

    ControllerLayout readController(const std::string& identifier, const json& object) {
        ControllerLayout controller;
        controller.identifier = identifier;
        std::string where = "controller '" + identifier + "'";
        m_where = where + ", ";
        if (!object.is_object()) {
            fail(where, "must be an object");
            return controller;
        }
        checkKeys(object, {"class", "title", "accessibilityLabel", "spacing", "insets", "objects"}, {}, where);
        controller.className = readString(object, "class", where, true).value_or("");
        controller.title = readText(object, "title", where);
        controller.accessibilityLabel = readString(object, "accessibilityLabel", where);
        controller.root.kind = ObjectKind::Group;
        controller.root.orientation = Orientation::Vertical;
        controller.root.width = {Dimension::Mode::Fill, 0};
        controller.root.height = {Dimension::Mode::Fill, 0};
        readContainer(object, controller.root, where);
        readChildren(object, controller.root, where, 0);
        m_where.clear();
        return controller;
    }

    InterfaceLayout readLayout(const json& document) {
        InterfaceLayout layout;
        layout.source = m_source;
        if (!document.is_object()) {
            fail("", "a layout is a JSON object");
            return layout;
        }
        checkKeys(document, {"format", "screen", "pages", "glance", "notification", "controllers"}, {}, "");
        if (document.value("format", json()) != 1)
            fail("", "'format' must be 1");
        if (auto screen = document.find("screen"); screen != document.end()) {
            if (!screen->is_object()) {
                fail("", "'screen' must be {\"width\": pixels, \"height\": pixels}");
            } else {
                checkKeys(*screen, {"width", "height"}, {}, "screen");
                readNumber(*screen, "width", layout.screenWidth, "screen", 1);
                readNumber(*screen, "height", layout.screenHeight, "screen", 1);
            }
        }
        auto controllers = document.find("controllers");
        if (controllers == document.end() || !controllers->is_object() || controllers->empty()) {
            fail("", "'controllers' must map controller names to controllers");
            return layout;
        }
        for (const auto& [identifier, object] : controllers->items())
            layout.controllers.emplace(identifier,
                                       readController(identifier, resolveLike(identifier, object, *controllers)));

        auto pages = document.find("pages");
        if (pages == document.end() || !pages->is_array() || pages->empty()) {
            fail("", "'pages' must list the controller names of the pages, left to right");
        } else {
            for (const json& page : *pages) {
                if (!page.is_string() || !layout.controller(page.get<std::string>())) {
                    fail("pages", "'" + (page.is_string() ? page.get<std::string>() : page.dump()) +
                                      "' is not a controller of the layout");
                    continue;
                }
                if (std::find(layout.pages.begin(), layout.pages.end(), page.get<std::string>()) != layout.pages.end())
                    fail("pages", "'" + page.get<std::string>() + "' is a page twice");
                layout.pages.push_back(page.get<std::string>());
            }
        }
        layout.glance = readString(document, "glance", "");
        layout.notification = readString(document, "notification", "");
        for (const auto* name : {&layout.glance, &layout.notification}) {
            if (*name && !layout.controller(**name))
                fail("", "'" + **name + "' is not a controller of the layout");
        }
        for (const auto& [where, destination] : m_segues) {
            if (!layout.controller(destination))
                fail(where, "the segue's destination '" + destination + "' is not a controller of the layout");
        }
        for (const auto& [identifier, controller] : layout.controllers)
            checkController(controller);
        return layout;
    }

    // Outlets and actions of `object` and what it holds (not descending into tables' row
    // types), for `where`.
    void collect(const ObjectLayout& object, Connections& connections, const std::string& where) {
        if (object.outlet) {
            if (!connections.outlets.emplace(*object.outlet, &object).second)
                fail(where, "outlet '" + *object.outlet + "' names two objects");
        }
        if (object.action)
            connections.actions.push_back(&object);
        if (object.adjusts)
            connections.adjusters.push_back(&object);
        for (const ObjectLayout& child : object.children)
            collect(child, connections, where);
    }

    // What the layout alone says of its sliders' buttons, whether or not the class is known.
    void checkAdjusters(const Connections& connections, const std::string& where) {
        for (const ObjectLayout* button : connections.adjusters) {
            const std::string& name = button->adjusts->slider;
            auto slider = connections.outlets.find(name);
            if (slider == connections.outlets.end() || slider->second->kind != ObjectKind::Slider)
                fail(where, "button " + button->path + " adjusts '" + name + "', which is no slider outlet here");
        }
    }

    template <class Base>
    void checkConnections(const Connections& connections, const ClassDescription<Base>& description,
                          const std::string& className, const std::string& where) {
        for (const auto& [name, object] : connections.outlets) {
            const auto* declared = description.outlet(name);
            if (!declared) {
                fail(where, "outlet '" + name + "' (" + std::string(kindName(object->kind)) + " " + object->path +
                                "): class " + className + " has no such outlet");
            } else if (declared->kind != object->kind) {
                fail(where, "outlet '" + name + "': class " + className + " declares a " +
                                std::string(kindName(declared->kind)) + " but the layout has a " +
                                std::string(kindName(object->kind)) + " (" + object->path + ")");
            }
        }
        for (const auto& declared : description.outlets()) {
            if (!connections.outlets.contains(declared.name))
                fail(where, "outlet '" + declared.name + "': declared by class " + className + " (a " +
                                std::string(kindName(declared.kind)) + ") but missing from the layout");
        }
        std::set<std::string, std::less<>> used;
        for (const ObjectLayout* object : connections.actions) {
            const std::string& name = *object->action;
            used.insert(name);
            const auto* declared = description.action(name);
            if (!declared) {
                fail(where, "action '" + name + "' of " + std::string(kindName(object->kind)) + " " + object->path +
                                ": class " + className + " has no such action");
            } else if (!actionFits(object->kind, declared->kind)) {
                fail(where, "action '" + name + "' of " + std::string(kindName(object->kind)) + " " + object->path +
                                ": class " + className + " declares it taking " +
                                std::string(actionKindName(declared->kind)) + ", which a " +
                                std::string(kindName(object->kind)) + " does not send");
            }
        }
        for (const auto& declared : description.actions()) {
            if (declared.use == ActionUse::Layout && !used.contains(declared.name))
                fail(where, "action '" + declared.name + "': declared by class " + className +
                                " for the layout, but no object sends it");
        }
    }

    void missingClass(const std::string& className, const std::string& where) {
        if (m_missing == MissingClasses::Allow)
            m_missingClasses.insert(className);
        else
            fail(where, "class " + className + " is not registered");
    }

    void checkRowTypes(const std::vector<ObjectLayout>& objects, const std::string& where) {
        for (const ObjectLayout& object : objects) {
            for (const RowTypeLayout& rowType : object.rowTypes) {
                std::string here = where + ", row type '" + rowType.identifier + "'" +
                                   (rowType.className ? " (" + *rowType.className + ")" : "");
                Connections connections;
                collect(rowType.group, connections, here);
                checkRowTypes(rowType.group.children, here);
                // A row's sliders are many, one per row: a button could not tell which.
                for (const ObjectLayout* button : connections.adjusters)
                    fail(here, "button " + button->path + " in a row type cannot adjust a slider");
                if (!rowType.className) {
                    if (!connections.outlets.empty() || !connections.actions.empty())
                        fail(here, "a row type with outlets or actions needs a 'class'");
                    continue;
                }
                const RowClass* rowClass = m_registry.rowClass(*rowType.className);
                if (!rowClass) {
                    missingClass(*rowType.className, here);
                    continue;
                }
                checkConnections(connections, rowClass->description, *rowType.className, here);
            }
            checkRowTypes(object.children, where);
        }
    }

    void checkController(const ControllerLayout& controller) {
        std::string where = "controller '" + controller.identifier + "' (" + controller.className + ")";
        Connections connections;
        for (const ObjectLayout& object : controller.root.children)
            collect(object, connections, where);
        checkAdjusters(connections, where);
        checkRowTypes(controller.root.children, where);
        if (controller.className.empty())
            return;
        const ControllerClass* controllerClass = m_registry.controllerClass(controller.className);
        if (!controllerClass) {
            missingClass(controller.className, where);
            return;
        }
        checkConnections(connections, controllerClass->description, controller.className, where);
    }

    std::string m_source;
    const ControllerRegistry& m_registry;
    MissingClasses m_missing;
    std::vector<std::string> m_errors;
    std::set<std::string> m_missingClasses;
    // The controller being read, as a prefix of object messages.
    std::string m_where;
    std::vector<std::pair<std::string, std::string>> m_segues;
};

} // namespace

Expected<InterfaceLayout> LayoutLoader::loadFile(const std::filesystem::path& path, const ControllerRegistry& registry,
                                                 MissingClasses missing) {
    std::error_code error;
    std::uintmax_t size = std::filesystem::file_size(path, error);
    if (error) {
        const ErrorKind kind =
            error == std::errc::no_such_file_or_directory ? ErrorKind::NotFound : ErrorKind::SystemFailure;
        return Error(kind, path.string() + ": cannot be read: " + error.message());
    }
    if (size > kMaxLayoutBytes)
        return Error(ErrorKind::TooLarge, path.string() + ": is too large for a layout");
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    if (!file)
        return Error(ErrorKind::SystemFailure, path.string() + ": cannot be read");
    return parse(text.str(), path.string(), registry, missing);
}

Expected<InterfaceLayout> LayoutLoader::parse(std::string_view text, std::string sourceName,
                                              const ControllerRegistry& registry, MissingClasses missing) {
    return Parser(std::move(sourceName), registry, missing).run(text);
}

} // namespace vexo::watchkit

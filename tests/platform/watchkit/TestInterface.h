#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/runtime/DeterministicRunLoop.h"
#include "platform/watchkit/Button.h"
#include "platform/watchkit/ControllerRegistry.h"
#include "platform/watchkit/ExtensionHost.h"
#include "platform/watchkit/Group.h"
#include "platform/watchkit/InterfaceController.h"
#include "platform/watchkit/Label.h"
#include "platform/watchkit/LayoutLoader.h"
#include "platform/watchkit/Outlet.h"
#include "platform/watchkit/RowController.h"
#include "platform/watchkit/Slider.h"
#include "platform/watchkit/Switch.h"
#include "platform/watchkit/Table.h"

// A small application for the watchkit tests: three pages, a picker presented by name with a
// table, a detail screen presented from the picker, and a glance. Every controller writes
// its calls to one CallLog, "<controller name>.<call>", so that a test compares the log
// with the order it expects.
namespace vexo::watchkit::testing {

struct CallLog {
    std::vector<std::string> calls;
    // The calls since the last take().
    std::vector<std::string> take();
};

// What a page hands the picker: a C++ object, not a property-list value.
struct Thing {
    std::string name;
};

// Logs its lifecycle under the name of its screen's controller.
class LoggingController : public InterfaceController {
public:
    explicit LoggingController(CallLog& log)
        : m_log(log) {}
    void awakeWithContext(const Context& context) override;
    void willActivate() override;
    void didDeactivate() override;
    [[nodiscard]] std::string name() const;

protected:
    void note(const std::string& call) { m_log.calls.push_back(name() + "." + call); }
    CallLog& m_log;
};

// A page: a title, a button that presents the picker with a Thing, a menu item, and the
// notification actions it receives.
class PageController : public LoggingController {
public:
    using LoggingController::LoggingController;
    template <class Self> static void describeInterface(InterfaceClass<Self>& c) {
        c.outlet("titleLabel", &PageController::m_titleLabel);
        c.outlet("openButton", &PageController::m_openButton);
        c.outlet("box", &PageController::m_box);
        c.outlet("noteLabel", &PageController::m_noteLabel);
        c.action("open", &PageController::open);
        c.action("menuPicked", &PageController::menuPicked, ActionUse::Code);
    }
    void awakeWithContext(const Context& context) override;
    void handleActionWithIdentifier(const std::string& identifier, const plist::Value& userInfo) override;
    void open();
    void menuPicked() { note("menuPicked"); }

    Outlet<Label> m_titleLabel;
    Outlet<Button> m_openButton;
    Outlet<Group> m_box;
    Outlet<Label> m_noteLabel;
    // What a notification action does besides being logged; the test sets it.
    std::function<void(const std::string& identifier)> onAction;
    std::shared_ptr<Thing> m_thing = std::make_shared<Thing>(Thing{"record"});
};

class ItemRow : public RowController {
public:
    explicit ItemRow(CallLog& log)
        : m_log(log) {}
    template <class Self> static void describeInterface(InterfaceClass<Self>& c) {
        c.outlet("nameLabel", &ItemRow::m_nameLabel);
        c.outlet("starButton", &ItemRow::m_starButton);
        c.action("star", &ItemRow::star);
    }
    void star() { m_log.calls.push_back("row.star " + m_nameLabel->text().value_or("")); }

    Outlet<Label> m_nameLabel;
    Outlet<Button> m_starButton;

private:
    CallLog& m_log;
};

// The modal list: fills its table on every activation; a row presents the detail screen.
class PickerController : public LoggingController {
public:
    using LoggingController::LoggingController;
    template <class Self> static void describeInterface(InterfaceClass<Self>& c) {
        c.outlet("titleLabel", &PickerController::m_titleLabel);
        c.outlet("table", &PickerController::m_table);
        c.outlet("slider", &PickerController::m_slider);
        c.outlet("toggle", &PickerController::m_toggle);
        c.action("slide", &PickerController::slide);
        c.action("toggle", &PickerController::toggle);
        c.action("done", &PickerController::done);
    }
    void awakeWithContext(const Context& context) override;
    void willActivate() override;
    void tableDidSelectRowAtIndex(Table& table, std::size_t rowIndex) override;
    void slide(float value) { note("slide " + std::to_string(value).substr(0, 4)); }
    void toggle(bool on) { note(on ? "toggle on" : "toggle off"); }
    void done();

    Outlet<Label> m_titleLabel;
    Outlet<Table> m_table;
    Outlet<Slider> m_slider;
    Outlet<Switch> m_toggle;
    std::shared_ptr<Thing> m_thing;
};

// Presented from the picker; "finish" closes itself and then the picker under it.
class DetailController : public LoggingController {
public:
    using LoggingController::LoggingController;
    template <class Self> static void describeInterface(InterfaceClass<Self>& c) {
        c.outlet("nameLabel", &DetailController::m_nameLabel);
        c.action("finish", &DetailController::finish);
        c.action("fail", &DetailController::fail);
    }
    void awakeWithContext(const Context& context) override;
    void finish();
    void fail() { throw std::out_of_range("index 0 beyond bounds for an empty array"); }

    Outlet<Label> m_nameLabel;
    std::shared_ptr<InterfaceController> m_picker;
};

class GlanceTestController : public LoggingController {
public:
    using LoggingController::LoggingController;
    template <class Self> static void describeInterface(InterfaceClass<Self>& c) {
        c.outlet("titleLabel", &GlanceTestController::m_titleLabel);
    }
    Outlet<Label> m_titleLabel;
};

// The layout of the test application, as JSON text.
[[nodiscard]] std::string testLayoutText();

// Registers the test classes, logging to `log`.
void registerTestClasses(ControllerRegistry& registry, CallLog& log);

// A host of the test application on a deterministic loop, its timers on a fixed clock; texts
// and locale as ExtensionHost::Options take them.
struct TestApplication {
    explicit TestApplication(const text::Localization* localization = nullptr, std::string locale = {});
    ~TestApplication();

    // The object behind `outlet` of the visible screen's controller.
    [[nodiscard]] std::shared_ptr<InterfaceObject> visible(std::string_view outlet) const;
    // Its identifier, for input events.
    [[nodiscard]] std::string visibleId(std::string_view outlet) const;
    // The identifier of the button titled `title` on the visible screen.
    [[nodiscard]] std::string buttonTitled(std::string_view title) const;
    template <class C> [[nodiscard]] std::shared_ptr<C> page(std::size_t index) const {
        return std::dynamic_pointer_cast<C>(host->pageController(index));
    }

    CallLog log;
    runtime::DeterministicRunLoop loop;
    ControllerRegistry registry;
    std::unique_ptr<ExtensionHost> host;
};

} // namespace vexo::watchkit::testing

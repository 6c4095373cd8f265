#include "TestInterface.h"

#include <stdexcept>

#include "platform/watchkit/Screen.h"
#include "support/WatchSnapshot.h"

namespace vexo::watchkit::testing {

std::vector<std::string> CallLog::take() {
    std::vector<std::string> taken = std::move(calls);
    calls.clear();
    return taken;
}

void LoggingController::awakeWithContext(const Context&) {
    note("awake");
}

void LoggingController::willActivate() {
    note("willActivate");
}

void LoggingController::didDeactivate() {
    note("didDeactivate");
}

std::string LoggingController::name() const {
    return screen() ? screen()->layout().identifier : std::string("offscreen");
}

void PageController::awakeWithContext(const Context& context) {
    LoggingController::awakeWithContext(context);
    m_titleLabel->setText(name());
    addMenuItemWithImageNamed("automix", "Pick", "menuPicked");
}

void PageController::handleActionWithIdentifier(const std::string& identifier, const plist::Value& userInfo) {
    note("handleAction " + identifier + " " + userInfo["turntable"].stringValue().value_or("-"));
    if (onAction)
        onAction(identifier);
}

void PageController::open() {
    note("open");
    presentControllerWithName("picker", Context{{"thing", std::any(m_thing)}, {"from", std::any(name())}});
    note("open returns");
}

void PickerController::awakeWithContext(const Context& context) {
    LoggingController::awakeWithContext(context);
    m_thing = context.value<std::shared_ptr<Thing>>("thing");
    m_titleLabel->setText(context.value<std::string>("from", "nobody") + ": " + (m_thing ? m_thing->name : "-"));
}

void PickerController::willActivate() {
    LoggingController::willActivate();
    m_table->setRowTypes({"heading", "item", "item"});
    for (std::size_t i = 1; i < m_table->numberOfRows(); ++i) {
        if (auto row = m_table->rowControllerAtIndex<ItemRow>(i))
            row->m_nameLabel->setText("item " + std::to_string(i));
    }
}

void PickerController::tableDidSelectRowAtIndex(Table& table, std::size_t rowIndex) {
    note("select " + std::to_string(rowIndex) + (&table == m_table.get().get() ? "" : " of another table"));
    presentControllerWithName("detail", Context{{"picker", std::any(shared_from_this())},
                                                {"item", std::any("item " + std::to_string(rowIndex))}});
}

void PickerController::done() {
    note("done");
    dismissController();
}

void DetailController::awakeWithContext(const Context& context) {
    LoggingController::awakeWithContext(context);
    m_picker = context.value<std::shared_ptr<InterfaceController>>("picker");
    m_nameLabel->setText(context.value<std::string>("item"));
}

void DetailController::finish() {
    note("finish");
    dismissController();
    if (m_picker)
        m_picker->dismissController();
}

std::string testLayoutText() {
    return R"json({
  "format": 1,
  "screen": {"width": 312, "height": 390},
  "pages": ["left", "middle", "right"],
  "glance": "glance",
  "controllers": {
    "left": {"class": "PageController", "spacing": 4, "accessibilityLabel": "Library", "objects": [
      {"kind": "label", "outlet": "titleLabel", "text": "--", "height": 30},
      {"kind": "button", "outlet": "openButton", "title": "Open", "height": 40, "action": "open",
       "accessibilityLabel": "Play", "accessibilityLabelByImage": {"pause": "Pause deck 1"}},
      {"kind": "group", "outlet": "box", "objects": [{"kind": "label", "outlet": "noteLabel", "text": "note", "height": 20}]}
    ]},
    "middle": {"like": "left"},
    "right": {"like": "left"},
    "picker": {"class": "PickerController", "title": "Cancel", "spacing": 4, "objects": [
      {"kind": "label", "outlet": "titleLabel", "height": 30},
      {"kind": "table", "outlet": "table", "spacing": 2, "rowTypes": {
        "heading": {"selectable": false, "height": 20, "objects": [{"kind": "label", "text": "Pick one"}]},
        "item": {"class": "ItemRow", "height": 40, "objects": [
          {"kind": "label", "outlet": "nameLabel"},
          {"kind": "button", "outlet": "starButton", "title": "*", "width": 40, "action": "star"}
        ]}
      }},
      {"kind": "slider", "outlet": "slider", "minimum": 0, "maximum": 1, "steps": 4, "value": 0.5, "action": "slide"},
      {"kind": "switch", "outlet": "toggle", "title": "Loud", "action": "toggle"},
      {"kind": "button", "title": "Done", "height": 40, "action": "done"},
      {"kind": "button", "title": "+", "height": 40, "adjusts": {"slider": "slider", "by": 1}}
    ]},
    "detail": {"class": "DetailController", "objects": [
      {"kind": "label", "outlet": "nameLabel"},
      {"kind": "button", "title": "Finish", "action": "finish"},
      {"kind": "button", "title": "Fail", "action": "fail"}
    ]},
    "glance": {"class": "GlanceTestController", "objects": [
      {"kind": "label", "outlet": "titleLabel", "text": "glance"}
    ]}
  }
})json";
}

void registerTestClasses(ControllerRegistry& registry, CallLog& log) {
    auto make = [&log]<class C>(std::type_identity<C>) {
        return std::function<std::shared_ptr<C>()>([&log] {
            auto controller = std::make_shared<C>(log);
            log.calls.push_back("init");
            return controller;
        });
    };
    registry.registerClass<PageController>("PageController", make(std::type_identity<PageController>()));
    registry.registerClass<PickerController>("PickerController", make(std::type_identity<PickerController>()));
    registry.registerClass<DetailController>("DetailController", make(std::type_identity<DetailController>()));
    registry.registerClass<GlanceTestController>("GlanceTestController",
                                                 make(std::type_identity<GlanceTestController>()));
    registry.registerRowClass<ItemRow>("ItemRow", [&log] { return std::make_shared<ItemRow>(log); });
}

TestApplication::TestApplication(const text::Localization* localization, std::string locale) {
    registerTestClasses(registry, log);
    Expected<InterfaceLayout> loaded = LayoutLoader::parse(testLayoutText(), "test.json", registry);
    if (!loaded)
        throw std::logic_error("the test layout does not load:\n" + loaded.error().message());
    ExtensionHost::Options options;
    options.clock = [] { return std::chrono::system_clock::time_point(std::chrono::seconds(1'700'000'000)); };
    options.localization = localization;
    options.locale = std::move(locale);
    host = std::make_unique<ExtensionHost>(loop, registry, std::move(*loaded), std::move(options));
}

TestApplication::~TestApplication() = default;

std::shared_ptr<InterfaceObject> TestApplication::visible(std::string_view outlet) const {
    auto controller = host->visibleController();
    return controller ? host->objectForOutlet(*controller, outlet) : nullptr;
}

std::string TestApplication::visibleId(std::string_view outlet) const {
    auto object = visible(outlet);
    return object ? object->identifier() : std::string("<no " + std::string(outlet) + ">");
}

std::string TestApplication::buttonTitled(std::string_view title) const {
    nlohmann::json snapshot = host->snapshot();
    std::string visibleScreen =
        snapshot["visibleScreen"].is_string() ? snapshot["visibleScreen"].get<std::string>() : "";
    for (const char* list : {"pages", "modals"}) {
        for (const auto& screen : snapshot[list]) {
            if (screen["id"] != visibleScreen)
                continue;
            nlohmann::json button = vexo::testing::findObject(screen, "title", title);
            if (!button.is_null())
                return button["id"];
        }
    }
    return "<no button " + std::string(title) + ">";
}

} // namespace vexo::watchkit::testing

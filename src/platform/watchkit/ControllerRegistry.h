#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/watchkit/ClassDescription.h"
#include "platform/watchkit/InterfaceClass.h"
#include "platform/watchkit/InterfaceController.h"
#include "platform/watchkit/RowController.h"

// The controller classes a layout may name, by class name: how to make one (the host
// platform's init) and what outlets and actions it has. The layout maps controller names
// ("library", "itunesPlaylist", ...) to class names; the registry maps class names to
// classes.
//
// Classes are registered before a layout is loaded against the registry, on the main
// loop's thread; afterwards the registry is only read.
namespace vexo::watchkit {

struct ControllerClass {
    std::string name;
    // Makes a new instance; may give nullptr (the platform's init returning nil).
    std::function<std::shared_ptr<InterfaceController>()> factory;
    ClassDescription<InterfaceController> description;
};

struct RowClass {
    std::string name;
    std::function<std::shared_ptr<RowController>()> factory;
    ClassDescription<RowController> description;
};

class ControllerRegistry {
public:
    ControllerRegistry() = default;
    ControllerRegistry(const ControllerRegistry&) = delete;
    ControllerRegistry& operator=(const ControllerRegistry&) = delete;
    ControllerRegistry(ControllerRegistry&&) = delete;
    ControllerRegistry& operator=(ControllerRegistry&&) = delete;

    // The process-wide registry that the program's controllers register in.
    [[nodiscard]] static ControllerRegistry& shared();

    // Registers the interface controller class `C` as `className`, made by `factory` (by
    // default std::make_shared<C>(); a class without a default constructor needs one), with the outlets and actions of
    // C::describeInterface(InterfaceClass<C>&) when C has one. False (and a log line) when
    // the name is taken already; the first registration stays.
    template <class C> bool registerClass(std::string className, std::function<std::shared_ptr<C>()> factory = {}) {
        static_assert(std::is_base_of_v<InterfaceController, C>);
        auto entry = std::make_unique<ControllerClass>();
        entry->name = className;
        entry->factory = makeFactory<InterfaceController, C>(std::move(factory));
        entry->description = describe<C>();
        return add(m_controllers, std::move(className), std::move(entry));
    }

    // Registers the row controller class `C` as `className`, as registerClass() does.
    template <class C> bool registerRowClass(std::string className, std::function<std::shared_ptr<C>()> factory = {}) {
        static_assert(std::is_base_of_v<RowController, C>);
        auto entry = std::make_unique<RowClass>();
        entry->name = className;
        entry->factory = makeFactory<RowController, C>(std::move(factory));
        entry->description = describe<C>();
        return add(m_rows, std::move(className), std::move(entry));
    }

    // The class registered as `className`, or nullptr. The pointer stays valid while the
    // registry lives.
    [[nodiscard]] const ControllerClass* controllerClass(std::string_view className) const;
    [[nodiscard]] const RowClass* rowClass(std::string_view className) const;

    // The registered names, sorted.
    [[nodiscard]] std::vector<std::string> controllerClassNames() const;
    [[nodiscard]] std::vector<std::string> rowClassNames() const;

private:
    template <class Base, class C>
    static std::function<std::shared_ptr<Base>()> makeFactory(std::function<std::shared_ptr<C>()> factory) {
        if constexpr (std::is_default_constructible_v<C>) {
            if (!factory)
                return [] { return std::static_pointer_cast<Base>(std::make_shared<C>()); };
        }
        if (!factory)
            return [] { return std::shared_ptr<Base>(); };
        return [factory = std::move(factory)] { return std::static_pointer_cast<Base>(factory()); };
    }

    template <class C> static auto describe() {
        InterfaceClass<C> declaration;
        if constexpr (requires { C::describeInterface(declaration); })
            C::describeInterface(declaration);
        return std::move(declaration.description());
    }

    template <class Entry>
    static bool add(std::map<std::string, std::unique_ptr<Entry>, std::less<>>& map, std::string name,
                    std::unique_ptr<Entry> entry) {
        if (name.empty() || map.contains(name)) {
            logRefused(name);
            return false;
        }
        map.emplace(std::move(name), std::move(entry));
        return true;
    }
    static void logRefused(const std::string& name);

    std::map<std::string, std::unique_ptr<ControllerClass>, std::less<>> m_controllers;
    std::map<std::string, std::unique_ptr<RowClass>, std::less<>> m_rows;
};

} // namespace vexo::watchkit

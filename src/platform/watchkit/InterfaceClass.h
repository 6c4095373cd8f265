#pragma once

#include <memory>
#include <string>
#include <type_traits>

#include "platform/watchkit/ClassDescription.h"
#include "platform/watchkit/InterfaceController.h"
#include "platform/watchkit/Outlet.h"
#include "platform/watchkit/RowController.h"

// Declares the outlets and actions of the controller class `C` (an InterfaceController or a
// RowController) by name, for the registry; see InterfaceController.h for the pattern.
// Members of a base class may be named (&Base::m_label), so a subclass declares its base's
// outlets and actions by calling the base's describeInterface<Self>().
namespace vexo::watchkit {

template <class C> class InterfaceClass {
public:
    static_assert(std::is_base_of_v<InterfaceController, C> || std::is_base_of_v<RowController, C>,
                  "an interface class is an InterfaceController or a RowController");
    using Base = std::conditional_t<std::is_base_of_v<InterfaceController, C>, InterfaceController, RowController>;

    // The outlet `name`, connected to an object of T's kind.
    template <class T, class Owner> InterfaceClass& outlet(std::string name, Outlet<T> Owner::*member) {
        static_assert(std::is_base_of_v<Owner, C>);
        m_description.addOutlet(
            {std::move(name), T::kKind, [member](Base& instance, const std::shared_ptr<InterfaceObject>& object) {
                 (static_cast<C&>(instance).*member).connect(std::dynamic_pointer_cast<T>(object));
             }});
        return *this;
    }

    // A button's or menu item's action, or a slider's or switch's that ignores the value.
    template <class Owner>
    InterfaceClass& action(std::string name, void (Owner::*method)(), ActionUse use = ActionUse::Layout) {
        static_assert(std::is_base_of_v<Owner, C>);
        m_description.addAction({std::move(name), ActionKind::Plain, use, [method](Base& instance, const ActionValue&) {
                                     (static_cast<C&>(instance).*method)();
                                 }});
        return *this;
    }

    // A slider's action, given the slider's new value.
    template <class Owner>
    InterfaceClass& action(std::string name, void (Owner::*method)(float), ActionUse use = ActionUse::Layout) {
        static_assert(std::is_base_of_v<Owner, C>);
        m_description.addAction(
            {std::move(name), ActionKind::Float, use, [method](Base& instance, const ActionValue& value) {
                 const float* number = std::get_if<float>(&value);
                 (static_cast<C&>(instance).*method)(number ? *number : 0.0f);
             }});
        return *this;
    }

    // A switch's action, given the switch's new state.
    template <class Owner>
    InterfaceClass& action(std::string name, void (Owner::*method)(bool), ActionUse use = ActionUse::Layout) {
        static_assert(std::is_base_of_v<Owner, C>);
        m_description.addAction(
            {std::move(name), ActionKind::Bool, use, [method](Base& instance, const ActionValue& value) {
                 const bool* on = std::get_if<bool>(&value);
                 (static_cast<C&>(instance).*method)(on && *on);
             }});
        return *this;
    }

    [[nodiscard]] ClassDescription<Base>& description() { return m_description; }

private:
    ClassDescription<Base> m_description;
};

} // namespace vexo::watchkit

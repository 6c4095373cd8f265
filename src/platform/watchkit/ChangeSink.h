#pragma once

namespace vexo::watchkit {

class InterfaceObject;
class Screen;

// Hears of every change of an interface object's state (ExtensionHost implements it).
// Called on the main loop's thread, synchronously from the setter.
class ChangeSink {
public:
    virtual ~ChangeSink() = default;

    // `object` of `screen` changed; a table also reports added and removed rows this way.
    virtual void objectDidChange(Screen& screen, InterfaceObject& object) = 0;

protected:
    ChangeSink() = default;
    ChangeSink(const ChangeSink&) = default;
    ChangeSink& operator=(const ChangeSink&) = default;
};

} // namespace vexo::watchkit

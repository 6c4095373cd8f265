#pragma once

// The base of a table row's controller (the host platform's plain row class): it only holds
// outlets to the row's objects, declared like a controller's (InterfaceClass). A table makes
// one per row, with the class the layout names for the row type, and owns it.
namespace vexo::watchkit {

class RowController {
public:
    RowController() = default;
    virtual ~RowController() = default;
    RowController(const RowController&) = delete;
    RowController& operator=(const RowController&) = delete;
    RowController(RowController&&) = delete;
    RowController& operator=(RowController&&) = delete;
};

} // namespace vexo::watchkit

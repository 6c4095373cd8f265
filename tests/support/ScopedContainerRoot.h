#pragma once

#include <optional>
#include <string>
#include <utility>

#include "platform/ipc/Container.h"

namespace vexo::testing {

// Points the process's containers at a root of the test's for the lifetime of the object
// and restores the location found before afterwards, so that one test's container never
// leaks into another. Child processes started with exec need VEXO_CONTAINER_ROOT as well.
class ScopedContainerRoot {
public:
    ScopedContainerRoot()
        : m_previous(ipc::Container::location()) {}
    ~ScopedContainerRoot() { ipc::Container::setLocation(m_previous); }
    ScopedContainerRoot(const ScopedContainerRoot&) = delete;
    ScopedContainerRoot& operator=(const ScopedContainerRoot&) = delete;

    // Containers live in `root` from now on (nothing: under /tmp).
    void set(std::optional<std::string> root) { ipc::Container::setLocation({.root = std::move(root)}); }

private:
    ipc::Container::Location m_previous;
};

} // namespace vexo::testing

#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

#include "model/VXAWProtocol.h"

// The paging of the library and playlist lists: how many rows the next page adds.
namespace vexo::ui {

// The rest when at most a page remains, otherwise a page. Throws std::out_of_range when more
// rows are shown than there are elements (the list shrank under the screen).
[[nodiscard]] inline std::size_t nextPageLength(std::size_t total, std::size_t shown) {
    if (shown > total)
        throw std::out_of_range("page starts at " + std::to_string(shown) + " beyond " + std::to_string(total) +
                                " elements");
    const std::size_t rest = total - shown;
    const auto pageSize = static_cast<std::size_t>(model::VXAWLibraryDefaultItemPageSize);
    return rest <= pageSize ? rest : pageSize;
}

} // namespace vexo::ui

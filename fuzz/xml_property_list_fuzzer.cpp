// The XML property-list reader on arbitrary bytes. Whatever it accepts must come out as a
// binary property list that our own binary reader opens, and as a keyed archive decode that
// neither crashes nor hangs.
#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/plist/BinaryPropertyList.h"
#include "platform/plist/KeyedUnarchiver.h"
#include "platform/plist/XmlPropertyList.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> bytes(data, size);
    const auto binary = vexo::plist::XmlPropertyList::toBinary(bytes);
    if (binary) {
        const auto list = vexo::plist::BinaryPropertyList::open(*binary);
        // Our own writer's output that our own reader refuses is a bug in one of them.
        if (!list || !list->object(list->topObject()))
            __builtin_trap();
    } else if (binary.error().message().empty()) {
        __builtin_trap();
    }
    static_cast<void>(vexo::plist::KeyedUnarchiver::unarchive(bytes));
    return 0;
}

// The interface layout loader on arbitrary text, checked against the test application's
// classes and against an empty registry that allows every class: a malformed layout yields
// errors, never a crash, a hang or a refusal without a reason.
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

#include "platform/watchkit/LayoutLoader.h"
#include "platform/watchkit/TestInterface.h"

using namespace vexo::watchkit;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static testing::CallLog log;
    static const ControllerRegistry& registry = []() -> const ControllerRegistry& {
        static ControllerRegistry classes;
        testing::registerTestClasses(classes, log);
        return classes;
    }();
    static const ControllerRegistry empty;

    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::pair<const ControllerRegistry*, MissingClasses> checks[] = {{&registry, MissingClasses::Refuse},
                                                                           {&empty, MissingClasses::Allow}};
    for (const auto& [classes, missing] : checks) {
        const vexo::Expected<InterfaceLayout> result = LayoutLoader::parse(text, "fuzz.json", *classes, missing);
        // A refused layout always says why.
        if (!result && result.error().message().empty())
            __builtin_trap();
    }
    return 0;
}

// The extension host's JSON input events, through the public handleEvent() as the watch face
// delivers them: each input line is one event (JSON or not) for a started test application.
// Whatever arrives, the host refuses it with a reason or performs it, and its snapshot still
// serialises afterwards.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include <nlohmann/json.hpp>

#include "platform/watchkit/ExtensionHost.h"
#include "platform/watchkit/TestInterface.h"

using namespace vexo::watchkit;

namespace {

// Lines enough to reach deep navigation; more only slows the fuzzer down.
constexpr int kMaximumEvents = 64;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    testing::TestApplication application;
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    for (int events = 0; !rest.empty() && events < kMaximumEvents; ++events) {
        const std::size_t end = rest.find('\n');
        const std::string_view line = rest.substr(0, end);
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);

        const nlohmann::json event = nlohmann::json::parse(line, nullptr, /*allow_exceptions=*/false);
        static_cast<void>(application.host->handleEvent(event));
        application.loop.runUntilIdle();
    }
    // Throws (and so aborts the fuzzer) if the host left anything that does not serialise.
    static_cast<void>(application.host->snapshot().dump(-1, ' ', false, nlohmann::json::error_handler_t::strict));
    return 0;
}

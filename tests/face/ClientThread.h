#pragma once

#include "platform/runtime/RunLoop.h"

#include <atomic>
#include <future>

namespace vexo::face::testing {

// Runs `work` (a blocking client call) on a thread of its own while `loop` serves on this
// one, and gives its result. The loop gives up after 300 s; the clients' own deadlines end
// their calls long before.
template <class Work> auto onClientThread(runtime::RunLoop& loop, Work work) -> decltype(work()) {
    std::atomic<bool> done = false;
    auto future = std::async(std::launch::async, [&] {
        // Wakes the loop however `work` ends, so that it sees `done`.
        struct Wake {
            std::atomic<bool>& done;
            runtime::RunLoop& loop;
            ~Wake() {
                done = true;
                loop.post([] {});
            }
        } wake{done, loop};
        return work();
    });
    loop.runUntil([&] { return done.load(); }, 300);
    return future.get();
}

} // namespace vexo::face::testing

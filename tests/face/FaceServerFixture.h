#pragma once

#include <atomic>
#include <future>
#include <memory>

#include <gtest/gtest.h>

#include "face/FaceServer.h"
#include "face/ProtocolLog.h"
#include "face/WatchFace.h"
#include "platform/runtime/AsioRunLoop.h"
#include "platform/watchkit/ControllerRegistry.h"
#include "platform/watchkit/ExtensionHost.h"
#include "support/TemporaryDirectory.h"

namespace vexo::face::testing {

// What the face server's tests stand on: a folder of their own, the main loop and a face
// server over an extension host, which each test's SetUp makes and TearDown stops (the
// server first, while the face and the host it serves are still there).
class FaceServerFixture : public ::testing::Test {
protected:
    void TearDown() override {
        m_server.reset();
        m_face.reset();
        m_host.reset();
    }

    // Runs `work` (a blocking client call) on a thread of its own while the main loop serves,
    // and gives its result. The loop gives up after 300 s; the clients' own deadlines end
    // their calls long before.
    template <class Work> auto onClient(Work work) -> decltype(work()) {
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
            } wake{done, m_loop};
            return work();
        });
        m_loop.runUntil([&] { return done.load(); }, 300);
        return future.get();
    }

    vexo::testing::TemporaryDirectory m_directory;
    runtime::AsioRunLoop m_loop;
    watchkit::ControllerRegistry m_registry;
    ProtocolLog m_log;
    std::unique_ptr<watchkit::ExtensionHost> m_host;
    std::unique_ptr<WatchFace> m_face;
    std::unique_ptr<FaceServer> m_server;
};

} // namespace vexo::face::testing

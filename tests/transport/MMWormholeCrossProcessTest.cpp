// Two real processes talking through the transport: a ping-pong in which each side answers the
// other's message, so that every message must arrive, in order, with its contents.
#include <numeric>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/runtime/AsioRunLoop.h"
#include "support/ScopedContainerRoot.h"
#include "support/TemporaryDirectory.h"
#include "transport/MMWormhole.h"

using namespace vexo;
using plist::Dictionary;
using plist::Value;
using transport::MMWormhole;

namespace {

constexpr const char* kGroup = "group.test.crossprocess";
constexpr int kRounds = 200;
constexpr double kTimeoutSeconds = 20;

Value ping(int round) {
    return Value(Dictionary{{"round", Value(round)},
                            {"payload", Value(plist::Data(static_cast<std::size_t>(round), 0xAB))},
                            {"text", Value("ping " + std::to_string(round))}});
}

// The answering side: echoes every ping as a pong with the same round, until the last one.
// Returns the process exit status: 0 when every round arrived in order.
int answerPings() {
    runtime::AsioRunLoop loop;
    runtime::RunLoop::setCurrent(&loop);
    MMWormhole wormhole(kGroup, "messages");
    int expected = 0;
    bool inOrder = true;
    wormhole.listenForMessageWithIdentifier("ping", [&](const Value& message) {
        const int round = static_cast<int>(message["round"].integerValue());
        inOrder = inOrder && round == expected && message == ping(round);
        ++expected;
        wormhole.passMessageObject(Value(Dictionary{{"round", Value(round)}}), "pong");
    });
    wormhole.passMessageObject(Value("ready"), "ready");
    const bool finished = loop.runUntil([&] { return expected == kRounds; }, kTimeoutSeconds);
    return finished && inOrder ? 0 : 1;
}

} // namespace

TEST(MMWormholeCrossProcessTest, EveryMessageCrossesBothWaysInOrder) {
    vexo::testing::TemporaryDirectory root;
    vexo::testing::ScopedContainerRoot containerRoot;
    containerRoot.set(root.path().string());

    runtime::AsioRunLoop loop;
    runtime::RunLoop::setCurrent(&loop);
    {
        MMWormhole wormhole(kGroup, "messages");
        bool ready = false;
        wormhole.listenForMessageWithIdentifier("ready", [&](const Value&) { ready = true; });

        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            runtime::RunLoop::setCurrent(nullptr);
            _exit(answerPings());
        }

        std::vector<std::int64_t> pongs;
        wormhole.listenForMessageWithIdentifier("pong", [&](const Value& message) {
            pongs.push_back(message["round"].integerValue());
            if (pongs.size() < kRounds)
                wormhole.passMessageObject(ping(static_cast<int>(pongs.size())), "ping");
        });
        ASSERT_TRUE(loop.runUntil([&] { return ready; }, kTimeoutSeconds));
        wormhole.passMessageObject(ping(0), "ping");
        EXPECT_TRUE(loop.runUntil([&] { return pongs.size() == kRounds; }, kTimeoutSeconds));

        std::vector<std::int64_t> expected(kRounds);
        std::iota(expected.begin(), expected.end(), 0);
        EXPECT_EQ(pongs, expected);

        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 0) << "the other process missed or reordered a ping";
    }
    runtime::RunLoop::setCurrent(nullptr);
}

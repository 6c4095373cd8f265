// What a program under systemd tells its service manager, received on a socket of ours.

#include "common/ServiceNotifier.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/runtime/DeterministicRunLoop.h"
#include "support/ScopedEnvironment.h"
#include "support/TemporaryDirectory.h"

using vexo::apps::ServiceNotifier;

namespace {

// Stands in for the service manager's notification socket.
class ManagerSocket {
public:
    explicit ManagerSocket(const std::filesystem::path& path) {
        m_fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.string().copy(address.sun_path, sizeof address.sun_path - 1);
        if (::bind(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            ADD_FAILURE() << "cannot bind " << path;
    }
    ~ManagerSocket() { ::close(m_fd); }
    ManagerSocket(const ManagerSocket&) = delete;
    ManagerSocket& operator=(const ManagerSocket&) = delete;

    // Every message received so far.
    std::vector<std::string> received() {
        std::vector<std::string> messages;
        char buffer[4096];
        for (ssize_t length; (length = ::recv(m_fd, buffer, sizeof buffer, 0)) >= 0;)
            messages.emplace_back(buffer, static_cast<std::size_t>(length));
        return messages;
    }

private:
    int m_fd = -1;
};

} // namespace

TEST(ServiceNotifierTest, ReadinessKeepAlivesAtHalfTheWatchdogAndStopping) {
    vexo::testing::TemporaryDirectory directory;
    ManagerSocket manager(directory.path() / "notify");
    vexo::testing::ScopedEnvironment environment;
    environment.set("NOTIFY_SOCKET", (directory.path() / "notify").string());
    environment.set("WATCHDOG_USEC", "3000000");
    environment.set("WATCHDOG_PID", std::to_string(::getpid()));

    vexo::runtime::DeterministicRunLoop loop;
    {
        ServiceNotifier notifier(loop);
        EXPECT_DOUBLE_EQ(notifier.keepAliveInterval(), 1.5);
        notifier.ready("serving on\n127.0.0.1:8420");
        EXPECT_EQ(manager.received(), std::vector<std::string>{"READY=1\nSTATUS=serving on 127.0.0.1:8420"});
        loop.advance(1.4);
        EXPECT_TRUE(manager.received().empty());
        loop.advance(1.7);
        EXPECT_EQ(manager.received(), (std::vector<std::string>{"WATCHDOG=1", "WATCHDOG=1"}));
    }
    EXPECT_EQ(manager.received(), std::vector<std::string>{"STOPPING=1"});
    // Gone with the notifier: no keep-alive after it.
    loop.advance(10);
    EXPECT_TRUE(manager.received().empty());
}

TEST(ServiceNotifierTest, NoWatchdogUnlessAskedForThisProcess) {
    const struct {
        std::optional<std::string> microseconds;
        std::optional<std::string> pid;
    } cases[] = {
        {std::nullopt, std::nullopt},
        {"0", std::nullopt},
        {"not a number", std::nullopt},
        {"3000000", std::to_string(::getpid() + 1)},
    };
    for (const auto& row : cases) {
        vexo::testing::ScopedEnvironment environment;
        environment.set("NOTIFY_SOCKET", std::nullopt);
        environment.set("WATCHDOG_USEC", row.microseconds);
        environment.set("WATCHDOG_PID", row.pid);
        vexo::runtime::DeterministicRunLoop loop;
        ServiceNotifier notifier(loop);
        EXPECT_EQ(notifier.keepAliveInterval(), 0) << row.microseconds.value_or("-") << " " << row.pid.value_or("-");
        // Started from a shell: nothing to tell and nothing fails.
        notifier.ready("listening");
        EXPECT_FALSE(loop.nextTimerDate().has_value());
    }
}

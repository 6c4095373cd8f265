// What another user, or a symbolic link planted in the container, can do to the transport:
// nothing. Links in place of the container, the message directory or a notification
// directory are refused with a log line; as root, a second user made for the test (an unused
// uid, taken on in a forked child) owns files, directories and datagrams that are never
// acted on.
#include <cstring>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/ipc/NotifyCenter.h"
#include "platform/ipc/NotifyName.h"
#include "platform/log/Log.h"
#include "platform/runtime/DeterministicRunLoop.h"
#include "support/ScopedContainerRoot.h"
#include "support/TemporaryDirectory.h"
#include "transport/MMWormhole.h"

using namespace vexo;
namespace fs = std::filesystem;
using plist::Dictionary;
using plist::Value;
using transport::MMWormhole;

namespace {

constexpr const char* kGroup = "group.test.isolation";

const Value kStatus(Dictionary{{"volume", Value(0.5f)}});

class MMWormholeIsolationTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_containerRoot.set(m_root.path().string());
        log::setLevel(log::Level::Warning);
        m_previousLoop = runtime::RunLoop::setCurrent(&m_loop);
    }
    void TearDown() override { runtime::RunLoop::setCurrent(m_previousLoop); }

    fs::path container() const { return m_root.path() / kGroup; }
    fs::path messages() const { return container() / "messages"; }
    fs::path notifyDirectory(std::string_view name) const {
        return container() / ".notify" / ipc::NotifyName::fileName(name);
    }

    // Runs `action` and returns what it logged.
    template <class Action> std::string logOf(Action action) {
        ::testing::internal::CaptureStderr();
        action();
        return ::testing::internal::GetCapturedStderr();
    }

    vexo::testing::TemporaryDirectory m_root;
    vexo::testing::TemporaryDirectory m_elsewhere;
    vexo::testing::ScopedContainerRoot m_containerRoot;
    runtime::DeterministicRunLoop m_loop;
    runtime::RunLoop* m_previousLoop = nullptr;
};

// A uid that no account has, or nothing when none is free in the range tried.
std::optional<uid_t> unusedUid() {
    for (uid_t uid = 47000; uid < 48000; ++uid) {
        if (::getpwuid(uid) == nullptr)
            return uid;
    }
    return std::nullopt;
}

} // namespace

TEST_F(MMWormholeIsolationTest, SymbolicLinksInPlaceOfDirectoriesAreRefusedWithALogLine) {
    MMWormhole wormhole(kGroup, "messages");
    wormhole.passMessageObject(kStatus, "mixerStatus");
    ASSERT_TRUE(fs::exists(messages() / "mixerStatus.archive"));

    // The message directory replaced by a link to a directory outside the container.
    fs::remove_all(messages());
    fs::create_directory_symlink(m_elsewhere.path(), messages());
    MMWormhole other(kGroup, "messages");
    const std::string messageLog = logOf([&] { other.passMessageObject(kStatus, "mixerStatus"); });
    EXPECT_NE(messageLog.find("symbolic link"), std::string::npos) << messageLog;
    EXPECT_TRUE(fs::is_empty(m_elsewhere.path()));
    EXPECT_TRUE(other.messageWithIdentifier("mixerStatus").isNull());
    // The instance that held the directory open before sees it gone, and refuses the link too.
    logOf([&] { wormhole.passMessageObject(kStatus, "mixerStatus"); });
    EXPECT_TRUE(fs::is_empty(m_elsewhere.path()));
    fs::remove(messages());

    // A notification directory replaced by a link: no registration, no post through it.
    fs::create_directories(container() / ".notify");
    fs::create_directory_symlink(m_elsewhere.path(), notifyDirectory("linked"));
    std::vector<Value> received;
    const std::string notifyLog = logOf([&] {
        other.listenForMessageWithIdentifier("linked", [&](const Value& message) { received.push_back(message); });
        other.passMessageObject(kStatus, "linked");
        m_loop.runUntilIdle();
    });
    EXPECT_NE(notifyLog.find("symbolic link"), std::string::npos) << notifyLog;
    EXPECT_TRUE(received.empty());
    EXPECT_TRUE(fs::is_empty(m_elsewhere.path()));

    // The container itself replaced by a link.
    fs::remove_all(container());
    fs::create_directory_symlink(m_elsewhere.path(), container());
    MMWormhole third(kGroup, "messages");
    const std::string containerLog = logOf([&] { third.passMessageObject(kStatus, "mixerStatus"); });
    EXPECT_NE(containerLog.find("symbolic link"), std::string::npos) << containerLog;
    EXPECT_TRUE(fs::is_empty(m_elsewhere.path()));
}

TEST_F(MMWormholeIsolationTest, AnotherUsersFilesDirectoriesAndDatagramsAreNeverActedOn) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to make a second user for the test; run as root (as ./test does in CI)";
    const auto other = unusedUid();
    if (!other)
        GTEST_SKIP() << "no unused uid in 47000-47999 to act as a second user";

    MMWormhole wormhole(kGroup, "messages");
    std::vector<Value> received;
    wormhole.listenForMessageWithIdentifier("mixerStatus", [&](const Value& message) { received.push_back(message); });

    // A datagram from the other user, sent on a socket that root connected for it, is dropped.
    int sender = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(sender, 0);
    fs::path socket;
    for (const auto& entry : fs::directory_iterator(notifyDirectory("mixerStatus")))
        socket = entry.path();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(socket.string().size(), sizeof address.sun_path);
    std::strcpy(address.sun_path, socket.c_str());
    ASSERT_EQ(::connect(sender, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (::setgid(*other) != 0 || ::setuid(*other) != 0 || ::getuid() != *other)
            ::_exit(2);
        ::_exit(::send(sender, "", 0, 0) == 0 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the second user could not send";
    ::close(sender);
    const std::string datagramLog = logOf([&] { m_loop.runUntilIdle(); });
    EXPECT_TRUE(received.empty()) << "a post from another user reached the listener";
    EXPECT_NE(datagramLog.find("another user"), std::string::npos) << datagramLog;

    // A message file of the other user is not read.
    wormhole.passMessageObject(kStatus, "mixerStatus");
    m_loop.runUntilIdle();
    ASSERT_EQ(received.size(), 1u);
    ASSERT_EQ(::chown((messages() / "mixerStatus.archive").c_str(), *other, *other), 0);
    const std::string fileLog = logOf([&] { EXPECT_TRUE(wormhole.messageWithIdentifier("mixerStatus").isNull()); });
    EXPECT_NE(fileLog.find("another user"), std::string::npos) << fileLog;

    // A notification directory of the other user takes no registration and no post.
    fs::create_directories(notifyDirectory("foreign"));
    ASSERT_EQ(::chown(notifyDirectory("foreign").c_str(), *other, *other), 0);
    const std::string notifyLog = logOf([&] {
        wormhole.listenForMessageWithIdentifier("foreign", [&](const Value& message) { received.push_back(message); });
        wormhole.passMessageObject(kStatus, "foreign");
        m_loop.runUntilIdle();
    });
    EXPECT_EQ(received.size(), 1u);
    EXPECT_TRUE(fs::is_empty(notifyDirectory("foreign")));
    EXPECT_NE(notifyLog.find("not a directory of this user"), std::string::npos) << notifyLog;

    // A message directory, then a container, of the other user are not used.
    ASSERT_EQ(::chown(messages().c_str(), *other, *other), 0);
    MMWormhole second(kGroup, "messages");
    const std::string directoryLog = logOf([&] { second.passMessageObject(kStatus, "libraryItems"); });
    EXPECT_FALSE(fs::exists(messages() / "libraryItems.archive"));
    EXPECT_NE(directoryLog.find("another user"), std::string::npos) << directoryLog;
    ASSERT_EQ(::chown(container().c_str(), *other, *other), 0);
    MMWormhole third(kGroup, "messages");
    const std::string containerLog = logOf([&] { third.passMessageObject(kStatus, "libraryItems"); });
    EXPECT_FALSE(fs::exists(messages() / "libraryItems.archive"));
    EXPECT_NE(containerLog.find("another user"), std::string::npos) << containerLog;
}

#include "platform/ipc/NotifyCenter.h"

#include <map>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/ipc/NotifyName.h"
#include "platform/runtime/AsioRunLoop.h"
#include "platform/runtime/DeterministicRunLoop.h"
#include "support/TemporaryDirectory.h"

using namespace vexo::ipc;
using vexo::runtime::AsioRunLoop;
using vexo::runtime::DeterministicRunLoop;
using vexo::runtime::RunLoop;
using vexo::testing::TemporaryDirectory;
namespace fs = std::filesystem;

namespace {

constexpr double kGenerousTimeout = 30;

// Exit status of a child that has finished.
int exitStatusOf(pid_t child) {
    int status = 0;
    if (::waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}

class NotifyCenterTest : public ::testing::Test {
protected:
    NotifyCenterTest()
        : m_container(m_temporary.path() / "group") {
        fs::create_directory(m_container);
        fs::permissions(m_container, fs::perms::owner_all);
        m_center = std::make_unique<NotifyCenter>(m_container, m_loop);
    }

    // The sockets currently registered for `name` by any process.
    std::size_t socketsFor(std::string_view name) const {
        const fs::path directory = m_container / ".notify" / NotifyName::fileName(name);
        std::error_code error;
        std::size_t count = 0;
        for (const auto& entry : fs::directory_iterator(directory, error))
            count += entry.is_socket() ? 1 : 0;
        return count;
    }

    // Registers `observer` for `name`, counting its callbacks in m_calls[observer].
    void listen(const void* observer, const std::string& name) {
        ASSERT_TRUE(m_center->addObserver(observer, name, [this, observer, name](const std::string& heard) {
            EXPECT_EQ(heard, name);
            ++m_calls[observer];
        }));
    }

    TemporaryDirectory m_temporary;
    fs::path m_container;
    DeterministicRunLoop m_loop;
    std::unique_ptr<NotifyCenter> m_center;
    std::map<const void*, int> m_calls;
    int m_one = 0, m_two = 0, m_three = 0;
};

} // namespace

TEST_F(NotifyCenterTest, EachRegistrationHearsEachPostOnceUntilRemoved) {
    listen(&m_one, "mixerStatus");
    listen(&m_two, "mixerStatus");
    listen(&m_two, "libraryItems");
    listen(&m_three, "libraryItems");
    EXPECT_EQ(socketsFor("mixerStatus"), 2u);
    EXPECT_TRUE(m_center->post("mixerStatus"));
    EXPECT_TRUE(m_center->post("mixerStatus"));
    m_loop.runUntilIdle();
    EXPECT_EQ(m_calls, (std::map<const void*, int>{{&m_one, 2}, {&m_two, 2}}));

    // The same observer and name again: the callback is replaced, the registration stays one.
    int replaced = 0;
    ASSERT_TRUE(m_center->addObserver(&m_one, "mixerStatus", [&](const std::string&) { ++replaced; }));
    EXPECT_EQ(socketsFor("mixerStatus"), 2u);
    m_center->removeEveryObserver(&m_two);
    EXPECT_EQ(socketsFor("mixerStatus"), 1u) << "removal deletes the socket";
    EXPECT_TRUE(m_center->post("mixerStatus"));
    EXPECT_TRUE(m_center->post("libraryItems"));
    // A post already received but not yet delivered is not delivered after removal.
    m_center->removeObserver(&m_three, "libraryItems");
    m_loop.runUntilIdle();
    EXPECT_EQ(m_calls, (std::map<const void*, int>{{&m_one, 2}, {&m_two, 2}}));
    EXPECT_EQ(replaced, 1);
    EXPECT_EQ(socketsFor("libraryItems"), 0u);
    EXPECT_EQ(m_loop.watchCount(), 1u);
}

TEST_F(NotifyCenterTest, CallbacksMayRemoveRegistrationsAndDestroyTheCentre) {
    int calls = 0;
    const auto removeBoth = [&](const std::string&) {
        ++calls;
        m_center->removeObserver(&m_one, "a");
        m_center->removeEveryObserver(&m_two);
    };
    ASSERT_TRUE(m_center->addObserver(&m_one, "a", removeBoth));
    ASSERT_TRUE(m_center->addObserver(&m_two, "a", removeBoth));
    EXPECT_TRUE(m_center->post("a"));
    EXPECT_TRUE(m_center->post("a"));
    m_loop.runUntilIdle();
    EXPECT_EQ(calls, 1) << "whichever ran first removed both, with posts still queued";

    ASSERT_TRUE(m_center->addObserver(&m_one, "b", [&](const std::string&) {
        ++calls;
        m_center.reset();
    }));
    listen(&m_two, "b");
    EXPECT_TRUE(m_center->post("b"));
    m_loop.runUntilIdle();
    EXPECT_EQ(m_center, nullptr);
    EXPECT_EQ(socketsFor("b"), 0u) << "the destroyed centre removed its sockets";
    EXPECT_EQ(m_loop.watchCount(), 0u);
}

TEST_F(NotifyCenterTest, NamesOfAnyBytesAndLengthReachOnlyTheirOwnRegistrations) {
    const std::string names[] = {
        "mixerStatus",
        "",
        ".",
        "..",
        "/",
        "a/b",
        "../../escape",
        "with space",
        "名前",
        std::string("nul\0in", 6),
        std::string("nul\0out", 7),
        std::string(300, 'x') + "1",
        std::string(300, 'x') + "2",
        std::string(5000, '/'),
    };
    std::vector<int> calls(std::size(names));
    for (std::size_t i = 0; i < std::size(names); ++i)
        ASSERT_TRUE(m_center->addObserver(&m_one, names[i], [&calls, i](const std::string&) { ++calls[i]; })) << i;
    for (std::size_t i = 0; i < std::size(names); ++i) {
        EXPECT_TRUE(m_center->post(names[i])) << i;
        m_loop.runUntilIdle();
        std::vector<int> expected(std::size(names));
        for (std::size_t j = 0; j <= i; ++j)
            expected[j] = 1;
        EXPECT_EQ(calls, expected) << "after posting name " << i;
    }
    for (const auto& entry : fs::recursive_directory_iterator(m_temporary.path()))
        EXPECT_EQ(entry.path().string().rfind(m_container.string(), 0), 0u) << entry.path();
}

TEST_F(NotifyCenterTest, ContainerPathsLongerThanASocketAddressStillWork) {
    fs::path container = m_temporary.path();
    while (container.string().size() < 200)
        container /= "a-rather-long-directory-name";
    fs::create_directories(container);
    NotifyCenter center(container, m_loop);
    int calls = 0;
    ASSERT_TRUE(center.addObserver(&m_one, "turntableStatus1", [&](const std::string&) { ++calls; }));
    const fs::path directory = container / ".notify" / "turntableStatus1";
    ASSERT_EQ(std::distance(fs::directory_iterator(directory), fs::directory_iterator()), 1);
    EXPECT_GT(fs::directory_iterator(directory)->path().string().size(), 108u);

    EXPECT_TRUE(center.post("turntableStatus1"));
    m_loop.runUntilIdle();
    EXPECT_EQ(calls, 1);
}

TEST_F(NotifyCenterTest, PostingIsAttemptedOnlyWithAUsableContainer) {
    EXPECT_TRUE(m_center->post("nobodyListens"));

    NotifyCenter missing(m_temporary.path() / "missing", m_loop);
    EXPECT_FALSE(missing.post("name"));
    EXPECT_FALSE(missing.addObserver(&m_one, "name", [](const std::string&) {}));
    EXPECT_FALSE(fs::exists(m_temporary.path() / "missing")) << "a centre never makes its container";
}

TEST_F(NotifyCenterTest, AnotherProcessPostsHereAndItsDeadSocketIsRemoved) {
    listen(&m_one, "a");
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // Registers, posts, and dies without cleaning up, as a crashed process would.
        DeterministicRunLoop loop;
        auto* center = new NotifyCenter(m_container, loop);
        const bool registered = center->addObserver(center, "a", [](const std::string&) {});
        ::_exit(registered && center->post("a") ? 0 : 1);
    }
    ASSERT_EQ(exitStatusOf(child), 0);
    EXPECT_EQ(socketsFor("a"), 2u);
    // The child's datagram is queued once it has exited, so no waiting is needed.
    m_loop.runUntilIdle();
    EXPECT_EQ(m_calls[&m_one], 1);

    EXPECT_TRUE(m_center->post("a"));
    EXPECT_EQ(socketsFor("a"), 1u);
    m_loop.runUntilIdle();
    EXPECT_EQ(m_calls[&m_one], 2);
}

TEST_F(NotifyCenterTest, PingPongBetweenProcessesOnTheRealLoop) {
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::close(ready[0]);
        AsioRunLoop loop;
        int status = 1;
        {
            NotifyCenter center(m_container, loop);
            bool pinged = false;
            if (center.addObserver(&center, "ping", [&](const std::string&) { pinged = true; })) {
                (void)!::write(ready[1], "r", 1);
                if (loop.runUntil([&] { return pinged; }, kGenerousTimeout) && center.post("pong"))
                    status = 0;
            }
        }
        ::_exit(status);
    }
    ::close(ready[1]);
    char byte = 0;
    const bool childReady = ::read(ready[0], &byte, 1) == 1;
    ::close(ready[0]);
    ASSERT_TRUE(childReady) << "the child could not register";

    AsioRunLoop loop;
    NotifyCenter center(m_container, loop);
    int pongs = 0;
    ASSERT_TRUE(center.addObserver(&m_one, "pong", [&](const std::string&) { ++pongs; }));
    EXPECT_TRUE(center.post("ping"));
    EXPECT_TRUE(loop.runUntil([&] { return pongs == 1; }, kGenerousTimeout));
    EXPECT_EQ(exitStatusOf(child), 0);
}

TEST_F(NotifyCenterTest, OtherUsersCannotPostIntoTheContainer) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to act as another user";
    listen(&m_one, "private");
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (::setgid(65534) != 0 || ::setuid(65534) != 0)
            ::_exit(2);
        DeterministicRunLoop loop;
        NotifyCenter center(m_container, loop);
        ::_exit(center.post("private") ? 1 : 0);
    }
    EXPECT_EQ(exitStatusOf(child), 0) << "another user's post must not even be attempted";
    m_loop.runUntilIdle();
    EXPECT_EQ(m_calls[&m_one], 0);
}

TEST_F(NotifyCenterTest, OneSharedCentrePerContainerAndLoop) {
    DeterministicRunLoop otherLoop;
    auto first = NotifyCenter::forContainer(m_container, m_loop);
    EXPECT_EQ(NotifyCenter::forContainer(m_container / "", m_loop), first);
    EXPECT_NE(NotifyCenter::forContainer(m_container, otherLoop), first);

    EXPECT_EQ(NotifyCenter::forContainer(m_container), nullptr) << "no current loop";
    RunLoop* previous = RunLoop::setCurrent(&m_loop);
    EXPECT_EQ(NotifyCenter::forContainer(m_container), first);
    RunLoop::setCurrent(previous);

    const std::weak_ptr<NotifyCenter> released = first;
    first.reset();
    EXPECT_TRUE(released.expired()) << "the registry does not keep a centre alive";
}

TEST_F(NotifyCenterTest, APostReachesEveryRegistrationMadeSinceTheLastPost) {
    // Another centre stands for another process: its registrations change the directory that
    // this centre's posts keep a listing of, often within one tick of the file system clock.
    DeterministicRunLoop otherLoop;
    NotifyCenter other(m_container, otherLoop);
    std::vector<int> observers(40);
    std::map<const void*, int> heard;
    for (std::size_t i = 0; i < observers.size(); ++i) {
        ASSERT_TRUE(
            other.addObserver(&observers[i], "deckStatus", [&, i](const std::string&) { ++heard[&observers[i]]; }));
        EXPECT_TRUE(m_center->post("deckStatus"));
        if (i % 3 == 2)
            other.removeObserver(&observers[i - 1], "deckStatus");
        otherLoop.runUntilIdle();
    }
    for (std::size_t i = 0; i < observers.size(); ++i) {
        // Each hears the posts from its own on; one removed with the next post queued hears
        // only its first.
        const std::size_t expected = i % 3 == 1 ? 1 : observers.size() - i;
        EXPECT_EQ(heard[&observers[i]], static_cast<int>(expected)) << "observer " << i;
    }

    // The name's directory deleted and made again by a new registration.
    other.removeEveryObserver(&observers[0]);
    fs::remove_all(m_container / ".notify");
    int late = 0;
    ASSERT_TRUE(other.addObserver(&late, "deckStatus", [&](const std::string&) { ++late; }));
    EXPECT_TRUE(m_center->post("deckStatus"));
    otherLoop.runUntilIdle();
    EXPECT_EQ(late, 1);
}

#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/ipc/DatagramEndpoint.h"
#include "platform/ipc/ParentApplicationReceiver.h"
#include "platform/ipc/SocketParentApplication.h"
#include "platform/ipc/UniqueFd.h"
#include "platform/plist/Json.h"
#include "platform/plist/KeyedArchiver.h"
#include "platform/runtime/AsioRunLoop.h"
#include "platform/runtime/DeterministicRunLoop.h"
#include "platform/runtime/Timer.h"
#include "support/TemporaryDirectory.h"

using namespace vexo::ipc;
using vexo::plist::Array;
using vexo::plist::Data;
using vexo::plist::Dictionary;
using vexo::plist::Value;
using vexo::runtime::AsioRunLoop;
using vexo::runtime::DeterministicRunLoop;
using vexo::runtime::Timer;
using vexo::testing::TemporaryDirectory;
namespace fs = std::filesystem;

namespace {

Value action(int code) {
    return Value(
        Dictionary{{"identifier", Value("mixerAction")}, {"contents", Value(Dictionary{{"action", Value(code)}})}});
}

sockaddr_un addressOf(const fs::path& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string text = path.string();
    EXPECT_LT(text.size(), sizeof address.sun_path) << text;
    text.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

// A socket bound at `path` by hand, as a process that knows nothing of our lock would.
UniqueFd bindSocket(const fs::path& path) {
    UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = addressOf(path);
    EXPECT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0) << path;
    return socket;
}

// Sends `bytes` as one datagram to `path`.
void sendRaw(const fs::path& path, const Data& bytes) {
    const UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = addressOf(path);
    EXPECT_EQ(::sendto(socket.get(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&address),
                       sizeof address),
              static_cast<ssize_t>(bytes.size()));
}

std::string shellQuoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

std::vector<std::string> completeLinesOf(const fs::path& file) {
    std::ifstream in(file);
    std::stringstream contents;
    contents << in.rdbuf();
    std::vector<std::string> lines;
    std::string text = contents.str();
    for (std::size_t start = 0, end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
        lines.push_back(text.substr(start, end - start));
    return lines;
}

class ParentApplicationTest : public ::testing::Test {
protected:
    ParentApplicationTest()
        : m_container(m_temporary.path() / "group") {
        fs::create_directory(m_container);
        fs::permissions(m_container, fs::perms::owner_all);
    }

    std::unique_ptr<ParentApplicationReceiver> makeReceiver(const fs::path& container) {
        return std::make_unique<ParentApplicationReceiver>(
            container, m_loop, [this](const Value& dictionary) { m_received.push_back(dictionary); });
    }
    std::unique_ptr<ParentApplicationReceiver> makeReceiver() { return makeReceiver(m_container); }

    fs::path socketPath() const { return kParentApplicationEndpoint.socketPath(m_container); }

    TemporaryDirectory m_temporary;
    fs::path m_container;
    DeterministicRunLoop m_loop;
    std::vector<Value> m_received;
};

} // namespace

TEST_F(ParentApplicationTest, AReceiverGetsEachDictionaryExactlyAndInOrder) {
    // A container path too long for a socket address is reached through its descriptor.
    fs::path deep = m_container;
    while (deep.string().size() < 2 * sizeof(sockaddr_un::sun_path))
        deep /= "a-rather-long-directory-name";
    fs::create_directories(deep);

    const std::vector<Value> dictionaries = {
        Value(Dictionary{}),
        action(11),
        Value(Dictionary{{"identifier", Value("turntableAction")},
                         {"contents", Value(Dictionary{{"turntable", Value(2)},
                                                       {"action", Value(6)},
                                                       {"params", Value(Dictionary{{"itemID", Value("1A2B3C")}})}})}}),
        Value(Dictionary{{"float", Value(0.1f)},
                         {"double", Value(2.3)},
                         {"unsigned", Value(UINT64_MAX)},
                         {"flag", Value(true)},
                         {"data", Value(Data{0, 1, 2, 255})},
                         {"date", Value(vexo::plist::Date{12.5})},
                         {"list", Value(Array{Value("é"), Value(-1), Value(Array{})})},
                         {"ключ", Value("")}}),
    };
    for (const fs::path& container : {m_container, deep}) {
        m_received.clear();
        auto receiver = makeReceiver(container);
        ASSERT_TRUE(receiver->isListening()) << container;
        SocketParentApplication link(container, m_loop, std::nullopt);
        for (const Value& dictionary : dictionaries)
            link.openParentApplication(dictionary);
        EXPECT_EQ(link.pendingCount(), 0u);
        m_loop.runUntilIdle();
        EXPECT_EQ(m_received, dictionaries) << container;

        receiver.reset();
        EXPECT_FALSE(fs::exists(kParentApplicationEndpoint.socketPath(container)))
            << "the socket goes with its receiver";
    }
}

TEST_F(ParentApplicationTest, WithoutALaunchCommandWhatNobodyHearsIsDropped) {
    const struct {
        const char* name;
        std::function<UniqueFd()> prepare;
    } rows[] = {
        {"no socket", [] { return UniqueFd(); }},
        {"a socket left by a dead process",
         [this] {
             fs::create_directory(m_container / ".phone");
             bindSocket(socketPath());
             return UniqueFd();
         }},
        {"no container",
         [this] {
             fs::remove_all(m_container);
             return UniqueFd();
         }},
    };
    for (const auto& row : rows) {
        fs::remove_all(m_container / ".phone");
        fs::create_directory(m_container);
        const UniqueFd held = row.prepare();
        SocketParentApplication link(m_container, m_loop, std::nullopt);
        link.openParentApplication(action(0));
        EXPECT_EQ(link.pendingCount(), 0u) << row.name;
        EXPECT_FALSE(m_loop.nextTimerDate().has_value()) << row.name << ": nothing is retried";

        fs::create_directory(m_container);
        auto receiver = makeReceiver();
        ASSERT_TRUE(receiver->isListening()) << row.name;
        m_loop.advance(SocketParentApplication::kDefaultDeliveryTimeout);
        EXPECT_TRUE(m_received.empty()) << row.name;
    }

    // What is not a dictionary never goes, even to a listener.
    auto receiver = makeReceiver();
    SocketParentApplication link(m_container, m_loop, std::nullopt);
    for (const Value& notADictionary : {Value(), Value("mixerAction"), Value(Array{action(0)})})
        link.openParentApplication(notADictionary);
    m_loop.runUntilIdle();
    EXPECT_TRUE(m_received.empty());
}

TEST_F(ParentApplicationTest, DictionariesWaitInOrderForAPhoneApplicationThatStarts) {
    // The command starts nothing that listens; the receiver made below plays the phone
    // application that has just come up.
    SocketParentApplication link(m_container, m_loop, ":");
    for (int code = 0; code < 3; ++code)
        link.openParentApplication(action(code));
    EXPECT_EQ(link.pendingCount(), 3u);
    m_loop.advance(1);
    EXPECT_EQ(link.pendingCount(), 3u);

    auto receiver = makeReceiver();
    link.openParentApplication(action(3));
    EXPECT_EQ(link.pendingCount(), 4u) << "a later dictionary does not overtake the waiting ones";
    m_loop.advance(SocketParentApplication::kRetryInterval);
    EXPECT_EQ(m_received, (std::vector<Value>{action(0), action(1), action(2), action(3)}));
    EXPECT_EQ(link.pendingCount(), 0u);
    EXPECT_FALSE(m_loop.nextTimerDate().has_value()) << "retries stop once all went";

    link.openParentApplication(action(4));
    m_loop.runUntilIdle();
    EXPECT_EQ(m_received.back(), action(4));
}

TEST_F(ParentApplicationTest, APhoneApplicationThatNeverListensLosesTheDictionariesAfterTheTimeout) {
    SocketParentApplication link(m_container, m_loop, ":");
    link.openParentApplication(action(0));
    m_loop.advance(1);
    link.openParentApplication(action(1));
    m_loop.advance(SocketParentApplication::kDefaultDeliveryTimeout - 1.1);
    EXPECT_EQ(link.pendingCount(), 2u);
    m_loop.advance(0.2);
    EXPECT_EQ(link.pendingCount(), 1u) << "each waits for the timeout from when it was sent";
    m_loop.advance(1);
    EXPECT_EQ(link.pendingCount(), 0u);
    EXPECT_FALSE(m_loop.nextTimerDate().has_value());

    auto receiver = makeReceiver();
    m_loop.advance(1);
    EXPECT_TRUE(m_received.empty());
}

TEST_F(ParentApplicationTest, AFullQueueAtThePhoneDelaysButLosesNothing) {
    auto receiver = makeReceiver();
    SocketParentApplication link(m_container, m_loop, std::nullopt);
    // More than the kernel queues for one datagram socket (net.unix.max_dgram_qlen), sent
    // before the phone application reads any.
    constexpr int kCount = 300;
    std::vector<Value> sent;
    for (int code = 0; code < kCount; ++code) {
        sent.push_back(action(code));
        link.openParentApplication(sent.back());
    }
    EXPECT_GT(link.pendingCount(), 0u);
    EXPECT_TRUE(m_loop.runUntil([&] { return m_received.size() == sent.size(); }, 4.0));
    EXPECT_EQ(m_received, sent);
}

TEST_F(ParentApplicationTest, AReceiverReplacesAStaleSocketButNeverALiveOne) {
    fs::create_directory(m_container / ".phone");
    bindSocket(socketPath());
    auto receiver = makeReceiver();
    ASSERT_TRUE(receiver->isListening()) << "a socket whose process is gone is replaced";

    auto second = makeReceiver();
    EXPECT_FALSE(second->isListening()) << "another receiver listens already";
    second.reset();
    EXPECT_TRUE(fs::exists(socketPath())) << "a receiver that never listened removes nothing";

    SocketParentApplication link(m_container, m_loop, std::nullopt);
    link.openParentApplication(action(0));
    m_loop.runUntilIdle();
    EXPECT_EQ(m_received, std::vector<Value>{action(0)}) << "the first receiver still hears";
    receiver.reset();

    // A live socket bound without the lock, by a process that knows nothing of it.
    const UniqueFd foreign = bindSocket(socketPath());
    auto third = makeReceiver();
    EXPECT_FALSE(third->isListening());
    third.reset();
    EXPECT_TRUE(fs::exists(socketPath()));
}

TEST_F(ParentApplicationTest, DatagramsThatAreNotADictionaryAreDropped) {
    auto receiver = makeReceiver();
    ASSERT_TRUE(receiver->isListening());
    Data truncated = *vexo::plist::KeyedArchiver::archivedData(action(1));
    truncated.resize(truncated.size() - 7);
    Data oversized = *vexo::plist::KeyedArchiver::archivedData(
        Value(Dictionary{{"blob", Value(Data(kParentApplicationEndpoint.maximumMessageSize, 7))}}));
    for (const Data& garbage : {Data{}, Data{'b', 'p', 'l', 'i', 's', 't', '0', '0'}, Data(512, 0xFF), truncated,
                                *vexo::plist::KeyedArchiver::archivedData(Value("a string")),
                                *vexo::plist::KeyedArchiver::archivedData(Value(Array{action(1)})), oversized})
        sendRaw(socketPath(), garbage);
    sendRaw(socketPath(), *vexo::plist::KeyedArchiver::archivedData(action(2)));
    m_loop.runUntilIdle();
    EXPECT_EQ(m_received, std::vector<Value>{action(2)});
}

TEST_F(ParentApplicationTest, AReceiverMayBeDestroyedByItsOwnCallback) {
    std::unique_ptr<ParentApplicationReceiver> receiver;
    int calls = 0;
    receiver = std::make_unique<ParentApplicationReceiver>(m_container, m_loop, [&](const Value&) {
        ++calls;
        receiver.reset();
    });
    SocketParentApplication link(m_container, m_loop, std::nullopt);
    link.openParentApplication(action(0));
    link.openParentApplication(action(1));
    m_loop.runUntilIdle();
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(fs::exists(socketPath()));
}

TEST(ParentApplicationLaunchCommandTest, IsWhatIsConfiguredUnlessBlank) {
    const struct {
        std::optional<std::string> variable;
        std::optional<std::string> expected;
    } rows[] = {
        {std::nullopt, std::nullopt},
        {"", std::nullopt},
        {" \t\n", std::nullopt},
        {"vexo-phone --container-group group.vexo", "vexo-phone --container-group group.vexo"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(SocketParentApplication::launchCommandFrom(row.variable), row.expected)
            << row.variable.value_or("unset");
}

// Across processes: the launch command starts a real phone-application stand-in, which gets
// every dictionary sent before it listened, in order.
TEST(ParentApplicationProcessTest, TheLaunchedPhoneApplicationGetsTheWaitingDictionaries) {
    TemporaryDirectory temporary;
    const fs::path container = temporary.path() / "group";
    fs::create_directory(container);
    fs::permissions(container, fs::perms::owner_all);
    const fs::path output = temporary.path() / "received.jsonl";
    const std::vector<Value> sent = {action(11), Value(Dictionary{}), action(2)};
    const std::string command = shellQuoted(VEXO_RECEIVER_HELPER_PATH) + " " + shellQuoted(container.string()) + " " +
                                shellQuoted(output.string()) + " " + std::to_string(sent.size());

    AsioRunLoop loop;
    SocketParentApplication link(container, loop, command);
    // Starting a process is not timed here: only the test's own limit bounds it.
    constexpr double kGenerousTimeout = 60;
    link.setDeliveryTimeout(kGenerousTimeout);
    for (const Value& dictionary : sent)
        link.openParentApplication(dictionary);
    EXPECT_EQ(link.pendingCount(), sent.size());

    // The file is written by another process; look at it now and then.
    auto poll = Timer::scheduledTimer(loop, 0.02, Timer::Repeats::Yes, [](Timer&) {});
    EXPECT_TRUE(loop.runUntil([&] { return completeLinesOf(output).size() >= sent.size(); }, kGenerousTimeout));
    poll->invalidate();

    std::vector<std::string> expected;
    for (const Value& dictionary : sent)
        expected.push_back(vexo::plist::json::toJson(dictionary).dump());
    EXPECT_EQ(completeLinesOf(output), expected);
    EXPECT_EQ(link.pendingCount(), 0u);
}

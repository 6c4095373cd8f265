#include "face/FaceServer.h"

#include <array>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <future>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "FaceServerFixture.h"
#include "FaceTestClient.h"
#include "face/ProtocolLog.h"
#include "face/WatchFace.h"
#include "platform/runtime/AsioRunLoop.h"
#include "platform/watchkit/ControllerRegistry.h"
#include "platform/watchkit/ExtensionHost.h"
#include "platform/watchkit/Image.h"
#include "platform/watchkit/Label.h"
#include "platform/watchkit/LayoutLoader.h"
#include "platform/watchkit/Outlet.h"
#include "support/TemporaryDirectory.h"

using namespace vexo;
using namespace vexo::face;
using vexo::face::testing::HttpCall;
using vexo::face::testing::httpRequest;
using vexo::face::testing::StreamClient;
using HttpReply = vexo::face::testing::HttpReply;

namespace {

// The start of a 2 x 3 PNG: enough for the host to name it image/png with its size.
const std::vector<std::uint8_t> kPng = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n', 0, 0, 0, 13, 'I', 'H', 'D',
                                        'R',  0,   0,   0,   2,    0,    0,    0,    3, 8, 6, 0,  0,   0};

class PageController : public watchkit::InterfaceController {
public:
    template <class Self> static void describeInterface(watchkit::InterfaceClass<Self>& c) {
        c.outlet("countLabel", &PageController::m_countLabel);
        c.outlet("artwork", &PageController::m_artwork);
        c.action("press", &PageController::press);
    }
    void awakeWithContext(const watchkit::Context&) override { m_artwork->setImageData(kPng); }
    void handleActionWithIdentifier(const std::string& identifier, const plist::Value& userInfo) override {
        actions.push_back(identifier + ":" + userInfo["deck"].stringValue().value_or("-"));
    }
    void press() { m_countLabel->setText("pressed " + std::to_string(++presses)); }

    watchkit::Outlet<watchkit::Label> m_countLabel;
    watchkit::Outlet<watchkit::Image> m_artwork;
    int presses = 0;
    std::vector<std::string> actions;
};

constexpr const char* kLayout = R"({"format": 1, "pages": ["first", "second"], "controllers": {
  "first": {"class": "Page", "objects": [
    {"kind": "label", "outlet": "countLabel", "text": "none"},
    {"kind": "image", "outlet": "artwork", "width": 20, "height": 20},
    {"kind": "button", "title": "Press", "action": "press"}]},
  "second": {"like": "first", "class": "Page"}}})";

// The identifier of the first object of `kind` on page `page` of a snapshot.
std::string objectId(const nlohmann::json& snapshot, std::size_t page, const std::string& kind) {
    std::function<std::string(const nlohmann::json&)> search = [&](const nlohmann::json& objects) -> std::string {
        for (const auto& object : objects) {
            if (object["kind"] == kind)
                return object["id"];
            if (object.contains("children"))
                if (std::string found = search(object["children"]); !found.empty())
                    return found;
        }
        return "";
    };
    return search(snapshot["pages"][page]["objects"]);
}

class FaceServerTest : public vexo::face::testing::FaceServerFixture {
protected:
    void SetUp() override {
        std::filesystem::path web = m_directory.path() / "web";
        std::filesystem::create_directories(web / "js");
        std::ofstream(web / "index.html") << "<!doctype html><title>watch face</title>";
        std::ofstream(web / "js" / "app.js") << "export const face = 1;";
        std::ofstream(web / ".secret") << "hidden";
        std::ofstream(m_directory.path() / "outside.txt") << "outside the root";
        std::filesystem::create_symlink("../outside.txt", web / "link.txt");

        m_registry.registerClass<PageController>("Page");
        Expected<watchkit::InterfaceLayout> layout = watchkit::LayoutLoader::parse(kLayout, "face-test", m_registry);
        ASSERT_TRUE(layout) << layout.error().message();
        m_host = std::make_unique<watchkit::ExtensionHost>(m_loop, m_registry, std::move(*layout));
        ASSERT_TRUE(m_host->start());
        m_face = std::make_unique<WatchFace>(m_loop, *m_host, m_log, [](std::string_view name) {
            return name == "dot" ? std::optional<std::vector<std::uint8_t>>(kPng) : std::nullopt;
        });
        m_server = std::make_unique<FaceServer>(*m_face, FaceServer::Options{0, web});
        std::optional<std::string> error = m_server->start();
        ASSERT_FALSE(error) << *error;
        m_port = m_server->port();
        m_snapshot = m_host->snapshot();
    }

    HttpReply request(HttpCall call) {
        return onClient([&] { return httpRequest(m_port, call); });
    }

    std::shared_ptr<PageController> firstPage() {
        return std::dynamic_pointer_cast<PageController>(m_host->pageController(0));
    }

    std::string origin() const { return "http://127.0.0.1:" + std::to_string(m_port); }

    std::uint16_t m_port = 0;
    nlohmann::json m_snapshot;
};

} // namespace

TEST_F(FaceServerTest, RoutesAnswerWithTheirStatusAndType) {
    const std::string label = objectId(m_snapshot, 0, "label");
    const std::string button = objectId(m_snapshot, 0, "button");
    const struct {
        HttpCall call;
        int status;
        std::string type; // prefix of the content type; "" for any
        std::string body; // part of the body; "" for any
    } cases[] = {
        {{"GET", "/", "", {}}, 200, "text/html", "watch face"},
        {{"GET", "/index.html?reload=1", "", {}}, 200, "text/html", "watch face"},
        {{"GET", "/js/app.js", "", {}}, 200, "text/javascript", "export"},
        {{"GET", "/api/snapshot", "", {}}, 200, "application/json", "\"pages\""},
        {{"GET", "/api/log", "", {}}, 200, "application/json", "\"records\""},
        {{"GET", "/assets/dot", "", {}}, 200, "image/png", "PNG"},
        {{"GET", "/assets/missing", "", {}}, 404, "", ""},
        {{"GET", "/api/images/nothing", "", {}}, 404, "", ""},
        {{"GET", "/missing.js", "", {}}, 404, "", ""},
        {{"GET", "/api/nothing", "", {}}, 404, "", ""},
        // Nothing outside the web root, however it is spelled.
        {{"GET", "/.secret", "", {}}, 404, "", ""},
        {{"GET", "/../outside.txt", "", {}}, 403, "", ""},
        {{"GET", "/js/%2e%2e/%2E%2E/outside.txt", "", {}}, 403, "", ""},
        {{"GET", "/link.txt", "", {}}, 403, "", ""},
        {{"GET", "/%zz", "", {}}, 403, "", ""},
        {{"GET", "/a%00b", "", {}}, 403, "", ""},
        // Methods.
        {{"POST", "/", "", {}}, 405, "", ""},
        {{"GET", "/api/events", "", {}}, 405, "", ""},
        {{"GET", "/api/stream", "", {}}, 426, "", ""},
        // Events: done, malformed, refused by what is on screen.
        {{"POST", "/api/events", R"({"type": "tap", "object": ")" + button + R"(", "id": 7})", {}},
         200,
         "application/json",
         R"("id":7)"},
        {{"POST", "/api/events", "{", {}}, 400, "application/json", "not JSON"},
        {{"POST", "/api/events", R"({"type": "fly"})", {}}, 400, "application/json", "unknown type"},
        {{"POST", "/api/events", R"({"type": "tap"})", {}}, 400, "application/json", "object"},
        {{"POST", "/api/events", std::string(10000, '[') + std::string(10000, ']'), {}}, 400, "", ""},
        {{"POST", "/api/events", R"({"type": "tap", "object": ")" + label + R"("})", {}},
         409,
         "application/json",
         "only buttons"},
        {{"POST", "/api/events", R"({"type": "swipe", "page": 5})", {}}, 409, "", "no page 5"},
        {{"POST", "/api/events", R"({"type": "notificationAction", "notification": "n9", "identifier": "x"})", {}},
         409,
         "",
         "no open notification"},
        // Size limits and the guards against other sites.
        {{"POST", "/api/events", std::string(FaceServer::kMaximumBodySize + 1, ' '), {}}, 413, "", ""},
        {{"GET", "/", "", {{"X-Filler", std::string(FaceServer::kMaximumHeaderSize, 'x')}}}, 431, "", ""},
        {{"GET", "/", "", {{"Host", "evil.example:" + std::to_string(m_port)}}}, 403, "", ""},
        {{"GET", "/", "", {{"Host", "localhost:" + std::to_string(m_port)}}}, 200, "", ""},
        {{"POST", "/api/events", R"({"type": "openMenu"})", {{"Origin", "http://evil.example"}}}, 403, "", ""},
        {{"POST", "/api/events", R"({"type": "closeMenu"})", {{"Origin", origin()}}}, 409, "", "no menu"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.call.method + " " + row.call.target.substr(0, 80));
        HttpReply reply = request(row.call);
        EXPECT_EQ(reply.status, row.status) << reply.body;
        if (!row.type.empty()) {
            EXPECT_EQ(reply.headers["content-type"].rfind(row.type, 0), 0u) << reply.headers["content-type"];
        }
        EXPECT_NE(reply.body.find(row.body), std::string::npos) << reply.body;
    }
    EXPECT_EQ(firstPage()->presses, 1);
}

TEST_F(FaceServerTest, HeadGivesTheLengthWithoutTheBody) {
    HttpReply full = request({"GET", "/", "", {}});
    HttpReply head = request({"HEAD", "/", "", {}});
    EXPECT_EQ(head.status, 200);
    EXPECT_TRUE(head.body.empty());
    EXPECT_EQ(head.headers["content-length"], std::to_string(full.body.size()));
}

TEST_F(FaceServerTest, ImagesOfTheSnapshotAreServedAsTheirBytes) {
    HttpReply snapshot = request({"GET", "/api/snapshot", "", {}});
    nlohmann::json json = nlohmann::json::parse(snapshot.body);
    std::string artwork = objectId(json, 0, "image");
    nlohmann::json image;
    for (const auto& object : json["pages"][0]["objects"]) {
        if (object["id"] == artwork)
            image = object["image"];
    }
    ASSERT_TRUE(image.contains("data")) << image;
    EXPECT_EQ(image["type"], "image/png");
    HttpReply bytes = request({"GET", "/api/images/" + image["data"].get<std::string>(), "", {}});
    EXPECT_EQ(bytes.status, 200);
    EXPECT_EQ(bytes.headers["content-type"], "image/png");
    EXPECT_EQ(bytes.body, std::string(kPng.begin(), kPng.end()));
}

TEST_F(FaceServerTest, StreamSendsTheSnapshotThenBatchesThenLogRecords) {
    const std::string button = objectId(m_snapshot, 0, "button");
    std::vector<nlohmann::json> received = onClient([&] {
        std::vector<nlohmann::json> messages;
        StreamClient stream;
        if (!stream.connect(m_port, origin())) {
            ADD_FAILURE() << stream.error();
            return messages;
        }
        auto next = [&] {
            std::optional<std::string> text = stream.read();
            messages.push_back(text ? nlohmann::json::parse(*text) : nlohmann::json());
            return messages.back();
        };
        for (int i = 0; i < 3; ++i)
            next();
        stream.write(R"({"id": "tap-1", "type": "tap", "object": ")" + button + R"("})");
        stream.write(R"({"id": 2, "type": "hover"})");
        stream.write("not json");
        bool batch = false;
        int results = 0;
        while ((!batch || results < 3) && !next().is_null()) {
            batch = batch || messages.back()["type"] == "changes";
            results += messages.back()["type"] == "result";
        }
        m_loop.post([this] { m_log.record("mixerStatus", Direction::FromPhone, plist::Dictionary{{"volume", 0.5}}); });
        while (next()["type"] != "log" && !messages.back().is_null()) {
        }
        return messages;
    });
    ASSERT_GE(received.size(), 7u);
    EXPECT_EQ(received[0]["type"], "snapshot");
    EXPECT_EQ(received[1], nlohmann::json({{"type", "log"}, {"records", nlohmann::json::array()}}));
    EXPECT_EQ(received[2], nlohmann::json({{"type", "notifications"}, {"notifications", nlohmann::json::array()}}));
    const auto revision = received[0]["snapshot"]["revision"].get<std::uint64_t>();
    std::vector<nlohmann::json> results;
    bool sawPress = false;
    for (std::size_t i = 3; i < received.size(); ++i) {
        if (received[i]["type"] == "result")
            results.push_back(received[i]);
        if (received[i]["type"] == "changes") {
            EXPECT_GT(received[i]["revision"].get<std::uint64_t>(), revision);
            sawPress = sawPress || received[i].dump().find("pressed 1") != std::string::npos;
        }
    }
    EXPECT_TRUE(sawPress);
    ASSERT_EQ(results.size(), 3u);
    EXPECT_EQ(results[0], nlohmann::json({{"type", "result"}, {"id", "tap-1"}, {"ok", true}, {"status", 200}}));
    EXPECT_EQ(results[1]["id"], 2);
    EXPECT_EQ(results[1]["status"], 400);
    EXPECT_EQ(results[2]["status"], 400);
    EXPECT_FALSE(results[2].contains("id"));
    const nlohmann::json& last = received.back();
    ASSERT_EQ(last["type"], "log");
    EXPECT_EQ(last["records"][0]["identifier"], "mixerStatus");
    EXPECT_EQ(last["records"][0]["direction"], "fromPhone");
    EXPECT_EQ(last["records"][0]["contents"], nlohmann::json({{"volume", 0.5}}));
}

TEST_F(FaceServerTest, StreamTakesOnlyPagesOfThisServer) {
    const struct {
        std::string origin;
        bool accepted;
    } cases[] = {
        {origin(), true},
        {"http://localhost:" + std::to_string(m_port), true},
        {"", true}, // not a browser
        {"http://evil.example", false},
        {"http://127.0.0.1:" + std::to_string(m_port + 1), false},
        {"null", false},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.origin);
        bool accepted = onClient([&] {
            StreamClient stream;
            return stream.connect(m_port, row.origin) && stream.read().has_value();
        });
        EXPECT_EQ(accepted, row.accepted);
    }
}

TEST_F(FaceServerTest, NotificationActionsReachTheHostWithTheirUserInfo) {
    m_face->showNotification("Deck 2", "Load a song", "load", plist::Dictionary{{"deck", 2}},
                             {{"load", "Load"}, {"cancel", "Cancel"}});
    m_face->showNotification("Other", "", "automix", plist::Dictionary{}, {{"automix", "Automix"}});
    nlohmann::json open = m_face->openNotifications();
    ASSERT_EQ(open.size(), 2u);
    EXPECT_EQ(open[0]["userInfo"], nlohmann::json({{"deck", 2}}));
    const std::string id = open[0]["id"];

    const struct {
        std::string event;
        int status;
    } cases[] = {
        {R"({"type": "notificationAction", "notification": ")" + id + R"(", "identifier": "automix"})", 409},
        {R"({"type": "notificationAction", "notification": ")" + id + R"(", "identifier": 3})", 400},
        {R"({"type": "notificationAction", "notification": ")" + id + R"(", "identifier": "load", "x": 1})", 400},
        {R"({"type": "notificationAction", "notification": ")" + id + R"(", "identifier": "load"})", 200},
        {R"({"type": "notificationAction", "notification": ")" + id + R"(", "identifier": "load"})", 409},
        {R"({"type": "dismissNotification", "notification": ")" + open[1]["id"].get<std::string>() + R"("})", 200},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.event);
        EXPECT_EQ(request({"POST", "/api/events", row.event, {}}).status, row.status);
    }
    EXPECT_EQ(firstPage()->actions, std::vector<std::string>{"load:2"});
    EXPECT_TRUE(m_face->openNotifications().empty());
}

TEST_F(FaceServerTest, ManyTabsSeeTheSameChanges) {
    const std::string button = objectId(m_snapshot, 0, "button");
    std::vector<std::string> seen = onClient([&] {
        std::vector<std::string> labels;
        StreamClient first, second;
        if (!first.connect(m_port, origin()) || !second.connect(m_port, origin()))
            return labels;
        for (int i = 0; i < 3; ++i) {
            first.read();
            second.read();
        }
        first.write(R"({"type": "tap", "object": ")" + button + R"("})");
        for (StreamClient* stream : {&first, &second}) {
            while (std::optional<std::string> text = stream->read()) {
                nlohmann::json message = nlohmann::json::parse(*text);
                if (message["type"] == "changes") {
                    labels.push_back(message.dump().find("pressed 1") != std::string::npos ? "pressed 1"
                                                                                           : message.dump());
                    break;
                }
            }
        }
        return labels;
    });
    EXPECT_EQ(seen, (std::vector<std::string>{"pressed 1", "pressed 1"}));
}

TEST_F(FaceServerTest, ASecondServerOnTheSamePortSaysThePortIsInUse) {
    FaceServer second(*m_face, FaceServer::Options{m_port, m_directory.path()});
    std::optional<std::string> error = second.start();
    ASSERT_TRUE(error);
    EXPECT_NE(error->find("in use"), std::string::npos) << *error;
}

namespace {

// A WebSocket page that completes the handshake and then never reads: its receive buffer is
// kept small so that what the server cannot write piles up on the server's side.
class NeverReadingPage {
public:
    bool connect(std::uint16_t port, const std::string& origin) {
        m_fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        int small = 4096;
        ::setsockopt(m_fd, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
            return false;
        std::string request = "GET /api/stream HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                              "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                              "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nOrigin: " +
                              origin + "\r\n\r\n";
        if (::send(m_fd, request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size()))
            return false;
        // Only the answer's head, byte by byte, so that nothing of the stream is read.
        std::string head;
        char byte = 0;
        while (!head.ends_with("\r\n\r\n") && waitReadable(10000) && ::recv(m_fd, &byte, 1, 0) == 1)
            head += byte;
        return head.starts_with("HTTP/1.1 101");
    }

    // Reads everything queued for us; true once the server has closed the connection.
    bool closedByServer(int timeoutMilliseconds) {
        std::array<char, 65536> buffer;
        while (waitReadable(timeoutMilliseconds)) {
            ssize_t read = ::recv(m_fd, buffer.data(), buffer.size(), 0);
            if (read <= 0)
                return true;
        }
        return false;
    }

    ~NeverReadingPage() {
        if (m_fd >= 0)
            ::close(m_fd);
    }

private:
    bool waitReadable(int timeoutMilliseconds) {
        pollfd poll{m_fd, POLLIN, 0};
        return ::poll(&poll, 1, timeoutMilliseconds) == 1;
    }

    int m_fd = -1;
};

} // namespace

TEST_F(FaceServerTest, APageThatNeverReadsIsDroppedWhileTheOthersGetEverything) {
    // Far more than the socket buffers and the server's bound hold together.
    constexpr int kRecords = 400;
    const std::string bulky(40 * 1024, 'x');
    auto outcome = onClient([&] {
        std::pair<int, bool> result{0, false};
        NeverReadingPage stalled;
        StreamClient follower;
        if (!stalled.connect(m_port, origin()) || !follower.connect(m_port, origin())) {
            ADD_FAILURE() << "no stream: " << follower.error();
            return result;
        }
        for (int i = 0; i < 3; ++i)
            follower.read();
        m_loop.post([&] {
            for (int i = 0; i < kRecords; ++i)
                m_log.record("turntableSongInfo1", Direction::FromPhone, plist::Dictionary{{"name", bulky}});
        });
        while (result.first < kRecords) {
            std::optional<std::string> text = follower.read();
            if (!text)
                break;
            result.first += text->find(R"("type":"log")") != std::string::npos;
        }
        result.second = stalled.closedByServer(30000);
        return result;
    });
    EXPECT_EQ(outcome.first, kRecords);
    EXPECT_TRUE(outcome.second) << "the page that never reads is still connected";
}

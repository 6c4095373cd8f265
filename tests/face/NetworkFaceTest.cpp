// The network listener as an attacker on the network meets it: over TLS on 127.0.0.2, with
// the answers a browser or a script would get.
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "FaceServerFixture.h"
#include "TlsTestClient.h"
#include "face/DeviceTokens.h"
#include "face/FaceServer.h"
#include "face/PairingCodes.h"
#include "face/ProtocolLog.h"
#include "face/WatchFace.h"
#include "platform/runtime/AsioRunLoop.h"
#include "platform/watchkit/ControllerRegistry.h"
#include "platform/watchkit/ExtensionHost.h"
#include "platform/watchkit/Label.h"
#include "platform/watchkit/LayoutLoader.h"
#include "platform/watchkit/Outlet.h"
#include "support/TemporaryDirectory.h"

using namespace vexo;
using namespace vexo::face;
using vexo::face::testing::HttpCall;
using vexo::face::testing::httpRequest;
using vexo::face::testing::httpsRequest;
using vexo::face::testing::TlsStreamClient;
using HttpReply = vexo::face::testing::HttpReply;

namespace {

const std::string kAddress = "127.0.0.2";

class LabelController : public watchkit::InterfaceController {
public:
    template <class Self> static void describeInterface(watchkit::InterfaceClass<Self>& c) {
        c.outlet("label", &LabelController::m_label);
    }
    watchkit::Outlet<watchkit::Label> m_label;
};

class NetworkFaceTest : public vexo::face::testing::FaceServerFixture {
protected:
    void SetUp() override {
        std::filesystem::path web = m_directory.path() / "web";
        std::filesystem::create_directories(web);
        std::ofstream(web / "index.html") << "<!doctype html><title>watch face</title>";
        std::ofstream(web / "pair.html") << "<!doctype html><title>pair this device</title>";
        std::ofstream(web / "manifest.webmanifest") << "{}";
        std::ofstream(web / ".secret") << "hidden";
        std::ofstream(m_directory.path() / "outside.txt") << "outside the root";
        std::filesystem::create_symlink("../outside.txt", web / "link.txt");
        m_folder = m_directory.path() / "data";
        std::filesystem::create_directories(m_folder);

        m_registry.registerClass<LabelController>("Label");
        Expected<watchkit::InterfaceLayout> layout = watchkit::LayoutLoader::parse(
            R"({"format": 1, "pages": ["only"], "controllers": {"only": {"class": "Label",
                "objects": [{"kind": "label", "outlet": "label", "text": "hello"}]}}})",
            "network-test", m_registry);
        ASSERT_TRUE(layout) << layout.error().message();
        m_host = std::make_unique<watchkit::ExtensionHost>(m_loop, m_registry, std::move(*layout));
        ASSERT_TRUE(m_host->start());
        m_face = std::make_unique<WatchFace>(m_loop, *m_host, m_log, [](std::string_view) { return std::nullopt; });
        m_server = std::make_unique<FaceServer>(*m_face, FaceServer::Options{0, web},
                                                FaceServer::NetworkOptions{kAddress, kAddress, 0, m_folder, {}});
        std::optional<std::string> error = m_server->start();
        ASSERT_FALSE(error) << *error;
        std::string url = m_server->networkUrl();
        m_networkPort = static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1)));
    }

    HttpReply request(HttpCall call) {
        return onClient([&] { return httpsRequest(kAddress, m_networkPort, call); });
    }

    std::string origin() const { return "https://" + kAddress + ":" + std::to_string(m_networkPort); }

    std::string newCode(std::chrono::seconds age = std::chrono::seconds(0)) {
        PairingCodes codes(m_folder);
        return codes.issue(PairingCodes::Clock::now() - age).value_or("");
    }

    HttpCall pairCall(const std::string& code) {
        return {"POST",
                "/api/pair",
                nlohmann::json{{"code", code}}.dump(),
                {{"Origin", origin()},
                 {"Content-Type", "application/json"},
                 {"User-Agent", "Mozilla/5.0 (Linux; Android 14) Chrome/120.0"}}};
    }

    // Pairs a device with a fresh code; its cookie header ("vexo_device=...").
    std::string pairDevice() {
        HttpReply reply = request(pairCall(newCode()));
        EXPECT_EQ(reply.status, 200) << reply.body;
        std::string cookie = reply.headers["set-cookie"];
        return cookie.substr(0, cookie.find(';'));
    }

    std::filesystem::path m_folder;
    std::uint16_t m_networkPort = 0;
};

} // namespace

TEST_F(NetworkFaceTest, PairingHandsOutAPrivateCookieNamedAfterTheDevice) {
    HttpReply reply = request(pairCall(newCode()));
    ASSERT_EQ(reply.status, 200) << reply.body;
    EXPECT_EQ(nlohmann::json::parse(reply.body)["name"], "Chrome on Android");
    const std::string cookie = reply.headers["set-cookie"];
    for (const char* attribute : {"HttpOnly", "Secure", "SameSite=Strict", "Path=/"})
        EXPECT_NE(cookie.find(attribute), std::string::npos) << attribute << " missing in " << cookie;
    // Only the token's hash is kept.
    std::string token = cookie.substr(cookie.find('=') + 1, cookie.find(';') - cookie.find('=') - 1);
    std::ifstream file(m_folder / "devices.json");
    std::string stored((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_EQ(stored.find(token), std::string::npos);
    EXPECT_NE(stored.find("Chrome on Android"), std::string::npos);
}

TEST_F(NetworkFaceTest, SecurityTable) {
    const std::string device = pairDevice();
    const std::string revoked = pairDevice();
    {
        DeviceTokens tokens(m_folder);
        ASSERT_TRUE(tokens.revoke("Chrome on Android 2"));
    }
    const std::string used = newCode();
    ASSERT_EQ(request(pairCall(used)).status, 200);
    const std::string expired = newCode(std::chrono::seconds(61));
    const std::string port = std::to_string(m_networkPort);
    auto get = [](std::string target, std::string cookie, std::map<std::string, std::string> more = {}) {
        if (!cookie.empty())
            more["Cookie"] = cookie;
        return HttpCall{"GET", std::move(target), "", std::move(more)};
    };
    auto postEvent = [&](std::string origin) {
        return HttpCall{"POST",
                        "/api/events",
                        R"({"type": "swipe", "page": 0})",
                        {{"Cookie", device}, {"Origin", std::move(origin)}, {"Content-Type", "application/json"}}};
    };

    struct Row {
        std::string what;
        HttpCall call;
        int status;
    };
    const std::vector<Row> rows = {
        {"a paired device opens the face", get("/", device), 200},
        {"and reads the watch", get("/api/snapshot", device), 200},
        {"and taps, from its own page", postEvent(origin()), 200},
        {"rebinding: another site's name for this address", get("/", device, {{"Host", "attacker.example:" + port}}),
         403},
        {"rebinding: a name without the port", get("/", device, {{"Host", "attacker.example"}}), 403},
        {"our address on another port", get("/", device, {{"Host", kAddress + ":1"}}), 403},
        {"a POST from another site", postEvent("https://attacker.example"), 403},
        {"a POST from our address over plain HTTP", postEvent("http://" + kAddress + ":" + port), 403},
        {"a POST from an opaque origin", postEvent("null"), 403},
        {"no token: the page", get("/", ""), 401},
        {"no token: the watch", get("/api/snapshot", ""), 401},
        {"no token: a tap", HttpCall{"POST", "/api/events", "{}", {{"Origin", origin()}}}, 401},
        {"a wrong token", get("/api/snapshot", "vexo_device=AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA"), 401},
        {"a token that is no token", get("/api/snapshot", "vexo_device=../../etc/passwd"), 401},
        {"a revoked token", get("/api/snapshot", revoked), 401},
        {"an expired code", pairCall(expired), 403},
        {"a used code", pairCall(used), 403},
        {"a code that is not text", HttpCall{"POST", "/api/pair", R"({"code": 7})", {{"Origin", origin()}}}, 403},
        {"a code in the request line", get("/api/pair?code=" + newCode(), ""), 405},
        {"device management from the network", get("/api/network", device), 403},
        {"revoking from the network",
         HttpCall{"POST", "/api/network/revoke", R"({"name": "x"})", {{"Cookie", device}, {"Origin", origin()}}}, 403},
        {"a path out of the root", get("/../outside.txt", device), 403},
        {"an encoded path out of the root", get("/%2e%2e/outside.txt", device), 403},
        {"a link out of the root", get("/link.txt", device), 403},
        {"a hidden file", get("/.secret", device), 404},
        {"a path out of the root without a token", get("/../outside.txt", ""), 401},
        {"the pairing page's files need no token", get("/manifest.webmanifest", ""), 200},
    };
    for (const auto& row : rows) {
        HttpReply reply = request(row.call);
        EXPECT_EQ(reply.status, row.status) << row.what << ": " << reply.body;
    }
    // The page of an unpaired device explains pairing.
    EXPECT_NE(request(get("/", "")).body.find("pair this device"), std::string::npos);

    struct StreamRow {
        std::string what;
        std::map<std::string, std::string> headers;
        int status;
    };
    const std::vector<StreamRow> streams = {
        {"a paired device's page", {{"Origin", origin()}, {"Cookie", device}}, 101},
        {"another site's page with the device's cookie",
         {{"Origin", "https://attacker.example"}, {"Cookie", device}},
         403},
        {"no token", {{"Origin", origin()}}, 401},
        {"a revoked token", {{"Origin", origin()}, {"Cookie", revoked}}, 401},
    };
    for (const auto& row : streams) {
        int status = onClient([&] { return TlsStreamClient().connect(kAddress, m_networkPort, row.headers); });
        EXPECT_EQ(status, row.status) << row.what;
    }

    // The loopback listener stays as it was: no token, no TLS; and it manages the devices.
    HttpReply local = onClient([&] { return httpRequest(m_server->port(), {"GET", "/", "", {}}); });
    EXPECT_EQ(local.status, 200);
    HttpReply network = onClient([&] { return httpRequest(m_server->port(), {"GET", "/api/network", "", {}}); });
    ASSERT_EQ(network.status, 200);
    nlohmann::json state = nlohmann::json::parse(network.body);
    EXPECT_EQ(state["url"], origin() + "/");
    EXPECT_EQ(state["fingerprint"], m_server->networkFingerprint());
    EXPECT_EQ(state["devices"].size(), 2u);
}

TEST_F(NetworkFaceTest, FiveWrongCodesInAMinuteLockPairing) {
    const std::string right = newCode();
    std::vector<int> statuses;
    for (int attempt = 0; attempt < 5; ++attempt)
        statuses.push_back(request(pairCall("wrongwrongwrongwrongwA")).status);
    HttpReply locked = request(pairCall(right));
    statuses.push_back(locked.status);
    EXPECT_EQ(statuses, (std::vector<int>{403, 403, 403, 403, 429, 429}));
    EXPECT_EQ(locked.headers["retry-after"], "60");
}

TEST_F(NetworkFaceTest, RevokingClosesTheDevicesOpenStream) {
    const std::string device = pairDevice();
    auto elapsed = onClient([&] {
        TlsStreamClient stream;
        EXPECT_EQ(stream.connect(kAddress, m_networkPort, {{"Origin", origin()}, {"Cookie", device}}), 101);
        EXPECT_TRUE(stream.read()); // the snapshot
        // As `vexo-watch revoke` does it: another process changes the devices file.
        auto start = std::chrono::steady_clock::now();
        DeviceTokens tokens(m_folder);
        EXPECT_TRUE(tokens.revoke("Chrome on Android"));
        while (stream.read()) {
        }
        return std::chrono::steady_clock::now() - start;
    });
    // Closed at the next look at the file, not at the client's one-minute deadline.
    EXPECT_LT(elapsed, std::chrono::seconds(30));
    std::cout << "closed " << std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count()
              << " ms after the revocation\n";
}

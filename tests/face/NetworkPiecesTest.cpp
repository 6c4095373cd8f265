// The parts of the network mode that need no sockets: codes, tokens, the request guard, the
// QR code and the certificate.
#include <algorithm>
#include <fstream>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "face/DeviceTokens.h"
#include "face/PairingCodes.h"
#include "face/QrCode.h"
#include "face/RequestGuard.h"
#include "face/TlsCertificate.h"
#include "support/TemporaryDirectory.h"

using namespace vexo::face;
using namespace std::chrono_literals;

namespace {

const PairingCodes::Clock::time_point kNow = PairingCodes::Clock::time_point(std::chrono::seconds(1'800'000'000));

} // namespace

TEST(PairingCodesTest, ACodeWorksOnceAndOnlyWithinAMinute) {
    vexo::testing::TemporaryDirectory directory;
    PairingCodes codes(directory.path());
    std::string fresh = codes.issue(kNow).value();
    std::string old = codes.issue(kNow - 60s).value();
    std::string almost = codes.issue(kNow - 59s).value();
    EXPECT_EQ(fresh.size(), 22u); // 128 bits in base64url
    EXPECT_NE(fresh, almost);
    // A second object, as another process would see the file.
    PairingCodes server(directory.path());
    EXPECT_EQ(server.redeem(old, kNow), PairingCodes::Verdict::Refused);
    EXPECT_EQ(server.redeem(almost, kNow), PairingCodes::Verdict::Accepted);
    EXPECT_EQ(server.redeem(fresh, kNow), PairingCodes::Verdict::Accepted);
    EXPECT_EQ(server.redeem(fresh, kNow), PairingCodes::Verdict::Refused);
}

TEST(PairingCodesTest, FailuresLockPairingForAMinute) {
    vexo::testing::TemporaryDirectory directory;
    PairingCodes codes(directory.path());
    std::string right = codes.issue(kNow + 100s).value();
    using V = PairingCodes::Verdict;
    struct Step {
        std::chrono::seconds at;
        std::string code;
        V verdict;
    };
    const std::vector<Step> steps = {
        // Four failures, then the oldest leaves the window: no lock-out yet.
        {0s, "x", V::Refused},
        {1s, "wrong", V::Refused},
        {2s, "AAAAAAAAAAAAAAAAAAAAAA", V::Refused},
        {3s, "", V::Refused},
        {60s, "y", V::Refused},
        // The fifth within a minute locks, and the right code is refused while it lasts.
        {60s, "z", V::LockedOut},
        {100s, right, V::LockedOut},
        {119s, right, V::LockedOut},
        // A minute later it works again (the code, made at 100 s, is still valid).
        {120s, right, V::Accepted},
    };
    for (const auto& step : steps)
        EXPECT_EQ(codes.redeem(step.code, kNow + step.at), step.verdict) << "at " << step.at.count() << " s";
}

TEST(DeviceTokensTest, NamesAreCleanAndUnique) {
    vexo::testing::TemporaryDirectory directory;
    DeviceTokens tokens(directory.path());
    const std::vector<std::pair<std::string, std::string>> names = {
        {"Pixel", "Pixel"},
        {"Pixel", "Pixel 2"},
        {"  Pixel\t\n", "Pixel 3"},
        {"a\x01"
         "b   c",
         "a b c"},
        {"", "Device"},
        {std::string(50, 'x'), std::string(40, 'x')},
        {std::string(39, 'x') + "\xc3\xa9", std::string(39, 'x')},
    };
    for (const auto& [wanted, expected] : names)
        EXPECT_EQ(tokens.add(wanted, kNow).value().name, expected) << wanted;
}

TEST(DeviceTokensTest, RenameRevokeAndAuthenticateAgreeAcrossProcesses) {
    vexo::testing::TemporaryDirectory directory;
    DeviceTokens watch(directory.path());
    std::string phone = watch.add("phone", kNow).value().token;
    std::string wrist = watch.add("wrist", kNow).value().token;
    DeviceTokens command(directory.path());
    using R = DeviceTokens::RenameResult;
    EXPECT_EQ(command.rename("phone", "wrist"), R::NameTaken);
    EXPECT_EQ(command.rename("nobody", "x"), R::NoSuchDevice);
    EXPECT_EQ(command.rename("phone", " \t"), R::BadName);
    EXPECT_EQ(command.rename("phone", "my phone"), R::Renamed);
    EXPECT_TRUE(command.revoke("wrist"));
    EXPECT_FALSE(command.revoke("wrist"));
    EXPECT_TRUE(watch.refresh());
    EXPECT_FALSE(watch.refresh());
    EXPECT_EQ(watch.authenticate(phone, kNow + 1h), "my phone");
    EXPECT_EQ(watch.authenticate(wrist, kNow + 1h), std::nullopt);
    // The use is noted, and a change by the watch keeps what the command did.
    std::vector<PairedDevice> devices = command.devices();
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].lastUsed,
              std::chrono::duration_cast<std::chrono::seconds>((kNow + 1h).time_since_epoch()).count());
}

TEST(DeviceTokensTest, NamesForUserAgents) {
    const std::vector<std::pair<std::string, std::string>> agents = {
        {"Mozilla/5.0 (Linux; Android 14; Pixel 7) AppleWebKit/537.36 Chrome/120.0 Mobile Safari/537.36",
         "Chrome on Android"},
        {"Mozilla/5.0 (iPhone; CPU iPhone OS 17_0 like Mac OS X) AppleWebKit/605.1.15 Version/17.0 Mobile/15E148 "
         "Safari/604.1",
         "Safari on iPhone"},
        {"Mozilla/5.0 (Android 14; Mobile; rv:120.0) Gecko/120.0 Firefox/120.0", "Firefox on Android"},
        {"curl/8.0", "Browser"},
    };
    for (const auto& [agent, name] : agents)
        EXPECT_EQ(DeviceTokens::nameForUserAgent(agent), name) << agent;
}

TEST(RequestGuardTest, HostsAndOrigins) {
    RequestGuard guard({"192.168.1.5", "Studio", "[fd00::5]"}, 8421);
    const std::vector<std::pair<std::string, bool>> hosts = {
        {"192.168.1.5:8421", true},
        {"studio:8421", true},
        {"[fd00::5]:8421", true},
        {"192.168.1.5", false},
        {"192.168.1.5:8420", false},
        {"attacker.example:8421", false},
        {"192.168.1.5.nip.io:8421", false},
        {"192.168.1.5:8421@x", false},
        {"", false},
    };
    for (const auto& [host, allowed] : hosts)
        EXPECT_EQ(guard.hostAllowed(host), allowed) << host;
    EXPECT_FALSE(guard.hostAllowed(std::nullopt));
    const std::vector<std::pair<std::optional<std::string>, bool>> origins = {
        {std::nullopt, true},
        {"https://192.168.1.5:8421", true},
        {"HTTPS://STUDIO:8421", true},
        {"http://192.168.1.5:8421", false},
        {"https://attacker.example:8421", false},
        {"null", false},
        {"https://192.168.1.5:8421.attacker.example", false},
    };
    for (const auto& [origin, allowed] : origins)
        EXPECT_EQ(guard.originAllowed(origin), allowed) << origin.value_or("(none)");
}

TEST(RequestGuardTest, TokenCookie) {
    const std::vector<std::pair<std::string, std::string>> headers = {
        {"vexo_device=abc", "abc"},
        {"theme=dark; vexo_device=abc ; other=1", "abc"},
        {"my_vexo_device=abc", ""},
        {"vexo_device", ""},
        {"", ""},
    };
    for (const auto& [header, token] : headers)
        EXPECT_EQ(RequestGuard::tokenFromCookies(header), token) << header;
}

TEST(QrCodeTest, PairingAddressesFitVersionFour) {
    // The longest address a pairing code lives in: an IPv4 address, a port and the code.
    std::string longest = "https://255.255.255.255:65535/#" + std::string(22, 'A');
    std::optional<QrCode> code = QrCode::encode(longest);
    ASSERT_TRUE(code);
    EXPECT_LE(code->version(), 4);
    EXPECT_EQ(code->size(), 17 + 4 * code->version());
    // Half blocks: two module rows a line, with a four-module quiet zone all round.
    std::string text = code->terminalText();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), (code->size() + 8 + 1) / 2);
    EXPECT_FALSE(QrCode::encode(std::string(200, 'x')));
}

TEST(TlsCertificateTest, MadeOnceAndKeptPrivate) {
    vexo::testing::TemporaryDirectory directory;
    std::filesystem::path folder = directory.path() / "vexo";
    std::string error;
    std::optional<TlsCertificate> first = TlsCertificate::loadOrCreate(folder, error);
    ASSERT_TRUE(first) << error;
    std::optional<TlsCertificate> again = TlsCertificate::loadOrCreate(folder, error);
    ASSERT_TRUE(again) << error;
    EXPECT_EQ(first->fingerprint(), again->fingerprint());
    EXPECT_EQ(first->fingerprint().size(), 32u * 3 - 1);
    struct stat key {};
    ASSERT_EQ(::stat((folder / "network-key.pem").c_str(), &key), 0);
    EXPECT_EQ(key.st_mode & 0777, 0600u);
    struct stat dir {};
    ASSERT_EQ(::stat(folder.c_str(), &dir), 0);
    EXPECT_EQ(dir.st_mode & 0777, 0700u);
    // A damaged pair is replaced, not served.
    std::ofstream(folder / "network-key.pem") << "not a key";
    std::optional<TlsCertificate> replaced = TlsCertificate::loadOrCreate(folder, error);
    ASSERT_TRUE(replaced) << error;
    EXPECT_NE(replaced->fingerprint(), first->fingerprint());
}

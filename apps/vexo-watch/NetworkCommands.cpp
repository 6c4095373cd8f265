#include "NetworkCommands.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <iostream>

#include <signal.h>
#include <unistd.h>

#include "face/DeviceTokens.h"
#include "face/PairingCodes.h"
#include "face/QrCode.h"
#include "face/SecretFiles.h"
#include "face/TlsCertificate.h"

namespace vexo::watchapp {

namespace {

// "https://ADDR:PORT/", the watch's process id and the certificate's fingerprint, one per line.
constexpr const char* kAddressFile = "network-address";

struct Published {
    std::string url;
    std::string fingerprint;
};

// What the running watch published, or nothing when no watch serves the network.
std::optional<Published> published(const std::filesystem::path& folder) {
    std::optional<std::string> text = face::readSmallFile(folder / kAddressFile);
    if (!text)
        return std::nullopt;
    std::size_t first = text->find('\n');
    std::size_t second = first == std::string::npos ? first : text->find('\n', first + 1);
    if (second == std::string::npos)
        return std::nullopt;
    std::string pid = text->substr(first + 1, second - first - 1);
    char* end = nullptr;
    long number = std::strtol(pid.c_str(), &end, 10);
    // A watch that ended without withdrawing its address (killed) no longer serves it.
    if (number <= 0 || *end || (::kill(static_cast<pid_t>(number), 0) != 0 && errno == ESRCH))
        return std::nullopt;
    std::string fingerprint = text->substr(second + 1);
    while (!fingerprint.empty() && fingerprint.back() == '\n')
        fingerprint.pop_back();
    return Published{text->substr(0, first), fingerprint};
}

std::string dateText(std::int64_t seconds) {
    if (seconds <= 0)
        return "never";
    std::time_t time = static_cast<std::time_t>(seconds);
    std::tm local{};
    localtime_r(&time, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &local);
    return text;
}

void printPairingCode(const std::string& url, bool showUrl) {
    if (std::optional<face::QrCode> code = face::QrCode::encode(url))
        std::cout << code->terminalText();
    else
        std::cout << "(The address is too long for a QR code that phones read; use --show-url.)\n";
    if (showUrl)
        std::cout << "Pairing address: " << url << "\n";
    std::cout << "Scan the code with the phone or watch within " << face::PairingCodes::kLifetime.count()
              << " seconds; it works once. `vexo-watch pair` makes a new one." << std::endl;
}

} // namespace

std::optional<std::filesystem::path> networkFolder(const UserDirectories& directories) {
    std::optional<std::filesystem::path> folder = face::networkDataFolder(directories);
    if (!folder)
        std::cerr << "vexo-watch: no data folder (set XDG_DATA_HOME or HOME)\n";
    else if (!face::makePrivateFolder(*folder)) {
        std::cerr << "vexo-watch: cannot make the folder " << folder->string() << "\n";
        return std::nullopt;
    }
    return folder;
}

void announceNetworkFace(const std::filesystem::path& folder, const std::string& url, const std::string& fingerprint,
                         int loopbackPort) {
    // Published before it is printed: whoever reads the lines may run `vexo-watch pair` at once.
    if (!face::writeFileAtomically(folder / kAddressFile,
                                   url + "\n" + std::to_string(::getpid()) + "\n" + fingerprint + "\n"))
        std::cerr << "vexo-watch: cannot publish the address for `vexo-watch pair` in " << folder.string() << "\n";
    std::cout << "Network face: " << url << "\n"
              << "Certificate SHA-256: " << fingerprint << std::endl;
    // The code grants access: it goes to a person at a terminal, never into a log file or
    // the journal that standard output may be.
    if (!::isatty(STDOUT_FILENO)) {
        std::cout << "Pair a device: run `vexo-watch pair` in a terminal, or press \"Pair a device\" on "
                  << "http://127.0.0.1:" << loopbackPort << "/" << std::endl;
        return;
    }
    face::PairingCodes codes(folder);
    std::optional<std::string> code = codes.issue(face::PairingCodes::Clock::now());
    if (code)
        printPairingCode(url + "#" + *code, false);
}

void withdrawNetworkFace(const std::filesystem::path& folder) {
    std::optional<std::string> text = face::readSmallFile(folder / kAddressFile);
    // Only our own: another watch may have started since.
    if (text && text->find("\n" + std::to_string(::getpid()) + "\n") != std::string::npos)
        std::filesystem::remove(folder / kAddressFile);
}

int pairCommand(const UserDirectories& directories, bool showUrl) {
    std::optional<std::filesystem::path> folder = networkFolder(directories);
    if (!folder)
        return 1;
    std::optional<Published> watch = published(*folder);
    if (!watch) {
        std::cerr << "vexo-watch: no watch serves the network now; start it with `vexo-watch --lan`\n";
        return 1;
    }
    face::PairingCodes codes(*folder);
    std::optional<std::string> code = codes.issue(face::PairingCodes::Clock::now());
    if (!code) {
        std::cerr << "vexo-watch: cannot store a pairing code in " << folder->string() << "\n";
        return 1;
    }
    std::cout << "Network face: " << watch->url << "\n"
              << "Certificate SHA-256: " << watch->fingerprint << "\n";
    printPairingCode(watch->url + "#" + *code, showUrl);
    return 0;
}

int devicesCommand(const UserDirectories& directories) {
    std::optional<std::filesystem::path> folder = networkFolder(directories);
    if (!folder)
        return 1;
    face::DeviceTokens tokens(*folder);
    std::vector<face::PairedDevice> devices = tokens.devices();
    if (devices.empty()) {
        std::cout << "No paired devices.\n";
        return 0;
    }
    std::size_t width = 4;
    for (const auto& device : devices)
        width = std::max(width, device.name.size());
    std::cout << "NAME" << std::string(width - 4 + 2, ' ') << "PAIRED            LAST USED\n";
    for (const auto& device : devices)
        std::cout << device.name << std::string(width - device.name.size() + 2, ' ') << dateText(device.pairedAt)
                  << "  " << dateText(device.lastUsed) << "\n";
    return 0;
}

int revokeCommand(const UserDirectories& directories, const std::string& name) {
    std::optional<std::filesystem::path> folder = networkFolder(directories);
    if (!folder)
        return 1;
    face::DeviceTokens tokens(*folder);
    if (!tokens.revoke(name)) {
        std::cerr << "vexo-watch: no paired device is named '" << name << "' (see `vexo-watch devices`)\n";
        return 1;
    }
    std::cout << "Revoked " << name << "; its open pages close now." << std::endl;
    return 0;
}

} // namespace vexo::watchapp

// vexo-watch: hosts the watch application and serves its face to a browser.

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <unistd.h>

#include "NetworkCommands.h"
#include "common/ProgramSettings.h"
#include "common/ServiceNotifier.h"
#include "face/FaceServer.h"
#include "face/NetworkAddresses.h"
#include "face/ProtocolLog.h"
#include "face/RecordingParentApplication.h"
#include "face/WatchFace.h"
#include "model/Environment.h"
#include "model/VXAWProtocol.h"
#include "platform/graphics/AssetCatalog.h"
#include "platform/install/InstalledData.h"
#include "platform/ipc/Container.h"
#include "platform/ipc/ContainerDirectory.h"
#include "platform/ipc/LocalNotificationReceiver.h"
#include "platform/ipc/SocketParentApplication.h"
#include "platform/log/Log.h"
#include "platform/media/MediaLibrary.h"
#include "platform/runtime/AsioRunLoop.h"
#include "platform/runtime/NotificationCenter.h"
#include "platform/runtime/UserDefaults.h"
#include "platform/text/LocaleSettings.h"
#include "platform/text/Localization.h"
#include "platform/watchkit/ControllerRegistry.h"
#include "platform/watchkit/ExtensionHost.h"
#include "platform/watchkit/LayoutLoader.h"
#include "transport/MMWormhole.h"
#include "ui/InterfaceClasses.h"

using namespace vexo;

namespace {

constexpr std::string_view kComponent = "vexo-watch";
// The extension's own user defaults; the phone application keeps its own.
constexpr std::string_view kDefaultsDomain = "com.vexo.remote.watch";

struct Options {
    int port = face::FaceServer::kDefaultPort;
    std::string group{model::VXAWWormholeApplicationGroupIdentifier};
    std::string containerRoot;
    std::string language;
    std::string locale;
    std::string webRoot;
    std::string phoneCommand;
    bool lan = false;
    std::string listen;
    int lanPort = face::FaceServer::kDefaultNetworkPort;
};

// The network listener that --lan and --listen ask for, or nothing (with `error` set when
// it cannot be had).
std::optional<face::FaceServer::NetworkOptions>
networkOptions(const Options& options, const apps::ProgramSettings& settings, std::string& error) {
    if (!options.lan && options.listen.empty())
        return std::nullopt;
    std::optional<std::filesystem::path> folder = watchapp::networkFolder(settings.userDirectories);
    if (!folder) {
        error = "the network face needs a data folder";
        return std::nullopt;
    }
    face::FaceServer::NetworkOptions network;
    network.folder = *folder;
    network.port = static_cast<std::uint16_t>(options.lanPort);
    network.hosts = face::namesOfThisMachine({});
    if (!options.listen.empty()) {
        network.listenAddress = options.listen;
        network.advertisedAddress = options.listen;
    } else {
        network.listenAddress = "0.0.0.0";
        std::vector<std::string> addresses = face::interfaceAddresses();
        network.advertisedAddress = addresses.empty() ? "127.0.0.1" : addresses.front();
        if (addresses.empty() || addresses.front().starts_with("127."))
            log::warning(kComponent, "this computer has no network address now; the face is reachable on it alone");
    }
    return network;
}

int fail(int code, const std::string& message) {
    std::cerr << "vexo-watch: " << message << "\n";
    return code;
}

// The face's files: `configured` (VEXO_WEB_DIR), else the installed share/vexo/web beside the
// program, else the web/ folder of the source tree that this executable was built from,
// looked for above the executable and then where it was built.
std::optional<std::filesystem::path> defaultWebRoot(const std::optional<std::filesystem::path>& configured) {
    if (configured)
        return configured;
    if (std::optional<std::filesystem::path> installed = install::InstalledData::directory("web"))
        return installed;
    std::error_code error;
    std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) {
        std::filesystem::path directory = executable.parent_path();
        for (int level = 0; level < 5 && !directory.empty(); ++level) {
            if (std::filesystem::is_regular_file(directory / "web" / "index.html", error))
                return directory / "web";
            if (directory == directory.parent_path())
                break;
            directory = directory.parent_path();
        }
    }
    std::filesystem::path source = std::filesystem::path(VEXO_SOURCE_DIR) / "web";
    if (std::filesystem::is_directory(source, error))
        return source;
    return std::nullopt;
}

// SIGINT and SIGTERM end the loop through a pipe that the loop watches, so that shutdown
// runs on the main thread like everything else.
int g_signalPipe[2] = {-1, -1};

void onSignal(int) {
    int saved = errno;
    char byte = 1;
    [[maybe_unused]] auto written = ::write(g_signalPipe[1], &byte, 1);
    errno = saved;
}

bool installSignalPipe() {
    if (::pipe2(g_signalPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return false;
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    return ::sigaction(SIGINT, &action, nullptr) == 0 && ::sigaction(SIGTERM, &action, nullptr) == 0;
}

int runWatch(const Options& options, const apps::ProgramSettings& settings,
             const std::optional<std::filesystem::path>& webRoot) {
    std::optional<std::filesystem::path> container = ipc::Container::pathForGroup(options.group);
    if (!container)
        return fail(1, "no shared container for group '" + options.group + "' (see VEXO_CONTAINER_ROOT)");

    runtime::AsioRunLoop loop;
    runtime::RunLoop::CurrentScope current(&loop);
    apps::ServiceNotifier service(loop);
    if (!installSignalPipe())
        return fail(1, "cannot install the signal handlers");
    bool stopping = false;
    auto signalWatch = loop.watchReadable(g_signalPipe[0], [&] {
        char bytes[16];
        while (::read(g_signalPipe[0], bytes, sizeof bytes) > 0) {
        }
        stopping = true;
        loop.stop();
    });

    face::ProtocolLog protocolLog;
    // Reads the library actions that the log shows; it listens to nothing itself.
    transport::MMWormhole reader(options.group, std::string(model::kWormholeMessageDirectory), &loop);

    std::optional<std::string> launchCommand =
        ipc::SocketParentApplication::launchCommandFrom(settings.phoneLaunchCommand);
    auto socketLink = std::make_shared<ipc::SocketParentApplication>(*container, loop, launchCommand);
    // A library action travels as a message; the empty dictionary only wakes the phone.
    auto link = std::make_shared<face::RecordingParentApplication>(
        socketLink, protocolLog, std::string(model::VXAWLibraryActionMessageIdentifier),
        [&reader] { return reader.messageWithIdentifier(model::VXAWLibraryActionMessageIdentifier); });

    auto opened =
        media::MediaLibrary::open(media::MediaLibrary::defaultPath(settings.mediaLibrary, settings.userDirectories));
    if (!opened)
        log::warning(kComponent, "no media library (" + opened.error().message() + "); the playlist list stays empty");
    std::shared_ptr<media::MediaLibrary> library = std::move(opened).valueOr(nullptr);
    auto defaults = std::make_shared<runtime::UserDefaults>(
        runtime::UserDefaults::standardPath(kDefaultsDomain, settings.userDirectories));
    model::installEnvironment({&loop, link, library, defaults, options.group});

    watchkit::ControllerRegistry registry;
    ui::registerInterfaceClasses(registry);
    Expected<watchkit::InterfaceLayout> layout =
        watchkit::LayoutLoader::loadFile(watchkit::InterfaceLayout::defaultPath(), registry);
    if (!layout)
        return fail(1, "the interface layout cannot be used:\n" + layout.error().message());

    int exitCode = 0;
    {
        watchkit::ExtensionHost::Options hostOptions;
        hostOptions.localization = &text::Localization::main();
        hostOptions.locale = text::LocaleSettings::formattingLocale();
        watchkit::ExtensionHost host(loop, registry, std::move(*layout), hostOptions);

        // Every status message a receiver of ours processes, as that receiver read it.
        transport::MMWormhole::setDeliveryObserver([&](std::string_view identifier, const plist::Value& message) {
            protocolLog.record(identifier, face::Direction::FromPhone, message);
        });

        face::WatchFace watchFace(loop, host, protocolLog, [](std::string_view name) {
            return graphics::AssetCatalog::shared().imageNamed(name);
        });
        std::string networkError;
        std::optional<face::FaceServer::NetworkOptions> network = networkOptions(options, settings, networkError);
        face::FaceServer server(watchFace, {static_cast<std::uint16_t>(options.port), webRoot.value_or("")}, network);
        std::unique_ptr<ipc::LocalNotificationReceiver> notifications;
        if (!networkError.empty()) {
            exitCode = fail(1, networkError);
        } else if (std::optional<std::string> error = server.start()) {
            exitCode = fail(1, *error);
        } else if (watchkit::EventResult started = host.start(); !started) {
            exitCode = fail(1, "the watch application did not start: " + started.error().message());
        } else {
            notifications = std::make_unique<ipc::LocalNotificationReceiver>(
                *container, loop, [&](const ipc::LocalNotification& notification) {
                    std::vector<std::pair<std::string, std::string>> actions;
                    for (const auto& action : notification.actions)
                        actions.emplace_back(action.identifier, action.title);
                    watchFace.showNotification(notification.alertTitle, notification.alertBody, notification.category,
                                               notification.userInfo, std::move(actions));
                });
            if (!notifications->isListening())
                log::warning(kComponent, "local notifications from the phone will not arrive (another watch listens)");
            std::cout << "Watch face: http://127.0.0.1:" << server.port() << "/" << std::endl;
            if (network)
                watchapp::announceNetworkFace(network->folder, server.networkUrl(), server.networkFingerprint(),
                                              server.port());
            service.ready("serving the face on 127.0.0.1:" + std::to_string(server.port()));
            loop.run();
            if (network)
                watchapp::withdrawNetworkFace(network->folder);
            log::info(kComponent, stopping ? "stopping on a signal" : "stopping");
        }
        notifications.reset();
        server.stop();
        transport::MMWormhole::setDeliveryObserver({});
    }
    // The shared model goes while the loop that its transports use is still there.
    model::installEnvironment({});
    signalWatch.reset();
    return exitCode;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"vexo-watch: runs the watch application and serves its face to a browser on 127.0.0.1.\n"
                 "Prints \"Watch face: http://127.0.0.1:PORT/\" once serving; stops on Ctrl-C or SIGTERM.\n"
                 "With --lan, also \"Network face: https://ADDR:PORT/\" for phones and watches that are paired.\n"
                 "Exit codes: 0 stopped cleanly, 1 failure (port in use, no container, bad layout), 2 wrong usage."};
    app.set_version_flag("--version", "vexo-watch " VEXO_VERSION);
    Options options;
    app.add_option("-p,--port", options.port, "port of the face on 127.0.0.1; 0 picks a free one")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    app.add_option("-g,--group", options.group, "application group shared with the phone")->capture_default_str();
    app.add_option("--container-root", options.containerRoot,
                   "directory that holds the group containers (overrides VEXO_CONTAINER_ROOT)");
    app.add_option("--language", options.language, "language of the texts, e.g. de or en (overrides VEXO_LANGUAGE)");
    app.add_option("--locale", options.locale, "locale of numbers, e.g. de_DE (overrides VEXO_LOCALE)");
    app.add_option("--web-root", options.webRoot, "directory of the face's files (overrides VEXO_WEB_DIR)");
    app.add_option(
        "--phone-command", options.phoneCommand,
        "command that starts the phone application when nobody listens (overrides VEXO_PHONE_LAUNCH_COMMAND)");
    app.add_flag("--lan", options.lan,
                 "also serve the face over HTTPS on this computer's network addresses, to paired devices");
    app.add_option("--listen", options.listen, "the address of the network face (implies --lan), e.g. 192.168.1.5");
    app.add_option("--lan-port", options.lanPort, "port of the network face; 0 picks a free one")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    CLI::App* pair = app.add_subcommand("pair", "show a new pairing code (QR) for the running watch's network face");
    bool showUrl = false;
    pair->add_flag("--show-url", showUrl, "also print the pairing address as text, for a device that cannot scan");
    CLI::App* devices = app.add_subcommand("devices", "list the paired devices with their last use");
    CLI::App* revoke = app.add_subcommand("revoke", "revoke a paired device; its open pages close at once");
    std::string revokeName;
    revoke->add_option("NAME", revokeName, "the device's name, as `vexo-watch devices` lists it")->required();
    app.require_subcommand(0, 1);
    app.footer("Environment: VEXO_CONTAINER_ROOT, VEXO_WEB_DIR, VEXO_RESOURCE_DIR, VEXO_ASSET_DIR, VEXO_LANGUAGE,\n"
               "VEXO_LOCALE, VEXO_MEDIA_LIBRARY, VEXO_PHONE_LAUNCH_COMMAND, VEXO_LOG (debug|info|warning|error|off),\n"
               "XDG_DATA_HOME (the network face's certificate and paired devices are in its vexo/ folder).");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // --help and --version end here too, with 0; every real usage error is 2.
        return app.exit(error) == 0 ? 0 : 2;
    }
    apps::ProgramSettings settings = apps::ProgramSettings::fromEnvironment();
    if (pair->parsed() || devices->parsed() || revoke->parsed()) {
        settings.install();
        if (pair->parsed())
            return watchapp::pairCommand(settings.userDirectories, showUrl);
        if (devices->parsed())
            return watchapp::devicesCommand(settings.userDirectories);
        return watchapp::revokeCommand(settings.userDirectories, revokeName);
    }

    // The options are also put in the environment, which the phone application that the
    // launch command starts inherits: it then shares the container and the language.
    if (!ipc::ContainerDirectory::isPlainFileName(options.group))
        return fail(2, "--group: '" + options.group + "' is no group name such as group.com.vexo.remote");
    if (!options.containerRoot.empty()) {
        settings.container.root = std::filesystem::absolute(options.containerRoot).string();
        ::setenv("VEXO_CONTAINER_ROOT", settings.container.root->c_str(), 1);
    }
    if (!options.language.empty()) {
        if (!text::LocaleSettings::fromPosix(options.language))
            return fail(2, "--language: '" + options.language + "' is no language name such as de or en_GB");
        settings.locale.vexoLanguage = options.language;
        ::setenv("VEXO_LANGUAGE", options.language.c_str(), 1);
    }
    if (!options.locale.empty()) {
        if (!text::LocaleSettings::fromPosix(options.locale))
            return fail(2, "--locale: '" + options.locale + "' is no locale name such as de_DE");
        settings.locale.vexoLocale = options.locale;
        ::setenv("VEXO_LOCALE", options.locale.c_str(), 1);
    }
    if (!options.phoneCommand.empty())
        settings.phoneLaunchCommand = options.phoneCommand;
    settings.install();
    std::optional<std::filesystem::path> webRoot;
    if (!options.webRoot.empty()) {
        if (!std::filesystem::is_directory(options.webRoot))
            return fail(2, "--web-root: '" + options.webRoot + "' is not a directory");
        webRoot = std::filesystem::absolute(options.webRoot);
    } else {
        webRoot = defaultWebRoot(settings.webDirectory);
        if (!webRoot)
            log::warning(kComponent, "no web/ folder found (set VEXO_WEB_DIR or --web-root); only the API is served");
    }
    return runWatch(options, settings, webRoot);
}

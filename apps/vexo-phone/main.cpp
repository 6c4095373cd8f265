// vexo-phone: the phone application's side of the link, a two-deck mixing engine without
// audio that the watch is run against.
//
//   vexo-phone [--music DIR] [--library FILE] [--group ID] [--verbose]
//   vexo-phone notify load N       post the "load a song on deck N" notification to the watch
//   vexo-phone notify automix      post the "let automix carry on" notification to the watch
//
// Without a subcommand it listens for the watch's actions in the application group's
// container until SIGINT or SIGTERM, then removes its socket and leaves the stored messages.
//
// Exit codes: 0 success (also a notification nobody heard), 1 failure (no container, no
// media library, another vexo-phone already runs on the container, a scan that failed),
// 2 wrong usage.
#include "phone/Engine.h"
#include "phone/MediaLibraryCatalog.h"
#include "phone/PhoneLink.h"

#include "model/VXAWProtocol.h"
#include "platform/ipc/Container.h"
#include "platform/ipc/LocalNotificationSender.h"
#include "platform/log/Log.h"
#include "platform/media/LibraryScanner.h"
#include "platform/media/MediaLibrary.h"
#include "platform/runtime/AsioRunLoop.h"
#include "platform/runtime/NotificationCenter.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstring>
#include <iostream>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

using namespace vexo;

enum ExitCode { kSuccess = 0, kFailure = 1, kUsage = 2 };

struct Options {
    std::string music;
    std::string library;
    std::string group{model::VXAWWormholeApplicationGroupIdentifier};
    bool verbose = false;
};

int fail(const std::string& message, int code = kFailure) {
    std::cerr << "vexo-phone: " << message << "\n";
    return code;
}

int notify(const Options& options, const std::string& kind, std::int64_t turntable) {
    const auto container = ipc::Container::pathForGroup(options.group);
    if (!container)
        return fail("no container for the application group \"" + options.group + "\"");
    const ipc::LocalNotification notification =
        kind == "load" ? phone::Engine::loadNotification(turntable) : phone::Engine::automixNotification();
    switch (ipc::LocalNotificationSender(*container).send(notification)) {
    case ipc::LocalNotificationSender::Result::Sent:
        std::cout << "sent \"" << notification.alertTitle << "\" to the watch\n";
        return kSuccess;
    case ipc::LocalNotificationSender::Result::NobodyListens:
        std::cout << "no watch listens in " << container->string() << "; nothing sent\n";
        return kSuccess;
    case ipc::LocalNotificationSender::Result::Dropped:
        break;
    }
    return fail("the notification could not be sent (run with --verbose for why)");
}

// SIGINT and SIGTERM, blocked and read from a descriptor on the loop, so that the loop stops
// between two callbacks and everything is torn down in order.
class SignalWatch {
public:
    SignalWatch() {
        sigemptyset(&m_signals);
        sigaddset(&m_signals, SIGINT);
        sigaddset(&m_signals, SIGTERM);
        ::sigprocmask(SIG_BLOCK, &m_signals, nullptr);
        m_fd = ::signalfd(-1, &m_signals, SFD_NONBLOCK | SFD_CLOEXEC);
    }
    ~SignalWatch() {
        if (m_fd >= 0)
            ::close(m_fd);
        ::sigprocmask(SIG_UNBLOCK, &m_signals, nullptr);
    }
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    [[nodiscard]] int descriptor() const { return m_fd; }

    // The signal read, or 0.
    int read() const {
        signalfd_siginfo info{};
        return ::read(m_fd, &info, sizeof info) == static_cast<ssize_t>(sizeof info) ? static_cast<int>(info.ssi_signo) : 0;
    }

private:
    sigset_t m_signals{};
    int m_fd = -1;
};

int run(const Options& options, const std::filesystem::path& indexPath) {
    const auto container = ipc::Container::pathForGroup(options.group);
    if (!container)
        return fail("no container for the application group \"" + options.group + "\"");

    if (!options.music.empty()) {
        media::LibraryScanner::Options scanOptions;
        scanOptions.applicationGroup = options.group;
        std::string error;
        const auto summary = media::LibraryScanner(indexPath, scanOptions).scan(options.music, {}, &error);
        if (!summary)
            return fail("cannot scan " + options.music + ": " + error);
        std::cerr << "vexo-phone: scanned " << summary->audioFiles << " audio files and " << summary->playlistFiles
                  << " playlists in " << options.music << "\n";
    }
    std::string error;
    const std::shared_ptr<media::MediaLibrary> library = media::MediaLibrary::open(indexPath, &error);
    if (!library)
        return fail("cannot open the media library " + indexPath.string() + ": " + error);

    SignalWatch signals;
    runtime::AsioRunLoop loop;
    runtime::RunLoop::CurrentScope current(&loop);

    phone::MediaLibraryCatalog catalog(library);
    phone::PhoneLink link(options.group, *container, loop);
    if (!link.isListening())
        return fail("cannot listen in " + container->string() +
                    ": another vexo-phone already runs on this container (or see --verbose)");
    phone::Engine engine(loop, catalog, link,
                         [&link](const ipc::LocalNotification& notification) { link.sendLocalNotification(notification); });
    link.setEngine(&engine);

    library->beginGeneratingLibraryChangeNotifications(options.group);
    const int observer = 0;
    runtime::NotificationCenter::defaultCenter().addObserver(
        &observer, [&engine](const runtime::Notification&) { engine.catalogDidChange(); },
        media::MediaLibrary::kDidChangeNotification, library.get());

    int stoppedBy = 0;
    std::unique_ptr<runtime::FdWatch> signalWatch;
    if (signals.descriptor() >= 0)
        signalWatch = loop.watchReadable(signals.descriptor(), [&] {
            stoppedBy = signals.read();
            loop.stop();
        });

    engine.start();
    // One line on standard output once the watch can reach us, for whoever started us.
    std::cout << "listening in " << container->string() << " with " << indexPath.string() << std::endl;
    loop.run();

    signalWatch.reset();
    runtime::NotificationCenter::defaultCenter().removeObserver(&observer);
    library->endGeneratingLibraryChangeNotifications();
    link.setEngine(nullptr);
    if (stoppedBy != 0)
        std::cerr << "vexo-phone: stopped by " << ::strsignal(stoppedBy) << "\n";
    return kSuccess;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"The phone application's side of the Vexo link: a two-deck mixing engine without audio that "
                 "answers the watch's actions and publishes every status message."};
    app.set_version_flag("--version", std::string("vexo-phone ") + VEXO_VERSION);

    Options options;
    app.add_option("--music", options.music, "scan this music folder into the media library first");
    app.add_option("--library", options.library,
                   "media library index (default: $VEXO_MEDIA_LIBRARY, else $XDG_DATA_HOME/vexo/media-library.sqlite)");
    app.add_option("-g,--group", options.group, "application group shared with the watch")->capture_default_str();
    app.add_flag("-v,--verbose", options.verbose, "log every action, ignored input and notification");

    std::string kind;
    std::int64_t turntable = 0;
    auto* notifyCommand = app.add_subcommand("notify", "post one local notification to the watch and exit");
    auto* loadCommand = notifyCommand->add_subcommand("load", "ask the user to load a song on a deck");
    loadCommand->add_option("N", turntable, "deck number, 1 or 2")->required()->check(CLI::Range(1, 2));
    notifyCommand->add_subcommand("automix", "offer automix as the song heard nears its end");
    notifyCommand->require_subcommand(1);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int code = app.exit(error);
        return code == 0 ? kSuccess : kUsage;
    }
    if (options.verbose)
        log::setLevel(log::Level::Debug);

    if (notifyCommand->parsed())
        return notify(options, loadCommand->parsed() ? "load" : "automix", turntable);
    const std::filesystem::path indexPath = options.library.empty() ? media::MediaLibrary::defaultPath()
                                                                    : std::filesystem::path(options.library);
    return run(options, indexPath);
}

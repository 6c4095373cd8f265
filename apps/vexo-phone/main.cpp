// vexo-phone: the phone application's side of the link, a two-deck mixing engine that plays
// through the sound device (or a null output paced in real time) and that the watch controls.
//
//   vexo-phone [--music DIR] [--library FILE] [--group ID] [--verbose]
//              [--audio-device NAME|none] [--sample-rate HZ] [--buffer-frames N] [--record FILE]
//              [--prefer tags|analysis] [--no-auto-gain] [--auto-gain-target LUFS] [--no-analysis]
//   vexo-phone --list-audio-devices
//   vexo-phone notify load N       post the "load a song on deck N" notification to the watch
//   vexo-phone notify automix      post the "let automix carry on" notification to the watch
//
// Without a subcommand it listens for the watch's actions in the application group's
// container until SIGINT or SIGTERM, then removes its socket and leaves the stored messages.
//
// Exit codes: 0 success (also a notification nobody heard), 1 failure (no container, no
// media library, another vexo-phone already runs on the container, a scan that failed, a
// named sound device that cannot play), 2 wrong usage. A recording that cannot be written
// says so and the music plays on.
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include <CLI/CLI.hpp>
#include <sys/signalfd.h>
#include <unistd.h>

#include "audio/AudioEngine.h"
#include "common/ProgramSettings.h"
#include "common/ServiceNotifier.h"
#include "model/VXAWProtocol.h"
#include "phone/Engine.h"
#include "phone/MediaLibraryCatalog.h"
#include "phone/PhoneLink.h"
#include "phone/SoundLink.h"
#include "platform/analysis/LibraryAnalyzer.h"
#include "platform/audio/AudioDevices.h"
#include "platform/audio/AudioOutput.h"
#include "platform/audio/Recorder.h"
#include "platform/ipc/Container.h"
#include "platform/ipc/LocalNotificationSender.h"
#include "platform/log/Log.h"
#include "platform/media/LibraryScanner.h"
#include "platform/media/MediaLibrary.h"
#include "platform/runtime/AsioRunLoop.h"
#include "platform/runtime/NotificationCenter.h"
#include "platform/runtime/Timer.h"
#include "platform/text/LocaleSettings.h"

namespace {

using namespace vexo;

enum ExitCode { kSuccess = 0, kFailure = 1, kUsage = 2 };

struct Options {
    std::string music;
    std::string library;
    std::string group{model::VXAWWormholeApplicationGroupIdentifier};
    bool verbose = false;
    audio::OutputOptions output;
    std::string record;
    // Tempo and key from the tags first, or from the analysis first.
    media::ValuePreference prefer = media::ValuePreference::Tags;
    bool autoGain = true;
    double autoGainTarget = phone::SoundLink::kDefaultAutoGainTargetLUFS;
    // Analyse the new and changed songs after --music's scan.
    bool analyse = true;
};

// Analyses what the scan found new or changed, a line of progress at every tenth on standard
// error. Each song is stored as it is done, so an interrupted run keeps what it finished.
void analyseScanned(const std::filesystem::path& indexPath, const std::filesystem::path& folder) {
    analysis::LibraryAnalyzer::Options analysisOptions;
    analysisOptions.only = {folder};
    std::size_t lastTenth = 11;
    const auto summary = analysis::LibraryAnalyzer::analyze(
        indexPath, analysisOptions, [&](const analysis::LibraryAnalyzer::Progress& progress) {
            const std::size_t tenth = progress.songsDone * 10 / std::max<std::size_t>(1, progress.songsTotal);
            if (tenth != lastTenth)
                std::cerr << "vexo-phone: analysed " << progress.songsDone << " of " << progress.songsTotal
                          << " songs\n";
            lastTenth = tenth;
        });
    if (!summary)
        std::cerr << "vexo-phone: cannot analyse the songs: " << summary.error().message()
                  << " (they play with their tags' values)\n";
    else if (summary->songs > 0)
        std::cerr << "vexo-phone: analysed " << summary->songs << " songs, " << summary->complete
                  << " with tempo and key\n";
}

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
    const Expected<void> sent = ipc::LocalNotificationSender(*container).send(notification);
    if (sent) {
        std::cout << "sent \"" << notification.alertTitle << "\" to the watch\n";
        return kSuccess;
    }
    if (sent.error().kind() == ErrorKind::Unavailable) {
        std::cout << "no watch listens in " << container->string() << "; nothing sent\n";
        return kSuccess;
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
        return ::read(m_fd, &info, sizeof info) == static_cast<ssize_t>(sizeof info) ? static_cast<int>(info.ssi_signo)
                                                                                     : 0;
    }

private:
    sigset_t m_signals{};
    int m_fd = -1;
};

int listDevices() {
    const auto devices = audio::listOutputDevices();
    if (!devices)
        return fail("cannot list the sound devices: " + devices.error().message());
    if (devices->empty())
        std::cout << "no sound device found (vexo-phone plays to a null output; --audio-device none says so)\n";
    for (const audio::AudioDevice& device : *devices)
        std::cout << (device.isDefault ? "* " : "  ") << device.name << "  (" << device.hostApi << ", "
                  << device.outputChannels << " channels, " << device.defaultSampleRate << " Hz)\n";
    return kSuccess;
}

// The sound side of the program: the output, the engine it renders, and the recording.
class Sound {
public:
    // Fails when the output asked for cannot play.
    static Expected<std::unique_ptr<Sound>> start(const Options& options) {
        std::string notice;
        auto output = audio::openOutput(options.output, &notice);
        if (!output)
            return std::move(output).error();
        if (!notice.empty())
            std::cerr << "vexo-phone: " << notice << "\n";
        auto sound = std::unique_ptr<Sound>(new Sound(std::move(output).value()));
        if (!options.record.empty()) {
            auto recorder = audio::Recorder::start(options.record, sound->m_output->sampleRate());
            if (recorder) {
                sound->m_recorder = std::move(recorder).value();
                sound->m_engine.setRecorder(sound->m_recorder.get());
                std::cerr << "vexo-phone: recording the mix to " << options.record << "\n";
            } else {
                std::cerr << "vexo-phone: not recording: " << recorder.error().message() << "\n";
            }
        }
        sound::AudioEngine& engine = sound->m_engine;
        if (auto started =
                sound->m_output->start([&engine](float* out, std::size_t frames) { engine.render(out, frames); });
            !started)
            return std::move(started).error();
        // The null output that stands in for a missing device has been named in the notice.
        if (notice.empty())
            std::cerr << "vexo-phone: playing to " << sound->m_output->description() << "\n";
        return sound;
    }

    ~Sound() {
        m_output->stop();
        if (m_recorder) {
            m_recorder->stop();
            reportRecording();
            std::cerr << "vexo-phone: recorded "
                      << static_cast<double>(m_recorder->framesWritten()) / m_output->sampleRate() << " s to "
                      << m_recorder->path().string() << "\n";
        }
    }

    phone::SoundLink& link() { return m_link; }

    // Says once that the recording stopped, and why.
    void reportRecording() {
        if (m_recorder && !m_reported)
            if (const auto failure = m_recorder->failure()) {
                std::cerr << "vexo-phone: the recording stopped: " << failure->message() << " (the music plays on)\n";
                m_reported = true;
            }
    }

private:
    explicit Sound(std::unique_ptr<audio::AudioOutput> output)
        : m_output(std::move(output)),
          m_engine(m_output->sampleRate(), m_output->bufferFrames()),
          m_link(m_engine) {}

    std::unique_ptr<audio::AudioOutput> m_output;
    sound::AudioEngine m_engine;
    phone::SoundLink m_link;
    std::unique_ptr<audio::Recorder> m_recorder;
    bool m_reported = false;
};

int run(const Options& options, const std::filesystem::path& indexPath) {
    const auto container = ipc::Container::pathForGroup(options.group);
    if (!container)
        return fail("no container for the application group \"" + options.group + "\"");

    if (!options.music.empty()) {
        media::LibraryScanner::Options scanOptions;
        scanOptions.applicationGroup = options.group;
        const auto summary = media::LibraryScanner(indexPath, scanOptions).scan(options.music);
        if (!summary)
            return fail("cannot scan " + options.music + ": " + summary.error().message());
        std::cerr << "vexo-phone: scanned " << summary->audioFiles << " audio files and " << summary->playlistFiles
                  << " playlists in " << options.music << "\n";
        if (options.analyse)
            analyseScanned(indexPath, summary->folder);
    }
    auto opened = media::MediaLibrary::open(indexPath);
    if (!opened)
        return fail("cannot open the media library " + indexPath.string() + ": " + opened.error().message());
    const std::shared_ptr<media::MediaLibrary> library = std::move(opened).value();

    SignalWatch signals;
    runtime::AsioRunLoop loop;
    runtime::RunLoop::CurrentScope current(&loop);
    apps::ServiceNotifier service(loop);

    phone::MediaLibraryCatalog catalog(library);
    phone::PhoneLink link(options.group, *container, loop);
    if (!link.isListening())
        return fail("cannot listen in " + container->string() +
                    ": another vexo-phone already runs on this container (or see --verbose)");
    auto started = Sound::start(options);
    if (!started)
        return fail("cannot play: " + started.error().message());
    const std::unique_ptr<Sound> sound = std::move(started).value();
    if (options.autoGain)
        sound->link().setAutoGainTarget(options.autoGainTarget);
    phone::Engine engine(
        loop, catalog, link,
        [&link](const ipc::LocalNotification& notification) { link.sendLocalNotification(notification); },
        &sound->link());
    const auto recordingWatch = runtime::Timer::scheduledTimer(loop, 1, runtime::Timer::Repeats::Yes,
                                                               [&sound](runtime::Timer&) { sound->reportRecording(); });
    engine.setValuePreference(options.prefer);
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
    service.ready("listening in " + container->string());
    loop.run();

    signalWatch.reset();
    recordingWatch->invalidate();
    runtime::NotificationCenter::defaultCenter().removeObserver(&observer);
    library->endGeneratingLibraryChangeNotifications();
    link.setEngine(nullptr);
    if (stoppedBy != 0)
        std::cerr << "vexo-phone: stopped by " << ::strsignal(stoppedBy) << "\n";
    return kSuccess;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"The phone application's side of the Vexo link: a two-deck mixing engine that plays through the "
                 "sound device, answers the watch's actions and publishes every status message."};
    app.set_version_flag("--version", std::string("vexo-phone ") + VEXO_VERSION);

    Options options;
    app.add_option("--music", options.music, "scan this music folder into the media library first");
    app.add_option("--library", options.library,
                   "media library index (default: $VEXO_MEDIA_LIBRARY, else $XDG_DATA_HOME/vexo/media-library.sqlite)");
    app.add_option("-g,--group", options.group, "application group shared with the watch")->capture_default_str();
    app.add_flag("-v,--verbose", options.verbose, "log every action, ignored input and notification");
    app.add_option("--audio-device", options.output.device,
                   "sound device (a name or a unique part of one, see --list-audio-devices; \"none\": no sound, "
                   "played in real time all the same; default: the default device, or none when there is none)");
    bool list = false;
    app.add_flag("--list-audio-devices", list, "list the sound devices that can play and exit");
    app.add_option("--sample-rate", options.output.sampleRate,
                   "output sample rate in Hz (default: 48000, or the device's)")
        ->check(CLI::Range(8000, 192000));
    app.add_option("--buffer-frames", options.output.bufferFrames, "frames per output buffer (512: 10.7 ms at 48 kHz)")
        ->capture_default_str()
        ->check(CLI::Range(32, 8192));
    std::string prefer = "tags";
    app.add_option("--prefer", prefer,
                   "where a song's tempo and key come from when both its tags and the analysis give one")
        ->capture_default_str()
        ->check(CLI::IsMember({"tags", "analysis"}));
    app.add_flag("!--no-auto-gain", options.autoGain,
                 "play songs at their own level, not brought to a common loudness");
    app.add_option("--auto-gain-target", options.autoGainTarget,
                   "the loudness (LUFS) the auto-gain brings songs to (songs are boosted by at most 6 dB)")
        ->capture_default_str()
        ->check(CLI::Range(-40.0, 0.0));
    app.add_flag("!--no-analysis", options.analyse, "do not analyse the songs --music finds new or changed");
    app.add_option("--record", options.record, "record the mix to this WAVE (.wav) or FLAC (.flac) file while playing");
    std::string language;
    app.add_option("--language", language,
                   "language of the notifications' texts, e.g. de or en (overrides VEXO_LANGUAGE, else LANG)");

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
    apps::ProgramSettings settings = apps::ProgramSettings::fromEnvironment();
    // Read through the process's texts (text::Localization::main()), as the watch reads them.
    if (!language.empty()) {
        if (!text::LocaleSettings::fromPosix(language))
            return fail("--language: '" + language + "' is no language name such as de or en_GB", kUsage);
        settings.locale.vexoLanguage = language;
    }
    if (!options.library.empty())
        settings.mediaLibrary = options.library;
    settings.install();
    if (options.verbose)
        log::setLevel(log::Level::Debug);
    options.prefer = prefer == "analysis" ? media::ValuePreference::Analysis : media::ValuePreference::Tags;

    if (list)
        return listDevices();
    if (const std::string extension = std::filesystem::path(options.record).extension().string();
        !options.record.empty() && extension != ".wav" && extension != ".flac")
        return fail("--record takes a .wav or .flac file name", kUsage);
    if (notifyCommand->parsed())
        return notify(options, loadCommand->parsed() ? "load" : "automix", turntable);
    return run(options, media::MediaLibrary::defaultPath(settings.mediaLibrary, settings.userDirectories));
}

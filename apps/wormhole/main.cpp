// wormhole: inspect and drive the message transport between the watch and the phone from a
// shell. Messages are shown and given as JSON ({"$data": base64} for data).
//
// Exit codes: 0 success, 1 failure (nothing stored, unreadable file, no container),
// 2 wrong usage.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <unistd.h>

#include "common/ProgramSettings.h"
#include "model/VXAWProtocol.h"
#include "platform/ipc/Container.h"
#include "platform/ipc/ContainerDirectory.h"
#include "platform/ipc/NotifyCenter.h"
#include "platform/log/Log.h"
#include "platform/plist/Json.h"
#include "platform/plist/KeyedUnarchiver.h"
#include "platform/runtime/AsioRunLoop.h"
#include "transport/MMWormhole.h"

namespace {

using namespace vexo;

enum ExitCode { kSuccess = 0, kFailure = 1, kUsage = 2 };

struct Options {
    std::string group{model::VXAWWormholeApplicationGroupIdentifier};
    std::string directory{model::kWormholeMessageDirectory};
    bool noDirectory = false;
    std::string root;
    bool verbose = false;
};

int fail(const std::string& message, int code = kFailure) {
    std::cerr << "wormhole: " << message << "\n";
    return code;
}

// The transport the options describe, on a loop installed as the thread's current one.
struct Session {
    explicit Session(const Options& options)
        : wormhole(options.group, options.noDirectory ? std::nullopt : std::optional(options.directory)) {}

    runtime::AsioRunLoop loop;
    runtime::RunLoop* previous = runtime::RunLoop::setCurrent(&loop);
    transport::MMWormhole wormhole;

    ~Session() { runtime::RunLoop::setCurrent(previous); }
};

std::optional<std::filesystem::path> containerFor(const Options& options) {
    return ipc::Container::pathForGroup(options.group);
}

// Checks what the transport would silently ignore, so that people get an error instead.
std::optional<int> checkTarget(const Options& options, const std::string& identifier) {
    if (!ipc::ContainerDirectory::isPlainFileName(identifier))
        return fail("identifier '" + identifier + "' must be a plain file name", kUsage);
    if (!containerFor(options))
        return fail("no container for group '" + options.group + "' (see VEXO_CONTAINER_ROOT and XDG_RUNTIME_DIR)");
    return std::nullopt;
}

std::string timestamp() {
    const auto now = std::chrono::system_clock::now();
    const auto seconds = std::chrono::system_clock::to_time_t(now);
    const auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[32];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
    std::string stamp(text, length);
    const auto milliseconds = std::to_string(millis);
    stamp += "." + std::string(3 - milliseconds.size(), '0') + milliseconds + "Z";
    return stamp;
}

int write(const Options& options, const std::string& identifier, const std::string& text) {
    if (auto error = checkTarget(options, identifier))
        return *error;
    std::string json = text;
    if (text == "-")
        json.assign(std::istreambuf_iterator<char>(std::cin), {});
    const auto document = nlohmann::json::parse(json, nullptr, false);
    if (document.is_discarded())
        return fail("not valid JSON: " + json.substr(0, 80), kUsage);
    const auto message = plist::json::fromJson(document);
    if (!message)
        return fail(message.error().message(), kUsage);

    Session session(options);
    session.wormhole.passMessageObject(*message, identifier);
    if (session.wormhole.messageWithIdentifier(identifier).isNull() && !message->isNull())
        return fail("could not store '" + identifier + "'");
    return kSuccess;
}

int read(const Options& options, const std::string& identifier) {
    if (auto error = checkTarget(options, identifier))
        return *error;
    Session session(options);
    const plist::Value message = session.wormhole.messageWithIdentifier(identifier);
    if (message.isNull())
        return fail("no message stored under '" + identifier + "'");
    std::cout << plist::json::toJson(message).dump(2) << "\n";
    return kSuccess;
}

// Set by SIGINT and SIGTERM; the loop watches its read end.
int g_stopPipe[2] = {-1, -1};

extern "C" void requestStop(int) {
    const char byte = 0;
    [[maybe_unused]] const auto written = ::write(g_stopPipe[1], &byte, 1);
}

int listen(const Options& options, const std::vector<std::string>& identifiers) {
    for (const auto& identifier : identifiers) {
        if (auto error = checkTarget(options, identifier))
            return *error;
    }
    if (::pipe2(g_stopPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return fail("cannot set up signal handling");
    std::signal(SIGINT, requestStop);
    std::signal(SIGTERM, requestStop);

    Session session(options);
    auto stopWatch = session.loop.watchReadable(g_stopPipe[0], [&] { session.loop.stop(); });
    for (const auto& identifier : identifiers) {
        session.wormhole.listenForMessageWithIdentifier(identifier, [identifier](const plist::Value& message) {
            std::cout << timestamp() << " " << identifier << " " << plist::json::toJson(message).dump() << std::endl;
        });
    }
    std::cerr << "wormhole: listening for";
    for (const auto& identifier : identifiers)
        std::cerr << " " << identifier;
    std::cerr << " (Ctrl-C to stop)" << std::endl;
    session.loop.run();
    stopWatch.reset();
    return kSuccess;
}

int clear(const Options& options, const std::optional<std::string>& identifier) {
    if (!identifier) {
        if (options.noDirectory)
            return fail("clear --all needs a message directory; it never empties the container", kUsage);
        if (!containerFor(options))
            return fail("no container for group '" + options.group + "'");
        Session(options).wormhole.clearAllMessageContents();
        return kSuccess;
    }
    if (auto error = checkTarget(options, *identifier))
        return *error;
    Session(options).wormhole.clearMessageContentsForIdentifier(*identifier);
    return kSuccess;
}

// The whole regular file at `path` (not a link), at most as large as a message file may be.
std::optional<plist::Data> readArchiveFile(const std::filesystem::path& path) {
    std::error_code error;
    const auto status = std::filesystem::symlink_status(path, error);
    if (error || !std::filesystem::is_regular_file(status))
        return std::nullopt;
    const auto size = std::filesystem::file_size(path, error);
    if (error || size > ipc::ContainerDirectory::kMaximumReadSize)
        return std::nullopt;
    std::ifstream stream(path, std::ios::binary);
    plist::Data bytes(static_cast<std::size_t>(size));
    if (!stream.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size())))
        return std::nullopt;
    return bytes;
}

int dump(const std::string& file) {
    const auto bytes = readArchiveFile(file);
    if (!bytes)
        return fail("cannot read " + file);
    const auto root = plist::KeyedUnarchiver::unarchive(*bytes);
    if (!root)
        return fail(root.error().withContext(file).message());
    std::cout << plist::json::toJson(*root).dump(2) << "\n";
    return kSuccess;
}

int post(const Options& options, const std::string& name) {
    const auto container = containerFor(options);
    if (!container)
        return fail("no container for group '" + options.group + "'");
    runtime::AsioRunLoop loop;
    const auto center = ipc::NotifyCenter::forContainer(*container, loop);
    if (!center || !center->post(name))
        return fail("could not post '" + name + "'");
    return kSuccess;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"Inspect and drive the watch's message transport: messages are JSON, with "
                 "{\"$data\": base64} for data."};
    app.set_version_flag("--version", "wormhole 0.1.0");
    app.require_subcommand(1);

    Options options;
    app.add_option("-g,--group", options.group, "application group")->capture_default_str();
    app.add_option("-d,--directory", options.directory, "message subdirectory of the container")->capture_default_str();
    app.add_flag("--no-directory", options.noDirectory, "keep messages in the container itself");
    app.add_option("--root", options.root, "container root (overrides VEXO_CONTAINER_ROOT)");
    app.add_flag("-v,--verbose", options.verbose, "log why things fail");

    std::string identifier, json, file, name;
    std::vector<std::string> identifiers;
    bool all = false;

    auto* writeCommand = app.add_subcommand("write", "store a message and notify its listeners");
    writeCommand->add_option("ID", identifier, "message identifier")->required();
    writeCommand->add_option("JSON", json, "the message as JSON, or - for standard input")->required();

    auto* readCommand = app.add_subcommand("read", "print the stored message (exit 1 if none)");
    readCommand->add_option("ID", identifier, "message identifier")->required();

    auto* listenCommand = app.add_subcommand("listen", "print messages as they arrive, until interrupted");
    listenCommand->add_option("ID", identifiers, "message identifiers")->required();

    auto* clearCommand = app.add_subcommand("clear", "delete a stored message, or all of them");
    auto* clearId = clearCommand->add_option("ID", identifier, "message identifier");
    auto* clearAll = clearCommand->add_flag("--all", all, "delete every entry of the message directory");
    clearId->excludes(clearAll);

    auto* dumpCommand = app.add_subcommand("dump", "decode any keyed-archive file and print it");
    dumpCommand->add_option("FILE", file, "keyed archive (binary or XML)")->required();

    auto* postCommand = app.add_subcommand("post", "post a cross-process notification");
    postCommand->add_option("NAME", name, "notification name")->required();

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int code = app.exit(error);
        return code == 0 ? kSuccess : kUsage;
    }
    if (clearCommand->parsed() && identifier.empty() && !all)
        return fail("clear needs an identifier or --all", kUsage);

    apps::ProgramSettings settings = apps::ProgramSettings::fromEnvironment();
    if (!options.root.empty())
        settings.container.root = options.root;
    settings.install();
    if (options.verbose)
        log::setLevel(log::Level::Debug);

    if (writeCommand->parsed())
        return write(options, identifier, json);
    if (readCommand->parsed())
        return read(options, identifier);
    if (listenCommand->parsed())
        return listen(options, identifiers);
    if (clearCommand->parsed())
        return clear(options, all ? std::nullopt : std::optional(identifier));
    if (dumpCommand->parsed())
        return dump(file);
    if (postCommand->parsed())
        return post(options, name);
    return kUsage;
}

#pragma once

#include <string_view>

// Starts a program that lives on by itself, as the phone application does once woken.
namespace vexo::ipc {

class DetachedProcess {
public:
    DetachedProcess() = delete;

    // Runs `/bin/sh -c <shellCommand>` in a new session, with this process's environment,
    // standard output and error, standard input from /dev/null, default signal handling and
    // no other descriptor of ours. The shell is a grandchild, adopted by init at once, so it
    // is never waited for and never left a zombie; only the short-lived middle process is
    // reaped here, right after it forks. True when the shell was started (the command itself
    // may still fail, which the shell reports on standard error). Thread-safe.
    [[nodiscard]] static bool start(std::string_view shellCommand);
};

} // namespace vexo::ipc

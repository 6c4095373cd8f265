#include "platform/ipc/DetachedProcess.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/ipc/UniqueFd.h"
#include "platform/log/Log.h"

namespace vexo::ipc {

bool DetachedProcess::start(std::string_view shellCommand) {
    // Everything the children need is made before fork: between fork and exec a child of a
    // threaded process may only make async-signal-safe calls.
    std::string command(shellCommand);
    char shell[] = "/bin/sh";
    char flag[] = "-c";
    char* const arguments[] = {shell, flag, command.data(), nullptr};
    const UniqueFd input(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    sigset_t unblocked;
    sigemptyset(&unblocked);

    const pid_t middle = ::fork();
    if (middle < 0) {
        log::debug("phone", std::string("cannot start the phone application: ") + std::strerror(errno));
        return false;
    }
    if (middle == 0) {
        const pid_t grandchild = ::fork();
        if (grandchild != 0)
            ::_exit(grandchild < 0 ? 1 : 0);
        ::setsid();
        if (input.isValid())
            ::dup2(input.get(), STDIN_FILENO);
        // Signals we block or ignore (a broken pipe, say) are ours, not the phone's.
        ::pthread_sigmask(SIG_SETMASK, &unblocked, nullptr);
        ::signal(SIGPIPE, SIG_DFL);
        ::signal(SIGCHLD, SIG_DFL);
        ::close_range(3, ~0U, 0);
        ::execv(shell, arguments);
        ::_exit(127);
    }
    int status = 0;
    while (::waitpid(middle, &status, 0) < 0 && errno == EINTR) {
    }
    // ECHILD: SIGCHLD is ignored here and the middle process was reaped by the kernel.
    if (WIFEXITED(status) && WEXITSTATUS(status) != 0) {
        log::debug("phone", "cannot start the phone application: fork failed");
        return false;
    }
    return true;
}

} // namespace vexo::ipc

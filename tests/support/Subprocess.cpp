#include "support/Subprocess.h"

#include <cerrno>
#include <chrono>
#include <csignal>

#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace vexo::testing {
namespace {

bool readAvailable(int& fd, std::string& into) {
    if (fd < 0)
        return false;
    char buffer[4096];
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got > 0) {
        into.append(buffer, static_cast<std::size_t>(got));
        return true;
    }
    if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
        ::close(fd);
        fd = -1;
    }
    return false;
}

int exitCodeOf(int status) {
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status);
    return -1;
}

} // namespace

Subprocess::Subprocess(const std::vector<std::string>& arguments) {
    int out[2], err[2];
    if (::pipe(out) != 0 || ::pipe(err) != 0)
        return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    posix_spawn_file_actions_addclose(&actions, err[0]);
    std::vector<char*> argv;
    for (const auto& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    if (posix_spawn(&m_pid, argv[0], &actions, nullptr, argv.data(), environ) != 0)
        m_pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    ::close(err[1]);
    m_stdout = out[0];
    m_stderr = err[0];
}

Subprocess::~Subprocess() {
    if (m_pid > 0 && !m_exitCode)
        stop(SIGKILL);
    if (m_stdout >= 0)
        ::close(m_stdout);
    if (m_stderr >= 0)
        ::close(m_stderr);
}

void Subprocess::drain(bool block) {
    while (m_stdout >= 0 || m_stderr >= 0) {
        pollfd fds[2] = {{m_stdout, POLLIN, 0}, {m_stderr, POLLIN, 0}};
        if (::poll(fds, 2, block ? 5000 : 0) <= 0)
            return;
        if (fds[0].revents)
            readAvailable(m_stdout, m_output);
        if (fds[1].revents)
            readAvailable(m_stderr, m_errors);
    }
}

std::optional<std::string> Subprocess::readLine(double timeoutSeconds) {
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(static_cast<int>(timeoutSeconds * 1000));
    while (true) {
        const auto newline = m_output.find('\n', m_consumed);
        if (newline != std::string::npos) {
            std::string line = m_output.substr(m_consumed, newline - m_consumed);
            m_consumed = newline + 1;
            return line;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || m_stdout < 0)
            return std::nullopt;
        pollfd fds[2] = {{m_stdout, POLLIN, 0}, {m_stderr, POLLIN, 0}};
        if (::poll(fds, 2, static_cast<int>(left.count())) > 0) {
            if (fds[0].revents)
                readAvailable(m_stdout, m_output);
            if (fds[1].revents)
                readAvailable(m_stderr, m_errors);
        }
    }
}

int Subprocess::stop(int signal) {
    if (m_pid > 0 && !m_exitCode)
        ::kill(m_pid, signal);
    return wait();
}

int Subprocess::wait() {
    if (m_exitCode)
        return *m_exitCode;
    if (m_pid <= 0)
        return -1;
    // Reads while the child runs, however long it stays silent, so that nothing it prints is
    // lost; a child that closed its pipes early is then simply waited for.
    int status = 0;
    while (true) {
        drain(true);
        const bool pipesOpen = m_stdout >= 0 || m_stderr >= 0;
        const pid_t done = ::waitpid(m_pid, &status, pipesOpen ? WNOHANG : 0);
        if (done == m_pid || (done < 0 && errno != EINTR))
            break;
    }
    drain(false);
    m_exitCode = exitCodeOf(status);
    return *m_exitCode;
}

Subprocess::Result Subprocess::run(const std::vector<std::string>& arguments) {
    Subprocess process(arguments);
    const int code = process.wait();
    return {code, process.output(), process.errors()};
}

} // namespace vexo::testing

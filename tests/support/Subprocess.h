#pragma once

#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace vexo::testing {

// A program of ours run as a child process with its standard output and error captured,
// for tests that drive the programs as a person would.
class Subprocess {
public:
    // Starts `arguments[0]` with the given arguments; the environment is the test's own.
    explicit Subprocess(const std::vector<std::string>& arguments);
    // Kills the child if it still runs and reaps it.
    ~Subprocess();
    Subprocess(const Subprocess&) = delete;
    Subprocess& operator=(const Subprocess&) = delete;

    // The next line of standard output (without its newline), or nothing when none arrives
    // within `timeoutSeconds` or the output ended.
    std::optional<std::string> readLine(double timeoutSeconds);

    // Sends `signal` and waits for the exit; returns the exit code (128 + signal if killed).
    int stop(int signal);

    // Waits for the exit and returns the exit code, with all remaining output collected.
    int wait();

    const std::string& output() const { return m_output; }
    const std::string& errors() const { return m_errors; }

    // Runs to completion; the exit code, output and errors.
    struct Result {
        int exitCode;
        std::string output;
        std::string errors;
    };
    static Result run(const std::vector<std::string>& arguments);

private:
    void drain(bool block);

    pid_t m_pid = -1;
    int m_stdout = -1;
    int m_stderr = -1;
    std::string m_output;
    std::string m_errors;
    std::size_t m_consumed = 0;
    std::optional<int> m_exitCode;
};

} // namespace vexo::testing

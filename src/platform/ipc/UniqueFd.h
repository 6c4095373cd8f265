#pragma once

#include <utility>

namespace vexo::ipc {

// Owns one POSIX file descriptor and closes it when destroyed. -1 means none.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd)
        : m_fd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept
        : m_fd(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { reset(); }

    [[nodiscard]] int get() const { return m_fd; }
    [[nodiscard]] bool isValid() const { return m_fd >= 0; }

    // Gives up ownership; the caller closes the returned descriptor.
    [[nodiscard]] int release() { return std::exchange(m_fd, -1); }

    // Closes the descriptor held, if any, and takes `fd`.
    void reset(int fd = -1);

private:
    int m_fd = -1;
};

} // namespace vexo::ipc

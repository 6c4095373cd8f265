#pragma once

// A file descriptor being watched for readability by a run loop (RunLoop::watchReadable).
//
// Destroying the handle stops the watch at once: its callback is not called afterwards,
// even when readiness was already seen. The descriptor itself is not closed.
namespace vexo::runtime {

class FdWatch {
public:
    FdWatch(const FdWatch&) = delete;
    FdWatch& operator=(const FdWatch&) = delete;
    FdWatch(FdWatch&&) = delete;
    FdWatch& operator=(FdWatch&&) = delete;

    // Stops watching. Loop thread only; REQUIRES: the loop that made the handle still exists.
    virtual ~FdWatch() = default;

protected:
    FdWatch() = default;
};

} // namespace vexo::runtime

#include "platform/runtime/AsioRunLoop.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <poll.h>

#include "platform/log/Log.h"

namespace vexo::runtime {
namespace {

constexpr std::string_view kLogComponent = "runloop";

using Clock = std::chrono::steady_clock;

// Seconds as a clock duration, clamped to [0, about 30 years] so that it cannot overflow.
Clock::duration clockDuration(double seconds) {
    if (!(seconds > 0))
        return Clock::duration::zero();
    if (seconds > 1e9)
        seconds = 1e9;
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

enum class Readiness { Readable, NotReadable, Closed };

Readiness readinessOf(int fd) {
    pollfd entry{fd, POLLIN, 0};
    int result;
    do {
        result = ::poll(&entry, 1, 0);
    } while (result < 0 && errno == EINTR);
    if (result <= 0)
        return Readiness::NotReadable;
    if (entry.revents & POLLNVAL)
        return Readiness::Closed;
    return Readiness::Readable;
}

} // namespace

struct AsioRunLoop::WakeUp {
    explicit WakeUp(asio::io_context& context)
        : timer(context) {}

    asio::steady_timer timer;
    std::optional<double> armedFor;
    // Tells a wait that completed just before it was re-armed from one that is current.
    std::uint64_t generation = 0;
};

// Asio registers descriptors edge-triggered; whether data that arrived while no wait was
// pending is reported to the next wait depends on how Asio re-arms it. So as not to rely on
// that for the level-triggered contract of watchReadable, every (re)arm first polls the
// descriptor and, when it is readable already, delivers through the queue instead of waiting.
class AsioRunLoop::Watch final : public FdWatch {
public:
    struct State {
        State(asio::io_context& context, int fd, std::function<void()> callback)
            : descriptor(context, fd),
              fd(fd),
              callback(std::move(callback)) {}

        asio::posix::stream_descriptor descriptor;
        int fd;
        std::function<void()> callback;
        bool cancelled = false;
    };

    explicit Watch(std::shared_ptr<State> state)
        : m_state(std::move(state)) {
        arm(m_state);
    }

    ~Watch() override {
        // A callback may be running (and destroying us); the pending handlers keep the state
        // alive and see `cancelled`. The descriptor belongs to the caller: release, not close.
        m_state->cancelled = true;
        std::error_code ignored;
        m_state->descriptor.cancel(ignored);
        (void)m_state->descriptor.release();
    }

private:
    static void arm(const std::shared_ptr<State>& state) {
        switch (readinessOf(state->fd)) {
        case Readiness::Readable:
            asio::post(state->descriptor.get_executor(), [state] { deliver(state); });
            return;
        case Readiness::Closed:
            log::warning(kLogComponent, "a watched descriptor was closed; watching stops");
            return;
        case Readiness::NotReadable:
            state->descriptor.async_wait(asio::posix::descriptor_base::wait_read,
                                         [state](const std::error_code& error) {
                                             if (!error)
                                                 deliver(state);
                                         });
            return;
        }
    }

    static void deliver(const std::shared_ptr<State>& state) {
        if (state->cancelled)
            return;
        state->callback();
        if (!state->cancelled)
            arm(state);
    }

    std::shared_ptr<State> m_state;
};

AsioRunLoop::AsioRunLoop()
    : m_epoch(Clock::now()),
      m_context(std::make_unique<asio::io_context>(1)),
      m_wakeUp(std::make_unique<WakeUp>(*m_context)) {}

AsioRunLoop::~AsioRunLoop() {
    // The wake-up timer refers to the context, so it goes first.
    m_wakeUp.reset();
    m_context.reset();
}

void AsioRunLoop::post(std::function<void()> work) {
    asio::post(*m_context, std::move(work));
}

double AsioRunLoop::now() const {
    return std::chrono::duration<double>(Clock::now() - m_epoch).count();
}

std::unique_ptr<FdWatch> AsioRunLoop::watchReadable(int fd, std::function<void()> callback) {
    if (!callback)
        return nullptr;
    try {
        auto state = std::make_shared<Watch::State>(*m_context, fd, std::move(callback));
        return std::make_unique<Watch>(std::move(state));
    } catch (const std::system_error& error) {
        log::debug(kLogComponent, "cannot watch descriptor " + std::to_string(fd) + ": " + error.what());
        return nullptr;
    }
}

void AsioRunLoop::run() {
    const CurrentScope scope(this);
    if (m_context->stopped())
        m_context->restart();
    const auto work = asio::make_work_guard(*m_context);
    m_context->run();
}

void AsioRunLoop::stop() {
    m_context->stop();
}

bool AsioRunLoop::runUntil(const std::function<bool()>& predicate, double timeout) {
    const CurrentScope scope(this);
    if (m_context->stopped())
        m_context->restart();
    const auto work = asio::make_work_guard(*m_context);
    const Clock::time_point deadline = Clock::now() + clockDuration(timeout);
    while (!predicate()) {
        if (m_context->stopped() || Clock::now() >= deadline)
            return false;
        m_context->run_one_until(deadline);
    }
    return true;
}

void AsioRunLoop::timersChanged() {
    const std::optional<double> next = nextTimerDate();
    if (next == m_wakeUp->armedFor)
        return;
    m_wakeUp->armedFor = next;
    const std::uint64_t generation = ++m_wakeUp->generation;
    if (!next) {
        m_wakeUp->timer.cancel();
        return;
    }
    m_wakeUp->timer.expires_at(m_epoch + clockDuration(*next));
    m_wakeUp->timer.async_wait([this, generation](const std::error_code& error) {
        if (error || generation != m_wakeUp->generation)
            return;
        m_wakeUp->armedFor.reset();
        fireDueTimers();
    });
}

} // namespace vexo::runtime

#include "platform/runtime/DeterministicRunLoop.h"

#include <algorithm>
#include <cerrno>

#include <poll.h>

#include "platform/log/Log.h"

namespace vexo::runtime {
namespace {

constexpr std::string_view kLogComponent = "runloop";

// Far more rounds than any test needs; only work that keeps re-posting itself, or a
// descriptor whose callback never drains it, gets here.
constexpr std::size_t kMaximumRounds = 100000;

double nonNegative(double seconds) {
    return seconds > 0 ? seconds : 0; // also maps NaN to 0
}

} // namespace

class DeterministicRunLoop::Watch final : public FdWatch {
public:
    Watch(DeterministicRunLoop& loop, std::shared_ptr<WatchState> state)
        : m_loop(loop),
          m_state(std::move(state)) {}

    ~Watch() override {
        m_state->cancelled = true;
        m_loop.forgetWatch(m_state.get());
    }

private:
    DeterministicRunLoop& m_loop;
    std::shared_ptr<WatchState> m_state;
};

DeterministicRunLoop::~DeterministicRunLoop() {
    if (!m_watches.empty())
        log::warning(kLogComponent, "a deterministic loop was destroyed with descriptors still watched");
}

void DeterministicRunLoop::post(std::function<void()> work) {
    const std::lock_guard lock(m_queueMutex);
    m_queue.push_back(std::move(work));
}

std::unique_ptr<FdWatch> DeterministicRunLoop::watchReadable(int fd, std::function<void()> callback) {
    if (fd < 0 || !callback)
        return nullptr;
    auto state = std::make_shared<WatchState>(WatchState{fd, std::move(callback)});
    m_watches.push_back(state);
    return std::make_unique<Watch>(*this, std::move(state));
}

void DeterministicRunLoop::forgetWatch(const WatchState* state) {
    std::erase_if(m_watches, [state](const auto& watch) { return watch.get() == state; });
}

std::size_t DeterministicRunLoop::runOnce() {
    std::size_t count = 0;

    // Work posted by this batch runs in the next pass, so one pass always ends.
    std::size_t batch;
    {
        const std::lock_guard lock(m_queueMutex);
        batch = m_queue.size();
    }
    for (; batch > 0; --batch) {
        std::function<void()> work;
        {
            const std::lock_guard lock(m_queueMutex);
            work = std::move(m_queue.front());
            m_queue.pop_front();
        }
        if (work)
            work();
        ++count;
    }

    count += fireDueTimers();

    if (!m_watches.empty()) {
        // Callbacks may add or remove watches; this pass polls the ones that existed before it.
        const std::vector<std::shared_ptr<WatchState>> watches = m_watches;
        std::vector<pollfd> entries;
        entries.reserve(watches.size());
        for (const auto& watch : watches)
            entries.push_back(pollfd{watch->fd, POLLIN, 0});
        int ready;
        do {
            ready = ::poll(entries.data(), entries.size(), 0);
        } while (ready < 0 && errno == EINTR);
        for (std::size_t i = 0; ready > 0 && i < watches.size(); ++i) {
            if (entries[i].revents == 0 || (entries[i].revents & POLLNVAL) || watches[i]->cancelled)
                continue;
            watches[i]->callback();
            ++count;
        }
    }
    return count;
}

std::size_t DeterministicRunLoop::runUntilIdle() {
    const CurrentScope scope(this);
    std::size_t total = 0;
    for (std::size_t round = 0; round < kMaximumRounds; ++round) {
        const std::size_t count = runOnce();
        total += count;
        if (count == 0)
            return total;
    }
    log::warning(kLogComponent, "the deterministic loop did not become idle; giving up");
    return total;
}

void DeterministicRunLoop::advance(double seconds) {
    const CurrentScope scope(this);
    const double target = m_now + nonNegative(seconds);
    runUntilIdle();
    for (auto next = nextTimerDate(); next && *next <= target; next = nextTimerDate()) {
        m_now = std::max(m_now, *next);
        runUntilIdle();
    }
    m_now = std::max(m_now, target);
    runUntilIdle();
}

void DeterministicRunLoop::stall(double seconds) {
    m_now += nonNegative(seconds);
}

void DeterministicRunLoop::run() {
    const CurrentScope scope(this);
    m_stopRequested = false;
    for (;;) {
        runUntilIdle();
        if (m_stopRequested)
            break;
        const auto next = nextTimerDate();
        if (!next)
            break;
        m_now = std::max(m_now, *next);
    }
    m_stopRequested = false;
}

void DeterministicRunLoop::stop() {
    m_stopRequested = true;
}

bool DeterministicRunLoop::runUntil(const std::function<bool()>& predicate, double timeout) {
    const CurrentScope scope(this);
    m_stopRequested = false;
    const double target = m_now + nonNegative(timeout);
    runUntilIdle();
    while (!predicate()) {
        if (m_stopRequested) {
            m_stopRequested = false;
            return false;
        }
        const auto next = nextTimerDate();
        if (!next || *next > target) {
            m_now = std::max(m_now, target);
            runUntilIdle();
            return predicate();
        }
        m_now = std::max(m_now, *next);
        runUntilIdle();
    }
    return true;
}

} // namespace vexo::runtime

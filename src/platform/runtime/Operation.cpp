#include "platform/runtime/Operation.h"

#include <exception>
#include <string>

#include "platform/log/Log.h"
#include "platform/runtime/OperationQueueState.h"

namespace vexo::runtime {

Operation::~Operation() = default;

void Operation::cancel() {
    if (m_cancelled.exchange(true))
        return;
    // Taking the operation out of its queue below may drop the queue's reference to it.
    const std::shared_ptr<Operation> self = weak_from_this().lock();
    std::shared_ptr<detail::OperationQueueState> queue;
    {
        const std::lock_guard lock(m_mutex);
        if (m_state != State::Queued)
            return;
        m_state = State::Finished;
        queue = m_queue.lock();
    }
    releaseBody();
    m_finished.notify_all();
    if (queue)
        queue->forget(this);
}

bool Operation::isExecuting() const {
    const std::lock_guard lock(m_mutex);
    return m_state == State::Executing;
}

bool Operation::isFinished() const {
    const std::lock_guard lock(m_mutex);
    return m_state == State::Finished;
}

void Operation::waitUntilFinished() const {
    std::unique_lock lock(m_mutex);
    m_finished.wait(lock, [this] { return m_state == State::Finished; });
}

bool Operation::enqueue(const std::shared_ptr<detail::OperationQueueState>& queue) {
    const std::lock_guard lock(m_mutex);
    if (m_state != State::Ready)
        return false;
    m_state = State::Queued;
    m_queue = queue;
    return true;
}

bool Operation::beginExecuting() {
    const std::lock_guard lock(m_mutex);
    if (m_state != State::Queued)
        return false;
    m_state = State::Executing;
    return true;
}

void Operation::execute() {
    // A body that throws would end the process from a worker thread; the host platform does
    // the same, but a failed background load is not worth losing the watch face for.
    try {
        main();
    } catch (const std::exception& exception) {
        log::warning("operation", std::string("an operation ended with an exception: ") + exception.what());
    } catch (...) {
        log::warning("operation", "an operation ended with an exception");
    }
    // Released before the operation counts as finished, so that a waiter never sees captured
    // state still alive.
    releaseBody();
    finish();
}

bool Operation::finish() {
    {
        const std::lock_guard lock(m_mutex);
        if (m_state == State::Finished)
            return false;
        m_state = State::Finished;
    }
    m_finished.notify_all();
    return true;
}

} // namespace vexo::runtime

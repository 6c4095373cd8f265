#include "platform/runtime/OperationQueue.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "platform/log/Log.h"
#include "platform/runtime/OperationQueueState.h"

namespace vexo::runtime {
namespace detail {

void OperationQueueState::work(const std::shared_ptr<OperationQueueState>& state) {
    std::unique_lock lock(state->mutex);
    // A new worker is counted idle by the one that started it.
    for (;;) {
        state->workAvailable.wait(lock, [&] {
            return state->stopping ||
                   (!state->suspended && !state->waiting.empty() && state->executing.size() < state->limit());
        });
        if (state->stopping)
            return;
        std::shared_ptr<Operation> operation = std::move(state->waiting.front());
        state->waiting.pop_front();
        if (!operation->beginExecuting()) {
            // Cancelled between leaving the queue and starting: finished already.
            state->operationFinished.notify_all();
            continue;
        }
        --state->idleWorkers;
        state->executing.push_back(operation);
        lock.unlock();

        operation->execute();

        lock.lock();
        std::erase(state->executing, operation);
        ++state->idleWorkers;
        // The queue may hold the last reference; the operation's destructor is not run under
        // the lock.
        lock.unlock();
        operation.reset();
        lock.lock();
        state->operationFinished.notify_all();
        // Another operation may have been held back by the concurrency limit.
        state->workAvailable.notify_one();
    }
}

void OperationQueueState::forget(const Operation* operation) {
    // Destroyed after the lock is released: it may be the last reference to the operation.
    std::shared_ptr<Operation> removed;
    {
        const std::lock_guard lock(mutex);
        const auto it = std::find_if(waiting.begin(), waiting.end(), [operation](const auto& waitingOperation) {
            return waitingOperation.get() == operation;
        });
        if (it != waiting.end()) {
            removed = std::move(*it);
            waiting.erase(it);
        }
    }
    operationFinished.notify_all();
}

void OperationQueueState::startWorkers(const std::shared_ptr<OperationQueueState>& self) {
    while (!stopping && !suspended && waiting.size() > idleWorkers && threads.size() < limit()) {
        try {
            threads.emplace_back([self] { work(self); });
        } catch (const std::system_error& error) {
            // The operations wait for the threads there are; with none, they wait until a
            // later call manages to start one.
            log::error("operation", std::string("cannot start a worker thread: ") + error.what());
            return;
        }
        ++idleWorkers;
    }
}

std::size_t OperationQueueState::limit() const {
    if (maxConcurrentOperationCount >= 1)
        return static_cast<std::size_t>(maxConcurrentOperationCount);
    const unsigned cores = std::thread::hardware_concurrency();
    return std::clamp<std::size_t>(cores, 2, 4);
}

} // namespace detail

OperationQueue::OperationQueue()
    : m_state(std::make_shared<detail::OperationQueueState>()) {}

OperationQueue::~OperationQueue() {
    std::vector<std::shared_ptr<Operation>> operations;
    std::vector<std::thread> threads;
    {
        const std::lock_guard lock(m_state->mutex);
        m_state->stopping = true;
        operations.assign(std::make_move_iterator(m_state->waiting.begin()),
                          std::make_move_iterator(m_state->waiting.end()));
        m_state->waiting.clear();
        operations.insert(operations.end(), m_state->executing.begin(), m_state->executing.end());
        threads = std::move(m_state->threads);
    }
    m_state->workAvailable.notify_all();
    for (const auto& operation : operations)
        operation->cancel();
    operations.clear();
    for (auto& thread : threads) {
        // The last owner may let go of the queue inside one of its own operations; that
        // worker cannot wait for itself, and ends by itself once the operation returns.
        if (thread.get_id() == std::this_thread::get_id())
            thread.detach();
        else
            thread.join();
    }
    m_state->operationFinished.notify_all();
}

void OperationQueue::addOperation(std::shared_ptr<Operation> operation) {
    if (!operation)
        throw std::invalid_argument("OperationQueue::addOperation: no operation");
    bool finishedAtOnce = false;
    {
        const std::lock_guard lock(m_state->mutex);
        if (!operation->enqueue(m_state))
            throw std::logic_error("OperationQueue::addOperation: the operation was added to a queue before");
        // A queue being destroyed takes nothing new: it would never run.
        if (m_state->stopping)
            operation->m_cancelled = true;
        if (operation->isCancelled()) {
            finishedAtOnce = operation->finish();
        } else {
            m_state->waiting.push_back(operation);
            m_state->startWorkers(m_state);
        }
    }
    if (finishedAtOnce)
        operation->releaseBody();
    else
        m_state->workAvailable.notify_one();
}

void OperationQueue::addOperationWithBlock(std::function<void()> block) {
    addOperation(BlockOperation::blockOperationWithBlock(std::move(block)));
}

void OperationQueue::setSuspended(bool suspended) {
    {
        const std::lock_guard lock(m_state->mutex);
        m_state->suspended = suspended;
        m_state->startWorkers(m_state);
    }
    m_state->workAvailable.notify_all();
}

bool OperationQueue::isSuspended() const {
    const std::lock_guard lock(m_state->mutex);
    return m_state->suspended;
}

void OperationQueue::setMaxConcurrentOperationCount(int count) {
    {
        const std::lock_guard lock(m_state->mutex);
        m_state->maxConcurrentOperationCount = count >= 1 ? count : kDefaultMaxConcurrentOperationCount;
        m_state->startWorkers(m_state);
    }
    m_state->workAvailable.notify_all();
}

int OperationQueue::maxConcurrentOperationCount() const {
    const std::lock_guard lock(m_state->mutex);
    return m_state->maxConcurrentOperationCount;
}

void OperationQueue::waitUntilAllOperationsAreFinished() {
    std::unique_lock lock(m_state->mutex);
    m_state->operationFinished.wait(lock, [this] { return m_state->waiting.empty() && m_state->executing.empty(); });
}

std::size_t OperationQueue::operationCount() const {
    const std::lock_guard lock(m_state->mutex);
    return m_state->waiting.size() + m_state->executing.size();
}

void OperationQueue::cancelAllOperations() {
    std::vector<std::shared_ptr<Operation>> operations;
    {
        const std::lock_guard lock(m_state->mutex);
        operations.assign(m_state->waiting.begin(), m_state->waiting.end());
        operations.insert(operations.end(), m_state->executing.begin(), m_state->executing.end());
    }
    for (const auto& operation : operations)
        operation->cancel();
}

} // namespace vexo::runtime

#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

// A unit of work for an OperationQueue, with cooperative cancellation (the host platform's
// operation).
//
// An operation is ready when made, executing while its body runs on a queue's worker thread,
// and finished afterwards. Cancelling only sets a flag: a body that has started runs on and
// may look at isCancelled() to stop early; an operation cancelled before it started is
// finished without running its body. Held by std::shared_ptr.
namespace vexo::runtime {

class OperationQueue;
namespace detail {
struct OperationQueueState;
}

class Operation : public std::enable_shared_from_this<Operation> {
public:
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;
    Operation(Operation&&) = delete;
    Operation& operator=(Operation&&) = delete;
    virtual ~Operation();

    // Asks the operation to stop. Before it has started (waiting in a queue) it is finished
    // at once and its body never runs; one not yet added to a queue finishes, without running,
    // when it is added. Idempotent. Thread-safe.
    void cancel();

    // Thread-safe, as are the other state readers.
    [[nodiscard]] bool isCancelled() const { return m_cancelled.load(); }
    [[nodiscard]] bool isExecuting() const;
    [[nodiscard]] bool isFinished() const;

    // Blocks the calling thread until the operation has finished. REQUIRES: the operation has
    // been added to a queue that is not suspended for ever, and the caller is not its body.
    void waitUntilFinished() const;

    // The body. Called once, by a queue's worker thread; never call it directly.
    virtual void main() = 0;

protected:
    Operation() = default;

    // Lets go of whatever the body holds (its captured state). Called once the operation has
    // finished, whether or not the body ran, so that nothing it captured outlives its use.
    virtual void releaseBody() {}

private:
    friend class OperationQueue;
    friend struct detail::OperationQueueState;

    enum class State { Ready, Queued, Executing, Finished };

    // Ready -> Queued on `queue`; false when the operation was queued or started before.
    [[nodiscard]] bool enqueue(const std::shared_ptr<detail::OperationQueueState>& queue);
    // Queued -> Executing; false when it was finished meanwhile (cancelled).
    [[nodiscard]] bool beginExecuting();
    // Runs main(), catching what it throws, then finishes. Worker thread.
    void execute();
    // Any state but Finished -> Finished; false when it was finished already.
    bool finish();

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_finished;
    State m_state = State::Ready;
    std::atomic<bool> m_cancelled = false;
    std::weak_ptr<detail::OperationQueueState> m_queue;
};

} // namespace vexo::runtime

#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "platform/runtime/BlockOperation.h"
#include "platform/runtime/Operation.h"

// A queue that runs operations on background worker threads, in the order they were added
// (the host platform's operation queue). It is the only road off the main thread: a body
// that has a result for the main loop posts it there itself with RunLoop::post.
//
// Worker threads are started as work arrives, up to maxConcurrentOperationCount(), and kept
// until the queue is destroyed. Every member is thread-safe unless stated otherwise.
namespace vexo::runtime {

namespace detail {
struct OperationQueueState;
}

class OperationQueue {
public:
    // The concurrency of a queue left at its default: a few threads, never more than four.
    static constexpr int kDefaultMaxConcurrentOperationCount = -1;

    // An empty, running queue with the default settings; starts no thread until work arrives.
    OperationQueue();

    // Cancels every operation (those not started finish without running), then waits for the
    // running ones to return and joins the worker threads. When the last owner lets go of the
    // queue from inside one of its own operations, that worker is left to end by itself.
    ~OperationQueue();

    OperationQueue(const OperationQueue&) = delete;
    OperationQueue& operator=(const OperationQueue&) = delete;
    OperationQueue(OperationQueue&&) = delete;
    OperationQueue& operator=(OperationQueue&&) = delete;

    // Queues `operation` to run after those added before it. A cancelled operation is finished
    // at once without running. Throws std::invalid_argument for a null operation and
    // std::logic_error for one that was added to a queue before, as the host platform raises.
    void addOperation(std::shared_ptr<Operation> operation);

    // Makes a block operation of `block` and queues it.
    void addOperationWithBlock(std::function<void()> block);

    // While suspended the queue starts no operation; those running carry on. Resuming starts
    // what is waiting. Tests suspend a queue to make the order of events certain.
    void setSuspended(bool suspended);
    [[nodiscard]] bool isSuspended() const;

    // The most operations that run at once; kDefaultMaxConcurrentOperationCount (or any count
    // below 1) restores the default. Lowering it never stops a running operation.
    void setMaxConcurrentOperationCount(int count);
    [[nodiscard]] int maxConcurrentOperationCount() const;

    // Blocks until every operation added so far has finished. REQUIRES: not called from one
    // of this queue's operations, and the queue is not left suspended (it would wait for ever,
    // as the host platform's queue does).
    void waitUntilAllOperationsAreFinished();

    // Operations added and not yet finished: waiting or running.
    [[nodiscard]] std::size_t operationCount() const;

    // Cancels every operation in the queue; see Operation::cancel().
    void cancelAllOperations();

private:
    std::shared_ptr<detail::OperationQueueState> m_state;
};

} // namespace vexo::runtime

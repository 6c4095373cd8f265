#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/runtime/Operation.h"

// The inside of an OperationQueue, shared with its worker threads and reached (weakly) by
// the operations it holds, so that a worker outlives the queue object when it must.
//
// Lock order: this mutex before an operation's own; an operation never takes this mutex while
// it holds its own.
namespace vexo::runtime::detail {

struct OperationQueueState {
    // The body of each worker thread: runs operations until the queue stops.
    static void work(const std::shared_ptr<OperationQueueState>& state);

    // Takes out `operation`, cancelled while it waited, and wakes those waiting for the queue
    // to empty. Any thread; not with `mutex` held.
    void forget(const Operation* operation);

    // Starts worker threads while operations wait for one. REQUIRES: `mutex` held.
    void startWorkers(const std::shared_ptr<OperationQueueState>& self);

    // The concurrency in force. REQUIRES: `mutex` held.
    [[nodiscard]] std::size_t limit() const;

    std::mutex mutex;
    // Workers wait on it for work.
    std::condition_variable workAvailable;
    // waitUntilAllOperationsAreFinished() waits on it.
    std::condition_variable operationFinished;
    std::deque<std::shared_ptr<Operation>> waiting;
    std::vector<std::shared_ptr<Operation>> executing;
    std::vector<std::thread> threads;
    // Workers not running an operation.
    std::size_t idleWorkers = 0;
    int maxConcurrentOperationCount = -1;
    bool suspended = false;
    bool stopping = false;
};

} // namespace vexo::runtime::detail

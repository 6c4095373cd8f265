#include "platform/runtime/OperationQueue.h"

#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

using vexo::runtime::BlockOperation;
using vexo::runtime::Operation;
using vexo::runtime::OperationQueue;

TEST(OperationQueueTest, RunsOperationsOffTheCallingThreadInTheOrderAdded) {
    OperationQueue queue;
    queue.setMaxConcurrentOperationCount(1);
    queue.setSuspended(true);
    std::mutex mutex;
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    std::vector<std::shared_ptr<BlockOperation>> operations;
    for (int index = 0; index < 5; ++index) {
        operations.push_back(BlockOperation::blockOperationWithBlock([&, index] {
            const std::lock_guard lock(mutex);
            order.push_back(index);
            threads.push_back(std::this_thread::get_id());
        }));
        queue.addOperation(operations.back());
    }
    EXPECT_EQ(queue.operationCount(), 5u);
    queue.setSuspended(false);
    queue.waitUntilAllOperationsAreFinished();

    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
    for (const auto& thread : threads)
        EXPECT_NE(thread, std::this_thread::get_id());
    for (const auto& operation : operations) {
        EXPECT_TRUE(operation->isFinished());
        EXPECT_FALSE(operation->isExecuting());
        EXPECT_FALSE(operation->isCancelled());
    }
    EXPECT_EQ(queue.operationCount(), 0u);
}

TEST(OperationQueueTest, AnOperationCancelledBeforeItStartsIsFinishedWithoutRunning) {
    OperationQueue queue;
    queue.setSuspended(true);
    std::atomic<int> runs = 0;
    auto body = [&runs] { ++runs; };

    // Cancelled while waiting in a suspended queue: finished at once, its block released.
    auto waiting = BlockOperation::blockOperationWithBlock(body);
    auto captured = std::make_shared<int>(0);
    waiting->addExecutionBlock([captured] {});
    const std::weak_ptr<int> capturedWeakly = captured;
    captured.reset();
    auto kept = BlockOperation::blockOperationWithBlock(body);
    queue.addOperation(waiting);
    queue.addOperation(kept);
    waiting->cancel();
    EXPECT_TRUE(waiting->isCancelled());
    EXPECT_TRUE(waiting->isFinished());
    EXPECT_TRUE(capturedWeakly.expired()) << "a cancelled operation lets go of its blocks";
    EXPECT_EQ(queue.operationCount(), 1u);

    // Cancelled before it was added: finished as it is added.
    auto early = BlockOperation::blockOperationWithBlock(body);
    early->cancel();
    EXPECT_FALSE(early->isFinished());
    queue.addOperation(early);
    EXPECT_TRUE(early->isFinished());
    EXPECT_EQ(queue.operationCount(), 1u);

    queue.setSuspended(false);
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(runs, 1) << "only the operation never cancelled ran";
    EXPECT_TRUE(kept->isFinished());
}

TEST(OperationQueueTest, ACancelDuringTheRunIsSeenByTheBody) {
    OperationQueue queue;
    std::promise<void> started;
    std::promise<void> cancelled;
    std::atomic<bool> sawCancel = false;
    auto operation = BlockOperation::blockOperation();
    operation->addExecutionBlock([&, weakOperation = std::weak_ptr(operation)] {
        const auto self = weakOperation.lock();
        const bool wasCancelled = !self || self->isCancelled();
        started.set_value();
        cancelled.get_future().wait();
        sawCancel = !wasCancelled && self->isCancelled();
    });
    queue.addOperation(operation);
    started.get_future().wait();
    EXPECT_TRUE(operation->isExecuting());
    EXPECT_THROW(operation->addExecutionBlock([] {}), std::logic_error);
    queue.cancelAllOperations();
    cancelled.set_value();
    operation->waitUntilFinished();
    EXPECT_TRUE(sawCancel);
    EXPECT_TRUE(operation->isFinished());
    EXPECT_FALSE(operation->isExecuting());
}

TEST(OperationQueueTest, MisuseThrowsAndAThrowingBodyStillFinishes) {
    OperationQueue queue;
    EXPECT_THROW(queue.addOperation(nullptr), std::invalid_argument);

    auto throwing = BlockOperation::blockOperationWithBlock([] { throw std::runtime_error("no media library"); });
    queue.addOperation(throwing);
    EXPECT_THROW(queue.addOperation(throwing), std::logic_error) << "an operation is added once";
    OperationQueue other;
    EXPECT_THROW(other.addOperation(throwing), std::logic_error) << "and to one queue";
    throwing->waitUntilFinished();
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_THROW(queue.addOperation(throwing), std::logic_error) << "a finished operation is not run again";

    std::atomic<bool> ran = false;
    queue.addOperationWithBlock([&ran] { ran = true; });
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_TRUE(ran) << "the queue carries on after a body threw";
}

TEST(OperationQueueTest, DestroyingTheQueueCancelsWhatWaitsAndWaitsForWhatRuns) {
    auto queue = std::make_unique<OperationQueue>();
    queue->setMaxConcurrentOperationCount(1);
    std::promise<void> started;
    std::promise<void> release;
    std::atomic<bool> firstDone = false;
    std::atomic<bool> secondRan = false;
    auto first = BlockOperation::blockOperationWithBlock([&] {
        started.set_value();
        release.get_future().wait();
        firstDone = true;
    });
    auto second = BlockOperation::blockOperationWithBlock([&] { secondRan = true; });
    queue->addOperation(first);
    queue->addOperation(second);
    started.get_future().wait();

    release.set_value();
    queue.reset();
    EXPECT_TRUE(firstDone) << "the running body returned before the queue was gone";
    EXPECT_TRUE(first->isFinished());
    EXPECT_TRUE(first->isCancelled());
    EXPECT_FALSE(secondRan);
    EXPECT_TRUE(second->isCancelled());
    EXPECT_TRUE(second->isFinished());
}

TEST(OperationQueueTest, AQueueReleasedByItsOwnOperationDoesNotWaitForItself) {
    auto queue = std::make_shared<OperationQueue>();
    std::promise<void> release;
    auto operation = BlockOperation::blockOperation();
    // The block holds the last reference to the queue once the test lets go of its own, so
    // the queue is destroyed on its worker when the block is released.
    operation->addExecutionBlock([queue, future = release.get_future().share()] { future.wait(); });
    queue->addOperation(operation);
    const std::weak_ptr<OperationQueue> weakQueue = queue;
    queue.reset();
    release.set_value();
    operation->waitUntilFinished();
    EXPECT_TRUE(weakQueue.expired());
}

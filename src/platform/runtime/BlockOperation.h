#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/runtime/Operation.h"

// An operation whose body is one or more blocks, run one after the other in the order they
// were added (the host platform's block operation, without its concurrency between blocks).
//
// A body that needs its own operation, to look at isCancelled(), must not hold it strongly
// (the operation owns the body). Make the operation first and add the block afterwards,
// capturing a weak pointer:
//
//     auto operation = BlockOperation::blockOperation();
//     operation->addExecutionBlock([weakOperation = std::weak_ptr(operation)] {
//         ... build something ...
//         if (const auto self = weakOperation.lock(); !self || self->isCancelled())
//             return;
//         ... hand it back ...
//     });
//     queue.addOperation(operation);
//
// The blocks are released once the operation has finished, whether or not they ran.
namespace vexo::runtime {

class BlockOperation final : public Operation {
    struct Token {};

public:
    // An operation whose body is `block` (none when `block` is empty).
    [[nodiscard]] static std::shared_ptr<BlockOperation> blockOperationWithBlock(std::function<void()> block);

    // An operation with no block yet; add them with addExecutionBlock().
    [[nodiscard]] static std::shared_ptr<BlockOperation> blockOperation();

    // Reached only through the factories above.
    explicit BlockOperation(Token) {}

    // Appends `block` to the body. Throws std::logic_error when the operation is executing or
    // finished, as the host platform raises. Thread-safe.
    void addExecutionBlock(std::function<void()> block);

    // Runs the blocks in order. Worker thread.
    void main() override;

private:
    void releaseBody() override;

    std::mutex m_blocksMutex;
    std::vector<std::function<void()>> m_blocks;
};

} // namespace vexo::runtime

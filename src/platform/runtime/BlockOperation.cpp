#include "platform/runtime/BlockOperation.h"

#include <stdexcept>
#include <utility>

namespace vexo::runtime {

std::shared_ptr<BlockOperation> BlockOperation::blockOperationWithBlock(std::function<void()> block) {
    auto operation = blockOperation();
    operation->addExecutionBlock(std::move(block));
    return operation;
}

std::shared_ptr<BlockOperation> BlockOperation::blockOperation() {
    return std::make_shared<BlockOperation>(Token{});
}

void BlockOperation::addExecutionBlock(std::function<void()> block) {
    if (isExecuting() || isFinished())
        throw std::logic_error("BlockOperation::addExecutionBlock: the operation has already started");
    if (!block)
        return;
    const std::lock_guard lock(m_blocksMutex);
    m_blocks.push_back(std::move(block));
}

void BlockOperation::main() {
    std::vector<std::function<void()>> blocks;
    {
        const std::lock_guard lock(m_blocksMutex);
        blocks.swap(m_blocks);
    }
    for (const auto& block : blocks)
        block();
}

void BlockOperation::releaseBody() {
    // Destroyed outside the lock: a captured object's destructor may reach this operation.
    std::vector<std::function<void()>> released;
    const std::lock_guard lock(m_blocksMutex);
    released.swap(m_blocks);
}

} // namespace vexo::runtime

#include <Moxel/MxlBlockUtil.h>

#include "Helpers/Logging.h"
#include "Platform/RunLoop.h"
#include "Platform/Thread.h"

#include <utility>

namespace moxel {

namespace {

void performOnCallingThread(MxlBlockUtil::Block block, double delay) {
    const Result<std::shared_ptr<RunLoop>> loop = RunLoop::current();
    const Result<void> scheduled = loop.ok()
                                       ? (*loop)->performAfterDelay(RunLoop::Seconds(delay), std::move(block))
                                       : Result<void>(loop.error());
    if (!scheduled.ok())
        logError("Error: a delayed block is lost: %@", scheduled.error().message);
}

} // namespace

void MxlBlockUtil::performBlock(Block block, double afterDelay) {
    performOnCallingThread([block = std::move(block)] { implPerformBlock(block); }, afterDelay);
}

void MxlBlockUtil::performBlock(Block block, bool onMain, double afterDelay) {
    const std::shared_ptr<Thread> target = onMain ? Thread::main() : Thread::current();
    if (target->isCurrent())
        block();
    else
        hopAfterDelay(std::move(block), target, afterDelay);
}

void MxlBlockUtil::performBlock(Block block, const std::shared_ptr<Thread> &onThread, double afterDelay) {
    if (onThread)
        hopAfterDelay(std::move(block), onThread, afterDelay);
}

void MxlBlockUtil::performBlock(Block block, const std::shared_ptr<Thread> &onThread, double,
                                bool waitUntilDone) {
    if (onThread)
        onThread->perform([block = std::move(block)] { implPerformBlock(block); },
                          waitUntilDone ? Thread::Wait::untilDone : Thread::Wait::no);
}

void MxlBlockUtil::hopAfterDelay(Block block, const std::shared_ptr<Thread> &thread, double delay) {
    performOnCallingThread([block = std::move(block), thread] { implPerformBlockThread(block, thread); },
                           delay);
}

void MxlBlockUtil::implPerformBlock(const Block &block) { block(); }

void MxlBlockUtil::implPerformBlockThread(const Block &block, const std::shared_ptr<Thread> &thread) {
    thread->perform([block] { implPerformBlock(block); });
}

} // namespace moxel

// Runs blocks of code later, on a chosen thread.
#pragma once

#include "MoxelBase.h"

#include <functional>
#include <memory>

namespace moxel {

class Thread;

/// Class operations only; any thread. A delay passes on the calling thread, whose run loop must run for it;
/// the block then runs on its target while that thread runs its run loop. A block whose thread ends first is
/// dropped. Delays are in seconds.
class MOXEL_EXPORT MxlBlockUtil {
  public:
    /// What is to be run.
    using Block = std::function<void()>;

    MxlBlockUtil() = delete;

    /// +[MxlBlockUtil performBlock:afterDelay:]
    /// On the calling thread.
    static void performBlock(Block block, double afterDelay);
    /// +[MxlBlockUtil performBlock:onMain:afterDelay:]
    /// On the main thread or the calling one; at once, inside the call and whatever the delay, when that is
    /// the same.
    static void performBlock(Block block, bool onMain, double afterDelay);
    /// +[MxlBlockUtil performBlock:onThread:afterDelay:]
    /// Never inside the call. Does nothing for a null thread.
    static void performBlock(Block block, const std::shared_ptr<Thread> &onThread, double afterDelay);
    /// +[MxlBlockUtil performBlock:onThread:afterDelay:waitUntilDone:]
    /// Without any delay, whatever `afterDelay` says. Does nothing for a null thread.
    static void performBlock(Block block, const std::shared_ptr<Thread> &onThread, double afterDelay,
                             bool waitUntilDone);

  private:
    /// +[MxlBlockUtil implPerformBlock:]
    static void implPerformBlock(const Block &block);
    /// +[MxlBlockUtil implPerformBlockThread:]
    static void implPerformBlockThread(const Block &block, const std::shared_ptr<Thread> &thread);
    static void hopAfterDelay(Block block, const std::shared_ptr<Thread> &thread, double delay);
};

} // namespace moxel

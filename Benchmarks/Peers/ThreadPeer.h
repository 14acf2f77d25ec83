// A thread of another library, to which one function is handed over again and again.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace moxel::benchmarks {

class ThreadPeer {
  public:
    virtual ~ThreadPeer() = default;
    /// Makes the thread call the function, once.
    virtual void handOver() = 0;
};

// Null where the library was not found when this was built.
std::unique_ptr<ThreadPeer> makeGLibThread(std::function<void()> function);
std::unique_ptr<ThreadPeer> makeLibuvThread(std::function<void()> function);
std::unique_ptr<ThreadPeer> makeGNUstepThread(std::function<void()> function);

} // namespace moxel::benchmarks

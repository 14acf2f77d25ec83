// Work handed to a waiting thread, until it runs there, beside what other libraries take for it.
#include "Peers/ThreadPeer.h"
#include "Platform/RunLoop.h"
#include "Platform/Thread.h"
#include "Platform/WorkItem.h"
#include "Support/Arrival.h"
#include "Support/Table.h"

#include <future>
#include <utility>

namespace moxel::benchmarks {
namespace {

constexpr size_t rounds = 31;
constexpr size_t handOversPerRound = 1'000;

/// A thread of the library's own kind. The item is used over and over, as those of state records are.
class LibraryThread final : public ThreadPeer, private WorkItem {
  public:
    explicit LibraryThread(std::function<void()> function) : function_(std::move(function)) {
        std::promise<std::shared_ptr<RunLoop>> started;
        thread_ = *Thread::start("target", [&started] {
            const std::shared_ptr<RunLoop> loop = *RunLoop::current();
            started.set_value(loop);
            loop->run();
        });
        loop_ = started.get_future().get();
    }
    ~LibraryThread() override {
        loop_->stop();
        thread_->join();
    }
    LibraryThread(const LibraryThread &) = delete;
    LibraryThread &operator=(const LibraryThread &) = delete;

    void handOver() override { thread_->post(*this); }

  private:
    void run() override { function_(); }
    void discard() noexcept override {}

    const std::function<void()> function_;
    std::shared_ptr<Thread> thread_;
    std::shared_ptr<RunLoop> loop_;
};

/// Median seconds until the function runs.
double latencyOf(ThreadPeer &thread, Arrival &arrival) {
    std::vector<double> latencies;
    for (size_t i = 0; i < handOversPerRound; ++i) {
        arrival.expect(1);
        const double begin = now();
        thread.handOver();
        latencies.push_back(arrival.await() - begin);
    }
    return median(std::move(latencies));
}

void run() {
    Arrival arrival;
    const auto mark = [&arrival] { arrival.mark(); };
    std::vector<std::unique_ptr<ThreadPeer>> threads;
    threads.push_back(std::make_unique<LibraryThread>(mark));
    std::vector<std::string> names{"the library"};
    const auto addPeer = [&](const char *name, std::unique_ptr<ThreadPeer> peer) {
        if (!peer)
            return printMissing("hand-over to a thread", name);
        threads.push_back(std::move(peer));
        names.emplace_back(name);
    };
    addPeer("GLib's g_main_context_invoke", makeGLibThread(mark));
    addPeer("libuv's uv_async_send", makeLibuvThread(mark));
    addPeer("GNUstep's performSelector:onThread:", makeGNUstepThread(mark));

    std::vector<std::function<double()>> subjects;
    for (const auto &thread : threads)
        subjects.emplace_back([&arrival, &thread] { return latencyOf(*thread, arrival); });
    const RoundsOfSubjects latencies = inRounds(rounds, subjects);
    for (size_t peer = 1; peer < threads.size(); ++peer)
        printTimes("hand-over to a waiting thread", names[peer], median(latencies[peer]),
                   median(latencies[0]), below(1));
}

} // namespace
} // namespace moxel::benchmarks

int main() { moxel::benchmarks::run(); }

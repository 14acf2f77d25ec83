// Keeps signals away from the threads that a piece of code starts.
#pragma once

#include <pthread.h>
#include <signal.h> // NOLINT(modernize-deprecated-headers): sigset_t and pthread_sigmask() are POSIX's

namespace moxel {

/// Blocks every signal for the calling thread, and so for the threads that it starts meanwhile: the
/// application's handlers run on the application's threads.
class SignalBlock {
  public:
    SignalBlock() noexcept {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalBlock() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalBlock(const SignalBlock &) = delete;
    SignalBlock &operator=(const SignalBlock &) = delete;

  private:
    sigset_t before_;
};

} // namespace moxel

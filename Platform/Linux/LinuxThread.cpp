#include "LinuxThread.h"

#include "Platform/Linux/Guard.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <pthread.h>
#include <system_error>
#include <unistd.h>

namespace moxel {

namespace {

// The object belongs to its thread through a POSIX key, not a thread_local with a destructor: a key's
// destructor runs for every thread that ends, the main thread's pthread_exit() included, but not when the
// process exits.
thread_local LinuxThread *currentThread = nullptr;

uint64_t nextIdentifier() {
    static std::atomic<uint64_t> next{1};
    return next++;
}

pthread_key_t threadKey(void (*destructor)(void *)) {
    static const pthread_key_t key = [destructor] {
        pthread_key_t made{};
        if (pthread_key_create(&made, destructor) != 0)
            throw std::system_error(EAGAIN, std::generic_category(), "Cannot make a thread key");
        return made;
    }();
    return key;
}

std::shared_ptr<LinuxThread> &mainThread() {
    static auto &thread = *new std::shared_ptr<LinuxThread>(std::make_shared<LinuxThread>("main", true));
    return thread;
}

} // namespace

LinuxThread::LinuxThread(std::string name, bool isMain)
    : identifier_(nextIdentifier()), isMain_(isMain), name_(std::move(name)) {}

// ------------------------------------------------------------------------------------------ Current thread

int LinuxThread::keepUntilThreadEnds(const Holder &holder) noexcept {
    try {
        return pthread_setspecific(threadKey(threadEnds), holder.get());
    } catch (const std::system_error &error) {
        return error.code().value();
    }
}

void LinuxThread::adopt(Holder holder) {
    if (const int error = keepUntilThreadEnds(holder); error != 0)
        throw std::system_error(error, std::generic_category(), "Cannot attach a thread object");
    currentThread = holder.release()->get(); // threadEnds() frees it.
}

/// The object of a thread made by start(), which runs its entry in any case: others wait for what the entry
/// tells. Where the system has no memory to keep the object until the thread ends, it is kept here.
class LinuxThread::Attachment {
  public:
    explicit Attachment(Holder holder) noexcept : holder_(std::move(holder)) {
        currentThread = holder_->get();
        if (keepUntilThreadEnds(holder_) == 0)
            (void)holder_.release(); // threadEnds() frees it.
    }
    ~Attachment() {
        if (holder_)
            threadEnds(holder_.release());
    }
    Attachment(const Attachment &) = delete;
    Attachment &operator=(const Attachment &) = delete;

  private:
    Holder holder_;
};

std::shared_ptr<LinuxThread> LinuxThread::currentLinuxThread() {
    if (!currentThread) {
        const bool isMain = ::getpid() == ::gettid();
        adopt(std::make_unique<std::shared_ptr<LinuxThread>>(
            isMain ? mainThread() : std::make_shared<LinuxThread>("", false)));
    }
    return std::static_pointer_cast<LinuxThread>(currentThread->shared_from_this());
}

void LinuxThread::threadEnds(void *holder) noexcept {
    const std::unique_ptr<std::shared_ptr<LinuxThread>> owned(
        static_cast<std::shared_ptr<LinuxThread> *>(holder));
    (*owned)->end();
}

void LinuxThread::end() noexcept {
    currentThread = this; // Subscribers may ask for the current thread.
    guarded("a thread-exit notification", [this] {
        NotificationCenter::defaultCenter().post({threadWillExitNotification, this});
    });
    queue_->close();
    if (runLoop_)
        runLoop_->detach();
    runLoop_.reset();
    currentThread = nullptr;
}

// ------------------------------------------------------------------------------------------ The object

Result<std::shared_ptr<RunLoop>> LinuxThread::runLoop() {
    if (!runLoop_) {
        Result<std::shared_ptr<LinuxRunLoop>> made = LinuxRunLoop::create(queue_);
        if (!made.ok())
            return made.error();
        runLoop_ = *made;
    }
    return std::shared_ptr<RunLoop>(runLoop_);
}

void LinuxThread::join() { thread_.join(); }

void LinuxThread::detach() noexcept {
    if (thread_.joinable())
        thread_.detach();
}

std::string LinuxThread::name() const {
    const std::lock_guard lock(nameMutex_);
    return name_;
}

void LinuxThread::setName(const std::string &name) {
    {
        const std::lock_guard lock(nameMutex_);
        name_ = name;
    }
    if (currentThread == this)
        nameSystemThread();
}

void LinuxThread::nameSystemThread() const noexcept {
    std::array<char, 16> systemName{}; // The kernel keeps no longer ones.
    {
        const std::lock_guard lock(nameMutex_);
        name_.copy(systemName.data(), systemName.size() - 1);
    }
    pthread_setname_np(pthread_self(), systemName.data());
}

// ------------------------------------------------------------------------------------------ The service

std::shared_ptr<Thread> Thread::current() { return LinuxThread::currentLinuxThread(); }

std::shared_ptr<Thread> Thread::main() { return mainThread(); }

Result<std::shared_ptr<Thread>> Thread::start(std::string name, Work entry) {
    auto thread = std::make_shared<LinuxThread>(std::move(name), false);
    // Made here, so that a thread that has started runs its entry even when there is no memory left.
    auto holder = std::make_unique<std::shared_ptr<LinuxThread>>(thread);
    // The new thread may run and end before the assignment below has finished; nobody joins it before start()
    // returns.
    try {
        thread->thread_ = std::thread([holder = std::move(holder), entry = std::move(entry)]() mutable {
            guarded("a thread", [&] {
                const LinuxThread::Attachment attachment(std::move(holder));
                currentThread->nameSystemThread();
                Work work = std::move(entry);
                work();
            });
        });
    } catch (const std::system_error &error) {
        return systemError("Cannot start a thread", error.code().value());
    }
    return std::shared_ptr<Thread>(thread);
}

Result<std::shared_ptr<RunLoop>> RunLoop::current() { return LinuxThread::currentLinuxThread()->runLoop(); }

} // namespace moxel

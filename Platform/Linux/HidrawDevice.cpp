#include "Platform/Linux/HidrawDevice.h"

#include "Platform/Linux/CloseAside.h"
#include "Platform/Linux/Shortage.h"
#include "Platform/Log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/hidraw.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace moxel {

namespace {

constexpr std::chrono::seconds requestLimit{1};
/// Reports that one wake-up delivers at most, so that a flood leaves the loop to others as well. The kernel
/// keeps as many for each reader.
constexpr int reportsPerWakeUp = 64;
/// The kernel's limit, the identifier included.
constexpr size_t reportLimit = 4096;

BlockingCalls::Clock::time_point deadline() { return BlockingCalls::Clock::now() + requestLimit; }

/// The kernel may keep whoever closes the descriptor waiting.
void dispose(Descriptor *descriptor) noexcept {
    const std::unique_ptr<Descriptor> owner(descriptor);
    closeAside(std::move(*owner));
}

bool hangsUp(const Descriptor &descriptor) {
    pollfd state{descriptor.get(), 0, 0};
    return ::poll(&state, 1, 0) > 0 && (state.revents & (POLLHUP | POLLERR)) != 0;
}

/// The ioctl() request for `size` bytes, the identifier included.
unsigned long setRequest(HIDReportType type, size_t size) {
    switch (type) {
    case HIDReportType::input:
        return HIDIOCSINPUT(size);
    case HIDReportType::output:
        return HIDIOCSOUTPUT(size);
    default:
        return HIDIOCSFEATURE(size);
    }
}

unsigned long getRequest(HIDReportType type, size_t size) {
    switch (type) {
    case HIDReportType::input:
        return HIDIOCGINPUT(size);
    case HIDReportType::output:
        return HIDIOCGOUTPUT(size);
    default:
        return HIDIOCGFEATURE(size);
    }
}

} // namespace

struct HidrawDevice::Exchange {
    unsigned long request = 0;
    std::vector<uint8_t> bytes; ///< The identifier first.
    Handle handle;
    int result = -1;
    int error = 0;
};

HidrawDevice::HidrawDevice(std::shared_ptr<const HidrawEntry> entry, std::shared_ptr<HIDDeviceHost> host)
    : entry_(std::move(entry)), host_(std::move(host)) {}

HidrawDevice::Handle HidrawDevice::currentHandle() {
    const std::lock_guard lock(inputMutex_);
    return handle_;
}

// ------------------------------------------------------------------------------------------ Identity

std::optional<HIDProperty> HidrawDevice::property(std::string_view key) const {
    return entry_->property(key);
}

std::optional<std::string> HidrawDevice::registryEntryName() const { return entry_->node().properties.name; }

std::string HidrawDevice::description() const { return entry_->node().properties.descriptionOf(*this); }

// ------------------------------------------------------------------------------------------ Open and close

HIDStatus HidrawDevice::open() {
    const std::lock_guard one(openMutex_);
    if (hasLeft())
        return HIDStatus::noDevice;
    if (currentHandle())
        return HIDStatus::success;
    Handle handle;
    if (const HIDStatus status = openNode(handle); status != HIDStatus::success)
        return status;
    {
        const std::lock_guard lock(inputMutex_);
        if (left_)
            return HIDStatus::noDevice;
        handle_ = handle;
    }
    if (!host_->thread().isCurrent()) {
        host_->thread().perform([self = shared_from_this(), handle] {
            if (!self->watch(handle))
                self->inputFailed(handle);
        });
        return HIDStatus::success;
    }
    if (watch(handle))
        return HIDStatus::success;
    const std::lock_guard lock(inputMutex_);
    handle_.reset();
    return HIDStatus::error;
}

HIDStatus HidrawDevice::openNode(Handle &handle) {
    Descriptor descriptor;
    const int error = openAside(descriptor);
    if (error != 0) {
        openingHasFailed(error);
        if (error != ENOENT && error != ENODEV && error != ENXIO)
            entry_->complainOf(error);
        return statusOf(error, nullptr);
    }
    handle.reset(new Descriptor(std::move(descriptor)), dispose);
    // The node may stand for another device by now. If not, it did not do so when it was opened, either.
    struct stat status {};
    if (::fstat(handle->get(), &status) != 0)
        return HIDStatus::noDevice;
    const Result<std::string> sysPath = sysPathOfNumber(status.st_rdev);
    if (!sysPath.ok()) {
        openingHasFailed(sysPath.error().code);
        entry_->complainOf(sysPath.error().code);
        return HIDStatus::error;
    }
    if (*sysPath != entry_->node().sysPath)
        return HIDStatus::noDevice;
    entry_->wasOpened();
    return HIDStatus::success;
}

/// The device is announced anew when it may be opened after all.
void HidrawDevice::openingHasFailed(int error) {
    openingFailed_ = true; // Before it is announced anew.
    entry_->openingFailed();
    if (error != ETIMEDOUT) // It tells itself when it comes to its end.
        entry_->askForAnotherLook(isShortage(error) || error == EAGAIN);
}

/// Opens the node and returns 0, or the errno value of why it could not. When the kernel lets it be opened
/// too late, the device is announced anew.
int HidrawDevice::openAside(Descriptor &descriptor) {
    struct Attempt {
        std::mutex mutex; ///< Guards the rest.
        Descriptor descriptor;
        int error = 0;
        bool isOver = false;
        bool isAbandoned = false;
    };
    const auto attempt = std::make_shared<Attempt>();
    const Result<void> made = BlockingCalls().make(
        [attempt, entry = entry_] {
            Descriptor opened(::open(entry->node().place.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
            const int error = opened ? 0 : errno;
            Descriptor late;
            {
                const std::lock_guard lock(attempt->mutex);
                attempt->isOver = true;
                attempt->error = error;
                (attempt->isAbandoned ? late : attempt->descriptor) = std::move(opened);
            }
            if (late) {
                late.reset();
                entry->becameOpenable();
            }
        },
        deadline());
    const std::lock_guard lock(attempt->mutex);
    attempt->isAbandoned = !attempt->isOver;
    openingFailed_ = attempt->isAbandoned || attempt->error != 0; // Before it is announced anew.
    if (attempt->isAbandoned)
        return made.ok() || made.error().code == 0 ? EIO : made.error().code;
    descriptor = std::move(attempt->descriptor);
    return attempt->error;
}

HIDStatus HidrawDevice::close() {
    const std::lock_guard one(openMutex_);
    Handle handle;
    {
        const std::lock_guard lock(inputMutex_);
        handle.swap(handle_);
    }
    if (!handle)
        return hasLeft() ? HIDStatus::noDevice : HIDStatus::notOpen;
    if (host_->thread().isCurrent())
        unwatch(handle);
    host_->thread().perform([self = shared_from_this(), handle] { self->inputClosed(handle); });
    return HIDStatus::success;
}

// ------------------------------------------------------------------------------------------ Requests

HIDStatus HidrawDevice::setReport(HIDReportType type, uint8_t reportID, std::span<const uint8_t> report) {
    if (report.size() >= reportLimit)
        return HIDStatus::badArgument;
    const auto message = std::make_shared<Exchange>();
    message->bytes.reserve(1 + report.size());
    message->bytes.push_back(reportID);
    message->bytes.insert(message->bytes.end(), report.begin(), report.end());
    message->request = setRequest(type, message->bytes.size());
    return exchange(message);
}

HIDStatus HidrawDevice::getReport(HIDReportType type, uint8_t reportID, std::span<uint8_t> buffer,
                                  size_t &length) {
    length = 0;
    if (buffer.empty())
        return HIDStatus::badArgument;
    const auto message = std::make_shared<Exchange>();
    message->bytes.resize(std::min(1 + buffer.size(), reportLimit));
    message->bytes[0] = reportID;
    message->request = getRequest(type, message->bytes.size());
    if (const HIDStatus status = exchange(message); status != HIDStatus::success)
        return status;
    const size_t received = std::min(static_cast<size_t>(message->result), message->bytes.size());
    length = received > 0 ? received - 1 : 0;
    std::copy_n(message->bytes.begin() + 1, length, buffer.begin());
    return HIDStatus::success;
}

HIDStatus HidrawDevice::exchange(const std::shared_ptr<Exchange> &exchange) {
    const std::lock_guard one(requestMutex_);
    if (hasLeft())
        return HIDStatus::noDevice;
    exchange->handle = currentHandle();
    if (!exchange->handle)
        return HIDStatus::notOpen;
    const Result<void> made = requests_.make(
        [exchange] {
            exchange->result = ::ioctl(exchange->handle->get(), exchange->request, exchange->bytes.data());
            exchange->error = errno;
        },
        deadline());
    if (!made.ok())
        return statusOf(made.error().code, nullptr);
    return exchange->result >= 0 ? HIDStatus::success : statusOf(exchange->error, exchange->handle.get());
}

/// The kernel reports a device that leaves during a request as an input/output error.
HIDStatus HidrawDevice::statusOf(int error, const Descriptor *handle) const {
    switch (error) {
    case EACCES:
    case EPERM:
        return HIDStatus::notPermitted;
    case ENOENT:
    case ENODEV:
    case ENXIO:
        return HIDStatus::noDevice;
    case EINVAL:
        return HIDStatus::badArgument;
    case ETIMEDOUT:
        return HIDStatus::timedOut;
    default:
        return hasLeft() || (handle != nullptr && hangsUp(*handle)) ? HIDStatus::noDevice : HIDStatus::error;
    }
}

// ------------------------------------------------------------------------------------------ Input

void HidrawDevice::registerInputReportCallback(std::span<uint8_t> buffer, InputReportCallback callback,
                                               void *context) {
    const std::lock_guard lock(inputMutex_);
    buffer_ = buffer;
    callback_ = callback;
    context_ = context;
}

/// True when there is nothing wrong; the handle may have been closed or replaced meanwhile.
bool HidrawDevice::watch(const Handle &handle) {
    if (!scheduled_ || watched_ == handle || currentHandle() != handle)
        return true;
    Result<RunLoopSource> source =
        host_->runLoop()->watchDescriptor(handle->get(), RunLoop::Descriptor::readable,
                                          [this](RunLoop::Readiness ready) { deliverInput(ready.hangUp); });
    if (!source.ok()) {
        logLine(LogLevel::error, "Error: no input from " + description() + ": " + source.error().message);
        return false;
    }
    source_ = *std::move(source);
    watched_ = handle;
    return true;
}

void HidrawDevice::unwatch(const Handle &handle) noexcept {
    if (watched_ != handle)
        return;
    source_.reset();
    watched_.reset();
}

void HidrawDevice::deliverInput(bool isOver) {
    const auto self = shared_from_this(); // A callback may drop all other references.
    const Handle handle = watched_;
    if (!handle) { // Closed by another thread, as it left.
        if (left_)
            reportEnd();
        return;
    }
    for (int report = 0; report < reportsPerWakeUp; ++report) {
        const Read read = deliverOne(handle);
        if (watched_ != handle) // A callback has closed or unscheduled the device.
            return;
        if (read == Read::end || (read == Read::nothing && (isOver || left_))) {
            if (read == Read::end || isOver) // And not only as this manager has it.
                entry_->leave();
            inputEnded(handle);
            return;
        }
        if (read == Read::nothing)
            return;
    }
}

HidrawDevice::Read HidrawDevice::deliverOne(const Handle &handle) {
    std::unique_lock lock(inputMutex_);
    if (handle_ != handle) {
        lock.unlock();
        inputClosed(handle);
        return Read::nothing;
    }
    // Reports without identifiers get their 0 here.
    std::array<uint8_t, 1 + reportLimit> report;
    report[0] = 0;
    const size_t skipped = entry_->node().numbersReports ? 0 : 1;
    ssize_t size = 0;
    do {
        size = ::read(handle->get(), report.data() + skipped, report.size() - skipped);
    } while (size < 0 && errno == EINTR);
    if (size <= 0)
        return size < 0 && errno == EAGAIN ? Read::nothing : Read::end;
    if (callback_ == nullptr || buffer_.empty())
        return Read::report;
    const size_t length = std::min(static_cast<size_t>(size) + skipped, buffer_.size());
    std::memcpy(buffer_.data(), report.data(), length);
    const auto callback = callback_;
    void *const context = context_;
    uint8_t *const buffer = buffer_.data();
    lock.unlock();
    callback(context, HIDStatus::success, this, HIDReportType::input, report[0], buffer, length);
    return Read::report;
}

/// The device has ended the input.
void HidrawDevice::inputEnded(const Handle &handle) {
    {
        const std::lock_guard lock(inputMutex_);
        if (handle_ == handle) {
            left_ = true;
            handle_.reset();
        }
    }
    inputClosed(handle);
}

/// The device is there, but its input cannot be waited for.
void HidrawDevice::inputFailed(const Handle &handle) {
    {
        const std::lock_guard lock(inputMutex_);
        if (handle_ == handle)
            handle_.reset();
    }
    inputClosed(handle);
}

/// The handle is no longer the device's input, from whatever side it was ended.
void HidrawDevice::inputClosed(const Handle &handle) {
    unwatch(handle);
    if (left_)
        reportEnd();
}

// ------------------------------------------------------------------------------------------ The end

void HidrawDevice::leave() {
    left_ = true;
    const Handle handle = currentHandle();
    if (!handle) {
        reportEnd();
        return;
    }
    // Nothing more can be queued now; what is there is delivered first.
    if (!watch(handle)) {
        inputEnded(handle);
        return;
    }
    deliverInput(false);
}

void HidrawDevice::unschedule() {
    scheduled_ = false;
    source_.reset();
    watched_.reset();
}

void HidrawDevice::reportEnd() {
    if (std::exchange(scheduled_, false))
        host_->deviceEnded(*this);
}

} // namespace moxel

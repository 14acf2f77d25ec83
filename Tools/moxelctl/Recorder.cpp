#include "Recorder.h"

#include "TraceText.h"
#include "Values/Format.h"

namespace moxel::tool {

Handlers Recorder::handlers() {
    return {[](uint32_t productID, uint32_t message, void *argument, void *context) {
                static_cast<Recorder *>(context)->take(
                    messageEvent(productID, message, argument, HandlerThread::library));
            },
            [](uint32_t deviceID, void *context) {
                static_cast<Recorder *>(context)->take(deviceEvent(Event::Kind::added, deviceID));
            },
            [](uint32_t deviceID, void *context) {
                static_cast<Recorder *>(context)->take(deviceEvent(Event::Kind::removed, deviceID));
            },
            this, true};
}

void Recorder::take(Event event) {
    event.time = Clock::now() - began_;
    if (waiting_ >= waitingLimit) {
        ++lost_;
        return;
    }
    ++waiting_;
    mainThread_->perform([this, event = std::move(event)] {
        --waiting_;
        write(event);
    });
}

void Recorder::write(const Event &event) {
    noteDevice(event);
    const std::optional<MoxelDevicePrefs> preferences =
        event.kind == Event::Kind::preferences ? preferences_.latest() : std::nullopt;
    file_.add(event.time, traceText(event, preferences));
    ++count_;
    ++counts_[kindName(event.kind)];
}

/// Nothing tells that the driver serves another device but the product that comes with a state, and the
/// library when it is asked; not for each state, since it logs that.
void Recorder::noteDevice(const Event &event) {
    if (event.kind == Event::Kind::added)
        preferences_.add(event.productID);
    const bool isState = event.message == kMoxelMsgDeviceState;
    if (isState && event.productID == productID_)
        return;
    const uint32_t device = DevicePreferences::currentDevice();
    if (isState || device != device_)
        file_.add(event.time, identityText(device));
    device_ = device;
    productID_ = device == kMoxelDefaultDeviceID && !isState ? productID_ : device & 0xFFFF;
}

void Recorder::finish() {
    if (lost_ > 0)
        file_.add({}, format("# %llu events are missing: they came faster than they could be written",
                             lost_.load()));
    file_.add(Clock::now() - began_, "pause");
}

std::string Recorder::summary() const {
    std::string text = format("%llu event%s", count_, count_ == 1 ? "" : "s");
    for (const auto &[kind, count] : counts_)
        text += format("%s %llu %s", &kind == &counts_.begin()->first ? ":" : ",", count, kind);
    if (lost_ > 0)
        text += format("; %llu lost", lost_.load());
    return text;
}

} // namespace moxel::tool

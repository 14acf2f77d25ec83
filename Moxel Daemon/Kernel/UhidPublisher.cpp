#include "Moxel Daemon/Kernel/UhidPublisher.h"

#include "Moxel Daemon/Kernel/UhidChannel.h"

#include <utility>

namespace moxel::daemon {

Result<std::unique_ptr<UhidPublisher>> UhidPublisher::create(UhidMaker maker) {
    Result<std::shared_ptr<RunLoop>> runLoop = RunLoop::current();
    if (!runLoop.ok())
        return runLoop.error();
    if (const Result<void> usable = maker.check(); !usable.ok())
        return usable.error();
    Result<std::shared_ptr<UhidReader>> reader = UhidReader::start();
    if (!reader.ok())
        return reader.error();
    return std::make_unique<UhidPublisher>(std::make_shared<const UhidMaker>(std::move(maker)), *runLoop,
                                           std::move(*reader));
}

UhidPublisher::UhidPublisher(std::shared_ptr<const UhidMaker> maker, std::shared_ptr<RunLoop> runLoop,
                             std::shared_ptr<UhidReader> reader)
    : maker_(std::move(maker)), runLoop_(std::move(runLoop)), reader_(std::move(reader)) {}

/// Who publishes next finds the names free.
UhidPublisher::~UhidPublisher() { closings_->awaitAll(closingPatience); }

Result<std::unique_ptr<Channel>> UhidPublisher::publish(const DeviceDescription &device,
                                                        ChannelHandler &handler) {
    const Result<Data> create = uhidCreateMessage(device);
    if (!create.ok())
        return create.error();
    auto channel = std::make_unique<UhidChannel>(runLoop_, reader_, closings_, maker_, device.name, handler);
    if (Result<void> started = channel->start(*create); !started.ok())
        return started.error();
    return std::unique_ptr<Channel>(std::move(channel));
}

} // namespace moxel::daemon

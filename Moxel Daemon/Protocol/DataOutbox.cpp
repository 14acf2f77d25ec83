#include "Moxel Daemon/Protocol/DataOutbox.h"

#include "Moxel Common/Protocol/WireLayouts.h"
#include "Platform/Log.h"

#include <algorithm>
#include <cstring>

namespace moxel::daemon {

namespace {

size_t bytesOf(const std::vector<OutgoingPacket> &message) {
    size_t bytes = 0;
    for (const OutgoingPacket &packet : message)
        bytes += packet.bytes.size() + sizeof packet;
    return bytes;
}

/// A client ignores an announcement of any other size.
bool isReadable(const OutgoingPacket &packet) {
    return packet.announcedSize >= 1 && packet.announcedSize <= wire::requestSizeLimit;
}

} // namespace

std::vector<OutgoingPacket> packetsOf(const Data &archive, size_t packetSize, bool wantsAnswer,
                                      const Faults &faults) {
    const size_t step = std::clamp<size_t>(packetSize, 1, DataOutbox::payloadLimit);
    const size_t count = std::max<size_t>(1, (archive.size() + step - 1) / step);
    std::vector<OutgoingPacket> packets;
    packets.reserve(count);
    for (size_t index = 0; index < count; ++index) {
        const size_t size = std::min(step, archive.size() - index * step);
        wire::mxVDataPacket head{};
        head.m_DataID = faults.dataID.value_or(wire::dataPacket);
        head.m_PayloadLength = faults.payloadLength.value_or(static_cast<uint16_t>(size));
        head.m_LastPacket = index + 1 == count;
        head.m_NumPackets = static_cast<uint8_t>(std::min<size_t>(count, UINT8_MAX));
        OutgoingPacket packet{Data(sizeof head), 0, wantsAnswer};
        std::memcpy(packet.bytes.data(), &head, sizeof head);
        const auto start = archive.begin() + static_cast<ptrdiff_t>(index * step);
        packet.bytes.insert(packet.bytes.end(), start, start + static_cast<ptrdiff_t>(size));
        packet.announcedSize = faults.announcedSize.value_or(static_cast<uint16_t>(packet.bytes.size()));
        packets.push_back(std::move(packet));
    }
    if (faults.noLastPacket)
        packets.pop_back();
    return packets;
}

bool DataOutbox::send(std::vector<OutgoingPacket> message) {
    const size_t bytes = bytesOf(message);
    if (bytes > queueLimit - queuedBytes_)
        return false;
    if (message.empty())
        return true;
    queuedBytes_ += bytes;
    messages_.push_back(std::move(message));
    if (isIdle())
        next();
    return true;
}

std::optional<Data> DataOutbox::content() {
    if (!current_)
        return std::nullopt;
    isRead_ = true;
    return current_->bytes;
}

void DataOutbox::wasRead() {
    if (current_ && isRead_ && !current_->wantsAnswer)
        next();
}

void DataOutbox::wasAcknowledged() {
    if (current_ && isRead_ && current_->wantsAnswer)
        next();
}

/// Places the next packet that the client can read in the slot.
void DataOutbox::next() {
    timer_.reset();
    current_.reset();
    isRead_ = false;
    while (!current_ && !messages_.empty()) {
        std::vector<OutgoingPacket> &message = messages_.front();
        OutgoingPacket packet = std::move(message[nextPacket_]);
        queuedBytes_ -= packet.bytes.size() + sizeof packet;
        if (++nextPacket_ == message.size()) {
            messages_.pop_front();
            nextPacket_ = 0;
        }
        const uint16_t size = packet.announcedSize;
        const bool wantsAnswer = packet.wantsAnswer;
        if (isReadable(packet))
            current_ = std::move(packet);
        announce_(size, wantsAnswer);
    }
    if (changed_)
        changed_();
    if (!current_)
        return;
    Result<RunLoopSource> timer = runLoop_.addTimer(timeout_, RunLoop::Seconds(0), [this] { timedOut(); });
    if (timer.ok())
        timer_ = std::move(*timer);
}

void DataOutbox::timedOut() {
    if (isRead_) {
        logLine(LogLevel::error, "Error: a client does not acknowledge a data packet; going on");
    } else {
        logLine(LogLevel::error, "Error: a client does not read a data packet; its message is dropped");
        if (nextPacket_ != 0) {
            const std::vector<OutgoingPacket> &message = messages_.front();
            for (; nextPacket_ < message.size(); ++nextPacket_)
                queuedBytes_ -= message[nextPacket_].bytes.size() + sizeof(OutgoingPacket);
            messages_.pop_front();
            nextPacket_ = 0;
        }
    }
    next();
}

} // namespace moxel::daemon

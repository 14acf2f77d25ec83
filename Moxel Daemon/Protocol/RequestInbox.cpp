#include "Moxel Daemon/Protocol/RequestInbox.h"

namespace moxel::daemon {

std::optional<ReceivedRequest> RequestInbox::take(const wire::RequestAnnouncement &announcement,
                                                  Clock::time_point now) {
    if (!stored_ || announcement.length == 0 || announcement.length > stored_->size())
        return std::nullopt;
    ReceivedRequest request = readRequest(std::span(*stored_).first(announcement.length));
    stored_.reset();
    request.command = announcement.command;
    request.acknowledged = wantsAcknowledgement(request, now);
    return request;
}

bool RequestInbox::wantsAcknowledgement(ReceivedRequest &request, Clock::time_point now) {
    const bool goesOn = messageGoesOnUntil_ && now <= *messageGoesOnUntil_;
    messageGoesOnUntil_.reset();
    if (request.name == "regclient") {
        const Value *type = request.dictionary.find("type");
        return type && type->number<int64_t>().value_or(0) != 0;
    }
    if (!request.name.empty())
        return true;
    request.continues = goesOn;
    if (request.bytes.size() < fullBlockSize)
        return goesOn;
    if (request.bytes.size() > fullBlockSize || fullBlock_ == FullBlock::isMessage)
        return false;
    messageGoesOnUntil_ = now + sliceTimeout_;
    request.mayGoOn = true;
    return true;
}

} // namespace moxel::daemon

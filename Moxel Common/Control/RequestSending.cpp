#include "Control/RequestSending.h"

#include "Protocol/WireLayouts.h"

namespace moxel {

bool sendAcknowledgedRequest(MoxelClientAPI &client, const Dictionary &request) {
    const Result<Data> archive = archivedDataWithRootObject(request);
    return archive.ok() && client.sendUserRequestData(*archive, client.m_refHIDChannelDedicated(),
                                                      wire::userRequestID, wire::userRequestCommand, true);
}

} // namespace moxel

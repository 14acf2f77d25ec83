#include "Control/RequestSending.h"

#include "Protocol/WireLayouts.h"

namespace moxel {

bool sendRequest(MoxelClientAPI &client, const Data &request, bool requireACK) {
    return client.sendUserRequestData(request, client.m_refHIDChannelDedicated(), wire::userRequestID,
                                      wire::userRequestCommand, requireACK);
}

bool sendAcknowledgedRequest(MoxelClientAPI &client, const Dictionary &request) {
    const Result<Data> archive = archivedDataWithRootObject(request);
    return archive.ok() && sendRequest(client, *archive, true);
}

} // namespace moxel

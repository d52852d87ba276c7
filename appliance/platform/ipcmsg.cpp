#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "appliance/platform/reason.h"
#include "appliance/platform/transport.h"
#include "appliance/wire/message.h"
#include "platform/ipcmsg.h"

namespace
{

using namespace mixplatform;

std::span<const uint8_t> bytes_of(const void *data, uint32_t length)
{
    return {static_cast<const uint8_t *>(data), data == nullptr ? 0 : length};
}

int32_t send_and_receive(const message &request, int32_t *status, void *reply_buffer, uint32_t *reply_length)
{
    reply answer;
    const int32_t result = exchange(request, answer);
    if (result < 0)
        return result;
    if (status != nullptr)
        *status = answer.status;
    if (reply_length == nullptr)
        return 0;
    const size_t kept = std::min<size_t>(*reply_length, answer.payload.size());
    if (reply_buffer != nullptr && kept != 0)
        std::memcpy(reply_buffer, answer.payload.data(), kept);
    *reply_length = static_cast<uint32_t>(answer.payload.size());
    return 0;
}

} // namespace

void *ipcmsg_alloc(uint32_t size)
{
    return std::malloc(size);
}

void ipcmsg_free(void *buffer)
{
    std::free(buffer);
}

int32_t ipcmsg_send_and_recv(uint32_t destination, uint32_t, uint32_t type, const void *request,
                             uint32_t request_length, int32_t *status, void *reply, uint32_t *reply_length,
                             uint32_t timeout_ms)
{
    return send_and_receive({destination, type, bytes_of(request, request_length), timeout_ms}, status, reply,
                            reply_length);
}

int32_t ipcmsg_send_and_recv_timeout(uint32_t destination, uint32_t, uint32_t type, const void *request,
                                     uint32_t request_length, int32_t *status, void *reply,
                                     uint32_t *reply_length, uint32_t timeout_ms)
{
    return send_and_receive({destination, type, bytes_of(request, request_length), timeout_ms}, status, reply,
                            reply_length);
}

int32_t ipcmsg_send(uint32_t destination, uint32_t, uint32_t type, const void *request,
                    uint32_t request_length)
{
    return notify({destination, type, bytes_of(request, request_length), default_timeout_ms});
}

int32_t ipcmsg_send_timeout(uint32_t destination, uint32_t, uint32_t type, const void *request,
                            uint32_t request_length, uint32_t timeout_ms)
{
    return notify({destination, type, bytes_of(request, request_length), timeout_ms});
}

uint32_t mktipcid(uint32_t node, uint16_t instance, uint32_t daemon)
{
    if (node > 0xff || daemon > 0xff)
        return mix::wire::no_address;
    return mix::wire::join_address({static_cast<uint8_t>(node), instance, static_cast<uint8_t>(daemon)});
}

uint32_t mktipcid_by_slot(uint32_t slot, uint32_t daemon)
{
    /* Not slot + 1 for every slot: the last number would wrap to node 0, this board. */
    return slot < 0xff ? mktipcid(slot + 1, 0, daemon) : mix::wire::no_address;
}

const char *mixplatform_last_reason(void)
{
    return last_reason();
}

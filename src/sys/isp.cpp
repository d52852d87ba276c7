#include <libmix/isp.h>

#include "frame/frame.h"
#include "platform/services.h"
#include "sys/isp_wire.h"

namespace
{

using namespace mix;

constexpr frame::exchange check{
    .daemon = wire::isp_daemon,
    .type = wire::isp_type,
    .timeout_ms = 500,
    .request_size = sizeof(wire::isp_request),
    .reply_capacity = sizeof(wire::isp_request),
    .reply_in_request = true,
};

} // namespace

int check_ip_isp(uint32_t addr, uint32_t isp) noexcept
{
    const frame::outcome got =
        frame::run<wire::isp_request>(check, frame::local(), nullptr, [=](wire::isp_request &request) {
            request.code = wire::isp_check;
            request.address = addr;
            request.isp = isp;
        });
    if (got.at == frame::stage::no_request)
        tq_debug_print(1, "Function name: check_ip_isp, IPC Malloc error\n");
    return got.status_or(0) >= 1 ? 1 : 0;
}

#include "appliance/mixsh/control_client.h"

#include "platform/ipcmsg.h"

#include <algorithm>

namespace mixsh::control
{

answer ask(std::uint32_t type, const void *request, std::uint32_t length, std::uint32_t patience_ms)
{
    answer result;
    result.bytes.resize(mix::wire::control_page_size);
    auto received = static_cast<std::uint32_t>(result.bytes.size());
    const auto sent = ipcmsg_send_and_recv(mix::wire::control_daemon, 0, type, request, length,
                                           &result.status, result.bytes.data(), &received, patience_ms);
    if (sent < 0) {
        invocation::print()("ipcmsg send failed\n");
        return result;
    }
    if (result.status < 0)
        invocation::print()("control request failed, ret is %d\n", result.status);
    result.came = result.status >= 0;
    result.bytes.resize(std::min<std::size_t>(received, result.bytes.size()));
    return result;
}

bool is_page(const answer &page, std::size_t row_size)
{
    mix::wire::control_page header{};
    const bool fits = read(page.bytes, 0, header) &&
                      page.bytes.size() == sizeof header + std::uint64_t{header.count} * row_size;
    if (!fits)
        invocation::print()("Received buf len is wrong, len is %d\n", static_cast<int>(page.bytes.size()));
    return fits;
}

} // namespace mixsh::control

/* The virtual-chassis manager. */
#include <libmix/vchassisd.h>

#include "sweep/client.h"

namespace mixtest
{

namespace
{

const uint64_t operation[2] = {1, 2};

shape asks(bytes reply = {}, uint32_t capacity = 2361)
{
    return answers(capacity, std::move(reply), {-2, -2, -4, -1, -4});
}
shape tells()
{
    shape is = sends(-4);
    is.exchanges[0].fails = {-2, -2, -4, -4, -4};
    return is;
}

} // namespace

std::vector<client> virtual_chassis_clients()
{
    return {
        {MIX_CALL(libvchassisd_vm_oper_request, operation, g.error, g.error_size), asks()},
        {MIX_CALL(libvchassisd_set_metadata, "key", 0, "value", 0, 1, g.error, g.error_size), asks()},
        {MIX_CALL(libvchassisd_get_metadata, "key", 0, g.as<char>(), 200, 1, g.error, g.error_size),
         asks(text_field("value", 40))},
        {MIX_CALL(libvchassisd_get_slot_host_cpu_num, 1, g.as<uint32_t>()), asks(join({le32(4), le32(7)}))},
        {MIX_CALL(libvchassisd_get_tenant_vm_ip, "0123456789abcdef0123456789abcdef", g.as<uint8_t>()),
         asks(some_bytes(44))},
        {MIX_BODY(libvchassisd_exec_clear_mac2host, char error[256];
                  std::memset(error, given::untouched, sizeof error);
                  const int result = libvchassisd_exec_clear_mac2host(18, "text", error);
                  std::memcpy(g.error, error, sizeof g.error); return result;),
         asks()},
        {MIX_BODY(libvchassisd_exec_reset_vsom_password, char error[256];
                  std::memset(error, given::untouched, sizeof error);
                  const int result = libvchassisd_exec_reset_vsom_password(error);
                  std::memcpy(g.error, error, sizeof g.error); return result;),
         asks()},
        {MIX_CALL(libvchassisd_addr_get_info, 2, g.output), asks(some_bytes(588), 633)},
        {MIX_CALL(libvchassisd_get_service_mode, g.as<uint16_t>()), asks(le16(3))},
        {MIX_CALL(libvchassisd_notify_slot_state, 1, 2), asks()},
        {MIX_CALL(libvchassisd_register_address, 1, 2, 3, "10.0.0.1"), tells()},
        {MIX_CALL(libvchassisd_unregister_address, 1, 2, 3, "10.0.0.1"), tells()},
        {MIX_CALL(libvchassisd_show_addr_debug, 1), tells()},
        {MIX_CALL(libvchassisd_notify_slot_disk_state, 1, 2), tells()},
        {MIX_CALL(libvchassisd_notify_master_vscm_crash), tells()},
        {MIX_CALL(vchassisd_save_config), commits_whatever_comes().set(&shape::waits, true)},
    };
}

} // namespace mixtest

/* What the virtual-chassis manager takes and gives where libmix passes bytes through
 * (src/sys/vchassisd_wire.h). */
#ifndef MIX_APPLIANCE_WIRE_VCHASSIS_H
#define MIX_APPLIANCE_WIRE_VCHASSIS_H

#include "appliance/wire/control.h"
#include "sys/vchassisd_wire.h"

namespace mix::wire
{

enum vm_operation : uint32_t { vm_create = 1, vm_delete = 2, vm_start = 3, vm_stop = 4 };

/* The 16 bytes of a VM operation. */
struct [[gnu::packed]] vm_oper_record {
    uint32_t operation;
    uint32_t slot;
    uint32_t type;    /* 1 vSCM, 2 vSSM, 3 vDSM */
    uint32_t flavour; /* 2, 4 or 8 */
};
static_assert(sizeof(vm_oper_record) == sizeof(vchassis_vm_oper_data));

/* An address entry: asked for by its key, given back with what is registered under it. */
struct [[gnu::packed]] vchassis_addr_entry {
    uint16_t key;
    uint16_t found;
    uint32_t b;
    uint32_t c;
    char text[256];
    uint8_t reserved[26];
};
static_assert(sizeof(vchassis_addr_entry) == vchassis_addr_entry_size);

/* The address record of a tenant's VM. */
struct [[gnu::packed]] tenant_vm_record {
    uint32_t ipv4; /* host byte order; 0: none */
    uint8_t ipv6[16];
    uint8_t mac[6];
    uint16_t vlan;
    uint32_t slot;
    uint32_t state; /* as vchassisd_vm_state2str has them */
    uint8_t reserved[8];
};
static_assert(sizeof(tenant_vm_record) == vchassis_tenant_vm_size);

/* What libmix has no function for is listed by the control daemon: control_list; pages of these. */
inline constexpr uint32_t control_list_vms = 242;
inline constexpr uint32_t control_list_vchassis_slots = 243;
struct [[gnu::packed]] vchassis_vm_row {
    uint32_t slot;
    uint32_t type;
    uint32_t flavour;
    uint32_t state;
};
inline constexpr uint32_t vchassis_not_told = 0xffffffff;
struct [[gnu::packed]] vchassis_slot_row {
    uint32_t slot;
    uint32_t state; /* as it was told to the manager; vchassis_not_told */
    uint32_t disk;
};

/* libvchassisd_exec_clear_mac2host: the one code that the manager takes. */
inline constexpr uint32_t vchassis_clear_mac2host = 11;

} // namespace mix::wire

#endif

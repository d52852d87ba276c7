/* Wire records of the virtual-chassis manager: daemon 97, message type 647. */
#ifndef MIX_SYS_VCHASSISD_WIRE_H
#define MIX_SYS_VCHASSISD_WIRE_H

#include <cstddef>
#include <cstdint>

namespace mix::wire
{

inline constexpr uint32_t vchassis_manager = 97;
inline constexpr uint32_t vchassis_type = 647;

enum vchassis_code : uint32_t {
    vchassis_vm_oper = 0,
    vchassis_set_metadata = 1,
    vchassis_get_metadata = 2,
    vchassis_register_address = 6,
    vchassis_unregister_address = 7,
    vchassis_addr_info = 8,
    vchassis_reset_vsom_password = 9,
    vchassis_addr_debug = 10,
    vchassis_host_cpu_num = 12,
    vchassis_tenant_vm_ip = 13,
    vchassis_master_crash = 14,
    vchassis_slot_state = 15,
    vchassis_slot_disk_state = 16,
    vchassis_service_mode = 17
};

/* What a message without an answer sends; one with an answer has a byte more. */
inline constexpr uint32_t vchassis_notice_size = 2360;
inline constexpr uint32_t vchassis_exchange_size = 2361;

struct [[gnu::packed]] vchassis_header {
    uint32_t code; /* a refusal has its text from here on */
    uint8_t zero[36];
};
static_assert(sizeof(vchassis_header) == 40);
static_assert(offsetof(vchassis_header, code) == 0);

struct [[gnu::packed]] vchassis_vm_oper_data {
    uint64_t operation[2];
};
static_assert(sizeof(vchassis_vm_oper_data) == 16);

struct [[gnu::packed]] vchassis_metadata_data {
    char key[256];
    char value[256];
    uint32_t number;
};
static_assert(offsetof(vchassis_metadata_data, key) == 0);
static_assert(offsetof(vchassis_metadata_data, value) == 256);
static_assert(offsetof(vchassis_metadata_data, number) == 512);

struct [[gnu::packed]] vchassis_address_data {
    uint32_t b;
    uint32_t c;
    uint16_t a;
    uint16_t length; /* of the text */
    char text[256];
};
static_assert(offsetof(vchassis_address_data, b) == 0);
static_assert(offsetof(vchassis_address_data, c) == 4);
static_assert(offsetof(vchassis_address_data, a) == 8);
static_assert(offsetof(vchassis_address_data, length) == 10);
static_assert(offsetof(vchassis_address_data, text) == 12);

/* The count, then the entries; the reply is the entries alone. */
struct [[gnu::packed]] vchassis_addr_info_data {
    uint32_t count;
};
inline constexpr uint32_t vchassis_addr_entry_size = 294;
inline constexpr uint32_t vchassis_addr_info_overhead = 45;
inline constexpr uint32_t vchassis_addr_info_limit = 10000; /* of the request, in bytes */

struct [[gnu::packed]] vchassis_word_data {
    uint16_t value;
};

struct [[gnu::packed]] vchassis_slot_data {
    uint32_t slot;
    uint32_t state;
};
static_assert(offsetof(vchassis_slot_data, slot) == 0);
static_assert(offsetof(vchassis_slot_data, state) == 4);

struct [[gnu::packed]] vchassis_text_data {
    char text[256];
};

inline constexpr uint32_t vchassis_tenant_vm_size = 44;

struct [[gnu::packed]] vchassis_host_cpu_reply {
    uint32_t flavour;
    uint32_t count;
};
static_assert(offsetof(vchassis_host_cpu_reply, flavour) == 0);
static_assert(offsetof(vchassis_host_cpu_reply, count) == 4);

/* A request: the header, one kind of data, and zeros. */
template <class Data, uint32_t Size>
struct [[gnu::packed]] vchassis_message {
    vchassis_header header;
    Data data;
    uint8_t zero[Size - sizeof(vchassis_header) - sizeof(Data)];
};
template <class Data>
using vchassis_request = vchassis_message<Data, vchassis_exchange_size>;
template <class Data>
using vchassis_notice = vchassis_message<Data, vchassis_notice_size>;
static_assert(sizeof(vchassis_request<vchassis_metadata_data>) == 2361);
static_assert(sizeof(vchassis_notice<vchassis_address_data>) == 2360);
static_assert(offsetof(vchassis_request<vchassis_metadata_data>, data) == 40);

} // namespace mix::wire

#endif

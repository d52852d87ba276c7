/*
 * libmix: the virtual chassis, a set of virtual machines that act as one appliance.
 *
 * The libvchassisd_ functions ask the virtual-chassis manager; those that must reach the instance on the
 * master main control board say so. Their results: 0 success; -1 the manager answered with a negative status;
 * -2 a buffer can't be had; -3 a required pointer is NULL; -4 the exchange failed. Outputs are untouched on
 * failure. They print nothing. An error buffer may be NULL; else it receives the manager's text after a -1,
 * cut to its length and terminated.
 */
#ifndef LIBMIX_VCHASSISD_H
#define LIBMIX_VCHASSISD_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

/* --- requests --- */

/* op: an operation record of 16 bytes, the manager's layout. At most 3000 ms. */
MIX_API int libvchassisd_vm_oper_request(const uint64_t op[2], char *err, int errlen) MIX_NOEXCEPT;

/* Stores a value under a key (255 characters of each count), or reads it: out receives the text, cut to
 * outlen - 1 characters and terminated (nothing when outlen is not positive). The arguments called unused are
 * not looked at. At most 2000 ms. */
MIX_API int libvchassisd_set_metadata(const char *key, int unused, const char *value, int unused_too,
                                      uint32_t number, char *err, int errlen) MIX_NOEXCEPT;
MIX_API int libvchassisd_get_metadata(const char *key, int unused, char *out, int outlen, uint32_t number,
                                      char *err, int errlen) MIX_NOEXCEPT;

/* How many processors of each vSSM flavour the slot's host has: out[0] of flavour 2, out[1] of 4, out[2] of
 * 8; the manager tells one of them, the others are 0. At most 2000 ms. */
MIX_API int libvchassisd_get_slot_host_cpu_num(uint16_t slot, uint32_t out[3]) MIX_NOEXCEPT;

/* The 44-byte address record of a tenant's VM, from the master. vm_id: hexadecimal digits with or without
 * hyphens and spaces, sent in the form 8-4-4-4-12; NULL sends no identifier. At most 3000 ms. */
MIX_API int libvchassisd_get_tenant_vm_ip(const char *vm_id, uint8_t out[44]) MIX_NOEXCEPT;

/* code: the manager's command; text may be NULL. err: 256 bytes or NULL. At most 3000 ms. */
MIX_API int libvchassisd_exec_clear_mac2host(uint32_t code, const char *text, char err[256]) MIX_NOEXCEPT;
/* Asks the manager to reset the password; none is sent. err: 256 bytes or NULL. At most 3000 ms. */
MIX_API int libvchassisd_exec_reset_vsom_password(char err[256]) MIX_NOEXCEPT;

/* entries: count address entries of 294 bytes, sent, and overwritten by the answer. -3, without an exchange,
 * when they don't fit into one request. At most 3000 ms. */
MIX_API int libvchassisd_addr_get_info(uint32_t count, void *entries) MIX_NOEXCEPT;
/* The largest count that fits: 33. */
MIX_API int libvchassisd_addr_get_max_vm_count_per_time(void) MIX_NOEXCEPT;

/* From the master, at most 2000 ms. */
MIX_API int libvchassisd_get_service_mode(uint16_t *mode) MIX_NOEXCEPT;
/* At most 2000 ms. */
MIX_API int libvchassisd_notify_slot_state(uint16_t slot, uint32_t state) MIX_NOEXCEPT;

/* --- messages without an answer: 0 when sent, -2 without a buffer, -4 otherwise --- */

/* text: an address, of which 255 characters count; NULL is -1. */
MIX_API int libvchassisd_register_address(uint16_t a, uint32_t b, uint32_t c, const char *text) MIX_NOEXCEPT;
MIX_API int libvchassisd_unregister_address(uint16_t a, uint32_t b, uint32_t c,
                                            const char *text) MIX_NOEXCEPT;
/* value: the manager's own. */
MIX_API int libvchassisd_show_addr_debug(uint16_t value) MIX_NOEXCEPT;
/* To the master. */
MIX_API int libvchassisd_notify_slot_disk_state(uint16_t slot, uint32_t state) MIX_NOEXCEPT;
MIX_API int libvchassisd_notify_master_vscm_crash(void) MIX_NOEXCEPT;

/* Do nothing and return 0. */
MIX_API int libvchassisd_exec_vesa(void) MIX_NOEXCEPT;
MIX_API int libvchassisd_get_vchassis_status(void) MIX_NOEXCEPT;

/* --- texts: constants, never NULL, not to be freed --- */

MIX_API const char *vchassisd_vm_type2str(uint32_t type) MIX_NOEXCEPT;     /* "vSCM"; "unknown" */
MIX_API const char *vchassisd_vm_type2low_str(uint32_t type) MIX_NOEXCEPT; /* "vscm"; "unknown" */
MIX_API const char *vchassisd_vm_flavor2str(uint32_t flavor) MIX_NOEXCEPT; /* "vSSM-02"; "" */
/* 1 to 23: states of a chassis slot; 25 to 43: of a VM of the cloud platform; others "Unknown". */
MIX_API const char *vchassisd_vm_state2str(uint32_t state) MIX_NOEXCEPT;

MIX_API const char *vchassisd_stauts_2str(uint32_t status) MIX_NOEXCEPT;     /* "running"; "unknown" */
MIX_API const char *vchassisd_resource_type2str(uint32_t type) MIX_NOEXCEPT; /* "CPU"; "unknown" */
/* "VMWARE" is 2, "NSX" 4, any other text (or NULL) 1. */
MIX_API int vchassisd_cmp_type_str2type(const char *text) MIX_NOEXCEPT;

/* --- conversions: no exchange --- */

/* Both ways. A non-empty text is read into *type (0 "VSS", "vss" or "PER_HOST"; 2 "NSX" or "nsx"; 1 any
 * other); into an empty one the text of *type is written, 4 bytes. Does nothing without a text. */
MIX_API void vchassisd_trans_vswitch_type(char text[4], uint32_t *type) MIX_NOEXCEPT;

/* Reads "10.0.0.0/24": *addr in host order, *prefix the number's low 8 bits. Returns 1, or -1 with both
 * untouched. The '/' in text, which is not NULL, becomes a terminator. */
MIX_API int vchassisd_trans_ip_range(char *text, uint32_t *addr, uint8_t *prefix) MIX_NOEXCEPT;

/* 0 when something is left of what the three levels have (a rest is carried upwards, a shortfall is not)
 * after what they need, 1 otherwise. */
MIX_API int chassisd_vssm_cpu_cap_check(const uint32_t have[3], const uint32_t need[3]) MIX_NOEXCEPT;

struct vchassisd_metadata {
    uint32_t count;
    char entry[8];
};

/*
 * Reads items separated by ';' (empty ones don't count): none, or a NULL text, gives 0 and a cleared record;
 * one, which must hold a ':' and at most 7 characters, gives 0 and count 1; anything else -1: the record
 * is then cleared when the first item is the fault, and holds the first when a second is. text is modified.
 */
MIX_API int vchassisd_metadata_string_handler(char *text, struct vchassisd_metadata *out) MIX_NOEXCEPT;

/*
 * Saves the running configuration for the virtual-chassis manager. While the platform's save fails it is
 * tried again every 3 seconds, without limit. Returns 0.
 */
MIX_API int vchassisd_save_config(void) MIX_NOEXCEPT;

MIX_END_DECLS

#endif

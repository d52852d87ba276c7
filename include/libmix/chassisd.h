/*
 * libmix: chassis slots, processors, memory, modules and storage, as the chassis manager has them.
 *
 * Results are 0 on success and -1 when a buffer can't be had or an exchange fails, unless a comment says
 * otherwise; outputs are then untouched. Texts go to the operator's console. The local chassis manager is
 * asked; where a slot argument is not 0, the one at node `slot`, instance `cpu` (16 bits).
 */
#ifndef LIBMIX_CHASSISD_H
#define LIBMIX_CHASSISD_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

/* --- slot table --- */

/*
 * Reads the slot table (at most 3000 ms): entries of 48 bytes, little-endian: u16 slot, u16 processor, u32
 * card type, 32 bytes of the manager's, u32 state, u32 role. *outlen: capacity of out in bytes in; out, the
 * table's length; bytes of that length that the manager did not send are zero.
 * -1 at once on a board whose tq_is_numa_ioc answers true. Prints "rsp sub type is %d\n" for a reply of
 * another kind and "*outbuf len is %u,rsp->datalen is %u\n" when out is too small.
 */
MIX_API int get_slot_status(uint32_t slot, uint32_t cpu, void *out, uint32_t *outlen) MIX_NOEXCEPT;
MIX_API int chassisd_get_slot_status(void *out, uint32_t *outlen) MIX_NOEXCEPT; /* slot 0, cpu 0 */
MIX_API int chassisd_get_slot_status2(uint32_t slot, uint32_t cpu, void *out, uint32_t *outlen) MIX_NOEXCEPT;

/* The state of a slot: 0 when it is not in the table (of at most 32 entries), -1 on failure. The processor
 * number in bits 16 to 31 takes part in the comparison. States: above 2 present, above 8 has entered booting,
 * 15 online. */
MIX_API int get_chassis_specified_slot_status(int slot) MIX_NOEXCEPT;

/* 1 or 0; 0 after a failed query. */
MIX_API int chassisd_card_is_present(int slot) MIX_NOEXCEPT;
MIX_API int chassisd_card_is_enter_booting(int slot) MIX_NOEXCEPT;
/* 1, 0, or the negative result of a failed query. */
MIX_API int chassisd_card_is_online(int slot) MIX_NOEXCEPT;
/* 1 when a card of a type that tq_is_qsm_id knows is present; 0 otherwise and on failure. */
MIX_API int qsm_is_available(void) MIX_NOEXCEPT;

/* --- processors and memory (at most 3000 ms) --- */

/*
 * Reads processor information of sub-type 5, 6, 7, 8, 9, 10 or 24; any other is -1. *out receives the reply,
 * *outlen the bytes in it; the caller releases it with ipcmsg_free. Neither pointer may be NULL. -1 at once
 * when tq_is_numa_ioc is true.
 */
MIX_API int chassisd_get_cpu_info(uint32_t slot, uint32_t cpu, uint32_t subtype, void **out,
                                  uint32_t *outlen) MIX_NOEXCEPT;

/* The five fields of a processor's record (sub-type 6); local: of slot 0, cpu 0. -1 at once when
 * tq_is_numa_ioc is true. */
MIX_API int chassisd_get_slot_cpu_info(uint32_t slot, uint32_t cpu, uint32_t record[5]) MIX_NOEXCEPT;
MIX_API int chassisd_get_local_cpu_info(uint32_t record[5]) MIX_NOEXCEPT;

/*
 * On a multi-processor chassis the record with the largest second field among the online cards that count for
 * the system; the local record when there is none, and on any other platform.
 */
MIX_API int chassisd_get_system_current_cpu_info(uint32_t record[5]) MIX_NOEXCEPT;

/*
 * The manager's ten memory figures. The status is not looked at, and a reply of less than 80 bytes is not an
 * error: the result is then the transport's (0 or more) and out is untouched. A failed exchange gives the
 * transport's negative number; -1 without a buffer, and at once when tq_is_numa_ioc is true.
 */
MIX_API int chassisd_get_slot_mem(uint32_t slot, uint32_t cpu, uint64_t out[10]) MIX_NOEXCEPT;
/* mode: the manager's own number. -1 at once when tq_is_numa_ioc is true. */
MIX_API int chassisd_set_slot_mem_calc_mode(uint32_t slot, uint32_t cpu, uint32_t mode) MIX_NOEXCEPT;

/*
 * As chassisd_get_cpu_info, of the local manager: the bypass `which`, at most 4176 bytes. Every failure
 * prints "[%s]some error occured: rc=%d, retval=%d, outlen=%d\n" with "chassisd_get_bypass_info"; rc is -2
 * without a request buffer, -3 without a reply buffer, else the transport's result. Until something was
 * received outlen is the reply buffer's size.
 */
MIX_API int chassisd_get_bypass_info(uint32_t which, void **out, uint32_t *outlen) MIX_NOEXCEPT;

/*
 * A processor's temperature, sign-extended to 32 bits, from the local manager (at most 2000 ms); slot and
 * cpu are cut to 16 bits, and are 9 and 0 on a NUMA platform, whatever is asked for. A failed exchange prints
 * "ipc error, rc is %d, ret is %d, outlen is %d.\n". -1 at once, silently, for a NULL temp.
 */
MIX_API int chassisd_get_cpu_temp(uint32_t slot, uint32_t cpu, uint32_t *temp) MIX_NOEXCEPT;

/* --- modules (at most 2000 ms) --- */

/* *count is 0 on failure. */
MIX_API int libchassisd_get_module_number(uint32_t *count) MIX_NOEXCEPT;

/*
 * Fills a record of 232 bytes: u32 1; char[128] at 4 "slot %d"; u32 module kind at 132, the library's own
 * numbers; char[64] name at 136; char[32] second text at 200. -2 when the exchange fails, -1 without a record
 * or a buffer.
 */
MIX_API int libchassisd_get_module_info(uint32_t *record, uint32_t index) MIX_NOEXCEPT;

/* The platform id of a slot's module; 0 after "ipcmsg_alloc error.\n" or "ipc error.\n". */
MIX_API uint32_t libchassisd_get_module_plat_id(uint16_t slot) MIX_NOEXCEPT;
/* Prints the same texts. */
MIX_API int libchassisd_get_module_slot_state(uint16_t slot, uint32_t *state) MIX_NOEXCEPT;
/* Copies the first len bytes (208 at most) of a slot's FRU block, which the manager of the main control board
 * is asked for. The same texts; -1 at once, silently, for a NULL out. */
MIX_API int libchassisd_get_module_fru_entry(uint16_t slot, void *out, int len) MIX_NOEXCEPT;

/* --- slot operations --- */

/* *answer: the manager's (at most 3000 ms). */
MIX_API int libchassisd_is_slot_cfg_removable(uint16_t slot, uint32_t *answer) MIX_NOEXCEPT;
/* Drops the configuration kept for a slot (at most 3000 ms). */
MIX_API int libchassisd_clear_slot_cfg(uint16_t slot) MIX_NOEXCEPT;

/*
 * Sends the wish to detach a slot to the main local daemon, without waiting. On virtual platforms only, else
 * prints "Support detach slot on vFW platform\n". "Alloc ipcmsg buffer failed.\n" without a buffer.
 */
MIX_API int libchassisd_detach_slot(uint32_t slot) MIX_NOEXCEPT;

/*
 * Tell the chassis manager that a virtual-chassis card boots, stops or reboots (at most 3000 ms). card: a
 * record that starts with the 6-byte card identifier; NULL sends zeros. *answer: the manager's; a reply of
 * less than 2 bytes is a failure. "Alloc ipcmsg buffer failed\n" without a buffer.
 */
MIX_API int libchassisd_vchassis_notify_boot_pic(const void *card, uint16_t *answer) MIX_NOEXCEPT;
MIX_API int libchassisd_vchassis_notify_stop_pic(const void *card, uint16_t *answer) MIX_NOEXCEPT;
MIX_API int libchassisd_vchassis_notify_reboot_pic(const void *card, uint16_t *answer) MIX_NOEXCEPT;

/* Four figures of a data packet buffer pool, from the main local daemon (at most 2000 ms). -2 when the
 * exchange fails. */
MIX_API int libchassisd_get_data_pak_buffer_pool_info(uint32_t out[4], uint32_t pool) MIX_NOEXCEPT;

/* Not 0 when the platform's eMMC is reached through a USB bridge. No exchange. */
MIX_API int check_emmc_convert_by_usb(void) MIX_NOEXCEPT;

/* --- storage --- */

/* Storage types: 0 unknown, 1 NAND flash, 2 eMMC, 3 hard disk or SATA SSD, 4 eMMC behind a USB bridge, 5 CF
 * card, 6 NVMe SSD. */

struct libchassisd_block_storage {
    uint32_t type;
    uint64_t first_size; /* the platform's figures, in its units */
    uint64_t second_size;
    char device[16];
    char description[32];
};

/*
 * Functions that run a command do so through the shell. A device name or path with anything but letters,
 * digits and / . _ - : @ + = , runs none: the answer is that of a command that printed nothing.
 */

/* The type of the storage that holds a path, by the device that `df` names; 0 when it can't be told. */
MIX_API int libchassisd_get_disk_type_bypath(const char *path) MIX_NOEXCEPT;
/* The type of the storage that holds the system image: by its path, else by the platform. */
MIX_API int tq_get_internal_storage_type(void) MIX_NOEXCEPT;
/* 3 where the platform supports a hard-disk database, else 0. */
MIX_API int tq_get_external_storage_type(void) MIX_NOEXCEPT;
/* *count: 1 or 2. Returns 0. */
MIX_API int libchassisd_get_block_storage_num(uint32_t *count) MIX_NOEXCEPT;
/*
 * which: 1 the internal storage, 2 the external disk. Sizes that the platform can't tell are 0. -1 when there
 * is none, or for another which, and the platform log gets, with "libchassisd_get_block_storage_info" first,
 * "Error: %s get internal info error, the wrong type is %d\n",
 * "Error: %s get external info error, the wrong type is %d\n" or "Error: %s get internal or external storage
 * info error, there are only one or two memory devices\n".
 */
MIX_API int libchassisd_get_block_storage_info(struct libchassisd_block_storage *out, int which) MIX_NOEXCEPT;

/* The chassis manager's three figures of the hard disk (at most 3000 ms). */
MIX_API int chassisd_get_harddisk_info(uint64_t out[3]) MIX_NOEXCEPT;
/* The same of a slot's flash. -1 at once when tq_is_numa_ioc is true. */
MIX_API int chassisd_get_slot_flash_info(uint32_t slot, uint32_t cpu, uint64_t out[3]) MIX_NOEXCEPT;

/*
 * Serial numbers: len bytes of a zero-filled text (31 characters of it at most for a SATA disk; 254 with the
 * line's end for an NVMe one). 0, also when the disk names none or device is NULL: all bytes are then zero;
 * -1 when the command can't be started, without an executable /bin/nvme, or without any disk.
 * libchassisd_get_harddisk_sn asks the first disk of /sys/block; it is -1 on virtual platforms, and prints
 * "can't open %s, errno %d\n" when that directory can't be read.
 */
MIX_API int libchassisd_get_sata_ssd_disk_sn(const char *device, void *out, int len) MIX_NOEXCEPT;
MIX_API int libchassisd_get_pcie_ssd_disk_sn(void *out, int len) MIX_NOEXCEPT;
MIX_API int libchassisd_get_harddisk_sn(void *out, int len) MIX_NOEXCEPT;

/* The short name of a storage type, cut to size - 1 characters; "NULL" for a type without one. Returns 0. */
MIX_API int libchassisd_storage_type_2_string(uint32_t type, char *out, int size) MIX_NOEXCEPT;

/* The file system type of the first mount whose device name contains `name`; "unknown" without one. out: 64
 * bytes. Returns 0. */
MIX_API int libchassisd_get_disk_filesystem_type_byname(const char *name, char *out) MIX_NOEXCEPT;

/*
 * The device name that the start-up scripts left in /tmp/sata_dev (sata not 0) or /tmp/tq_systemdevice, cut
 * to size - 1 characters. A size of 0 is -1, silently; every other failure prints, with
 * "libchassisd_get_device_name" first:
 * "%s: fopen file %s failed, errno %d\n", "%s: fgets file %s failed, errno %d\n", "%s: failed to find devname
 * from %s \n" or, for a device that /sys/block does not have, "%s: file %s not exist\n".
 */
MIX_API int libchassisd_get_device_name(char *out, int sata, uint32_t size) MIX_NOEXCEPT;

/*
 * The model text of that device: at most size - 1 bytes, then a zero byte; with a size of 0 nothing is
 * written and the result is 0. Failures print "%s: get disk device model failed\n" with
 * "libchassisd_get_disk_device_model" or, with the command, "Error: failed to open %s, errno %d\n" or "Error:
 * failed to read %s, errno %d\n".
 */
MIX_API int libchassisd_get_disk_device_model(void *buf, int sata, uint32_t size) MIX_NOEXCEPT;

MIX_END_DECLS

#endif

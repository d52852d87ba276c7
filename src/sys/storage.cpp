/* Storage detection: mounts, commands, start-up files, platform predicates. */
#include <libmix/chassisd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <dirent.h>
#include <iterator>
#include <mntent.h>
#include <unistd.h>

#include "frame/frame.h"
#include "misc/digits.h"
#include "platform/board.h"
#include "platform/services.h"
#include "sys/chassisd_wire.h"
#include "sys/virtual_platform.h"

namespace
{

using namespace mix;

enum storage_type : uint32_t {
    storage_unknown,
    storage_nand,
    storage_emmc,
    storage_disk,
    storage_emmc_usb,
    storage_cf,
    storage_nvme
};

/* --- commands --- */

/*
 * What may stand in a command that a shell reads. Device names come from files under /tmp, paths from
 * callers: nothing else must ever reach the shell.
 */
bool is_harmless(const char *text)
{
    for (; *text != '\0'; text++)
        if (!is_letter(*text) && !is_digit(*text) && std::strchr("/._-:@+=,", *text) == nullptr)
            return false;
    return true;
}

/* A command's output; closed when it goes out of scope. */
class command_output
{
  public:
    explicit command_output(const char *command) : pipe_(::popen(command, "re")) {}
    command_output(const command_output &) = delete;
    command_output &operator=(const command_output &) = delete;
    ~command_output()
    {
        if (pipe_ != nullptr)
            ::pclose(pipe_);
    }

    [[nodiscard]] bool is_open() const { return pipe_ != nullptr; }
    [[nodiscard]] FILE *stream() const { return pipe_; }
    /* The next line, or as much of it as fits; at the end false, and nothing is written. */
    template <size_t Size>
    bool line(char (&into)[Size]) const
    {
        return std::fgets(into, static_cast<int>(Size), pipe_) != nullptr;
    }

  private:
    FILE *pipe_;
};

constexpr size_t output_line_size = 255;

/* Copies the first len bytes of a zero-filled text; what lies beyond the text is zero. */
template <size_t Size>
void copy_bytes(void *out, int len, const char (&text)[Size])
{
    if (len <= 0)
        return;
    const auto wanted = static_cast<size_t>(len);
    const size_t taken = std::min(wanted, Size);
    std::memcpy(out, text, taken);
    if (wanted > taken)
        std::memset(static_cast<char *>(out) + taken, 0, wanted - taken);
}

/* --- what holds the image --- */

/* The type of a device by the line that df printed for it. The order decides. */
uint32_t type_of_device(const char *line)
{
    if (std::strstr(line, "mmc") != nullptr)
        return storage_emmc;
    if (std::strstr(line, "sd") != nullptr) {
        if (tq_is_mirel5_cf_platform())
            return storage_cf;
        return check_emmc_convert_by_usb() ? storage_emmc_usb : storage_disk;
    }
    if (std::strstr(line, "vda") != nullptr)
        return storage_disk;
    if (std::strstr(line, "mtd") != nullptr)
        return storage_nand;
    if (std::strstr(line, "nvme0n1") != nullptr)
        return storage_nvme;
    return storage_unknown;
}

constexpr int (*disk_hardware[])(void) = {
    tq_is_hw_ls,
    tq_is_hw_advantech,
    tq_is_hw_phytium_ft1500,
    tq_is_hw_phytium_ft2000,
    tq_is_hw_phytium_d2000,
    tq_is_hw_zxc,
    tq_is_hw_oihygon,
};

bool is_disk_hardware()
{
    return std::any_of(std::begin(disk_hardware), std::end(disk_hardware),
                       [](int (*is_it)(void)) { return is_it() != 0; });
}

constexpr uint32_t chassis_product = 0x1050100;
constexpr uint32_t emmc_platform = 0x1180100;

struct platform_storage {
    uint32_t platform_type;
    uint32_t type;
};

constexpr platform_storage storage_by_platform[] = {
    {0x1060600, storage_nand}, {0x1060800, storage_nand}, {0x1070100, storage_nand},
    {0x1070200, storage_nand}, {0x1070400, storage_emmc}, {0x1070F00, storage_emmc},
};

uint32_t storage_of_chassis(uint32_t platform_id)
{
    if (tq_is_platform(chassis_product))
        return tq_is_mcp_master() ? storage_nand : storage_unknown;
    return tq_is_mcpu_subcard_200(platform_id) ? storage_emmc : storage_nand;
}

uint32_t storage_of_platform()
{
    const uint32_t platform_id = tq_platform_id();
    if (tq_get_system_product_type(tq_get_nameid(platform_id)) == chassis_product)
        return storage_of_chassis(platform_id);
    const uint32_t platform_type = tq_platform_type();
    for (const platform_storage &each : storage_by_platform)
        if (each.platform_type == platform_type)
            return each.type;
    return storage_unknown;
}

/* --- the kinds of storage --- */

struct storage_row {
    const char *name; /* short name */
    const char *device;
    const char *sized; /* the mount path or device node that is asked for its size */
    bool sized_by_path;
    const char *description;
};

constexpr storage_row storage_rows[] = {
    {"NULL", nullptr, nullptr, false, nullptr},
    {"nandflash", "mtdblock", "/flash", true, "internal storage nandflash"},
    {"eMMC", "mmcblk", "/dev/mmcblk0", false, "internal storage eMMC"},
    {"HDD/SSD", "sda", "/dev/sda", false, "internal storage HDD/SSD"},
    {"eMMC", "sda", "/dev/sda", false, "internal storage eMMC"},
    {"CFcard", "sda", "/dev/sda", false, "internal storage CF card"},
    {"NVME SSD", "nvme0n1", "/dev/nvme0n1", false, "internal storage NVME SSD"},
};
/* Where the bridge's disk is the second one. */
constexpr storage_row second_usb_emmc{"eMMC", "sdb", "/dev/sdb", false, "internal storage eMMC"};
constexpr storage_row external_disk{nullptr, "nvme", "/etc/mnt/nvme", true, "external storage harddisk"};

const storage_row &row_of(uint32_t type)
{
    return storage_rows[type < std::size(storage_rows) ? type : uint32_t{storage_unknown}];
}

libchassisd_block_storage describe(uint32_t type, const storage_row &row)
{
    libchassisd_block_storage filled{};
    uint64_t ignored = 0;
    filled.type = type;
    if (row.sized_by_path)
        tq_get_diskinfo_bypath(row.sized, &filled.first_size, &ignored, &filled.second_size);
    else
        tq_get_disk_info_by_devname(row.sized, type, &filled.first_size, &ignored, &filled.second_size);
    frame::put_name(filled.device, row.device);
    frame::put_name(filled.description, row.description);
    return filled;
}

constexpr const char *info_function = "libchassisd_get_block_storage_info";

int internal_storage(libchassisd_block_storage *out)
{
    const int wanted = tq_get_internal_storage_type();
    const auto type = static_cast<uint32_t>(wanted);
    if (type < storage_nand || type > storage_nvme) {
        tq_clog("Error: %s get internal info error, the wrong type is %d\n", info_function, wanted);
        return -1;
    }
    const bool second = type == storage_emmc_usb && tq_is_mirel7_emmc_platform();
    *out = describe(type, second ? second_usb_emmc : row_of(type));
    return 0;
}

int external_storage(libchassisd_block_storage *out)
{
    const int type = tq_get_external_storage_type();
    if (type < 1) {
        tq_clog("Error: %s get external info error, the wrong type is %d\n", info_function, type);
        return -1;
    }
    *out = describe(storage_disk, external_disk);
    return 0;
}

/* --- figures of the chassis manager --- */

constexpr frame::exchange storage_figures{
    .daemon = wire::chassis_manager,
    .type = wire::chassis_query_type,
    .timeout_ms = 3000,
    .call = frame::send_call::send_and_recv_timeout,
    .request_size = sizeof(wire::chassis_query_request),
    .reply_capacity = sizeof(wire::storage_figures_reply),
    .length = frame::length_rule::reaches,
    .length_value = sizeof(wire::storage_figures_reply::figures),
};

int get_figures(const frame::target &where, wire::chassis_query subtype, uint64_t *out)
{
    const frame::outcome got = frame::run<wire::chassis_query_request>(
        storage_figures, where, nullptr,
        [=](wire::chassis_query_request &request) { request.subtype = subtype; },
        [=](frame::reply_view &reply) {
            reply.copy(out, offsetof(wire::storage_figures_reply, figures),
                       sizeof(wire::storage_figures_reply::figures));
        });
    return got.ok() ? 0 : -1;
}

/* --- disk identities --- */

constexpr const char *block_devices = "/sys/block";
constexpr const char *nvme_program = "/bin/nvme";
constexpr const char *nvme_command = "/bin/nvme id-ctrl /etc/nvme | grep sn | cut -d':' -f2 | cut -d' ' -f2";

enum class disk_kind : uint8_t { other, sata, nvme };

/* By where the entry's link under /sys/block leads. */
disk_kind kind_of_disk(const char *entry)
{
    char link[sizeof "/sys/block/" + NAME_MAX];
    char leads_to[PATH_MAX];
    std::snprintf(link, sizeof link, "%s/%s", block_devices, entry);
    const ssize_t length = ::readlink(link, leads_to, sizeof leads_to - 1);
    if (length < 0)
        return disk_kind::other;
    leads_to[length] = '\0';
    if (std::strstr(leads_to, "/ata") != nullptr)
        return disk_kind::sata;
    return std::strstr(leads_to, "/nvme") != nullptr ? disk_kind::nvme : disk_kind::other;
}

struct found_disk {
    disk_kind kind = disk_kind::other;
    char name[NAME_MAX + 1];
};

/* The first disk in the order of the directory. */
found_disk first_disk(DIR *directory)
{
    found_disk found;
    while (const dirent *entry = ::readdir(directory)) {
        found.kind = kind_of_disk(entry->d_name);
        if (found.kind != disk_kind::other) {
            frame::copy_name(found.name, sizeof found.name, entry->d_name);
            break;
        }
    }
    return found;
}

constexpr const char *name_function = "libchassisd_get_device_name";
constexpr const char *model_function = "libchassisd_get_disk_device_model";

/* The first line of a start-up file; false after telling why there is none. */
template <size_t Size>
bool read_startup_line(const char *path, char (&line)[Size])
{
    FILE *file = std::fopen(path, "re");
    if (file == nullptr) {
        console_print("%s: fopen file %s failed, errno %d\n", name_function, path, errno);
        return false;
    }
    errno = 0;
    const bool read = std::fgets(line, static_cast<int>(Size), file) != nullptr;
    if (!read)
        console_print("%s: fgets file %s failed, errno %d\n", name_function, path, errno);
    std::fclose(file);
    return read;
}

/* Reads once, as much as there is up to `room` bytes. */
int read_model(const char *command, char *out, size_t room)
{
    const command_output output(command);
    if (!output.is_open()) {
        console_print("Error: failed to open %s, errno %d\n", command, errno);
        return -1;
    }
    const size_t length = std::fread(out, 1, room, output.stream());
    if (length == 0 && std::ferror(output.stream()) != 0) {
        console_print("Error: failed to read %s, errno %d\n", command, errno);
        return -1;
    }
    out[length] = '\0';
    return 0;
}

} // namespace

int libchassisd_get_disk_type_bypath(const char *path) noexcept
{
    char command[PATH_MAX + 64];
    if (path == nullptr || !is_harmless(path))
        return storage_unknown;
    const int length = std::snprintf(command, sizeof command, "df %s | awk {'print $1'} | grep /", path);
    if (length < 0 || static_cast<size_t>(length) >= sizeof command)
        return storage_unknown;
    char line[output_line_size] = "";
    const command_output output(command);
    if (output.is_open())
        output.line(line);
    return static_cast<int>(type_of_device(line));
}

int tq_get_internal_storage_type(void) noexcept
{
    const int by_path = libchassisd_get_disk_type_bypath(tq_get_image_path());
    if (by_path != storage_unknown)
        return by_path;
    if (tq_is_mirel5_cf_platform())
        return storage_cf;
    if (check_emmc_convert_by_usb())
        return storage_emmc_usb;
    if (tq_is_hw_oihygon_8510() && tq_is_support_nvme_ssd_platform())
        return storage_nvme;
    if (tq_is_a_platform() || tq_is_platform(emmc_platform) || tq_is_kunlun_platform())
        return storage_emmc;
    if (is_disk_hardware())
        return storage_disk;
    return static_cast<int>(storage_of_platform());
}

int tq_get_external_storage_type(void) noexcept
{
    return tq_is_support_harddisk_db() ? storage_disk : storage_unknown;
}

int libchassisd_get_block_storage_num(uint32_t *count) noexcept
{
    const bool second = (tq_is_support_harddisk_db() && !is_disk_hardware()) || tq_is_mirel5_cf_platform() ||
                        tq_is_mirel7_emmc_platform() || tq_is_support_nvme_ssd_platform();
    *count = second ? 2 : 1;
    return 0;
}

int libchassisd_get_block_storage_info(libchassisd_block_storage *out, int which) noexcept
{
    switch (which) {
    case 1:
        return internal_storage(out);
    case 2:
        return external_storage(out);
    default:
        tq_clog("Error: %s get internal or external storage info error, there are only one or two memory "
                "devices\n",
                info_function);
        return -1;
    }
}

int chassisd_get_harddisk_info(uint64_t out[3]) noexcept
{
    return get_figures(frame::local(), wire::chassis_harddisk, out);
}

int chassisd_get_slot_flash_info(uint32_t slot, uint32_t cpu, uint64_t out[3]) noexcept
{
    if (tq_is_numa_ioc())
        return -1;
    return get_figures(frame::node_or_local(slot, cpu), wire::chassis_flash, out);
}

int libchassisd_get_sata_ssd_disk_sn(const char *device, void *out, int len) noexcept
{
    char serial[32] = "";
    if (device == nullptr || !is_harmless(device)) {
        copy_bytes(out, len, serial);
        return 0;
    }
    char command[64]; /* a longer command is cut, on purpose */
    std::snprintf(command, sizeof command, "smartctl -i /dev/%s", device);
    const command_output output(command);
    if (!output.is_open())
        return -1;
    char line[output_line_size];
    while (output.line(line)) {
        if (std::strstr(line, "Serial Number") != nullptr) {
            std::sscanf(line, "%*[^:]: %31s", serial);
            break;
        }
    }
    copy_bytes(out, len, serial);
    return 0;
}

int libchassisd_get_pcie_ssd_disk_sn(void *out, int len) noexcept
{
    if (::access(nvme_program, X_OK) != 0)
        return -1;
    const command_output output(nvme_command);
    if (!output.is_open())
        return -1;
    char serial[output_line_size] = "";
    output.line(serial);
    copy_bytes(out, len, serial);
    return 0;
}

int libchassisd_get_harddisk_sn(void *out, int len) noexcept
{
    if (sys::is_virtual_platform())
        return -1;
    DIR *directory = ::opendir(block_devices);
    if (directory == nullptr) {
        console_print("can't open %s, errno %d\n", "/sys/block/", errno);
        return -1;
    }
    const found_disk found = first_disk(directory);
    ::closedir(directory);
    switch (found.kind) {
    case disk_kind::sata:
        return libchassisd_get_sata_ssd_disk_sn(found.name, out, len);
    case disk_kind::nvme:
        return libchassisd_get_pcie_ssd_disk_sn(out, len);
    case disk_kind::other:
        break;
    }
    return -1;
}

int libchassisd_storage_type_2_string(uint32_t type, char *out, int size) noexcept
{
    if (size > 0)
        frame::copy_name(out, static_cast<size_t>(size), row_of(type).name);
    return 0;
}

int libchassisd_get_disk_filesystem_type_byname(const char *name, char *out) noexcept
{
    constexpr size_t type_size = 64;
    frame::copy_name(out, type_size, "unknown");
    FILE *mounts = name != nullptr ? ::setmntent("/etc/mtab", "re") : nullptr;
    if (mounts == nullptr)
        return 0;
    mntent entry;
    char line[PATH_MAX];
    while (::getmntent_r(mounts, &entry, line, sizeof line) != nullptr) {
        if (std::strstr(entry.mnt_fsname, name) != nullptr) {
            frame::copy_name(out, type_size, entry.mnt_type);
            break;
        }
    }
    ::endmntent(mounts);
    return 0;
}

int libchassisd_get_device_name(char *out, int sata, uint32_t size) noexcept
{
    char line[256];
    if (size == 0 || !read_startup_line(sata != 0 ? "/tmp/sata_dev" : "/tmp/tq_systemdevice", line))
        return -1;
    const char *slash = std::strrchr(line, '/');
    if (slash == nullptr) {
        console_print("%s: failed to find devname from %s \n", name_function, line);
        return -1;
    }
    char name[sizeof line]; /* the line's end comes along, so such a name is not found below, on purpose */
    frame::copy_name(name, std::min<size_t>(size, sizeof name), slash + 1);
    char path[sizeof "/sys/block/" + sizeof name];
    std::snprintf(path, sizeof path, "%s/%s", block_devices, name);
    if (::access(path, F_OK) != 0) {
        console_print("%s: file %s not exist\n", name_function, path);
        return -1;
    }
    frame::copy_name(out, size, name);
    return 0;
}

int libchassisd_get_disk_device_model(void *buf, int sata, uint32_t size) noexcept
{
    char name[32];
    if (libchassisd_get_device_name(name, sata, sizeof name) != 0) {
        console_print("%s: get disk device model failed\n", model_function);
        return -1;
    }
    auto *text = static_cast<char *>(buf);
    if (size == 0)
        return 0;
    if (!is_harmless(name)) {
        text[0] = '\0';
        return 0;
    }
    char command[sizeof "cat /sys/block//device/model" + sizeof name];
    std::snprintf(command, sizeof command, "cat /sys/block/%s/device/model", name);
    return read_model(command, text, size - 1);
}

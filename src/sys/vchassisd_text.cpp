/* Texts and conversions of the virtual chassis, and its saving of the configuration. */
#include <libmix/vchassisd.h>

#include <libmix/ip_util.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>
#include <unistd.h>

#include "misc/digits.h"
#include "platform/services.h"

namespace
{

struct vm_type {
    const char *name;
    const char *low;
};
constexpr vm_type vm_types[] = {{"unknown", "unknown"}, {"vSCM", "vscm"}, {"vSSM", "vssm"}, {"vDSM", "vdsm"}};

const vm_type &type_of(uint32_t type)
{
    return vm_types[type < std::size(vm_types) ? type : 0];
}

/* By state; a gap has no text. "InCompatable" is spelled so on purpose. */
constexpr const char *vm_states[] = {
    nullptr,
    "Empty",
    "Remove",
    "Present",
    nullptr,
    "InitWait",
    "InitDone",
    "UnInitWait",
    nullptr,
    "Booting",
    "Ready",
    "Loading",
    "UnLoading",
    "OnlineWait",
    nullptr,
    "Online",
    "OfflineWait",
    "Offline",
    "OutOfCon",
    nullptr,
    "Error",
    "PowerDown",
    "InCompatable",
    "Unsupported",
    nullptr,
    "Build",
    "Active",
    "CMP-Error",
    "Shutoff",
    "Reboot",
    "Hard-reboot",
    "Rescue",
    "Rebuild",
    "Resize",
    "Updating-password",
    "Verify-resize",
    "Revert-resize",
    "Migrating",
    "Paused",
    "Suspend",
    "Soft-deleted",
    "Deleted",
    "Shelved",
    "Shelved-offloaded",
};
static_assert(std::size(vm_states) == 44);

constexpr const char *service_states[] = {"init", "vESA start", "vESA stop", "running", "error"};
constexpr const char *resource_types[] = {"CPU", "Memory", "Bandwidth", "Session"};

template <size_t Size>
const char *text_of(const char *const (&table)[Size], uint32_t index, const char *otherwise)
{
    return index < Size && table[index] != nullptr ? table[index] : otherwise;
}

struct number_name {
    uint32_t number;
    const char *name;
};

constexpr number_name flavours[] = {{2, "vSSM-02"}, {4, "vSSM-04"}, {8, "vSSM-08"}};
constexpr number_name cloud_platforms[] = {{2, "VMWARE"}, {4, "NSX"}};
constexpr uint32_t other_cloud_platform = 1;

/* As read; the first name of a number is the one that is written. */
constexpr number_name switch_types[] = {{0, "VSS"}, {0, "vss"}, {0, "PER_HOST"},
                                        {2, "NSX"}, {2, "nsx"}, {1, "VDS"}};
constexpr uint32_t other_switch_type = 1;

template <size_t Size>
uint32_t number_of(const number_name (&table)[Size], const char *name, uint32_t otherwise)
{
    for (const number_name &each : table)
        if (std::strcmp(each.name, name) == 0)
            return each.number;
    return otherwise;
}

template <size_t Size>
const char *name_of(const number_name (&table)[Size], uint32_t number, const char *otherwise)
{
    for (const number_name &each : table)
        if (each.number == number)
            return each.name;
    return otherwise;
}

constexpr unsigned retry_seconds = 3;

/* The local time, or nothing when it can't be read. */
void put_local_time(char *out, size_t size)
{
    const time_t now = ::time(nullptr);
    tm when{};
    out[0] = '\0';
    if (tq_localtime(&now, &when) >= 0)
        std::snprintf(out, size, "%04d-%02d-%02d %02d:%02d:%02d", when.tm_year + 1900, when.tm_mon + 1,
                      when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec);
}

} // namespace

const char *vchassisd_vm_type2str(uint32_t type) noexcept
{
    return type_of(type).name;
}

const char *vchassisd_vm_type2low_str(uint32_t type) noexcept
{
    return type_of(type).low;
}

const char *vchassisd_vm_flavor2str(uint32_t flavor) noexcept
{
    return name_of(flavours, flavor, "");
}

const char *vchassisd_vm_state2str(uint32_t state) noexcept
{
    return text_of(vm_states, state, "Unknown");
}

const char *vchassisd_stauts_2str(uint32_t status) noexcept
{
    return text_of(service_states, status, "unknown");
}

const char *vchassisd_resource_type2str(uint32_t type) noexcept
{
    return text_of(resource_types, type, "unknown");
}

int vchassisd_cmp_type_str2type(const char *text) noexcept
{
    return static_cast<int>(text != nullptr ? number_of(cloud_platforms, text, other_cloud_platform)
                                            : other_cloud_platform);
}

void vchassisd_trans_vswitch_type(char text[4], uint32_t *type) noexcept
{
    if (text == nullptr)
        return;
    if (text[0] != '\0')
        *type = number_of(switch_types, text, other_switch_type);
    else
        std::memcpy(text, name_of(switch_types, *type, "VDS"), 4);
}

int vchassisd_trans_ip_range(char *text, uint32_t *addr, uint8_t *prefix) noexcept
{
    char *slash = std::strchr(text, '/');
    if (slash == nullptr)
        return -1;
    *slash = '\0';
    uint32_t address = 0;
    if (ipv4str_2_uint(text, &address) != 0)
        return -1;
    const char *number = slash + 1;
    if (!mix::is_digit(*number))
        return -1;
    *addr = address;
    *prefix = mix::take_number<uint8_t>(number); /* its low 8 bits, so no digit is too many */
    return 1;
}

int chassisd_vssm_cpu_cap_check(const uint32_t have[3], const uint32_t need[3]) noexcept
{
    uint32_t rest = 0;
    for (size_t level = 0; level < 3; level++) {
        const uint32_t available = rest + have[level];
        rest = need[level] <= available ? available - need[level] : 0;
    }
    return rest != 0 ? 0 : 1;
}

int vchassisd_metadata_string_handler(char *text, vchassisd_metadata *out) noexcept
{
    *out = {};
    if (text == nullptr)
        return 0;
    char *rest = nullptr;
    const char *item = ::strtok_r(text, ";", &rest);
    if (item == nullptr)
        return 0;
    if (std::strchr(item, ':') == nullptr || std::strlen(item) >= sizeof out->entry)
        return -1;
    std::memcpy(out->entry, item, std::strlen(item) + 1);
    out->count = 1;
    return ::strtok_r(nullptr, ";", &rest) == nullptr ? 0 : -1;
}

int vchassisd_save_config(void) noexcept
{
    char when[64];
    put_local_time(when, sizeof when);
    int result;
    while ((result = save_configuration(-2, "running", "", "tarquelle", "vchassis", when, 0, 0, 0, 0)) != 0)
        ::sleep(retry_seconds);
    return result;
}

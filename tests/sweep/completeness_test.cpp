/* Every exported name is swept and fuzzed, or stands here with the reason why it is not. */
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>
#include <set>

#include "sweep/client.h"

using namespace mixtest;

namespace
{

struct not_swept {
    const char *reason;
    std::vector<const char *> names;
};

/* Whole headers whose functions ask nobody. */
const not_swept headers[] = {
    {"a matcher works on its caller's memory; its allocations are failed by tests/unit/match",
     {"tqac", "bm"}},
    {"the catalogue is shared memory; tests/unit/app and tests/catalogue attack that", {"app_table"}},
    {"pure functions of their arguments; the few that read the system ask no daemon", {"ip_util", "bitmap"}},
    {"pure functions of their arguments", {"attack_defence", "vector", "hex", "http_host", "qos"}},
};

const not_swept functions[] = {
    {"response hooks: they ignore their arguments and return 0",
     {"ip_defrag_mgi_get_resp", "arp_mgi_get_resp"}},
    {"pure functions of their arguments",
     {"is_mac_null",
      "bhv_mail_type2name",
      "issu_get_clist_one",
      "issu_first_ver_get",
      "issu_ver_up_ck",
      "issu_ver_down_ck",
      "_issu_ver_ck_",
      "vchassisd_vm_type2str",
      "vchassisd_vm_type2low_str",
      "vchassisd_vm_flavor2str",
      "vchassisd_vm_state2str",
      "vchassisd_stauts_2str",
      "vchassisd_resource_type2str",
      "vchassisd_cmp_type_str2type",
      "vchassisd_trans_vswitch_type",
      "vchassisd_trans_ip_range",
      "chassisd_vssm_cpu_cap_check",
      "vchassisd_metadata_string_handler",
      "libchassisd_storage_type_2_string",
      "libvchassisd_addr_get_max_vm_count_per_time"}},
    {"they fill a message of the caller's and send nothing",
     {"drv_port_stats_msg_init", "drv_unit_port_stats_msg_init", "drv_port_stats_msg_init_eye",
      "drv_port_stats_msg_init_serdes", "drv_port_stats_msg_init_px_config",
      "drv_port_stats_msg_init_set_px_config", "drv_get_port_drv_info_msg_init"}},
    {"they do nothing and return 0", {"libvchassisd_exec_vesa", "libvchassisd_get_vchassis_status"}},
    {"the store of the upgrade family's texts", {"set_err_str", "issu_err_str_get"}},
    {"a table, not a function", {"bhv_mail_type_table"}},
    {"they ask the platform's predicates, files and commands; tests/unit/sys/storage_test.cpp is theirs",
     {"check_emmc_convert_by_usb", "libchassisd_get_disk_type_bypath", "tq_get_internal_storage_type",
      "tq_get_external_storage_type", "libchassisd_get_block_storage_num",
      "libchassisd_get_block_storage_info", "libchassisd_get_sata_ssd_disk_sn",
      "libchassisd_get_pcie_ssd_disk_sn", "libchassisd_get_harddisk_sn",
      "libchassisd_get_disk_filesystem_type_byname", "libchassisd_get_device_name",
      "libchassisd_get_disk_device_model", "drv_direct_uplink_is_enabled", "drv_set_direct_uplink"}},
};

/* Exported name to the header it is listed under. */
std::map<std::string, std::string> promised()
{
    const std::regex of_header(R"(/\* libmix/(\w+)\.h \*/)"), symbol(R"(\s+(\w+);)");
    std::map<std::string, std::string> out;
    std::ifstream map(MIX_MAP);
    std::string header;
    std::smatch found;
    for (std::string line; std::getline(map, line) && line != "local:";) {
        if (std::regex_search(line, found, of_header))
            header = found[1];
        else if (std::regex_match(line, found, symbol))
            out[found[1]] = header;
    }
    return out;
}

template <size_t Size>
std::multiset<std::string> names_in(const not_swept (&table)[Size])
{
    std::multiset<std::string> out;
    for (const not_swept &each : table)
        out.insert(each.names.begin(), each.names.end());
    return out;
}

TEST(every_exported_function, is_swept_or_excused_once)
{
    std::multiset<std::string> swept;
    for (const client &each : clients())
        swept.insert(each.name);
    const std::multiset<std::string> whole_headers = names_in(headers), excused = names_in(functions);
    const auto promises = promised();
    ASSERT_GT(promises.size(), 300u) << "the list of exports could not be read";
    for (const auto &[name, header] : promises) {
        const size_t times = swept.count(name) + excused.count(name) + whole_headers.count(header);
        EXPECT_EQ(times, 1u) << name << " of libmix/" << header << ".h "
                             << (times == 0 ? "is not in the sweep" : "stands here more than once");
    }
    for (const auto &list : {swept, excused})
        for (const std::string &name : list)
            EXPECT_TRUE(promises.contains(name)) << name << " is not exported";
}

TEST(every_swept_function, is_fuzzed)
{
    std::string sources;
    for (const char *name : {MIX_FUZZ_DIRECTORY "/listing_fuzz.cpp", MIX_FUZZ_DIRECTORY "/record_fuzz.cpp"}) {
        std::ifstream file(name);
        sources.append(std::istreambuf_iterator<char>(file), {});
    }
    const std::regex word(R"(\w+)");
    const std::set<std::string> words(std::sregex_token_iterator(sources.begin(), sources.end(), word), {});
    for (const client &each : clients())
        EXPECT_TRUE(words.contains(each.name))
            << each.name << " is in neither of the targets listing and record";
}

} // namespace

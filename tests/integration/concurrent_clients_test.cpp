/*
 * Clients of every family at once: threads that make all calls, in orders of their own, each get the answers
 * that one thread alone gets; children forked among them do, too. Under the thread sanitizer this shows that
 * nothing is shared but what the headers name: the name of a virtual router (and with it the changes of
 * static ARP entries) and the error text of upgrades, whose functions are called here without failing.
 */
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <libmix/app_table.h>
#include <libmix/arp.h>
#include <libmix/attack_defence.h>
#include <libmix/bhv.h>
#include <libmix/bitmap.h>
#include <libmix/bm.h>
#include <libmix/chassisd.h>
#include <libmix/dhcpsn.h>
#include <libmix/drv.h>
#include <libmix/gas.h>
#include <libmix/hex.h>
#include <libmix/http_host.h>
#include <libmix/ip_util.h>
#include <libmix/ipdefrag.h>
#include <libmix/isp.h>
#include <libmix/issu.h>
#include <libmix/mac.h>
#include <libmix/nd.h>
#include <libmix/qos.h>
#include <libmix/spoofing.h>
#include <libmix/tqac.h>
#include <libmix/vchassisd.h>
#include <libmix/vector.h>

#include "support/children.h"
#include "support/mixd_fixture.h"

using namespace mixtest;

namespace
{

constexpr unsigned threads = 4, rounds = 5, forks = 10;

/* What a call gave: the same whoever calls, and whenever. */
class answer
{
  public:
    answer &add(const void *bytes, size_t size)
    {
        const auto *from = static_cast<const uint8_t *>(bytes);
        for (size_t i = 0; i < size; i++)
            digest_ = (digest_ ^ from[i]) * 0x100000001b3u;
        return *this;
    }
    answer &add(const char *text) { return add(text, std::strlen(text)); }
    template <class Number>
    requires std::is_integral_v<Number> answer &add(Number number) { return add(&number, sizeof number); }
    answer &expect(bool well)
    {
        well_ = well_ && well;
        return *this;
    }
    [[nodiscard]] bool well() const { return well_; }
    bool operator==(const answer &) const = default;

  private:
    uint64_t digest_ = 0xcbf29ce484222325;
    bool well_ = true;
};

/* Takes the rows of a listing; of each the first bytes, which don't change with time. */
template <size_t Key>
int fold(const void *row, void *context, int)
{
    static_cast<answer *>(context)->add(row, Key);
    return 0;
}

template <size_t Key>
int fold_record(const void *record, void *context)
{
    return fold<Key>(record, context, 0);
}

template <class List>
answer listed(List &&list)
{
    answer out;
    const int64_t rows = static_cast<int64_t>(list(&out));
    return out.add(rows).expect(rows > 0);
}

struct job {
    const char *name;
    answer (*call)();
};

const job reads[] = {
    {"fragment settings",
     [] {
         uint32_t first = 0, second = 0;
         const int result = get_ipdefrag_para(&first, &second, nullptr);
         return answer().add(first).add(second).expect(result == 0 && first == 100);
     }},
    {"ARP rows",
     [] { return listed([](void *to) { return get_arp_items(0, 0, 0, fold<4>, to, nullptr, 0, 0); }); }},
    {"ARP rows of a router",
     [] {
         return listed([](void *to) { return get_arp_items_vr(0, 1, 0, 0, fold<4>, to, nullptr, 0, 0); });
     }},
    {"ARP rows with their ports",
     [] { return listed([](void *to) { return get_arp_mac_items(fold<4>, to, nullptr, 0, 0); }); }},
    {"ARP count",
     [] { return answer().add(get_arp_mac_items_count(nullptr, 0, nullptr, nullptr, nullptr, nullptr)); }},
    {"ARP summary",
     [] {
         uint8_t out[24] = {};
         return answer().expect(arp_generic_data_get(0, 1, out, nullptr, 0, 0) >= 0);
     }},
    {"neighbours",
     [] {
         return listed([](void *to) {
             return get_nd_items_detail(0, 0, 0, nullptr, fold<16>, to, nullptr, 0, 0, 0, 0);
         });
     }},
    {"neighbours that match",
     [] {
         return listed([](void *to) {
             const uint8_t all[16] = {};
             uint32_t total = 0;
             const uint32_t rows =
                 get_nd_items_ex2_vr(fold<16>, to, nullptr, 0, 0, all, nullptr, 0, 0, 1, &total);
             static_cast<answer *>(to)->add(total);
             return rows;
         });
     }},
    {"ARP spoofing",
     [] { return listed([](void *to) { return get_aspf_stats_items(0, 0, 0, fold<6>, to, nullptr); }); }},
    {"ND spoofing",
     [] { return listed([](void *to) { return get_ndspf_stats_items(0, 0, fold<16>, to, nullptr); }); }},
    {"ARP inspection",
     [] {
         return listed([](void *to) { return arpi_config_show(0, nullptr, 0, 0, fold<70>, to, nullptr); });
     }},
    {"ND inspection",
     [] {
         return listed([](void *to) { return ndi_config_show(0, nullptr, 0, 0, fold<38>, to, nullptr); });
     }},
    {"MAC entries",
     [] {
         answer out;
         const int rows = get_mac_items(0, 0, 0, nullptr, fold<0>, &out, nullptr, 0, 0, 0, 0, 0);
         return out.expect(rows >= 200);
     }},
    {"DHCP bindings",
     [] {
         return listed(
             [](void *to) { return get_dhcpsn_items(0, 0, 0, 0, nullptr, fold<6>, to, nullptr, 0, 0); });
     }},
    {"DHCP binding count",
     [] { return listed([](void *) { return get_dhcpsn_items_number(10, 0, 0, 0, nullptr, nullptr); }); }},
    {"behaviour objects",
     [] {
         return listed([](void *to) { return get_bhv_obj(nullptr, 0, 0, fold_record<32>, to, nullptr); });
     }},
    {"behaviour profiles",
     [] { return listed([](void *to) { return get_bhv_profile(nullptr, fold_record<32>, to, nullptr); }); }},
    {"ISP",
     [] { return answer().expect(check_ip_isp(0x0a000001, 1) == 1 && check_ip_isp(0x0b000001, 1) == 0); }},
    {"slots",
     [] {
         uint8_t table[48 * 32] = {};
         uint32_t length = sizeof table;
         const int result = chassisd_get_slot_status(table, &length);
         answer out;
         for (uint32_t at = 0; at < length && at < sizeof table; at += 48)
             out.add(table + at, 8);
         return out.add(length).expect(result == 0 && length >= 96);
     }},
    {"a processor",
     [] {
         uint32_t record[5] = {};
         return answer().expect(chassisd_get_local_cpu_info(record) == 0);
     }},
    {"modules",
     [] {
         uint32_t count = 0;
         const int result = libchassisd_get_module_number(&count);
         uint32_t record[58] = {};
         return answer()
             .add(count)
             .expect(result == 0 && libchassisd_get_module_info(record, 0) == 0)
             .add(record, sizeof record);
     }},
    {"upgrade summary",
     [] {
         uint8_t summary[712] = {};
         return answer().expect(issu_show_sum(0, summary) == 0).add(summary, sizeof summary);
     }},
    {"upgrade version",
     [] {
         char version[128] = "";
         return answer().expect(issu_ver_get(4, 0, version, sizeof version) == 0).add(version);
     }},
    {"service mode",
     [] {
         uint16_t mode = 0;
         return answer().expect(libvchassisd_get_service_mode(&mode) == 0 && mode == 7);
     }},
    {"processors of a host",
     [] {
         uint32_t count[3] = {};
         return answer().expect(libvchassisd_get_slot_host_cpu_num(2, count) == 0).add(count, sizeof count);
     }},
    {"ports", [] { return answer().add(drv_get_port_maxnum(0)).expect(is_port_valid(0, 0) == 1); }},
    {"a port's statistics",
     [] {
         std::vector<uint8_t> message(12568);
         drv_port_stats_msg_init(message.data(), 0, 0, 0, 0, 0);
         return answer().expect(drv_get_port_stats(message.data(), 12568) == 0);
     }},
    {"applications",
     [] {
         tq_app_table_init();
         return answer().add(tq_app_name2type("DNS")).add(tq_app_type2name(53)).add(tq_app_type2category(53));
     }},
    {"addresses",
     [] {
         uint32_t ip = 0;
         char text[16];
         answer out;
         out.add(ipv4str_2_uint("10.1.2.3", &ip))
             .add(ip)
             .add(ipv4_2_str(ip, text, 16))
             .add(maskv4num_2_str(20, text, 16));
         out.add(is_ipv4_prefix_str("10.0.0.0/8")).add(is_ipv6_prefix_str("2001:db8::/32"));
         return out.expect(is_ipv6_g_prefix_str("2001:db8::/32") == 1 && is_ipv4_prefix_str("10.0.0/8") == 0);
     }},
    {"bitmaps",
     [] {
         uint8_t bitmap[513] = {};
         for (uint32_t vid = 1; vid < 4095; vid += 7)
             bitmap_port_set_vid(bitmap, vid);
         return answer().add(bitmap_get_port_vlan_num(bitmap));
     }},
    {"names",
     [] {
         return answer()
             .add(tq_ad_type2name(3))
             .add(ad_name2id("nothing"))
             .add(qos_phb_name2type("ef"))
             .add(bhv_mail_type2name(2));
     }},
    {"codecs",
     [] {
         char text[8];
         uint8_t back[4];
         hex_encode(text, reinterpret_cast<const uint8_t *>("\x12\xab\xcd\xef"), 4);
         hex_decode(back, text, 8);
         return answer().add(text, 8).add(back, 4).add(check_http_host("example.net:80", 14));
     }},
    {"a vector",
     [] {
         vector *own = vector_init(1);
         int value = 0;
         for (uint32_t i = 0; i < 20; i++)
             vector_set_index(own, i, &value);
         answer out;
         out.add(vector_count(own));
         vector_free(own);
         return out;
     }},
    {"a substring",
     [] {
         bm_state state;
         bm_match_init(&state, "needle");
         const std::string text = std::string(300, 'n') + "needle";
         return answer().add(bm_match_proc(text.data(), static_cast<uint16_t>(text.size()), &state));
     }},
    {"a compatibility list", [] { return answer().add(issu_ver_up_ck("UP-LIST\n6.0.*\nEND", "6.0.1")); }},
};

/* Changes, each thread's of things of its own. 0: accepted. */
struct change {
    const char *name;
    int (*make)(uint8_t thread);
};

std::atomic<unsigned> complaints = 0;

int print(const char *format, ...)
{
    char text[300];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    std::fprintf(stderr, "%s\n", text);
    complaints++;
    return 0;
}

const change changes[] = {
    {"fragment settings", [](uint8_t) { return set_ipdefrag_para(100, 30, print); }},
    {"a MAC description",
     [](uint8_t thread) {
         const uint8_t mac[6] = {2, 0xaa, 0, 0, 0, thread};
         return mac_description_add(mac, "desk", print, nullptr, 0, 0, 0);
     }},
    {"a static MAC entry",
     [](uint8_t thread) {
         const uint8_t mac[6] = {2, 0xbb, 0, 0, 0, thread};
         const int added = mac_add_static_items("br0", "ge0", mac, 10, print, nullptr, 0, 0, 0);
         return added != 0 ? added : mac_remove_static_items("br0", "ge0", mac, 10, print, 0, 0, 0, 0);
     }},
    {"an announced address",
     [](uint8_t thread) {
         const uint8_t mac[6] = {2, 0xcc, 0, 0, 0, thread};
         const uint32_t address = 0x0a090100u + thread;
         const int added = gas_add_item(0, address, mac, "ge0", 60, 1, print, nullptr, 0);
         return added != 0 ? added : gas_del_item(0, address, "ge0", print, nullptr, 0);
     }},
    {"DHCP snooping", [](uint8_t) { return dhcpsn_enable_set("ge0", 1, print); }},
};

class concurrent_clients : public mixd_test
{
  protected:
    void prepare() override
    {
        /* The catalogue is there where it is this test's alone. */
        const char *own = std::getenv("MIX_PRIVATE_SHM");
        mixd.keep_catalogue = own != nullptr && *own == '1';
        mixd.arguments = {"--scenario", MIX_APPLIANCE_SCENARIO};
        setenv("MIX_BOARD", "chassis-master", 1);
    }
    void SetUp() override
    {
        mixd_test::SetUp();
        for (const job &each : reads) {
            expected.push_back(each.call());
            EXPECT_TRUE(expected.back().well()) << each.name;
        }
        /* Of clients that make an interface known to the gateway at the same time all but one are told that
         * it is. */
        EXPECT_EQ(change_once(threads), "");
        complaints = 0;
    }
    void TearDown() override
    {
        unsetenv("MIX_BOARD");
        mixd_test::TearDown();
    }

    /* Every call once, from a place of one's own; the names of those that answered otherwise. */
    [[nodiscard]] std::string once(unsigned first) const
    {
        std::string wrong;
        for (size_t i = 0; i < std::size(reads); i++) {
            const size_t at = (first + i) % std::size(reads);
            if (!(reads[at].call() == expected[at]))
                wrong += std::string(reads[at].name) + "; ";
        }
        return wrong;
    }
    static std::string change_once(uint8_t thread)
    {
        std::string wrong;
        for (const change &each : changes)
            if (each.make(thread) != 0)
                wrong += std::string(each.name) + "; ";
        return wrong;
    }

    std::vector<answer> expected;
};

TEST_F(concurrent_clients, of_every_family_get_the_answers_of_one_alone)
{
    std::vector<std::string> wrong(threads);
    std::vector<std::thread> all;
    for (unsigned i = 0; i < threads; i++)
        all.emplace_back([&, i] {
            for (unsigned round = 0; round < rounds; round++)
                wrong[i] += once(i * 9 + round) + change_once(static_cast<uint8_t>(i));
        });
    for (std::thread &each : all)
        each.join();
    for (const std::string &each : wrong)
        EXPECT_EQ(each, "");
    EXPECT_EQ(complaints, 0u);
}

/* A child takes nothing of what its parent's threads have under way: both go on with connections of their
 * own. */
TEST_F(concurrent_clients, may_be_forked_among_them)
{
    std::atomic<bool> over = false;
    std::vector<std::string> wrong(threads);
    std::vector<std::thread> all;
    for (unsigned i = 0; i < threads; i++)
        all.emplace_back([&, i] {
            for (unsigned round = 0; !over; round++)
                wrong[i] += once(i * 9 + round);
        });
    for (unsigned i = 0; i < forks; i++) {
        const pid_t child = beside([&] { return once(i * 3).empty(); });
        EXPECT_EQ(once(i), "");
        EXPECT_TRUE(ends_well(child, 30)) << "child " << i;
    }
    over = true;
    for (std::thread &each : all)
        each.join();
    for (const std::string &each : wrong)
        EXPECT_EQ(each, "");
}

} // namespace

#include <libmix/chassisd.h>

#include <dirent.h>
#include <dlfcn.h>

#include <cerrno>

#include "unit/sys/own_root.h"
#include "unit/sys/sys_cases.h"

using namespace mixtest;

/* Pipes can be made to fail: this program's popen stands before the C library's. */
static std::function<FILE *()> instead_of_popen;
extern "C" FILE *popen(const char *command, const char *mode)
{
    if (instead_of_popen)
        return instead_of_popen();
    using popen_function = FILE *(const char *, const char *);
    return reinterpret_cast<popen_function *>(dlsym(RTLD_NEXT, "popen"))(command, mode);
}

namespace
{

struct storage : platform_test {
    void SetUp() override
    {
        platform_test::SetUp();
        platform().image_path = "/no;command"; /* no device is looked for unless a test wants it */
        output.reset();
        set_err_str("%s", "");
    }
};

/* --- the order of decisions --- */

const char *const disk_hardware[] = {"tq_is_hw_ls",
                                     "tq_is_hw_advantech",
                                     "tq_is_hw_phytium_ft1500",
                                     "tq_is_hw_phytium_ft2000",
                                     "tq_is_hw_phytium_d2000",
                                     "tq_is_hw_zxc",
                                     "tq_is_hw_oihygon"};

struct appliance {
    bool cf = false;
    int usb = 0; /* 1 to 3: one of the three platforms, 4: the eMMC platform */
    bool oihygon_8510 = false, nvme = false;
    int emmc = 0;     /* 1: a platform, 2: 0x1180100, 3: kunlun */
    int disk_hw = -1; /* index of disk_hardware */
    bool chassis_product = false;
    bool chassis_platform = false, master = false, subcard_200 = false;
    uint32_t platform_type = 0;
    bool harddisk_db = false;
};

constexpr uint32_t usb_platforms[] = {0x10f0200, 0x10f0100, 0x1120100};

void describe(const appliance &with)
{
    auto &board = platform().board;
    auto &board_of = platform().board_of;
    board.clear();
    board_of.clear();
    platform().board_calls.clear();
    board["tq_is_mirel5_cf_platform"] = with.cf;
    if (with.usb >= 1 && with.usb <= 3)
        board_of[{"tq_is_platform", usb_platforms[with.usb - 1]}] = 1;
    board["tq_is_mirel7_emmc_platform"] = with.usb == 4;
    board["tq_is_hw_oihygon_8510"] = with.oihygon_8510;
    board["tq_is_support_nvme_ssd_platform"] = with.nvme;
    board["tq_is_a_platform"] = with.emmc == 1;
    if (with.emmc == 2)
        board_of[{"tq_is_platform", 0x1180100}] = 1;
    board["tq_is_kunlun_platform"] = with.emmc == 3;
    if (with.disk_hw >= 0)
        board[disk_hardware[with.disk_hw]] = 1;
    board["tq_platform_id"] = 0x51;
    board_of[{"tq_get_nameid", 0x51}] = 0x52;
    board_of[{"tq_get_system_product_type", 0x52}] = with.chassis_product ? 0x1050100 : 0x1050101;
    if (with.chassis_platform)
        board_of[{"tq_is_platform", 0x1050100}] = 1;
    board["tq_is_mcp_master"] = with.master;
    if (with.subcard_200)
        board_of[{"tq_is_mcpu_subcard_200", 0x51}] = 1;
    board["tq_platform_type"] = with.platform_type;
    board["tq_is_support_harddisk_db"] = with.harddisk_db;
}

/* An independent model: conditions and answers in a list, the first that holds wins. */
int expected_type(const appliance &with)
{
    const std::map<uint32_t, int> by_platform = {{0x1060600, 1}, {0x1060800, 1}, {0x1070100, 1},
                                                 {0x1070200, 1}, {0x1070400, 2}, {0x1070F00, 2}};
    const std::pair<bool, int> decisions[] = {
        {with.cf, 5},
        {with.usb != 0, 4},
        {with.oihygon_8510 && with.nvme, 6},
        {with.emmc != 0, 2},
        {with.disk_hw >= 0, 3},
        {with.chassis_product && with.chassis_platform && with.master, 1},
        {with.chassis_product && with.chassis_platform, 0},
        {with.chassis_product && with.subcard_200, 2},
        {with.chassis_product, 1},
        {by_platform.contains(with.platform_type),
         by_platform.contains(with.platform_type) ? by_platform.at(with.platform_type) : 0},
    };
    for (const auto &[holds, type] : decisions)
        if (holds)
            return type;
    return 0;
}

TEST_F(storage, internal_type_agrees_with_the_model_on_every_combination)
{
    constexpr uint32_t platform_types[] = {0,         0x1060600, 0x1060700, 0x1060800, 0x1070100,
                                           0x1070200, 0x1070300, 0x1070400, 0x1070F00, 0xffffffff};
    std::vector<appliance> chassis;
    for (int bits = 0; bits < 8; bits++)
        chassis.push_back({.chassis_product = true,
                           .chassis_platform = (bits & 1) != 0,
                           .master = (bits & 2) != 0,
                           .subcard_200 = (bits & 4) != 0,
                           .platform_type = 0x1070400});
    for (const uint32_t type : platform_types)
        chassis.push_back({.chassis_platform = true, .master = true, .platform_type = type});
    size_t checked = 0;
    for (const appliance &base : chassis)
        for (int bits = 0; bits < 8; bits++)
            for (int usb = 0; usb <= 4; usb++)
                for (int emmc = 0; emmc <= 3; emmc++)
                    for (int disk = -1; disk < 7; disk++) {
                        appliance with = base;
                        with.cf = (bits & 1) != 0;
                        with.oihygon_8510 = (bits & 2) != 0;
                        with.nvme = (bits & 4) != 0;
                        with.usb = usb;
                        with.emmc = emmc;
                        with.disk_hw = disk;
                        describe(with);
                        ASSERT_EQ(tq_get_internal_storage_type(), expected_type(with))
                            << "cf " << with.cf << " usb " << usb << " emmc " << emmc << " disk " << disk
                            << " type " << with.platform_type << " product " << with.chassis_product;
                        checked++;
                    }
    EXPECT_EQ(checked, 18u * 8 * 5 * 4 * 8);
}

TEST_F(storage, predicates_are_asked_in_order)
{
    describe({});
    EXPECT_EQ(tq_get_internal_storage_type(), 0);
    std::vector<std::string> expected = {
        "tq_is_mirel5_cf_platform", "tq_is_platform(17760768)",   "tq_is_platform(17760512)",
        "tq_is_platform(17957120)", "tq_is_mirel7_emmc_platform", "tq_is_hw_oihygon_8510",
        "tq_is_a_platform",         "tq_is_platform(18350336)",   "tq_is_kunlun_platform"};
    for (const char *each : disk_hardware)
        expected.emplace_back(each);
    for (const char *each :
         {"tq_platform_id", "tq_get_nameid(81)", "tq_get_system_product_type(82)", "tq_platform_type"})
        expected.emplace_back(each);
    EXPECT_EQ(platform().board_calls, expected);
}

TEST_F(storage, external_type)
{
    describe({});
    EXPECT_EQ(tq_get_external_storage_type(), 0);
    describe({.harddisk_db = true});
    EXPECT_EQ(tq_get_external_storage_type(), 3);
}

TEST_F(storage, number_agrees_with_the_model_on_every_combination)
{
    for (int bits = 0; bits < 16; bits++)
        for (int disk = -1; disk < 7; disk++) {
            const appliance with{.cf = (bits & 1) != 0,
                                 .usb = (bits & 2) != 0 ? 4 : 0,
                                 .nvme = (bits & 4) != 0,
                                 .disk_hw = disk,
                                 .harddisk_db = (bits & 8) != 0};
            describe(with);
            uint32_t count = 99;
            EXPECT_EQ(libchassisd_get_block_storage_num(&count), 0);
            uint32_t expected = with.nvme ? 2 : 1;
            if ((with.harddisk_db && disk < 0) || with.cf || with.usb == 4)
                expected = 2;
            EXPECT_EQ(count, expected) << bits << " " << disk;
        }
}

/* --- the storage record --- */

static_assert(sizeof(libchassisd_block_storage) == 72);

struct record_case {
    int type;
    const char *device;
    const char *sized;
    bool by_path;
    const char *description;
    appliance with;
};

TEST_F(storage, record_of_the_internal_storage)
{
    const record_case cases[] = {
        {1, "mtdblock", "/flash", true, "internal storage nandflash", {.platform_type = 0x1060600}},
        {2, "mmcblk", "/dev/mmcblk0", false, "internal storage eMMC", {.emmc = 1}},
        {3, "sda", "/dev/sda", false, "internal storage HDD/SSD", {.disk_hw = 0}},
        {4, "sdb", "/dev/sdb", false, "internal storage eMMC", {.usb = 4}},
        {4, "sda", "/dev/sda", false, "internal storage eMMC", {.usb = 1}},
        {5, "sda", "/dev/sda", false, "internal storage CF card", {.cf = true}},
        {6,
         "nvme0n1",
         "/dev/nvme0n1",
         false,
         "internal storage NVME SSD",
         {.oihygon_8510 = true, .nvme = true}},
    };
    for (const record_case &each : cases) {
        describe(each.with);
        platform().disk_calls.clear();
        platform().disk_figures[0] = 0x1122334455667788;
        platform().disk_figures[2] = 0x99aabbccddeeff00;
        output.reset();
        EXPECT_EQ(libchassisd_get_block_storage_info(output.as<libchassisd_block_storage>(), 1), 0);
        const auto type = static_cast<uint32_t>(each.type);
        EXPECT_EQ(output.first(4), le32(type));
        EXPECT_EQ(bytes(output.bytes + 8, output.bytes + 73), join({le64(0x1122334455667788),
                                                                    le64(0x99aabbccddeeff00),
                                                                    text_field(each.device, 16),
                                                                    text_field(each.description, 32),
                                                                    {0x5A}}));
        ASSERT_EQ(platform().disk_calls.size(), 1u);
        EXPECT_EQ(platform().disk_calls[0].name, each.sized);
        EXPECT_EQ(platform().disk_calls[0].type,
                  each.by_path ? std::optional<uint32_t>() : std::optional<uint32_t>(type));
    }
    EXPECT_TRUE(platform().log.empty());
}

TEST_F(storage, record_ignores_that_the_sizes_cannot_be_had)
{
    describe({.emmc = 1});
    platform().disk_result = -1;
    EXPECT_EQ(libchassisd_get_block_storage_info(output.as<libchassisd_block_storage>(), 1), 0);
    EXPECT_EQ(output.first(4), le32(2));
}

TEST_F(storage, record_of_the_external_disk)
{
    describe({.harddisk_db = true});
    EXPECT_EQ(libchassisd_get_block_storage_info(output.as<libchassisd_block_storage>(), 2), 0);
    EXPECT_EQ(output.first(4), le32(3));
    EXPECT_EQ(
        bytes(output.bytes + 8, output.bytes + 72),
        join({le64(11), le64(33), text_field("nvme", 16), text_field("external storage harddisk", 32)}));
    ASSERT_EQ(platform().disk_calls.size(), 1u);
    EXPECT_EQ(platform().disk_calls[0].name, "/etc/mnt/nvme");
    EXPECT_FALSE(platform().disk_calls[0].type.has_value());
}

TEST_F(storage, record_that_there_is_none_of_is_logged)
{
    describe({});
    const std::pair<int, std::string> cases[] = {
        {1, "Error: libchassisd_get_block_storage_info get internal info error, the wrong type is 0\n"},
        {2, "Error: libchassisd_get_block_storage_info get external info error, the wrong type is 0\n"},
        {3,
         "Error: libchassisd_get_block_storage_info get internal or external storage info error, there are "
         "only one or two memory devices\n"},
        {0,
         "Error: libchassisd_get_block_storage_info get internal or external storage info error, there are "
         "only one or two memory devices\n"},
        {-1, "Error: libchassisd_get_block_storage_info get internal or external storage info error, there "
             "are only one or two memory devices\n"},
    };
    for (const auto &[which, text] : cases) {
        platform().log.clear();
        EXPECT_EQ(libchassisd_get_block_storage_info(output.as<libchassisd_block_storage>(), which), -1);
        EXPECT_EQ(platform().log, (std::vector<std::string>{text}));
    }
    EXPECT_TRUE(output.untouched());
    EXPECT_TRUE(platform().disk_calls.empty());
    EXPECT_EQ(platform().console, "");
}

TEST_F(storage, short_names)
{
    const char *const names[] = {"NULL", "nandflash", "eMMC",     "HDD/SSD",
                                 "eMMC", "CFcard",    "NVME SSD", "NULL"};
    for (uint32_t type = 0; type < 8; type++) {
        EXPECT_EQ(libchassisd_storage_type_2_string(type, output.as<char>(), 100), 0);
        EXPECT_STREQ(output.as<char>(), names[type]);
    }
    EXPECT_EQ(libchassisd_storage_type_2_string(0xffffffff, output.as<char>(), 100), 0);
    EXPECT_STREQ(output.as<char>(), "NULL");
    EXPECT_EQ(libchassisd_storage_type_2_string(1, output.as<char>(), 5), 0);
    EXPECT_STREQ(output.as<char>(), "nand");
    output.reset();
    EXPECT_EQ(libchassisd_storage_type_2_string(1, output.as<char>(), 1), 0);
    EXPECT_EQ(output.first(2), (bytes{0, 0x5A}));
    output.reset();
    EXPECT_EQ(libchassisd_storage_type_2_string(1, output.as<char>(), 0), 0);
    EXPECT_EQ(libchassisd_storage_type_2_string(1, output.as<char>(), -1), 0);
    EXPECT_TRUE(output.untouched());
}

/* --- figures of the chassis manager --- */

sys_case figures(const char *name, std::function<int64_t()> call, uint32_t destination, uint32_t subtype)
{
    return {.name = name,
            .call = std::move(call),
            .sent = {sender::send_and_recv_timeout, destination, 24, 3000, le32(subtype), 25}};
}

const sys_case figure_cases[] = {
    figures(
        "harddisk_info", [] { return chassisd_get_harddisk_info(output.as<uint64_t>()); }, 17, 13),
    figures(
        "slot_flash_info", [] { return chassisd_get_slot_flash_info(3, 0x10002, output.as<uint64_t>()); },
        0x03000211, 14),
    figures(
        "local_flash_info", [] { return chassisd_get_slot_flash_info(0, 5, output.as<uint64_t>()); }, 17, 14),
};

struct storage_figures : sys_exchanges {
};

TEST_P(storage_figures, send_their_request)
{
    check_message(GetParam());
}

TEST_P(storage_figures, fail_as_described)
{
    check_failures(GetParam());
}

TEST_P(storage_figures, are_24_bytes_at_least)
{
    for (size_t length = 23; length < 28; length++) {
        prepare(GetParam());
        platform().fallback = {0, 0, repeat(0x41, length), {}};
        EXPECT_EQ(GetParam().call(), length < 24 ? -1 : 0) << length;
        if (length < 24)
            EXPECT_TRUE(output.untouched());
        else
            EXPECT_EQ(output.first(25), join({repeat(0x41, 24), {0x5A}}));
    }
}

INSTANTIATE_TEST_SUITE_P(storage, storage_figures, testing::ValuesIn(figure_cases), sys_case_name);

TEST_F(storage, a_numa_io_board_tells_no_flash_figures)
{
    platform().board["tq_is_numa_ioc"] = 1;
    platform().fallback = {0, 0, repeat(1, 25), {}};
    EXPECT_EQ(chassisd_get_slot_flash_info(0, 0, output.as<uint64_t>()), -1);
    EXPECT_EQ(platform().allocations, 0u);
    EXPECT_EQ(chassisd_get_harddisk_info(output.as<uint64_t>()), 0);
}

/* --- commands --- */

/* A shell that records each command before it runs it. */
void record_commands()
{
    const std::string shell = "/.originals" + fs::canonical("/bin").string() + "/sh";
    own_root::replace_program("sh", "for last; do :; done\nprintf '%s\\n' \"$last\" >> /tmp/commands\nexec " +
                                        shell + " \"$@\"\n");
}

std::string commands()
{
    return own_root::read("/tmp/commands");
}

/* What df says about any path. */
void df_says(const std::string &device)
{
    own_root::write("/tmp/df.out", "Filesystem     1K-blocks    Used Available Use% Mounted on\n" + device +
                                       "  10255636 4321 999 42% /\n");
    own_root::replace_program("df", "printf '%s\\n' \"$*\" >> /tmp/df.arguments\ncat /tmp/df.out\n");
}

struct device_case {
    const char *device;
    bool cf, usb;
    int type;
};

TEST_F(storage, type_of_a_path_is_that_of_its_device)
{
    in_own_root([] {
        const device_case cases[] = {
            {"/dev/mmcblk0p2", false, false, 2},
            {"/dev/mmcblk0p2", true, true, 2},
            {"/dev/sda1", false, false, 3},
            {"/dev/sda1", true, false, 5},
            {"/dev/sda1", true, true, 5},
            {"/dev/sda1", false, true, 4},
            {"/dev/vda1", false, false, 3},
            {"/dev/vda1", true, true, 3},
            {"/dev/mtdblock3", true, true, 1},
            {"/dev/nvme0n1p1", true, true, 6},
            {"/dev/nvme1n1p1", false, false, 0},
            {"/dev/loop0", true, true, 0},
            {"tmpfs", true, true, 0},
            {"/dev/mmc-sd-vda", false, false, 2},
            {"/dev/vda-sd", false, false, 3},
            {"/dev/vda-mtd", false, false, 3},
            {"/dev/mtd-nvme0n1", false, false, 1},
        };
        for (const device_case &each : cases) {
            df_says(each.device);
            describe({.cf = each.cf, .usb = each.usb ? 1 : 0});
            EXPECT_EQ(libchassisd_get_disk_type_bypath("/flash"), each.type) << each.device;
        }
    });
}

TEST_F(storage, command_for_a_path_is_this_one)
{
    in_own_root([] {
        df_says("/dev/mmcblk0p2");
        record_commands();
        EXPECT_EQ(libchassisd_get_disk_type_bypath("/mnt/a-b_c.d:e@f+g=h,i"), 2);
        EXPECT_EQ(commands(), "df /mnt/a-b_c.d:e@f+g=h,i | awk {'print $1'} | grep /\n");
        EXPECT_EQ(own_root::read("/tmp/df.arguments"), "/mnt/a-b_c.d:e@f+g=h,i\n");
    });
}

TEST_F(storage, first_line_decides_and_254_characters_of_it)
{
    in_own_root([] {
        describe({});
        df_says("/dev/loop0");
        own_root::write("/tmp/df.out", "/dev/vda1 1\n/dev/mmcblk0 1\n");
        EXPECT_EQ(libchassisd_get_disk_type_bypath("/"), 3);
        own_root::write("/tmp/df.out", "/" + std::string(250, 'x') + "mmc 1\n");
        EXPECT_EQ(libchassisd_get_disk_type_bypath("/"), 2);
        own_root::write("/tmp/df.out", "/" + std::string(251, 'x') + "mmc 1\n");
        EXPECT_EQ(libchassisd_get_disk_type_bypath("/"), 0);
        own_root::write("/tmp/df.out", "");
        EXPECT_EQ(libchassisd_get_disk_type_bypath("/"), 0);
    });
}

TEST_F(storage, image_path_comes_before_the_platform)
{
    in_own_root([] {
        df_says("/dev/vda1");
        platform().image_path = "/flash";
        describe({.emmc = 1});
        EXPECT_EQ(tq_get_internal_storage_type(), 3);
        EXPECT_TRUE(platform().board_calls.empty());
        df_says("/dev/loop0");
        EXPECT_EQ(tq_get_internal_storage_type(), 2) << "a device that can't be classified falls through";
    });
}

TEST_F(storage, no_other_character_reaches_a_shell)
{
    in_own_root([] {
        describe({});
        df_says("/dev/mmcblk0p2");
        own_root::replace_program("smartctl", "echo Serial Number: X\n");
        record_commands();
        const std::string harmless =
            "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-:@+=,";
        for (int c = 1; c < 256; c++) {
            fs::remove("/tmp/commands");
            const std::string path = std::string("/a") + static_cast<char>(c) + "b";
            const bool allowed = harmless.find(static_cast<char>(c)) != std::string::npos;
            EXPECT_EQ(libchassisd_get_disk_type_bypath(path.c_str()), allowed ? 2 : 0) << c;
            char serial[40];
            std::memset(serial, 'z', sizeof serial);
            EXPECT_EQ(libchassisd_get_sata_ssd_disk_sn(path.c_str(), serial, 32), 0);
            EXPECT_EQ(serial[0], allowed ? 'X' : '\0') << c;
            EXPECT_EQ(serial[31], '\0');
            EXPECT_EQ(fs::exists("/tmp/commands"), allowed) << c;
        }
    });
}

TEST_F(storage, path_that_is_missing_or_too_long_runs_nothing)
{
    in_own_root([] {
        df_says("/dev/mmcblk0p2");
        record_commands();
        EXPECT_EQ(libchassisd_get_disk_type_bypath(nullptr), 0);
        EXPECT_EQ(libchassisd_get_disk_type_bypath(std::string(5000, 'p').c_str()), 0);
        platform().image_path = nullptr;
        EXPECT_EQ(tq_get_internal_storage_type(), 0);
        EXPECT_EQ(commands(), "");
    });
}

const char *const smart_report = "smartctl 7.3\n"
                                 "Device Model:     Some SSD\n"
                                 "Serial Number:    S4XNF0M123456\n"
                                 "Serial Number:    second\n";

TEST_F(storage, sata_serial_number)
{
    in_own_root([] {
        own_root::write("/tmp/smart.out", smart_report);
        own_root::replace_program("smartctl",
                                  "printf '%s ' \"$@\" > /tmp/smart.arguments\ncat /tmp/smart.out\n");
        record_commands();
        output.reset();
        EXPECT_EQ(libchassisd_get_sata_ssd_disk_sn("sda", output.bytes, 32), 0);
        EXPECT_EQ(output.first(33), join({text_field("S4XNF0M123456", 32), {0x5A}}));
        EXPECT_EQ(commands(), "smartctl -i /dev/sda\n");
        EXPECT_EQ(own_root::read("/tmp/smart.arguments"), "-i /dev/sda ");

        output.reset();
        EXPECT_EQ(libchassisd_get_sata_ssd_disk_sn("sda", output.bytes, 4), 0);
        EXPECT_EQ(output.first(5), (bytes{'S', '4', 'X', 'N', 0x5A}));
        output.reset();
        EXPECT_EQ(libchassisd_get_sata_ssd_disk_sn("sda", output.bytes, 0), 0);
        EXPECT_EQ(libchassisd_get_sata_ssd_disk_sn("sda", output.bytes, -5), 0);
        EXPECT_TRUE(output.untouched());
        EXPECT_EQ(libchassisd_get_sata_ssd_disk_sn("sda", output.bytes, 50), 0);
        EXPECT_EQ(output.first(51), join({text_field("S4XNF0M123456", 50), {0x5A}}));
    });
}

TEST_F(storage, sata_serial_number_is_31_characters_at_most)
{
    in_own_root([] {
        own_root::write("/tmp/smart.out", "Serial Number: " + std::string(60, 'S') + "\n");
        own_root::replace_program("smartctl", "cat /tmp/smart.out\n");
        EXPECT_EQ(libchassisd_get_sata_ssd_disk_sn("sda", output.bytes, 40), 0);
        EXPECT_EQ(output.first(40), join({repeat('S', 31), repeat(0, 9)}));
    });
}

TEST_F(storage, sata_serial_number_is_looked_for_in_pieces_of_254_characters)
{
    in_own_root([] {
        own_root::replace_program("smartctl", "cat /tmp/smart.out\n");
        const std::pair<size_t, const char *> cases[] = {{239, "S"},      {240, ""},       {241, ""},
                                                         {242, "behind"}, {253, "behind"}, {254, "SERIAL"}};
        for (const auto &[before, serial] : cases) {
            own_root::write("/tmp/smart.out",
                            std::string(before, 'x') + "Serial Number:SERIAL\nSerial Number: behind\n");
            EXPECT_EQ(libchassisd_get_sata_ssd_disk_sn("sda", output.bytes, 32), 0);
            EXPECT_STREQ(output.as<char>(), serial) << before;
        }
    });
}

TEST_F(storage, sata_disk_without_a_serial_number)
{
    in_own_root([] {
        own_root::replace_program("smartctl", "cat /tmp/smart.out\n");
        for (const char *report : {"Device Model: x\n", "", "Serial Number\n", "Serial Number:\n"}) {
            own_root::write("/tmp/smart.out", report);
            output.reset();
            EXPECT_EQ(libchassisd_get_sata_ssd_disk_sn("sda", output.bytes, 32), 0);
            EXPECT_EQ(output.first(33), join({repeat(0, 32), {0x5A}})) << report;
        }
        EXPECT_EQ(libchassisd_get_sata_ssd_disk_sn(nullptr, output.bytes, 32), 0);
        fs::remove(fs::canonical("/bin") / "smartctl");
        output.reset();
        EXPECT_EQ(libchassisd_get_sata_ssd_disk_sn("sda", output.bytes, 32), 0) << "no such program";
        EXPECT_EQ(output.first(32), repeat(0, 32));
    });
}

TEST_F(storage, sata_command_is_cut_to_63_characters)
{
    in_own_root([] {
        own_root::replace_program("smartctl", "cat /dev/null\n");
        record_commands();
        EXPECT_EQ(libchassisd_get_sata_ssd_disk_sn(std::string(80, 'd').c_str(), output.bytes, 32), 0);
        EXPECT_EQ(commands(), "smartctl -i /dev/" + std::string(63 - 17, 'd') + "\n");
    });
}

const char *const nvme_report = "NVME Identify Controller:\n"
                                "vid       : 0x144d\n"
                                "sn        : S64DNF0R\n"
                                "mn        : Some NVMe\n";

TEST_F(storage, nvme_serial_number)
{
    in_own_root([] {
        EXPECT_EQ(libchassisd_get_pcie_ssd_disk_sn(output.bytes, 32), -1) << "no /bin/nvme";
        own_root::write("/tmp/nvme.out", nvme_report);
        own_root::replace_program("nvme", "printf '%s ' \"$@\" > /tmp/nvme.arguments\ncat /tmp/nvme.out\n");
        record_commands();
        output.reset();
        EXPECT_EQ(libchassisd_get_pcie_ssd_disk_sn(output.bytes, 32), 0);
        EXPECT_EQ(output.first(33), join({text_field("S64DNF0R\n", 32), {0x5A}}));
        EXPECT_EQ(commands(), "/bin/nvme id-ctrl /etc/nvme | grep sn | cut -d':' -f2 | cut -d' ' -f2\n");
        EXPECT_EQ(own_root::read("/tmp/nvme.arguments"), "id-ctrl /etc/nvme ");
        output.reset();
        EXPECT_EQ(libchassisd_get_pcie_ssd_disk_sn(output.bytes, 300), 0);
        EXPECT_EQ(output.first(301), join({text_field("S64DNF0R\n", 300), {0x5A}}));
    });
}

TEST_F(storage, nvme_serial_number_is_254_characters_at_most)
{
    in_own_root([] {
        own_root::write("/tmp/nvme.out", "sn : " + std::string(300, 'N') + "\n");
        own_root::replace_program("nvme", "cat /tmp/nvme.out\n");
        EXPECT_EQ(libchassisd_get_pcie_ssd_disk_sn(output.bytes, 256), 0);
        EXPECT_EQ(output.first(256), join({repeat('N', 254), {0, 0}}));
    });
}

TEST_F(storage, nvme_serial_number_is_the_first_line)
{
    in_own_root([] {
        own_root::write("/tmp/nvme.out", "sn : FIRST\nsn : SECOND\n");
        own_root::replace_program("nvme", "cat /tmp/nvme.out\n");
        EXPECT_EQ(libchassisd_get_pcie_ssd_disk_sn(output.bytes, 32), 0);
        EXPECT_EQ(output.first(32), text_field("FIRST\n", 32));
    });
}

TEST_F(storage, nvme_program_must_be_executable_and_may_say_nothing)
{
    in_own_root([] {
        own_root::replace_program("nvme", "exit 1\n");
        output.reset();
        EXPECT_EQ(libchassisd_get_pcie_ssd_disk_sn(output.bytes, 32), 0);
        EXPECT_EQ(output.first(32), repeat(0, 32));
        fs::permissions(fs::canonical("/bin") / "nvme", fs::perms{0644});
        EXPECT_EQ(libchassisd_get_pcie_ssd_disk_sn(output.bytes, 32), -1);
    });
}

FILE *no_pipe()
{
    errno = EMFILE;
    return nullptr;
}

TEST_F(storage, pipe_that_cannot_be_opened)
{
    in_own_root([] {
        own_root::replace_program("nvme", "cat /tmp/nvme.out\n");
        instead_of_popen = no_pipe;
        output.reset();
        EXPECT_EQ(libchassisd_get_disk_type_bypath("/"), 0);
        EXPECT_EQ(libchassisd_get_sata_ssd_disk_sn("sda", output.bytes, 32), -1);
        EXPECT_EQ(libchassisd_get_pcie_ssd_disk_sn(output.bytes, 32), -1);
        EXPECT_TRUE(output.untouched());
    });
}

TEST_F(storage, commands_are_waited_for)
{
    in_own_root([] {
        own_root::empty("/sys/block");
        own_root::write("/tmp/sata_dev", "/dev/sda");
        own_root::write("/sys/block/sda/device/model", "Some SSD");
        own_root::replace_program("df", "echo /dev/sda1\n");
        own_root::replace_program("smartctl", "echo 'Serial Number: S'\n");
        own_root::replace_program("nvme", "echo 'sn : N'\n");
        const std::function<int()> functions[] = {
            [] { return libchassisd_get_disk_type_bypath("/") == 3 ? 0 : -1; },
            [] { return libchassisd_get_sata_ssd_disk_sn("sda", output.bytes, 32); },
            [] { return libchassisd_get_pcie_ssd_disk_sn(output.bytes, 32); },
            [] { return libchassisd_get_disk_device_model(output.bytes, 1, 64); },
        };
        for (const auto &call : functions) {
            EXPECT_EQ(call(), 0);
            EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a process was left";
            EXPECT_EQ(errno, ECHILD);
        }
    });
}

/* --- which disk --- */

void link_disk(const std::string &name, const std::string &target)
{
    fs::create_symlink(target, "/sys/block/" + name);
}

std::vector<std::string> directory_order()
{
    std::vector<std::string> order;
    DIR *directory = opendir("/sys/block");
    while (const dirent *entry = readdir(directory))
        if (entry->d_name[0] != '.')
            order.emplace_back(entry->d_name);
    closedir(directory);
    return order;
}

void disk_programs()
{
    own_root::replace_program("nvme", "echo 'sn : NVME-SERIAL'\n");
    own_root::replace_program("smartctl", "echo \"Serial Number: $2\"\n");
}

std::string disk_serial()
{
    output.reset();
    EXPECT_EQ(libchassisd_get_harddisk_sn(output.bytes, 32), 0);
    return output.as<char>();
}

TEST_F(storage, serial_number_of_the_first_disk_in_the_directory)
{
    in_own_root([] {
        own_root::empty("/sys/block");
        disk_programs();
        link_disk("loop0", "../devices/virtual/block/loop0");
        link_disk("sda", "../devices/pci0000:00/ata1/host0/block/sda");
        EXPECT_EQ(disk_serial(), "/dev/sda");
        link_disk("nvme0n1", "../devices/pci0000:00/nvme/nvme0/nvme0n1");
        const bool nvme_first = directory_order()[0] == "nvme0n1";
        EXPECT_EQ(disk_serial(), nvme_first ? "NVME-SERIAL\n" : "/dev/sda");
        fs::remove("/sys/block/sda");
        EXPECT_EQ(disk_serial(), "NVME-SERIAL\n");
        link_disk("sdb", "../devices/pci0000:00/ata2/host0/block/sdb");
        const bool sdb_first = directory_order()[0] == "sdb";
        EXPECT_EQ(disk_serial(), sdb_first ? "/dev/sdb" : "NVME-SERIAL\n");
    });
}

TEST_F(storage, both_words_in_a_link_make_a_sata_disk)
{
    in_own_root([] {
        own_root::empty("/sys/block");
        disk_programs();
        link_disk("sdc", "../devices/nvme/ata1/sdc");
        EXPECT_EQ(disk_serial(), "/dev/sdc");
    });
}

TEST_F(storage, no_disk_of_either_kind)
{
    in_own_root([] {
        own_root::empty("/sys/block");
        disk_programs();
        EXPECT_EQ(libchassisd_get_harddisk_sn(output.bytes, 32), -1);
        link_disk("vda", "../devices/pci0000:00/virtio1/block/vda");
        fs::create_directory("/sys/block/ata");
        own_root::write("/sys/block/nvme", "not a link");
        EXPECT_EQ(libchassisd_get_harddisk_sn(output.bytes, 32), -1);
        EXPECT_TRUE(output.untouched());
        EXPECT_EQ(platform().console, "");
    });
}

TEST_F(storage, directory_of_disks_that_cannot_be_opened)
{
    in_own_root([] {
        own_root::empty("/sys");
        EXPECT_EQ(libchassisd_get_harddisk_sn(output.bytes, 32), -1);
        EXPECT_EQ(platform().console, "can't open /sys/block/, errno 2\n");
    });
}

TEST_F(storage, virtual_platforms_have_no_disk_serial_number)
{
    in_own_root([] {
        own_root::empty("/sys/block");
        disk_programs();
        link_disk("sda", "../devices/ata1/sda");
        for (const char *each : {"tq_is_vfw_platform", "tq_is_vwaf_platform", "tq_is_vadc_platform"}) {
            platform().board.clear();
            platform().board[each] = 1;
            EXPECT_EQ(libchassisd_get_harddisk_sn(output.bytes, 32), -1) << each;
        }
        platform().board.clear();
        EXPECT_EQ(libchassisd_get_harddisk_sn(output.bytes, 32), 0);
    });
}

TEST_F(storage, hostile_entry_of_the_directory_runs_nothing)
{
    in_own_root([] {
        own_root::empty("/sys/block");
        disk_programs();
        record_commands();
        link_disk("sda;reboot", "../devices/ata1/sda");
        EXPECT_EQ(disk_serial(), "");
        EXPECT_EQ(commands(), "");
    });
}

/* --- file system type --- */

std::string filesystem_of(const char *name)
{
    output.reset();
    EXPECT_EQ(libchassisd_get_disk_filesystem_type_byname(name, output.as<char>()), 0);
    EXPECT_EQ(output.bytes[64], 0x5A);
    return output.as<char>();
}

TEST_F(storage, filesystem_type_is_that_of_the_first_mount_of_the_device)
{
    in_own_root([] {
        own_root::make_replaceable("/etc");
        fs::remove("/etc/mtab");
        own_root::write("/etc/mtab", "proc /proc proc rw 0 0\n"
                                     "/dev/sda1 / ext4 rw 0 0\n"
                                     "/dev/sda2 /data xfs rw 0 0\n"
                                     "/dev/sdb1 /long " +
                                         std::string(80, 't') + " rw 0 0\n");
        EXPECT_EQ(filesystem_of("sda1"), "ext4");
        EXPECT_EQ(output.bytes[8], 0x5A) << "no more than the longest text that was written";
        EXPECT_EQ(filesystem_of("sda"), "ext4");
        EXPECT_EQ(filesystem_of("sda2"), "xfs");
        EXPECT_EQ(filesystem_of("/dev/sda2"), "xfs");
        EXPECT_EQ(filesystem_of("sdb1"), std::string(63, 't'));
        EXPECT_EQ(filesystem_of("sdz"), "unknown");
        EXPECT_EQ(filesystem_of("/data"), "unknown") << "the mount point is not the device";
        EXPECT_EQ(filesystem_of(""), "proc");
        EXPECT_EQ(filesystem_of(nullptr), "unknown");
        fs::remove("/etc/mtab");
        EXPECT_EQ(filesystem_of("sda1"), "unknown");
    });
}

/* --- device name and model --- */

struct device_name : storage {
};

TEST_F(device_name, stands_in_the_start_up_files)
{
    in_own_root([] {
        own_root::empty("/sys/block");
        fs::create_directory("/sys/block/sda");
        fs::create_directory("/sys/block/mmcblk0");
        own_root::write("/tmp/sata_dev", "/dev/sda");
        own_root::write("/tmp/tq_systemdevice", "/dev/mmcblk0");
        EXPECT_EQ(libchassisd_get_device_name(output.as<char>(), 1, 32), 0);
        EXPECT_EQ(output.first(5), (bytes{'s', 'd', 'a', 0, 0x5A}));
        EXPECT_EQ(libchassisd_get_device_name(output.as<char>(), -1, 32), 0);
        EXPECT_STREQ(output.as<char>(), "sda");
        EXPECT_EQ(libchassisd_get_device_name(output.as<char>(), 0, 32), 0);
        EXPECT_STREQ(output.as<char>(), "mmcblk0");
        EXPECT_EQ(platform().console, "");
    });
}

TEST_F(device_name, is_cut_to_its_size_before_it_is_looked_for)
{
    in_own_root([] {
        own_root::empty("/sys/block");
        fs::create_directory("/sys/block/sd");
        own_root::write("/tmp/sata_dev", "/dev/sda");
        EXPECT_EQ(libchassisd_get_device_name(output.as<char>(), 1, 3), 0);
        EXPECT_EQ(output.first(4), (bytes{'s', 'd', 0, 0x5A}));
        EXPECT_EQ(libchassisd_get_device_name(output.as<char>(), 1, 4), -1);
        EXPECT_EQ(platform().console, "libchassisd_get_device_name: file /sys/block/sda not exist\n");
    });
}

TEST_F(device_name, needs_its_file)
{
    in_own_root([] {
        EXPECT_EQ(libchassisd_get_device_name(output.as<char>(), 1, 32), -1);
        EXPECT_EQ(platform().console,
                  "libchassisd_get_device_name: fopen file /tmp/sata_dev failed, errno 2\n");
        platform().console.clear();
        EXPECT_EQ(libchassisd_get_device_name(output.as<char>(), 0, 32), -1);
        EXPECT_EQ(platform().console,
                  "libchassisd_get_device_name: fopen file /tmp/tq_systemdevice failed, errno 2\n");
        platform().console.clear();
        own_root::write("/tmp/sata_dev", "");
        EXPECT_EQ(libchassisd_get_device_name(output.as<char>(), 1, 32), -1);
        EXPECT_EQ(platform().console,
                  "libchassisd_get_device_name: fgets file /tmp/sata_dev failed, errno 0\n");
        platform().console.clear();
        own_root::write("/tmp/sata_dev", "sda");
        EXPECT_EQ(libchassisd_get_device_name(output.as<char>(), 1, 32), -1);
        EXPECT_EQ(platform().console, "libchassisd_get_device_name: failed to find devname from sda \n");
        EXPECT_TRUE(output.untouched());
    });
}

TEST_F(device_name, keeps_the_line_end_and_so_is_not_found)
{
    in_own_root([] {
        own_root::empty("/sys/block");
        fs::create_directory("/sys/block/sda");
        own_root::write("/tmp/sata_dev", "/dev/sda\n");
        EXPECT_EQ(libchassisd_get_device_name(output.as<char>(), 1, 32), -1);
        EXPECT_EQ(platform().console, "libchassisd_get_device_name: file /sys/block/sda\n not exist\n");
        EXPECT_TRUE(output.untouched());
        fs::create_directory("/sys/block/sda\n");
        EXPECT_EQ(libchassisd_get_device_name(output.as<char>(), 1, 32), 0);
        EXPECT_STREQ(output.as<char>(), "sda\n");
    });
}

TEST_F(device_name, is_read_from_255_characters_of_the_first_line)
{
    in_own_root([] {
        own_root::empty("/sys/block");
        fs::create_directory("/sys/block/ab");
        own_root::write("/tmp/sata_dev", std::string(252, 'x') + "/abc");
        EXPECT_EQ(libchassisd_get_device_name(output.as<char>(), 1, 300), 0);
        EXPECT_STREQ(output.as<char>(), "ab");
    });
}

TEST_F(device_name, is_that_of_the_first_line)
{
    in_own_root([] {
        own_root::empty("/sys/block");
        fs::create_directory("/sys/block/sda\n");
        fs::create_directory("/sys/block/sdb");
        own_root::write("/tmp/sata_dev", "/dev/sda\n/dev/sdb");
        EXPECT_EQ(libchassisd_get_device_name(output.as<char>(), 1, 32), 0);
        EXPECT_STREQ(output.as<char>(), "sda\n");
    });
}

TEST_F(device_name, needs_room)
{
    EXPECT_EQ(libchassisd_get_device_name(output.as<char>(), 1, 0), -1);
    EXPECT_TRUE(output.untouched());
}

TEST_F(device_name, model_is_what_the_kernel_says)
{
    in_own_root([] {
        own_root::empty("/sys/block");
        record_commands();
        own_root::write("/tmp/sata_dev", "/dev/sda");
        own_root::write("/sys/block/sda/device/model", "Some SSD 870\n");
        EXPECT_EQ(libchassisd_get_disk_device_model(output.bytes, 1, 64), 0);
        EXPECT_EQ(output.first(15), join({text_field("Some SSD 870\n", 14), {0x5A}}));
        EXPECT_EQ(commands(), "cat /sys/block/sda/device/model\n");
        output.reset();
        EXPECT_EQ(libchassisd_get_disk_device_model(output.bytes, 1, 5), 0);
        EXPECT_EQ(output.first(6), (bytes{'S', 'o', 'm', 'e', 0, 0x5A}));
        output.reset();
        EXPECT_EQ(libchassisd_get_disk_device_model(output.bytes, 1, 0), 0);
        EXPECT_TRUE(output.untouched());
    });
}

TEST_F(device_name, model_may_be_empty)
{
    in_own_root([] {
        own_root::empty("/sys/block");
        own_root::write("/tmp/tq_systemdevice", "/dev/sda");
        own_root::write("/sys/block/sda/device/model", "");
        EXPECT_EQ(libchassisd_get_disk_device_model(output.bytes, 0, 64), 0);
        EXPECT_EQ(output.first(2), (bytes{0, 0x5A}));
        EXPECT_EQ(platform().console, "");
    });
}

TEST_F(device_name, model_needs_the_name)
{
    in_own_root([] {
        EXPECT_EQ(libchassisd_get_disk_device_model(output.bytes, 1, 64), -1);
        EXPECT_EQ(platform().console,
                  "libchassisd_get_device_name: fopen file /tmp/sata_dev failed, errno 2\n"
                  "libchassisd_get_disk_device_model: get disk device model failed\n");
        EXPECT_TRUE(output.untouched());
    });
}

TEST_F(device_name, model_asks_for_31_characters_of_the_name)
{
    in_own_root([] {
        own_root::empty("/sys/block");
        own_root::write("/tmp/sata_dev", "/dev/" + std::string(40, 'd'));
        own_root::write("/sys/block/" + std::string(31, 'd') + "/device/model", "long name");
        EXPECT_EQ(libchassisd_get_disk_device_model(output.bytes, 1, 64), 0);
        EXPECT_STREQ(output.as<char>(), "long name");
    });
}

TEST_F(device_name, hostile_name_runs_nothing)
{
    in_own_root([] {
        own_root::empty("/sys/block");
        record_commands();
        for (const char *name : {"a;touch hacked", "$(touch hacked)", "`x`", "a b", "a|b", "a&b", "a>b"}) {
            own_root::write("/tmp/sata_dev", std::string("/dev/") + name);
            own_root::write(std::string("/sys/block/") + name + "/device/model", "never");
            output.reset();
            EXPECT_EQ(libchassisd_get_disk_device_model(output.bytes, 1, 64), 0) << name;
            EXPECT_EQ(output.first(2), (bytes{0, 0x5A})) << "zero bytes of model";
        }
        EXPECT_EQ(commands(), "");
        EXPECT_FALSE(fs::exists("/hacked"));
    });
}

TEST_F(device_name, model_that_cannot_be_asked_for)
{
    in_own_root([] {
        own_root::empty("/sys/block");
        own_root::write("/tmp/sata_dev", "/dev/sda");
        own_root::write("/sys/block/sda/device/model", "Some SSD");
        instead_of_popen = no_pipe;
        EXPECT_EQ(libchassisd_get_disk_device_model(output.bytes, 1, 64), -1);
        EXPECT_EQ(platform().console, "Error: failed to open cat /sys/block/sda/device/model, errno 24\n");
        platform().console.clear();
        instead_of_popen = [] { return fopen("/sys/block", "r"); }; /* a directory can't be read */
        EXPECT_EQ(libchassisd_get_disk_device_model(output.bytes, 1, 64), -1);
        EXPECT_EQ(platform().console, "Error: failed to read cat /sys/block/sda/device/model, errno 21\n");
        EXPECT_TRUE(output.untouched());
    });
}

/* --- the machine the tests run on --- */

TEST_F(storage, real_mounts_have_a_real_type)
{
    std::ifstream mounts("/etc/mtab");
    std::string device, point, type;
    if (!(mounts >> device >> point >> type))
        GTEST_SKIP() << "no mount table here";
    EXPECT_EQ(filesystem_of(device.c_str()), type.substr(0, 63));
}

/* The disks whose links hold the word. */
std::vector<std::string> real_disks(const char *word)
{
    std::vector<std::string> found;
    for (const std::string &each : directory_order())
        if (fs::is_symlink("/sys/block/" + each) &&
            fs::read_symlink("/sys/block/" + each).string().find(word) != std::string::npos)
            found.push_back(each);
    return found;
}

std::string trimmed(std::string text)
{
    text.erase(text.find_last_not_of(" \n") + 1);
    return text;
}

TEST_F(storage, real_nvme_disk_has_its_serial_number)
{
    std::vector<std::string> serials;
    for (const std::string &disk : real_disks("/nvme"))
        serials.push_back(trimmed(own_root::read("/sys/block/" + disk + "/device/serial")));
    if (serials.empty() || access("/bin/nvme", X_OK) != 0 || access("/etc/nvme", R_OK) != 0)
        GTEST_SKIP() << "no NVMe disk here, no /bin/nvme or no /etc/nvme";
    ASSERT_EQ(libchassisd_get_pcie_ssd_disk_sn(output.bytes, 255), 0);
    EXPECT_NE(std::find(serials.begin(), serials.end(), trimmed(output.as<char>())), serials.end());
}

TEST_F(storage, real_sata_disk_has_its_serial_number)
{
    const std::vector<std::string> disks = real_disks("/ata");
    if (disks.empty() || geteuid() != 0 || std::system("command -v smartctl > /dev/null") != 0)
        GTEST_SKIP() << "no SATA disk here, or smartctl can't be run";
    const std::string page = own_root::read("/sys/block/" + disks[0] + "/device/vpd_pg80");
    if (page.empty())
        GTEST_SKIP() << "the kernel does not tell the disk's serial number";
    ASSERT_EQ(libchassisd_get_sata_ssd_disk_sn(disks[0].c_str(), output.bytes, 32), 0);
    EXPECT_STRNE(output.as<char>(), "");
    EXPECT_NE(page.find(output.as<char>()), std::string::npos) << output.as<char>();
}

TEST_F(device_name, real_disk_has_its_model)
{
    std::string disk;
    for (const std::string &each : directory_order())
        if (fs::exists("/sys/block/" + each + "/device/model"))
            disk = each;
    if (disk.empty())
        GTEST_SKIP() << "no disk of this machine tells its model";
    in_own_root([&] {
        own_root::write("/tmp/sata_dev", "/dev/" + disk);
        EXPECT_EQ(libchassisd_get_disk_device_model(output.bytes, 1, 256), 0);
        EXPECT_EQ(output.as<char>(), own_root::read("/sys/block/" + disk + "/device/model"));
    });
}

TEST_F(storage, real_root_device_is_classified)
{
    const int type = libchassisd_get_disk_type_bypath("/");
    EXPECT_GE(type, 0);
    EXPECT_LE(type, 6);
    platform().board["tq_is_mirel5_cf_platform"] = 1;
    const int on_cf = libchassisd_get_disk_type_bypath("/");
    EXPECT_TRUE(on_cf == type || on_cf == 5);
}

} // namespace

#include <signal.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <sys/wait.h>

#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sched.h>

#include "integration/peer.h"
#include "platform/board.h"
#include "platform/ipcmsg.h"
#include "platform/services.h"
#include "platform/shared_mem.h"

using namespace mixtest;

namespace
{

/*
 * Settings are read once per process, so what depends on them runs in a child. Gives what the child wrote to
 * the standard output and the standard error.
 */
std::string in_child(const std::map<std::string, std::string> &environment, const std::function<void()> &act)
{
    int out[2];
    if (pipe(out) != 0)
        return "no pipe";
    fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        dup2(out[1], 1);
        dup2(out[1], 2);
        for (const auto &[name, value] : environment)
            setenv(name.c_str(), value.c_str(), 1);
        act();
        fflush(stdout);
        _exit(0);
    }
    close(out[1]);
    std::string all;
    char room[4096];
    for (ssize_t got; (got = read(out[0], room, sizeof(room))) > 0;)
        all.append(room, static_cast<size_t>(got));
    close(out[0]);
    int status = -1;
    waitpid(child, &status, 0);
    return status == 0 ? all : all + " (the child failed)";
}

/* Every function's answer, by name; functions of an argument are asked with 7. */
void print_board()
{
#define MIX_BOARD_NUMBER(name) printf(#name " %u\n", name());
#define MIX_BOARD_NUMBER_OF(name) printf(#name " %u\n", name(7));
#define MIX_BOARD_TEST_OF(name) printf(#name " %d\n", name(7));
#define MIX_BOARD_TEST(name) printf(#name " %d\n", name());
#include "platform/board_functions.def"
}

std::map<std::string, uint32_t> answers_of(const std::string &printed)
{
    std::map<std::string, uint32_t> answers;
    std::istringstream in(printed);
    for (std::string name, value; in >> name >> value;)
        answers[name] = static_cast<uint32_t>(std::stoul(value));
    return answers;
}

struct function_shape {
    const char *name;
    const char *line; /* sets it to something else than 0 */
    uint32_t answer;
};

const function_shape shapes[] = {
#define MIX_BOARD_NUMBER(name) {#name, #name " = 4294967295", 4294967295},
#define MIX_BOARD_NUMBER_OF(name) {#name, #name " = { 7 = 99, otherwise = 3 }", 99},
#define MIX_BOARD_TEST_OF(name) {#name, #name " = [0x6, 0x7]", 1},
#define MIX_BOARD_TEST(name) {#name, #name " = true", 1},
#include "platform/board_functions.def"
};

struct board_profile : run_directory_test {
    std::string with_file(const std::string &text, const std::function<void()> &act = print_board)
    {
        std::ofstream(path("board.toml")) << text;
        return in_child({{"MIX_BOARD", path("board.toml")}}, act);
    }
};

TEST_F(board_profile, every_function_is_settable_by_its_own_name_alone)
{
    for (const function_shape &shape : shapes) {
        auto answers = answers_of(with_file(std::string("name = \"x\"\n") + shape.line + "\n"));
        ASSERT_EQ(answers.size(), std::size(shapes)) << shape.name;
        for (const auto &[name, answer] : answers)
            EXPECT_EQ(answer, name == shape.name ? shape.answer : 0u) << name << " with " << shape.line;
    }
}

TEST_F(board_profile, every_line_can_be_added_to_each_profile_that_comes_with_the_library)
{
    for (const char *name : {"vm", "appliance", "chassis-master", "chassis-slave", "service-board", "numa"}) {
        const std::string there = in_child({{"MIX_BOARD", name}}, print_board);
        EXPECT_EQ(answers_of(there).size(), std::size(shapes)) << there;
        EXPECT_EQ(there.find("mixplatform:"), std::string::npos) << there;
    }
}

TEST_F(board_profile, tables_and_lists_answer_by_argument)
{
    const std::string got = with_file(
        "tq_is_platform = [5, 0x10]\n"
        "tq_is_mcpu_swm_slot = [2]\n"
        "[tq_get_nameid]\n7 = 1\n0x10 = 2\notherwise = 3\n",
        [] {
            printf("%d%d%d %d%d %u %u %u %u", tq_is_platform(5), tq_is_platform(16), tq_is_platform(6),
                   tq_is_mcpu_swm_slot(2), tq_is_mcpu_swm_slot(3), tq_get_nameid(7), tq_get_nameid(16),
                   tq_get_nameid(0), tq_get_system_product_type(7));
        });
    EXPECT_EQ(got, "110 10 1 2 3 0");
}

TEST_F(board_profile, without_a_choice_it_is_a_virtual_machine)
{
    EXPECT_EQ(in_child({{"MIX_BOARD", ""}}, print_board), in_child({{"MIX_BOARD", "vm"}}, print_board));
    EXPECT_EQ(
        in_child({},
                 [] { printf("%d %d %s", tq_is_vfw_platform(), tq_is_mcp_master(), tq_get_image_path()); }),
        "1 0 /");
}

TEST_F(board_profile, those_of_a_chassis_agree_about_its_slots)
{
    const auto line = [](const char *board) {
        return in_child({{"MIX_BOARD", board}}, [] {
            printf("%u %u %u %d %d %d", tq_get_slot(), tq_get_mcp_slot(), tq_get_scp_slot(),
                   tq_is_mcp_master(), tq_is_mcp_slave(), tq_is_mcpu_platform());
        });
    };
    EXPECT_EQ(line("chassis-master"), "4 4 5 1 0 1");
    EXPECT_EQ(line("chassis-slave"), "5 4 5 0 1 1");
    EXPECT_EQ(line("service-board"), "2 4 5 0 0 1");
}

TEST_F(board_profile, a_wrong_one_is_told_once_with_line_and_reason_and_the_default_is_used)
{
    const struct {
        const char *text, *words;
    } wrong[] = {
        {"name = \"x\"\ntq_is_mcp_master = 1\n", "board.toml:2: tq_is_mcp_master must be true or false"},
        {"tq_get_slot = -1\n", "board.toml:1: tq_get_slot must be a number from 0 to 4294967295"},
        {"tq_get_slot = 4294967296\n", "board.toml:1: tq_get_slot must be a number from 0 to 4294967295"},
        {"tq_get_slot = 1.5\n", "board.toml:1: tq_get_slot must be a number"},
        {"\n\ntq_is_platform = 5\n", "board.toml:3: tq_is_platform must be a list"},
        {"tq_is_platform = [1,\n  \"x\"]\n", "board.toml:2: each entry of tq_is_platform must be a number"},
        {"tq_get_nameid = 1\n", "board.toml:1: tq_get_nameid must be a table"},
        {"[tq_get_nameid]\nx = 1\n", "board.toml:2: \"x\" is no argument of tq_get_nameid"},
        {"[tq_get_nameid]\n0x = 1\n", "board.toml:2: \"0x\" is no argument of tq_get_nameid"},
        {"[tq_get_nameid]\n1 = true\n", "board.toml:2: each answer of tq_get_nameid must be a number"},
        {"image_path = 1\n", "board.toml:1: image_path must be a text"},
        {"tq_is_mcp_mastre = true\n", "board.toml:1: \"tq_is_mcp_mastre\" is nothing a board profile has"},
        {"name = \"x\n", "board.toml:1: "},
    };
    const auto twice = [] {
        for (int i = 0; i < 2; i++)
            printf("[%d %u]", tq_is_vfw_platform(), tq_get_slot());
    };
    for (const auto &each : wrong) {
        const std::string got = with_file(each.text, twice);
        const size_t at = got.find(each.words);
        ASSERT_NE(at, std::string::npos) << got;
        EXPECT_EQ(got.find(each.words, at + 1), std::string::npos) << got;
        EXPECT_NE(got.find("the built-in profile \"vm\" is used"), std::string::npos) << got;
        EXPECT_NE(got.find("[1 0][1 0]"), std::string::npos) << got;
    }
    EXPECT_NE(in_child({{"MIX_BOARD", "toaster"}}, twice).find("no built-in board profile \"toaster\""),
              std::string::npos);
    EXPECT_NE(
        in_child({{"MIX_BOARD", path("absent.toml")}}, twice).find("absent.toml: No such file or directory"),
        std::string::npos);
    EXPECT_NE(in_child({{"MIX_BOARD", path("")}}, twice).find(": Is a directory"), std::string::npos);
}

struct trace : run_directory_test {
};

TEST_F(trace, writes_a_json_line_for_each_exchange)
{
    peer daemon(path("node0/0.17.sock"),
                after_welcome([](int fd, const message_header &header, const bytes &) {
                    if (header.kind == static_cast<uint16_t>(message_kind::request))
                        put_reply(fd, header, 3, {0xab, 0x00});
                }));
    in_child({{"MIX_TRACE", path("trace")}}, [] {
        const uint8_t request[] = {0x01, 0xff};
        uint8_t reply[1];
        int32_t status;
        uint32_t length = sizeof(reply);
        ipcmsg_send_and_recv(17, 0, 9, request, 2, &status, reply, &length, 500);
        ipcmsg_send(17, 0, 10, request, 1);
        setenv("MIX_RUN_DIR", "/tmp/\"no\\such\tplace\x80", 1);
        ipcmsg_send_and_recv(0x02000511, 0, 9, nullptr, 0, &status, reply, &length, 500);
    });
    std::ifstream in(path("trace"));
    std::vector<nlohmann::json> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(nlohmann::json::parse(line));
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0]["kind"], "request");
    EXPECT_EQ(lines[0]["address"], 17);
    EXPECT_EQ(lines[0]["type"], 9);
    EXPECT_EQ(lines[0]["result"], 0);
    EXPECT_EQ(lines[0]["status"], 3);
    EXPECT_EQ(lines[0]["request_length"], 2);
    EXPECT_EQ(lines[0]["request"], "01ff");
    EXPECT_EQ(lines[0]["reply_length"], 2);
    EXPECT_EQ(lines[0]["reply"], "ab00");
    EXPECT_GT(lines[0]["time"], 1e9);
    EXPECT_EQ(lines[1]["kind"], "notice");
    EXPECT_EQ(lines[1]["type"], 10);
    EXPECT_FALSE(lines[1].contains("reply"));
    EXPECT_LT(lines[2]["result"], 0);
    EXPECT_EQ(lines[2]["node"], 2);
    EXPECT_EQ(lines[2]["instance"], 0x5);
    EXPECT_NE(lines[2]["reason"].get<std::string>().find("no daemon listens at /tmp/\"no\\such\tplace"),
              std::string::npos);
}

TEST_F(trace, that_can_not_be_written_is_told_and_hinders_nothing)
{
    const std::string got = in_child({{"MIX_TRACE", path("absent/trace")}},
                                     [] { printf("%d", ipcmsg_send(17, 0, 9, nullptr, 0) < 0); });
    EXPECT_NE(got.find("mixplatform: no trace: "), std::string::npos) << got;
    EXPECT_EQ(got.back(), '1');
}

TEST(disks, by_path_are_the_file_systems_in_kib)
{
    uint64_t total = 0, used = 0, free = 0;
    ASSERT_EQ(tq_get_diskinfo_bypath("/", &total, &used, &free), 0);
    struct statvfs is;
    ASSERT_EQ(statvfs("/", &is), 0);
    EXPECT_EQ(total, is.f_blocks * is.f_frsize / 1024);
    EXPECT_GE(total, used);
    EXPECT_GE(total, free);
    EXPECT_EQ(tq_get_diskinfo_bypath("/", &total, nullptr, &free), 0);
}

TEST(disks, that_are_absent_leave_the_figures_alone)
{
    uint64_t figures[3] = {1, 2, 3};
    EXPECT_LT(tq_get_diskinfo_bypath("/no/such/path", &figures[0], &figures[1], &figures[2]), 0);
    EXPECT_LT(tq_get_diskinfo_bypath(nullptr, &figures[0], &figures[1], &figures[2]), 0);
    for (const char *name : {"/dev/no_such_disk", "", "/dev/", "..", "/dev/../x"})
        EXPECT_LT(tq_get_disk_info_by_devname(name, 3, &figures[0], &figures[1], &figures[2]), 0) << name;
    EXPECT_LT(tq_get_disk_info_by_devname(nullptr, 3, &figures[0], &figures[1], &figures[2]), 0);
    EXPECT_EQ(figures[0] + figures[1] + figures[2], 6u);
}

TEST(disks, by_device_are_what_the_kernel_tells_of_disk_and_partition)
{
    const std::string got = in_child({}, [] {
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", "/sys/block", "tmpfs", 0, nullptr) != 0) {
            printf("skip");
            return;
        }
        std::filesystem::create_directories("/sys/block/sdz/sdz1");
        std::ofstream("/sys/block/sdz/size") << "2048\n";
        std::ofstream("/sys/block/sdz/dev") << "8:240\n";
        std::ofstream("/sys/block/sdz/sdz1/size") << "1000\n";
        std::ofstream("/sys/block/sdz/sdz1/dev") << "8:241\n";
        std::filesystem::create_directories("/sys/block/vdy");
        std::ofstream("/sys/block/vdy/size") << "4096\n";
        std::ofstream("/sys/block/vdy/dev") << "8:242\n";
        uint64_t total = 0, used = 9, free = 0;
        for (const char *name : {"/dev/sdz", "sdz1", "/dev/sdy"}) {
            const int result = tq_get_disk_info_by_devname(name, 3, &total, &used, &free);
            printf("%d %llu %llu %llu;", result, static_cast<unsigned long long>(total),
                   static_cast<unsigned long long>(used), static_cast<unsigned long long>(free));
        }
    });
    if (got == "skip")
        GTEST_SKIP() << "no mount namespace allowed here";
    EXPECT_EQ(got, "0 1024 0 1024;0 500 0 500;0 2048 0 2048;");
}

TEST(shared_memory, is_made_once_and_shared_afterwards)
{
    const std::string got = in_child({}, [] {
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", "/dev/shm", "tmpfs", 0, "mode=1777") != 0) {
            printf("skip");
            return;
        }
        auto *one = static_cast<char *>(init_shared_mem("mix_test_segment", 100000));
        auto *two = static_cast<char *>(init_shared_mem("mix_test_segment", 100000));
        if (one == nullptr || two == nullptr || one == two)
            return;
        one[99999] = 'x';
        printf("%c %d %d %d", two[99999], init_shared_mem("bad/name", 10) == nullptr,
               init_shared_mem("mix_test_segment", 0) == nullptr, init_shared_mem(nullptr, 10) == nullptr);
        struct stat is;
        printf(" %o", stat("/dev/shm/mix_test_segment", &is) == 0 ? is.st_mode & 0777 : 0);
        if (geteuid() == 0 && chown("/dev/shm/mix_test_segment", 65534, 65534) == 0 && seteuid(1) == 0)
            printf(" %d", init_shared_mem("mix_test_segment", 100000) == nullptr);
    });
    if (got == "skip")
        GTEST_SKIP() << "no mount namespace allowed here";
    EXPECT_TRUE(got == "x 1 1 1 600 1" || got == "x 1 1 1 600") << got;
}

TEST(services, print_to_the_console_and_the_log)
{
    EXPECT_EQ(in_child({},
                       [] {
                           if (console_print("%s %d\n", "word", 5) == 7)
                               console_print("seven\n");
                       }),
              "word 5\nseven\n");
    EXPECT_EQ(in_child({{"MIX_LOG", "stderr"}}, [] { tq_clog("%s:%d\n", "log", 1); }), "log:1\n");
    const auto debug = [] {
        tq_debug_print(0, "zero\n");
        tq_debug_print(1, "one\n");
        tq_debug_print(2, "two\n");
    };
    EXPECT_EQ(in_child({{"MIX_LOG", "stderr"}}, debug), "zero\n");
    EXPECT_EQ(in_child({{"MIX_LOG", "stderr"}, {"MIX_DEBUG", "1"}}, debug), "zero\none\n");
}

TEST(services, tell_the_local_time)
{
    const time_t when = 1000000000;
    struct tm got = {}, expected = {};
    EXPECT_EQ(tq_localtime(&when, &got), 0);
    localtime_r(&when, &expected);
    EXPECT_EQ(got.tm_year, expected.tm_year);
    EXPECT_EQ(got.tm_hour, expected.tm_hour);
    const time_t never = INT64_MAX;
    EXPECT_LT(tq_localtime(&never, &got), 0);
    EXPECT_LT(tq_localtime(nullptr, &got), 0);
}

} // namespace

#include <libmix/issu.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "unit/sys/clist_model.h"

namespace
{

constexpr const char *image_text = "UP-LIST\n"
                                   "# from these on\n"
                                   "6.0*\n"
                                   "END\n";

TEST(issu_version_check, follows_the_list)
{
    EXPECT_EQ(issu_ver_up_ck(image_text, "6.0.1"), 0);
    EXPECT_EQ(issu_ver_up_ck(image_text, "5.9"), 1);
    EXPECT_EQ(issu_ver_down_ck(image_text, "6.0.1"), -1);
}

TEST(issu_version_check, looks_at_the_list_it_is_asked_for)
{
    const char *text = "UP-LIST\n1.0\nEND\nDOWN-LIST\n2.0\nEND\nMY-LIST\n3.0\nEND\n";
    EXPECT_EQ(issu_ver_up_ck(text, "1.0"), 0);
    EXPECT_EQ(issu_ver_up_ck(text, "2.0"), 1);
    EXPECT_EQ(issu_ver_down_ck(text, "2.0"), 0);
    EXPECT_EQ(issu_ver_down_ck(text, "1.0"), 1);
    EXPECT_EQ(_issu_ver_ck_(text, "3.0", "MY-LIST"), 0);
    EXPECT_EQ(_issu_ver_ck_(text, "3.0", "NO-LIST"), -1);
}

struct pattern_case {
    const char *entry;
    const char *version;
    bool matches;
};

TEST(issu_version_check, compares_position_by_position)
{
    const pattern_case cases[] = {
        {"6.0.?", "6.0.5", true},
        {"6.0.?", "6.0.", false}, /* the version ends where the entry has its question mark */
        {"6.0.?", "6.0.55", false},
        {"6.0", "6.0.1", false},
        {"6.0.1", "6.0", false},
        {"6.0.1", "6.0*", true},
        {"6.0.1", "6.0.?", true},
        {"6.0.1", "6.0.1?", false}, /* nor does a question mark stand for the entry's end */
        {"6.0.1", "6.0.1*", true},
        {"6.0.1*", "6.0.1", true},
        {"6.0.1*", "6.0.1*", true},
        {"*", "", true},
        {"*", "anything", true},
        {"a", "*", true},
        {"?", "?", true},
        {"?", "*", true},
        {"a?c", "abc", true},
        {"abc", "abd", false},
        {"abc", "", false},
        {"a*z", "ab", true}, /* the star stands for all that follows */
        {"6.0", "6.0", true},
    };
    for (const pattern_case &each : cases) {
        const std::string text = std::string("UP-LIST\n") + each.entry + "\nEND\n";
        EXPECT_EQ(issu_ver_up_ck(text.c_str(), each.version), each.matches ? 0 : 1)
            << each.entry << " against " << each.version;
    }
}

TEST(issu_version_check, tries_entry_after_entry)
{
    const char *text = "UP-LIST\r\n5.*\r\n#6.*\r\n\r\n7.1\r\nEND\r\n8.*\r\n";
    EXPECT_EQ(issu_ver_up_ck(text, "5.3"), 0);
    EXPECT_EQ(issu_ver_up_ck(text, "6.3"), 1) << "a comment";
    EXPECT_EQ(issu_ver_up_ck(text, "7.1"), 0);
    EXPECT_EQ(issu_ver_up_ck(text, "8.0"), 1) << "after the list's end";
}

TEST(issu_version_check, compares_255_characters_of_an_entry)
{
    const std::string entry(300, 'e');
    const std::string text = "UP-LIST\n" + entry + "\n";
    EXPECT_EQ(issu_ver_up_ck(text.c_str(), std::string(255, 'e').c_str()), 0);
    EXPECT_EQ(issu_ver_up_ck(text.c_str(), entry.c_str()), 1);
    EXPECT_EQ(issu_ver_up_ck(text.c_str(), std::string(254, 'e').c_str()), 1);
}

TEST(issu_version_check, has_no_list_without_texts)
{
    EXPECT_EQ(issu_ver_up_ck(nullptr, "1"), -1);
    EXPECT_EQ(issu_ver_up_ck(image_text, nullptr), -1);
    EXPECT_EQ(_issu_ver_ck_(image_text, "1", nullptr), -1);
    EXPECT_EQ(issu_ver_up_ck("", "1"), -1);
    EXPECT_EQ(issu_ver_up_ck("UP-LIST", "1"), 1) << "an empty list";
}

TEST(issu_clist, reads_entry_after_entry)
{
    const char *text = "\r\n\n# comment\r\n#\nfirst entry \r\n second\n#END\nEND of it\nthird";
    char out[64] = "";
    const char *at = issu_get_clist_one(text, out, sizeof out);
    ASSERT_NE(at, nullptr);
    EXPECT_STREQ(out, "first entry ");
    EXPECT_EQ(at, std::strstr(text, "\r\n second"));
    at = issu_get_clist_one(at, out, sizeof out);
    ASSERT_NE(at, nullptr);
    EXPECT_STREQ(out, " second");
    EXPECT_EQ(issu_get_clist_one(at, out, sizeof out), nullptr);
    EXPECT_STREQ(out, " second") << "untouched at the end";
}

TEST(issu_clist, the_last_entry_may_end_the_text)
{
    char out[64] = "";
    const char *text = "only";
    const char *at = issu_get_clist_one(text, out, sizeof out);
    EXPECT_EQ(at, text + 4);
    EXPECT_STREQ(out, "only");
    EXPECT_EQ(issu_get_clist_one(at, out, sizeof out), nullptr);
}

TEST(issu_clist, has_no_entry_in_nothing)
{
    char out[4] = "abc";
    for (const char *text :
         {static_cast<const char *>(nullptr), "", "\r\n", "# only a comment", "#", "END", "ENDING"})
        EXPECT_EQ(issu_get_clist_one(text, out, sizeof out), nullptr);
    EXPECT_STREQ(out, "abc");
}

TEST(issu_clist, cuts_an_entry_to_its_size)
{
    char out[8] = "#######";
    const char *text = "abcdef\n";
    EXPECT_EQ(issu_get_clist_one(text, out, 4), text + 6);
    EXPECT_EQ(std::string(out, 8), std::string("abc\0###\0", 8));
    EXPECT_EQ(issu_get_clist_one(text, out, 1), text + 6);
    EXPECT_STREQ(out, "");
    std::memset(out, '#', 8);
    EXPECT_EQ(issu_get_clist_one(text, out, 0), text + 6);
    EXPECT_EQ(std::string(out, 8), "########");
}

TEST(issu_first_version, is_the_lists_first_entry)
{
    char out[16] = "before";
    EXPECT_EQ(issu_first_ver_get(image_text, "UP-LIST", out, sizeof out), 0);
    EXPECT_STREQ(out, "6.0*");
    EXPECT_EQ(issu_first_ver_get(image_text, "UP-LIST", out, 3), 0);
    EXPECT_STREQ(out, "6.");
}

TEST(issu_first_version, is_absent_without_list_or_entry)
{
    char out[16] = "before";
    EXPECT_EQ(issu_first_ver_get(image_text, "DOWN-LIST", out, sizeof out), -1);
    EXPECT_EQ(issu_first_ver_get("UP-LIST\n#x\nEND\n1.0\n", "UP-LIST", out, sizeof out), -1);
    EXPECT_EQ(issu_first_ver_get("UP-LIST", "UP-LIST", out, sizeof out), -1);
    EXPECT_EQ(issu_first_ver_get(nullptr, "UP-LIST", out, sizeof out), -1);
    EXPECT_EQ(issu_first_ver_get(image_text, nullptr, out, sizeof out), -1);
    EXPECT_STREQ(out, "before");
}

TEST(issu_clist, failures_leave_the_error_text)
{
    set_err_str("%s", "of before");
    char out[4];
    EXPECT_EQ(issu_get_clist_one(nullptr, out, sizeof out), nullptr);
    EXPECT_EQ(issu_first_ver_get(nullptr, "UP-LIST", out, sizeof out), -1);
    EXPECT_EQ(issu_first_ver_get("", "UP-LIST", out, sizeof out), -1);
    EXPECT_EQ(issu_ver_up_ck("", "1"), -1);
    EXPECT_EQ(issu_ver_up_ck("UP-LIST", nullptr), -1);
    EXPECT_EQ(issu_ver_down_ck("", "1"), -1);
    EXPECT_EQ(_issu_ver_ck_("", "1", nullptr), -1);
    EXPECT_STREQ(issu_err_str_get(), "of before");
}

TEST(issu_first_version, takes_the_first_occurrence_of_the_name)
{
    char out[16] = "";
    EXPECT_EQ(issu_first_ver_get("xUP-LISTy\nUP-LIST\nz\n", "UP-LIST", out, sizeof out), 0);
    EXPECT_STREQ(out, "y");
}

/* Every text and version over a small alphabet, in the lengths that reach each rule. */
TEST(issu_version_check, agrees_with_the_model_on_every_short_entry_and_version)
{
    constexpr std::string_view letters = "ab*?";
    std::vector<std::string> words = {""};
    for (size_t from = 0, length = 0; length < 4; length++) {
        const size_t to = words.size();
        for (; from < to; from++)
            for (const char c : letters)
                words.push_back(words[from] + c);
    }
    for (const std::string &entry : words) {
        const std::string text = "UP-LIST\n" + entry + "\n";
        for (const std::string &version : words)
            ASSERT_EQ(issu_ver_up_ck(text.c_str(), version.c_str()),
                      mixtest::clist_model::check(text, version, "UP-LIST"))
                << "entry '" << entry << "' version '" << version << "'";
    }
}

TEST(issu_version_check, agrees_with_the_model_on_assembled_lists)
{
    const char *const parts[] = {"UP-LIST", "\n", "\r\n", "#", "6.0", "6.*", "END", "DOWN-LIST", "?"};
    const char *const versions[] = {"6.0", "6.1", "", "*", "E"};
    std::string text;
    size_t checked = 0;
    const std::function<void(int)> extend = [&](int depth) {
        for (const char *version : versions) {
            ASSERT_EQ(issu_ver_up_ck(text.c_str(), version),
                      mixtest::clist_model::check(text, version, "UP-LIST"))
                << text;
            ASSERT_EQ(issu_ver_down_ck(text.c_str(), version),
                      mixtest::clist_model::check(text, version, "DOWN-LIST"))
                << text;
            checked++;
        }
        if (depth == 0)
            return;
        for (const char *part : parts) {
            const size_t before = text.size();
            text += part;
            extend(depth - 1);
            text.resize(before);
        }
    };
    extend(5);
    EXPECT_GT(checked, 100000u);
}

} // namespace

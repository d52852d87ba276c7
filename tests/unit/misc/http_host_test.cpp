#include <libmix/http_host.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "unit/misc/host_model.h"

namespace
{

int check(const std::string &text)
{
    return check_http_host(text.data(), static_cast<uint32_t>(text.size()));
}

struct host_case {
    std::string text;
    int result;
};

TEST(http_host, accepts_and_rejects)
{
    using namespace std::string_literals;
    const host_case cases[] = {
        {"10.0.0.1", 0},
        {"10.0.0.1:8080", 0},
        {"[::1]:443", 0},
        {"a_b", -1},
        {"10.0.0.1:80x", -1},
        {"10.0.0.1/index", -1},
        {"10.0.0.1/", 0},
        {"10.0.0.1/\n", 0},
        {"10.0.0.1/\n\n\n", 0},
        {"10.0.0.1/\r", -1},
        {"10.0.0.1 \r\n", 0},
        {"10.0.0.1\r\n", -1},
        {"10.0.0.1\n", -1},
        {"10.0.0.1 H", 0},
        {"10.0.0.1 HTTP", -1},
        {"10.0.0.1   ", 0},
        {"10.0.0.1 h", -1},
        {"10.0.0.1 \n\n", 0},
        {"10.0.0.1 \r\r", -1},
        {"10.0.0.1: H\n", 0},
        {"10.0.0.1:/\n", 0},
        {"10.0.0.1:", 0},
        {"10.0.0.1::", -1},
        {"10.0.0.1:80:", -1},
        {"10.0.0.1:80\r", -1},
        {"[", 0},
        {"[]", 0},
        {"[]x", -1},
        {"[]]", -1},
        {"[a%b]", -1},
        {"[a[b]", -1},
        {"[!$&'()*+,-.:;=_~]", 0},
        {"[::1]/\n", 0},
        {"[::1] H", 0},
        {"[::1]\r", -1},
        {"[/", -1},
        {"/", 0},
        {":", 0},
        {" ", 0},
        {"-.-", 0},
        {"ab]", -1},
        {"a\0b"s, -1},
        {"a\xe4", -1},
    };
    for (const host_case &each : cases)
        EXPECT_EQ(check(each.text), each.result) << each.text;
}

TEST(http_host, rejects_nothing_to_check)
{
    EXPECT_EQ(check_http_host(nullptr, 5), -1);
    EXPECT_EQ(check_http_host(nullptr, 0), -1);
    EXPECT_EQ(check_http_host("a", 0), -1);
}

TEST(http_host, reads_no_further_than_its_length)
{
    EXPECT_EQ(check_http_host("a_", 1), 0);
    EXPECT_EQ(check_http_host("[%", 1), 0);
    const std::string exact = "host:80";
    const std::vector<char> block(exact.begin(), exact.end());
    EXPECT_EQ(check_http_host(block.data(), static_cast<uint32_t>(block.size())), 0);
}

TEST(http_host, agrees_with_the_steps_for_every_short_text)
{
    const std::string alphabet = "a1-.[]:/ \r\nH_%";
    std::string text;
    size_t checked = 0;
    const auto extend = [&](auto &&self) -> void {
        if (!text.empty()) {
            ASSERT_EQ(check(text), mixtest::model::check_http_host(text)) << text;
            checked++;
        }
        if (text.size() == 5)
            return;
        for (const char c : alphabet) {
            text.push_back(c);
            self(self);
            text.pop_back();
        }
    };
    extend(extend);
    EXPECT_EQ(checked, 14u + 196 + 2744 + 38416 + 537824);
}

TEST(http_host, agrees_with_the_steps_for_every_byte_at_every_place)
{
    for (const std::string base : {"ab:80 \r\n", "[::1]:8/\n", "a/\n\n", "a  H\n"})
        for (size_t place = 0; place < base.size(); place++)
            for (int byte = 0; byte < 256; byte++) {
                std::string text = base;
                text[place] = static_cast<char>(byte);
                ASSERT_EQ(check(text), mixtest::model::check_http_host(text))
                    << base << " " << place << " " << byte;
            }
}

} // namespace

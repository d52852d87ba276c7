#include "frame/management.h"

#include "support/general_heap.h"
#include "support/scripted_platform.h"

#include <climits>
#include <cstring>

using namespace mixtest;
using namespace mix::frame;

namespace
{

struct attribute_exchange : platform_test {
    char buffer[16];
    const refusal_place both{collect_print, buffer, sizeof(buffer)};

    void SetUp() override
    {
        platform_test::SetUp();
        std::memset(buffer, '#', sizeof(buffer));
    }
    [[nodiscard]] bool buffer_untouched() const
    {
        return bytes(buffer, buffer + sizeof(buffer)) == repeat('#', sizeof(buffer));
    }
};

TEST_F(attribute_exchange, sets_what_the_change_names)
{
    const uint32_t address = 1;
    const char *name = "eth0";
    int response = 0;
    platform().response_types = {15};
    EXPECT_EQ(commit({.object = final_set_gas_gase,
                      .type = mgi_add,
                      .language = 1,
                      .vsysid = 7,
                      .request_flag = 9,
                      .attributes = {{0, &address}, {5, &name}}},
                     both, &response),
              0);
    ASSERT_EQ(platform().gateway_calls.size(), 1u);
    const gateway_call &call = platform().gateway_calls[0];
    EXPECT_EQ(call.object, "final_set_gas_gase");
    EXPECT_EQ(call.type, 4u);
    EXPECT_EQ(call.language, 1);
    EXPECT_EQ(call.vsysid, 7);
    EXPECT_EQ(call.request_flag, 9);
    const void *expected[16] = {};
    expected[0] = &address;
    expected[5] = &name;
    for (int i = 0; i < 16; i++)
        EXPECT_EQ(call.attr[i], expected[i]);
    EXPECT_EQ(response, 15);
    EXPECT_EQ(platform().messages_initialised, 1u);
}

TEST_F(attribute_exchange, a_text_is_given_by_the_variable_that_holds_it_and_absent_when_null)
{
    const char *name = "eth0";
    const char *nothing = nullptr;
    EXPECT_EQ(commit({.object = final_set_gas_gase,
                      .type = mgi_add,
                      .attributes = {{2, &name}, text_attribute(1, &name), text_attribute(2, &nothing)}},
                     both),
              0);
    ASSERT_EQ(platform().gateway_calls.size(), 1u);
    EXPECT_EQ(platform().gateway_calls[0].attr[1], &name);
    EXPECT_EQ(platform().gateway_calls[0].attr[2], nullptr);
}

TEST_F(attribute_exchange, leaves_out_what_the_change_does_not_name)
{
    EXPECT_EQ(commit({.object = final_set_md_macd, .type = mgi_unset_all}, {}), 0);
    const gateway_call &call = platform().gateway_calls.at(0);
    EXPECT_EQ(call.type, 9u);
    EXPECT_FALSE(call.language_set);
    EXPECT_FALSE(call.vsysid_set);
    EXPECT_EQ(call.request_flag, 0);
}

TEST_F(attribute_exchange, says_nothing_on_success)
{
    EXPECT_EQ(commit({.object = final_set_md_macd, .type = mgi_add, .told = refusal_text::printed_and_copied},
                     both),
              0);
    EXPECT_TRUE(printed_formats.empty());
    EXPECT_TRUE(buffer_untouched());
    EXPECT_TRUE(platform().refusal_results.empty());
}

struct refusal_case {
    const char *name;
    refusal_text told;
    bool with_print;
    bool with_buffer;
    const char *text;
    const char *expect_printed;
    const char *expect_buffer; /* NULL: untouched */
};

struct refusals : attribute_exchange, testing::WithParamInterface<refusal_case> {
};

TEST_P(refusals, are_told_as_described)
{
    const refusal_case &each = GetParam();
    platform().commit_results = {-42};
    platform().refusal_text = each.text;
    const refusal_place place{each.with_print ? collect_print : nullptr, each.with_buffer ? buffer : nullptr,
                              sizeof(buffer)};
    EXPECT_EQ(commit({.object = final_set_arp_arpe, .type = mgi_set, .told = each.told}, place), -42);
    EXPECT_EQ(printed, each.expect_printed);
    if (each.expect_buffer == nullptr)
        EXPECT_TRUE(buffer_untouched());
    else
        EXPECT_STREQ(buffer, each.expect_buffer);
    if (each.told == refusal_text::unused)
        EXPECT_TRUE(platform().refusal_results.empty());
    else
        EXPECT_EQ(platform().refusal_results, (std::vector<int>{-42}));
}

constexpr auto printed_only = refusal_text::printed;
constexpr auto copied_too = refusal_text::printed_and_copied;
constexpr auto tied = refusal_text::copied_only_if_printed;
constexpr auto even_absent = refusal_text::copied_even_if_absent;

INSTANTIATE_TEST_SUITE_P(
    places, refusals,
    testing::Values(
        refusal_case{"unused", refusal_text::unused, true, true, "no", "", nullptr},
        refusal_case{"printed", printed_only, true, true, "no 100%", "no 100%", nullptr},
        refusal_case{"printed_without_text", printed_only, true, true, nullptr, "", nullptr},
        refusal_case{"printed_nowhere", printed_only, false, true, "no", "", nullptr},
        refusal_case{"both", copied_too, true, true, "no", "no", "no"},
        refusal_case{"both_without_print", copied_too, false, true, "no", "", "no"},
        refusal_case{"both_without_buffer", copied_too, true, false, "no", "no", nullptr},
        refusal_case{"both_without_text", copied_too, true, true, nullptr, "", nullptr},
        refusal_case{"both_cut", copied_too, true, true, "0123456789abcdefgh", "0123456789abcdefgh",
                     "0123456789abcde"},
        refusal_case{"percent_is_copied_as_it_is", copied_too, true, true, "%s%n", "%s%n", "%s%n"},
        refusal_case{"tied", tied, true, true, "no", "no", "no"},
        refusal_case{"tied_without_print", tied, false, true, "no", "", nullptr},
        refusal_case{"tied_without_text", tied, true, true, nullptr, "", nullptr},
        refusal_case{"even_absent", even_absent, true, true, "no", "no", "no"},
        refusal_case{"even_absent_without_text", even_absent, true, true, nullptr, "", "(null)"},
        refusal_case{"even_absent_without_print", even_absent, false, true, "no", "", "no"},
        refusal_case{"even_absent_without_buffer", even_absent, true, false, nullptr, "", nullptr}),
    [](const auto &one) { return one.param.name; });

TEST_F(attribute_exchange, leaves_a_buffer_without_length_alone)
{
    for (const int32_t length : {0, -1, INT32_MIN}) {
        platform().commit_results = {1};
        EXPECT_EQ(commit({.object = final_set_arp_arpe, .type = mgi_set, .told = copied_too},
                         {collect_print, buffer, length}),
                  1);
        EXPECT_TRUE(buffer_untouched());
    }
}

TEST_F(attribute_exchange, copies_into_a_buffer_of_one_byte)
{
    platform().commit_results = {1};
    EXPECT_EQ(
        commit({.object = final_set_arp_arpe, .type = mgi_set, .told = copied_too}, {nullptr, buffer, 1}), 1);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(buffer[1], '#');
}

struct stdout_refusal : attribute_exchange {
    static std::string written(const char *text)
    {
        platform().commit_results = {3};
        platform().refusal_text = text;
        testing::internal::CaptureStdout();
        EXPECT_EQ(commit({.object = final_set_arp_arpe,
                          .type = mgi_unset_all,
                          .told = refusal_text::to_standard_output,
                          .prefix = "Error: %s\n"},
                         {}),
                  3);
        return testing::internal::GetCapturedStdout();
    }
};

TEST_F(stdout_refusal, follows_its_prefix)
{
    EXPECT_EQ(written("busy 5%"), "Error: busy 5%\n");
}

TEST_F(stdout_refusal, is_silent_without_a_text)
{
    EXPECT_EQ(written(nullptr), "");
}

TEST_F(attribute_exchange, does_not_commit_with_a_parameter_error)
{
    EXPECT_EQ(
        commit({.object = final_set_gas_gase, .type = mgi_add, .parameter_error = "Parameter error\n"}, both),
        -1);
    EXPECT_TRUE(platform().gateway_calls.empty());
    EXPECT_EQ(platform().messages_initialised, 1u);
    EXPECT_EQ(printed, "Parameter error\n");
    EXPECT_STREQ(buffer, "Parameter error") << "cut to the buffer's 16 bytes";
    EXPECT_EQ(commit({.object = final_set_gas_gase, .type = mgi_add, .parameter_error = "x"}, {}), -1);
}

TEST_F(attribute_exchange, record_marks_the_fields_that_carry_a_value)
{
    const uint32_t fields[] = {9, 0, 5, 7};
    const auto hook = [](const void *, uint32_t) { return 0; };
    exchange_record(0x1a0001, hook, fields, 4, collect_print);
    const record_call &call = platform().record_calls.at(0);
    EXPECT_EQ(call.mask, 12u);
    EXPECT_EQ(call.record, join({le32(0), le32(0), le32(5), le32(7)})) << "field 0 is always 0";
    EXPECT_EQ(call.made_size, 16u);
}

#ifdef MIX_HEAP_IS_OURS
constexpr uint32_t many_fields[31] = {};

void exchange_many_fields()
{
    exchange_record(
        1, [](const void *, uint32_t) { return 0; }, many_fields, 31, collect_print);
}

TEST_F(attribute_exchange, record_is_freed_after_the_exchange)
{
    heap = {.watched_size = sizeof many_fields};
    exchange_many_fields();
    EXPECT_EQ(heap.freed, 1);
    EXPECT_EQ(platform().record_calls.size(), 1u);
}

TEST_F(attribute_exchange, record_that_can_not_be_had_is_silent_and_not_exchanged)
{
    heap = {.failing_size = sizeof many_fields};
    exchange_many_fields();
    heap = {};
    EXPECT_TRUE(platform().record_calls.empty());
    EXPECT_TRUE(platform().exchange_text_arguments.empty());
    EXPECT_EQ(printed, "");
}
#endif

} // namespace

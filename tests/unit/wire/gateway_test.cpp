#include "appliance/wire/gateway.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/scripted_platform.h"

using namespace mix::wire;
using mixtest::bytes;
using mixtest::join;
using mixtest::le16;
using mixtest::le32;

namespace
{

bytes text_bytes(const std::string &text)
{
    return bytes(text.begin(), text.end());
}

struct encoded {
    uint8_t room[8192];
    writer out{room};
    bytes all() const { return bytes(out.written().begin(), out.written().end()); }
};

bytes commit_bytes(uint32_t object, uint32_t operation, uint16_t attributes, const bytes &rest,
                   const bytes &cookie = {})
{
    return join({le32(object),
                 le32(operation),
                 {0, 0},
                 le16(0),
                 le16(static_cast<uint32_t>(cookie.size())),
                 le16(attributes),
                 cookie,
                 rest});
}

bytes attribute_bytes(uint8_t number, attribute_kind kind, const bytes &value)
{
    return join({{number, static_cast<uint8_t>(kind)}, le16(static_cast<uint32_t>(value.size())), value});
}

TEST(gateway_commit_encoding, writes_header_cookie_and_present_attributes)
{
    const uint32_t address = 0x0a000001;
    const uint16_t vrid = 7;
    const uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
    const char *vrname = "vr7";
    const uint8_t option = 9;
    const uint8_t cookie[3] = {0xc0, 0xc1, 0xc2};
    mgi_message message = {};
    message.rqt_type = 2;
    message.language = 1;
    message.request_flag = 5;
    message.vsysid = 0x1234;
    message.cookie = cookie;
    message.cookie_length = sizeof(cookie);
    message.attr[0] = &address;
    message.attr[1] = &vrid;
    message.attr[2] = mac;
    message.attr[3] = &vrname;
    message.attr[6] = &option;
    encoded e;
    ASSERT_TRUE(encode_commit(message, *find_object(object_arp), e.out));
    EXPECT_EQ(e.all(), join({{0x01, 0, 1, 0, 2, 0, 0, 0, 1, 5, 0x34, 0x12, 3, 0, 5, 0},
                             {0xc0, 0xc1, 0xc2},
                             {0, 3, 4, 0, 1, 0, 0, 10},
                             {1, 2, 2, 0, 7, 0},
                             {2, 5, 6, 0, 1, 2, 3, 4, 5, 6},
                             {3, 6, 3, 0, 'v', 'r', '7'},
                             {6, 1, 1, 0, 9}}));
}

TEST(gateway_commit_encoding, leaves_out_absent_attributes_and_texts_without_a_pointer)
{
    const char *none = nullptr;
    const uint8_t mac[6] = {};
    mgi_message message = {};
    message.rqt_type = 4;
    message.attr[0] = mac;
    message.attr[1] = &none;
    message.attr[9] = mac; /* the object has no such attribute */
    encoded e;
    ASSERT_TRUE(encode_commit(message, *find_object(object_mac_description), e.out));
    EXPECT_EQ(e.all(), commit_bytes(0x050001, 4, 1, attribute_bytes(0, attribute_kind::bytes, bytes(6, 0))));
}

TEST(gateway_commit_encoding, refuses_a_text_that_no_message_carries)
{
    const std::string longest(attribute_text_max, 'x');
    const std::string longer(attribute_text_max + 1, 'x');
    const uint8_t mac[6] = {};
    mgi_message message = {};
    message.attr[0] = mac;
    const char *text = longest.c_str();
    message.attr[1] = &text;
    encoded fits;
    EXPECT_TRUE(encode_commit(message, *find_object(object_mac_description), fits.out));
    text = longer.c_str();
    encoded does_not;
    EXPECT_FALSE(encode_commit(message, *find_object(object_mac_description), does_not.out));
}

TEST(gateway_commit_encoding, is_false_when_the_room_ends)
{
    const uint8_t mac[6] = {};
    mgi_message message = {};
    message.attr[0] = mac;
    uint8_t room[25];
    writer small(room);
    EXPECT_FALSE(encode_commit(message, *find_object(object_mac_description), small));
    uint8_t exact[26];
    writer fits(exact);
    EXPECT_TRUE(encode_commit(message, *find_object(object_mac_description), fits));
}

TEST(gateway_commit_decoding, gives_back_what_was_encoded)
{
    const uint32_t address = 0xc0a80001;
    const char *interface = "ge0/1";
    const uint64_t word = 0x1122334455667788;
    const uint8_t mac[6] = {6, 5, 4, 3, 2, 1};
    const uint8_t option = 3;
    mgi_message message = {};
    message.rqt_type = 4;
    message.language = 1;
    message.vsysid = 3;
    message.attr[0] = &address;
    message.attr[1] = &interface;
    message.attr[2] = &word;
    message.attr[3] = mac;
    message.attr[4] = &option;
    encoded e;
    ASSERT_TRUE(encode_commit(message, *find_object(object_gas), e.out));
    commit got;
    ASSERT_EQ(decode_commit(e.out.written(), got).result, result_ok);
    EXPECT_EQ(got.object->number, 0x030001u);
    EXPECT_EQ(got.operation, 4u);
    EXPECT_EQ(got.language, 1);
    EXPECT_EQ(got.vsysid, 3);
    EXPECT_EQ(got.u32(0), address);
    EXPECT_EQ(got.text(1), "ge0/1");
    EXPECT_EQ(got.word(2), word);
    EXPECT_EQ(bytes(got.bytes(3).begin(), got.bytes(3).end()), bytes(mac, mac + 6));
    EXPECT_EQ(got.u8(4), 3);
    EXPECT_FALSE(got.has(5));
    EXPECT_EQ(got.u32(5), 0u);
    EXPECT_EQ(got.text(5), "");
}

struct bad_commit {
    const char *name;
    bytes payload;
    gateway_result result;
    int attribute; /* -1: about none */
};

class refused_commit : public testing::TestWithParam<bad_commit>
{
};

TEST_P(refused_commit, is_told_with_its_attribute)
{
    commit got;
    const decode_fault fault = decode_commit(GetParam().payload, got);
    EXPECT_EQ(fault.result, GetParam().result);
    EXPECT_EQ(fault.attribute == nullptr ? -1 : fault.attribute->number, GetParam().attribute);
}

const bytes mac_value = {1, 2, 3, 4, 5, 6};
const bytes mac_attribute = attribute_bytes(0, attribute_kind::bytes, mac_value);

INSTANTIATE_TEST_SUITE_P(
    all, refused_commit,
    testing::Values(
        bad_commit{"nothing", {}, result_malformed, -1},
        bad_commit{"half_a_header", bytes(15, 0), result_malformed, -1},
        bad_commit{"cookie_past_the_end", join({le32(0x050001), le32(4), {0, 0}, le16(0), le16(1), le16(0)}),
                   result_malformed, -1},
        bad_commit{"unknown_object", commit_bytes(0x999999, 4, 0, {}), result_unknown_object, -1},
        bad_commit{"operation_of_others", commit_bytes(0x050001, 2, 1, mac_attribute),
                   result_unknown_operation, -1},
        bad_commit{"operation_out_of_range", commit_bytes(0x050001, 36, 1, mac_attribute),
                   result_unknown_operation, -1},
        bad_commit{"commit_of_a_record_object", commit_bytes(0x1a0001, 2, 0, {}), result_unknown_operation,
                   -1},
        bad_commit{"unknown_attribute",
                   commit_bytes(0x050001, 4, 1, attribute_bytes(5, attribute_kind::u8, {1})),
                   result_unknown_attribute, -1},
        bad_commit{"other_kind",
                   commit_bytes(0x050001, 4, 1, attribute_bytes(0, attribute_kind::u32, mac_value)),
                   result_malformed, 0},
        bad_commit{"short_mac",
                   commit_bytes(0x050001, 4, 1, attribute_bytes(0, attribute_kind::bytes, bytes(5, 1))),
                   result_malformed, 0},
        bad_commit{"long_mac",
                   commit_bytes(0x050001, 4, 1, attribute_bytes(0, attribute_kind::bytes, bytes(7, 1))),
                   result_malformed, 0},
        bad_commit{"twice_the_same", commit_bytes(0x050001, 4, 2, join({mac_attribute, mac_attribute})),
                   result_malformed, -1},
        bad_commit{
            "too_long_a_text",
            commit_bytes(0x050001, 4, 2,
                         join({mac_attribute, attribute_bytes(1, attribute_kind::text, bytes(128, 'x'))})),
            result_bad_value, 1},
        bad_commit{"zero_inside_a_text",
                   commit_bytes(0x050001, 4, 2,
                                join({mac_attribute, attribute_bytes(1, attribute_kind::text, {'a', 0})})),
                   result_bad_value, 1},
        bad_commit{"missing_attribute",
                   commit_bytes(0x050001, 4, 1, attribute_bytes(1, attribute_kind::text, {'a'})),
                   result_missing_attribute, 0},
        bad_commit{"fewer_attributes_than_said", commit_bytes(0x050001, 4, 2, mac_attribute),
                   result_malformed, -1},
        bad_commit{"more_attributes_than_said",
                   commit_bytes(0x050001, 4, 1,
                                join({mac_attribute, attribute_bytes(1, attribute_kind::text, {'a'})})),
                   result_malformed, -1},
        bad_commit{"attribute_past_the_end",
                   commit_bytes(0x050001, 4, 1, join({{0, 5}, le16(6), bytes(5, 1)})), result_malformed, -1}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(gateway_commit_decoding, takes_the_longest_text)
{
    commit got;
    const bytes longest(127, 'x');
    EXPECT_EQ(
        decode_commit(commit_bytes(0x050001, 4, 2,
                                   join({mac_attribute, attribute_bytes(1, attribute_kind::text, longest)})),
                      got)
            .result,
        result_ok);
    EXPECT_EQ(got.text(1).size(), 127u);
}

TEST(gateway_commit_decoding, every_cut_of_a_good_commit_is_malformed)
{
    const bytes whole =
        commit_bytes(0x050001, 4, 2,
                     join({mac_attribute, attribute_bytes(1, attribute_kind::text, {'a', 'b'})}), {9, 9, 9});
    commit got;
    ASSERT_EQ(decode_commit(whole, got).result, result_ok);
    EXPECT_EQ(bytes(got.cookie.begin(), got.cookie.end()), (bytes{9, 9, 9}));
    for (size_t size = 0; size < whole.size(); size++) {
        const bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
        EXPECT_EQ(decode_commit(cut, got).result, result_malformed) << size;
    }
}

TEST(gateway_record, sends_fields_without_their_bit_as_zero)
{
    const uint32_t fields[3] = {0xaaaaaaaa, 100, 0xbbbbbbbb};
    encoded e;
    ASSERT_TRUE(encode_record(0x1a0001, 2, fields, 3, 1, e.out));
    EXPECT_EQ(e.all(), join({le32(0x1a0001), le32(2), le16(3), {1, 0}, le32(0), le32(100), le32(0)}));
    record got;
    ASSERT_EQ(decode_record(e.out.written(), got).result, result_ok);
    EXPECT_EQ(got.language, 1);
    EXPECT_EQ(got.field(1), 100u);
    EXPECT_FALSE(got.field(0));
    EXPECT_FALSE(got.field(2));
    EXPECT_FALSE(got.field(32));
}

TEST(gateway_record, is_sent_with_an_empty_mask)
{
    const uint32_t fields[3] = {1, 2, 3};
    encoded e;
    ASSERT_TRUE(encode_record(0x1a0001, 0, fields, 3, 0, e.out));
    record got;
    EXPECT_EQ(decode_record(e.out.written(), got).result, result_ok);
    EXPECT_FALSE(got.field(1));
}

TEST(gateway_record, wrong_ones_are_refused)
{
    record got;
    const auto record_of = [](uint32_t object, uint32_t mask, uint16_t fields, size_t sent) {
        return join({le32(object), le32(mask), le16(fields), {0, 0}, bytes(sent, 0)});
    };
    EXPECT_EQ(decode_record(bytes(11, 0), got).result, result_malformed);
    EXPECT_EQ(decode_record(record_of(0x1a0001, 0, 3, 11), got).result, result_malformed);
    EXPECT_EQ(decode_record(record_of(0x1a0001, 0, 3, 13), got).result, result_malformed);
    EXPECT_EQ(decode_record(record_of(0x1a0001, 8, 3, 12), got).result, result_malformed);
    EXPECT_EQ(decode_record(record_of(0x1a0001, 0, 33, 132), got).result, result_malformed);
    EXPECT_EQ(decode_record(record_of(0x1a0001, 0, 32, 128), got).result, result_ok);
    EXPECT_EQ(decode_record(record_of(0x1a0002, 0, 3, 12), got).result, result_unknown_object);
    EXPECT_EQ(decode_record(record_of(0x1a0001, 1, 3, 12), got).result, result_unknown_attribute);
    EXPECT_EQ(decode_record(record_of(0x1a0001, 6, 3, 12), got).result, result_ok);
}

TEST(gateway_save, keeps_numbers_texts_and_their_absence)
{
    const save_request sent{{-2, 1, 2, 3, 4}, {"running", "", std::nullopt, "vchassis", "now"}};
    encoded e;
    ASSERT_TRUE(encode_save(sent, e.out));
    save_request got;
    ASSERT_EQ(decode_save(e.out.written(), got).result, result_ok);
    EXPECT_EQ(got.numbers, sent.numbers);
    EXPECT_EQ(got.texts, sent.texts);
    for (size_t size = 0; size < e.out.size(); size++) {
        save_request cut;
        EXPECT_EQ(decode_save(e.out.written().first(size), cut).result, result_malformed) << size;
    }
}

TEST(gateway_reply, carries_result_text_and_batch)
{
    const bytes batch = join({bytes(44, 7), le16(1), bytes(40, 1)});
    encoded e;
    ASSERT_TRUE(encode_reply({3, 15, true, "no", batch}, e.out));
    EXPECT_EQ(e.all(), join({le32(3), le32(15), le16(2), {1, 0}, text_bytes("no"), batch}));
    mix::wire::gateway_reply got;
    ASSERT_TRUE(decode_reply(e.out.written(), got));
    EXPECT_EQ(got.result, 3);
    EXPECT_EQ(got.response_type, 15);
    EXPECT_TRUE(got.more);
    EXPECT_EQ(got.text, "no");
    EXPECT_EQ(rows_of_batch(got.batch, 40), 1);
    EXPECT_FALSE(rows_of_batch(got.batch, 39));
    EXPECT_FALSE(rows_of_batch(got.batch.first(45), 40));
    EXPECT_FALSE(decode_reply(e.out.written().first(13), got));
    EXPECT_FALSE(decode_reply(e.out.written().first(11), got));
}

TEST(gateway_reply, cuts_a_long_text_between_characters)
{
    std::string text(gateway_text_max - 1, 'x');
    text += "\u7f51"; /* three bytes, of which one would fit */
    EXPECT_EQ(fitting_text(text).size(), gateway_text_max - 1);
    EXPECT_EQ(fitting_text(text.substr(0, gateway_text_max - 1)).size(), gateway_text_max - 1);
}

TEST(gateway_results, have_a_text_in_both_languages_unless_they_are_good)
{
    EXPECT_STREQ(text_of_result(result_unreachable, 0), "management gateway does not answer");
    EXPECT_STREQ(text_of_result(result_unreachable, 1), "管理网关无应答");
    EXPECT_EQ(text_of_result(0, 0), nullptr);
    EXPECT_EQ(text_of_result(4711, 0), nullptr);
    for (int32_t result = result_malformed; result <= result_not_applied; result++) {
        ASSERT_NE(text_of_result(result, 0), nullptr) << result;
        EXPECT_STRNE(text_of_result(result, 0), text_of_result(result, 1)) << result;
    }
}

} // namespace

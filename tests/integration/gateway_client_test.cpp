#include "appliance/wire/gateway.h"

#include "appliance/platform/reason.h"
#include "integration/peer.h"
#include "platform/mgi.h"
#include "platform/services.h"

using namespace mixtest;

namespace
{

constexpr const char *silence[] = {"management gateway does not answer", "管理网关无应答"};

bytes encoded(const gateway_reply &reply)
{
    uint8_t room[8192];
    writer out(room);
    EXPECT_TRUE(encode_reply(reply, out));
    return bytes(out.written().begin(), out.written().end());
}

struct received {
    uint32_t type = 0;
    bytes payload;
};

/* A gateway that keeps what it was asked and gives prepared replies. */
struct gateway : run_directory_test {
    void start()
    {
        daemon = std::make_unique<peer>(
            path("node0/0.200.sock"),
            after_welcome([this](int fd, const message_header &header, const bytes &payload) {
                asked.push_back({header.type, payload});
                const bytes reply = replies.empty() ? bytes{} : replies.front();
                if (!replies.empty())
                    replies.erase(replies.begin());
                put_reply(fd, header, status, reply);
            }));
    }
    void TearDown() override
    {
        daemon.reset();
        run_directory_test::TearDown();
    }
    std::unique_ptr<peer> daemon;
    std::vector<received> asked;
    std::vector<bytes> replies;
    int32_t status = 0;
};

mgi_message description(uint32_t type, uint8_t language)
{
    static const uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
    mgi_message message;
    mgi_init_rqt_message(&message);
    mgi_set_rqt_type(&message, type);
    mgi_set_rqt_language(&message, language);
    mgi_set_rqt_vsysid(&message, 3);
    message.attr[0] = mac;
    return message;
}

TEST_F(gateway, takes_a_commit_and_answers_well)
{
    replies = {encoded({.response_type = MGI_RESP_EXISTS})};
    start();
    mgi_message message = description(4, 0);
    EXPECT_EQ(final_set_md_macd(&message, nullptr, nullptr), 0);
    EXPECT_EQ(get_mgi_resp_type(&message), MGI_RESP_EXISTS);
    EXPECT_EQ(mgi_get_rsp_err_string(0), nullptr);
    EXPECT_EQ(get_errString(0), nullptr);
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0].type, 2u);
    commit got;
    ASSERT_EQ(decode_commit(asked[0].payload, got).result, result_ok);
    EXPECT_EQ(got.object->number, object_mac_description);
    EXPECT_EQ(got.vsysid, 3);
    EXPECT_FALSE(got.has(1));
}

TEST_F(gateway, gets_each_objects_own_number)
{
    const struct {
        int (*commit)(mgi_message *, void *, void *);
        uint32_t object;
    } objects_of[] = {{final_set_arp_arpe, 0x010001},    {final_set_neighbor_neighbor, 0x020001},
                      {final_set_gas_gase, 0x030001},    {final_set_mac_mace, 0x040001},
                      {final_set_mac_mace_ml, 0x040002}, {final_set_md_macd, 0x050001},
                      {final_set_if_if_dhcpsn, 0x060001}};
    start();
    for (const auto &each : objects_of) {
        replies = {encoded({})};
        asked.clear();
        mgi_message message;
        mgi_init_rqt_message(&message);
        EXPECT_EQ(each.commit(&message, nullptr, nullptr), 0);
        ASSERT_EQ(asked.size(), 1u);
        uint32_t number = 0;
        std::memcpy(&number, asked[0].payload.data(), sizeof(number));
        EXPECT_EQ(number, each.object);
    }
}

TEST_F(gateway, refuses_with_a_result_and_its_text)
{
    replies = {encoded({.result = 7, .text = "已存在于此"}), encoded({.result = 9})};
    start();
    mgi_message message = description(4, 1);
    EXPECT_EQ(final_set_md_macd(&message, nullptr, nullptr), 7);
    EXPECT_STREQ(mgi_get_rsp_err_string(7), "已存在于此");
    EXPECT_STREQ(get_errString(0), "已存在于此");
    EXPECT_STREQ(mgi_get_rsp_err_string(8), "不存在");
    EXPECT_EQ(mgi_get_rsp_err_string(4711), nullptr);
    EXPECT_EQ(final_set_md_macd(&message, nullptr, nullptr), 9);
    EXPECT_STREQ(mgi_get_rsp_err_string(9), "表已满");
    std::thread([] { EXPECT_STREQ(mgi_get_rsp_err_string(7), "already there"); }).join();
}

TEST_F(gateway, that_is_absent_fails_in_the_requests_language)
{
    for (uint8_t language : {0, 1}) {
        mgi_message message = description(4, language);
        const int result = final_set_md_macd(&message, nullptr, nullptr);
        EXPECT_LT(result, 0);
        EXPECT_STREQ(mgi_get_rsp_err_string(result), silence[language]);
        EXPECT_EQ(get_mgi_resp_type(&message), 0);
    }
    EXPECT_NE(std::string(mixplatform_last_reason()).find("daemon 200, message type 2: no daemon listens"),
              std::string::npos);
}

TEST_F(gateway, answers_that_can_not_be_read_are_refusals)
{
    const bytes cut_text = {1, 0, 0, 0, 0, 0, 0, 0, 5, 0, 0, 0, 'x'};
    replies = {{}, {1, 2, 3}, cut_text};
    start();
    for (int i = 0; i < 3; i++) {
        mgi_message message = description(4, 0);
        EXPECT_LT(final_set_md_macd(&message, nullptr, nullptr), 0);
        EXPECT_STREQ(get_errString(0), "management gateway answered with something unreadable");
    }
    status = -3;
    mgi_message message = description(4, 0);
    EXPECT_LT(final_set_md_macd(&message, nullptr, nullptr), 0);
    EXPECT_STREQ(get_errString(0), "management gateway failed");
}

TEST_F(gateway, a_value_that_is_too_long_is_refused_before_it_is_sent)
{
    start();
    const std::string text(5000, 'x');
    const char *pointer = text.c_str();
    mgi_message message = description(4, 0);
    message.attr[1] = &pointer;
    const int result = final_set_md_macd(&message, nullptr, nullptr);
    EXPECT_LT(result, 0);
    EXPECT_STREQ(mgi_get_rsp_err_string(result), "value too long to be sent");
    EXPECT_TRUE(asked.empty());
}

int hook_calls;
int count_hook(const void *, uint32_t size)
{
    hook_calls += size == 12;
    return 0;
}

TEST_F(gateway, takes_a_record_and_its_mask)
{
    replies = {encoded({}), encoded({.result = 6, .text = "too large"})};
    start();
    uint8_t header[40] = {0x01, 0x00, 0x1a, 0x00};
    const uint32_t record[3] = {0, 100, 0xdeadbeef};
    hook_calls = 0;
    EXPECT_EQ(prepare_mgi_exchange(header, 1, 2, 12, 0, 0, 2, 0, record), 0);
    EXPECT_EQ(make_mgi_exchange(count_hook, 12), 0);
    EXPECT_EQ(get_errString(0), nullptr);
    EXPECT_EQ(hook_calls, 1);
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0].type, 1u);
    EXPECT_EQ(asked[0].payload,
              (bytes{0x01, 0, 0x1a, 0, 2, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0, 100, 0, 0, 0, 0, 0, 0, 0}));
    prepare_mgi_exchange(header, 1, 2, 12, 0, 0, 0, 0, record);
    EXPECT_EQ(make_mgi_exchange(count_hook, 12), 6);
    EXPECT_STREQ(get_errString(0), "too large");
    EXPECT_EQ(hook_calls, 1);
}

TEST_F(gateway, a_record_that_was_not_prepared_is_not_sent)
{
    start();
    EXPECT_LT(make_mgi_exchange(count_hook, 12), 0);
    uint8_t header[40] = {};
    uint32_t record[33] = {};
    EXPECT_LT(prepare_mgi_exchange(header, 1, 2, sizeof(record), 0, 0, 0, 0, record), 0);
    EXPECT_LT(make_mgi_exchange(count_hook, sizeof(record)), 0);
    EXPECT_TRUE(asked.empty());
}

struct batches {
    std::vector<bytes> data;
    std::vector<int> errors;
    int answer = 0;
};

int collect(const void *data, uint32_t length, int error, void *context)
{
    auto &into = *static_cast<batches *>(context);
    const auto *from = static_cast<const uint8_t *>(data);
    into.data.emplace_back(from, from + length);
    into.errors.push_back(error);
    return into.answer;
}

bytes batch_of(uint8_t mark, uint16_t rows, size_t row_bytes)
{
    bytes out(44, mark);
    out.push_back(static_cast<uint8_t>(rows));
    out.push_back(static_cast<uint8_t>(rows >> 8));
    out.resize(46 + row_bytes, mark);
    return out;
}

struct gateway_read_test : gateway {
    int read()
    {
        mgi_message message;
        mgi_init_rqt_message(&message);
        mgi_set_rqt_type(&message, 8);
        mgi_set_rqt_cookie(&message, cookie.data(), 44);
        return final_get_if_if_dhcpsn(&message, collect, &got);
    }
    bytes cookie = bytes(44, 0xc0);
    batches got;
};

TEST_F(gateway_read_test, goes_from_batch_to_batch_with_the_batchs_cookie)
{
    const bytes one = batch_of(1, 2, 80), two = batch_of(2, 1, 40);
    replies = {encoded({.more = true, .batch = one}), encoded({.batch = two})};
    start();
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(got.data, (std::vector<bytes>{one, two}));
    EXPECT_EQ(got.errors, (std::vector<int>{0, 0}));
    ASSERT_EQ(asked.size(), 2u);
    commit request;
    ASSERT_EQ(decode_commit(asked[0].payload, request).result, result_ok);
    EXPECT_EQ(bytes(request.cookie.begin(), request.cookie.end()), cookie);
    ASSERT_EQ(decode_commit(asked[1].payload, request).result, result_ok);
    EXPECT_EQ(bytes(request.cookie.begin(), request.cookie.end()), bytes(44, 1));
}

TEST_F(gateway_read_test, stops_where_the_callback_says_so)
{
    replies = {encoded({.more = true, .batch = batch_of(1, 1, 40)})};
    start();
    got.answer = -1;
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(asked.size(), 1u);
}

TEST_F(gateway_read_test, an_empty_table_is_one_batch_without_rows)
{
    replies = {encoded({.batch = batch_of(1, 0, 0)})};
    start();
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(got.errors, (std::vector<int>{0}));
}

TEST_F(gateway_read_test, failures_come_as_a_batch_without_rows_and_an_error)
{
    replies = {encoded({.result = 8, .text = "no such interface"}), encoded({.batch = batch_of(1, 2, 79)}),
               encoded({.more = true, .batch = batch_of(1, 0, 0)})};
    start();
    EXPECT_EQ(read(), 8);
    EXPECT_STREQ(get_errString(0), "no such interface");
    EXPECT_EQ(read(), result_nonsense);
    EXPECT_EQ(read(), result_nonsense);
    EXPECT_EQ(got.errors, (std::vector<int>{8, result_nonsense, result_nonsense}));
    daemon.reset();
    EXPECT_EQ(read(), result_unreachable);
    EXPECT_STREQ(get_errString(0), silence[0]);
    for (const bytes &each : got.data)
        EXPECT_EQ(each, bytes(46, 0));
}

TEST_F(gateway, saves_configurations)
{
    replies = {encoded({}), encoded({.result = 10})};
    start();
    EXPECT_EQ(save_configuration(-2, "running", "", "who", nullptr, "now", 1, 2, 3, 4), 0);
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0].type, 4u);
    save_request got;
    ASSERT_EQ(decode_save(asked[0].payload, got).result, result_ok);
    EXPECT_EQ(got.numbers, (std::array<int32_t, 5>{-2, 1, 2, 3, 4}));
    EXPECT_EQ(got.texts[0], "running");
    EXPECT_EQ(got.texts[1], "");
    EXPECT_EQ(got.texts[2], "who");
    EXPECT_FALSE(got.texts[3]);
    EXPECT_EQ(got.texts[4], "now");
    EXPECT_EQ(save_configuration(-2, "running", "", "who", "module", "now", 0, 0, 0, 0), 10);
    daemon.reset();
    EXPECT_LT(save_configuration(-2, "running", "", "who", "module", "now", 0, 0, 0, 0), 0);
}

TEST_F(gateway, tells_the_current_virtual_system)
{
    EXPECT_EQ(get_mgi_vsysid(), 0); /* nobody there to tell */
    status = 300;
    start();
    EXPECT_EQ(get_mgi_vsysid(), 300);
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0].type, 5u);
    EXPECT_TRUE(asked[0].payload.empty());
}

} // namespace

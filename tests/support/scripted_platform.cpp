#include "support/scripted_platform.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sanitizer/asan_interface.h>

#include "platform/board.h"
#include "platform/ipcmsg.h"
#include "platform/services.h"
#include "platform/shared_mem.h"
#include "support/guarded_buffers.h"

namespace mixtest
{

static guarded_buffers guarded;

static void release(void *buffer)
{
    if (!guarded.give_back(buffer))
        std::free(buffer);
}

scripted_platform &scripted_platform::get()
{
    static scripted_platform only;
    return only;
}

void scripted_platform::reset()
{
    for (auto &[buffer, size] : out_) {
        open_buffer(buffer);
        release(buffer);
    }
    *this = scripted_platform();
    printed.clear();
    printed_formats.clear();
}

void scripted_platform::fail_allocation(uint32_t n, bool and_all_later)
{
    failing_ = n;
    all_later_ = and_all_later;
}

bool scripted_platform::allocation_fails()
{
    return failing_ != 0 && (allocations == failing_ || (all_later_ && allocations > failing_));
}

size_t scripted_platform::outstanding() const
{
    return out_.size();
}

void *scripted_platform::allocate(uint32_t size)
{
    allocations++;
    allocation_sizes.push_back(size);
    allocated_after.push_back(messages.size());
    if (allocation_fails())
        return nullptr;
    void *buffer = guarded_after ? guarded.take(size, *guarded_after) : std::malloc(size != 0 ? size : 1);
    std::memset(buffer, pattern, size);
    out_[buffer] = size;
    return buffer;
}

void scripted_platform::free(void *buffer)
{
    if (buffer == nullptr)
        return;
    open_buffer(buffer);
    if (out_.erase(buffer) == 0) {
        bad_frees++;
        return;
    }
    release(buffer);
}

void scripted_platform::open_buffer(void *buffer) const
{
    if (const auto found = out_.find(buffer); found != out_.end())
        ASAN_UNPOISON_MEMORY_REGION(buffer, found->second);
}

void scripted_platform::free_as_caller(void *buffer)
{
    EXPECT_TRUE(out_.contains(buffer)) << "not a buffer of the message service";
    free(buffer);
}

int32_t scripted_platform::exchange(sender by, uint32_t destination, uint32_t zero, uint32_t type,
                                    const void *request, uint32_t request_length, int32_t *status,
                                    void *reply, uint32_t *reply_length, uint32_t timeout_ms)
{
    open_buffer(reply);
    const auto *from = static_cast<const uint8_t *>(request);
    messages.push_back({by, destination, zero, type, bytes(from, from + request_length), *reply_length,
                        request == reply, timeout_ms});
    answer with = fallback;
    if (handler) {
        with = handler(messages.back());
    } else if (!answers.empty()) {
        with = answers.front();
        answers.pop_front();
    }
    if (with.sent < 0 && !with.wrote_all_the_same)
        return with.sent;
    guarded.open(reply);
    const uint32_t capacity = *reply_length;
    *status = with.status;
    const size_t written = std::min<size_t>(with.reply.size(), *reply_length);
    if (written != 0)
        std::memcpy(reply, with.reply.data(), written);
    *reply_length = with.length.value_or(static_cast<uint32_t>(with.reply.size()));
    finish_reply(static_cast<uint8_t *>(reply), capacity, std::min(*reply_length, capacity));
    return with.sent;
}

void scripted_platform::finish_reply(uint8_t *reply, uint32_t capacity, uint32_t received) const
{
    if (behind_reply)
        std::memset(reply + received, *behind_reply, capacity - received);
    if (guarded_after == received)
        guarded.close(reply);
    if (const auto found = out_.find(reply); closes_replies && found != out_.end())
        ASAN_POISON_MEMORY_REGION(reply + received, found->second - received);
}

int32_t scripted_platform::one_way(sender by, uint32_t destination, uint32_t zero, uint32_t type,
                                   const void *request, uint32_t request_length, uint32_t timeout_ms)
{
    const auto *from = static_cast<const uint8_t *>(request);
    messages.push_back(
        {by, destination, zero, type, bytes(from, from + request_length), 0, false, timeout_ms});
    if (handler)
        return handler(messages.back()).sent;
    answer with = fallback;
    if (!answers.empty()) {
        with = answers.front();
        answers.pop_front();
    }
    return with.sent;
}

int scripted_platform::commit(const char *object, mgi_message *message)
{
    const auto *cookie = static_cast<const uint8_t *>(message->cookie);
    gateway_call call{object,
                      message->rqt_type,
                      message->language,
                      message->request_flag,
                      message->vsysid,
                      cookie != nullptr ? bytes(cookie, cookie + message->cookie_length) : bytes(),
                      {},
                      language_set,
                      vsysid_set};
    std::copy(std::begin(message->attr), std::end(message->attr), call.attr);
    gateway_calls.push_back(call);
    if (on_commit)
        on_commit(*message, object);
    if (!response_types.empty()) {
        message->resp_type = response_types.front();
        response_types.pop_front();
    }
    if (commit_results.empty())
        return 0;
    const int result = commit_results.front();
    commit_results.pop_front();
    return result;
}

uint32_t scripted_platform::board_value(const char *name)
{
    board_calls.emplace_back(name);
    const auto found = board.find(name);
    return found != board.end() ? found->second : 0;
}

uint32_t scripted_platform::board_value(const char *name, uint32_t argument)
{
    board_calls.push_back(std::string(name) + "(" + std::to_string(argument) + ")");
    if (const auto exact = board_of.find({name, argument}); exact != board_of.end())
        return exact->second;
    const auto found = board.find(name);
    return found != board.end() ? found->second : 0;
}

int collect_row(const void *row, void *context, int first)
{
    auto *into = static_cast<collected_rows *>(context);
    const auto *from = static_cast<const uint8_t *>(row);
    into->rows.emplace_back(from, from + into->row_size);
    into->first_flags.push_back(first);
    return into->rows.size() > into->answer_from ? into->answer : 0;
}

void platform_test::SetUp()
{
    platform().reset();
}

void platform_test::TearDown()
{
    EXPECT_EQ(platform().outstanding(), 0u) << "buffers left allocated";
    EXPECT_EQ(platform().bad_frees, 0u) << "buffers freed twice, or never allocated";
    for (const sent_message &message : platform().messages)
        EXPECT_EQ(message.zero, 0u);
    platform().reset();
}

} // namespace mixtest

using mixtest::platform;
using mixtest::sender;

extern "C" {

void *ipcmsg_alloc(uint32_t size)
{
    return platform().allocate(size);
}

void ipcmsg_free(void *buffer)
{
    platform().free(buffer);
}

int32_t ipcmsg_send_and_recv(uint32_t destination, uint32_t zero, uint32_t type, const void *request,
                             uint32_t request_length, int32_t *status, void *reply, uint32_t *reply_length,
                             uint32_t timeout_ms)
{
    return platform().exchange(sender::send_and_recv, destination, zero, type, request, request_length,
                               status, reply, reply_length, timeout_ms);
}

int32_t ipcmsg_send_and_recv_timeout(uint32_t destination, uint32_t zero, uint32_t type, const void *request,
                                     uint32_t request_length, int32_t *status, void *reply,
                                     uint32_t *reply_length, uint32_t timeout_ms)
{
    return platform().exchange(sender::send_and_recv_timeout, destination, zero, type, request,
                               request_length, status, reply, reply_length, timeout_ms);
}

int32_t ipcmsg_send(uint32_t destination, uint32_t zero, uint32_t type, const void *request,
                    uint32_t request_length)
{
    return platform().one_way(sender::send, destination, zero, type, request, request_length, 0);
}

int32_t ipcmsg_send_timeout(uint32_t destination, uint32_t zero, uint32_t type, const void *request,
                            uint32_t request_length, uint32_t timeout_ms)
{
    return platform().one_way(sender::send_timeout, destination, zero, type, request, request_length,
                              timeout_ms);
}

uint32_t mktipcid(uint32_t node, uint16_t instance, uint32_t daemon)
{
    if (node > 255)
        return 0xffffffffu;
    return node << 24 | uint32_t{instance} << 8 | (daemon & 0xff);
}

uint32_t mktipcid_by_slot(uint32_t slot, uint32_t daemon)
{
    return mktipcid(slot + 1, 0, daemon);
}

void mgi_init_rqt_message(mgi_message *message)
{
    std::memset(message, 0, sizeof(*message));
    platform().messages_initialised++;
    platform().language_set = platform().vsysid_set = false;
}

void mgi_set_rqt_type(mgi_message *message, uint32_t type)
{
    message->rqt_type = type;
}

void mgi_set_rqt_language(mgi_message *message, uint8_t language)
{
    message->language = language;
    platform().language_set = true;
}

void mgi_set_rqt_vsysid(mgi_message *message, uint16_t vsysid)
{
    message->vsysid = vsysid;
    platform().vsysid_set = true;
}

void mgi_set_rqt_cookie(mgi_message *message, const void *cookie, uint32_t length)
{
    message->cookie = cookie;
    message->cookie_length = length;
}

int get_mgi_resp_type(const mgi_message *message)
{
    return message->resp_type;
}

uint16_t get_mgi_vsysid(void)
{
    return platform().current_vsysid;
}

const char *mgi_get_rsp_err_string(int result)
{
    platform().refusal_results.push_back(result);
    return platform().refusal_text;
}

int prepare_mgi_exchange(const void *header, int one, int two, uint32_t record_size, int zero1, int zero2,
                         uint32_t mask, int zero3, const void *record)
{
    const auto *head = static_cast<const uint8_t *>(header);
    const auto *body = static_cast<const uint8_t *>(record);
    platform().record_calls.push_back({{head, head + 40},
                                       one,
                                       two,
                                       record_size,
                                       zero1,
                                       zero2,
                                       mask,
                                       zero3,
                                       {body, body + record_size},
                                       record,
                                       nullptr,
                                       0});
    return 0;
}

int make_mgi_exchange(mgi_response_hook hook, uint32_t record_size)
{
    EXPECT_FALSE(platform().record_calls.empty()) << "an exchange that was not prepared";
    mixtest::record_call &made = platform().record_calls.back();
    EXPECT_EQ(std::memcmp(made.record.data(), made.record_at, made.record.size()), 0)
        << "the record is sent now, not when it was prepared";
    EXPECT_EQ(platform().exchange_text_arguments.size() + 1, platform().record_calls.size())
        << "the text is that of this exchange: it is asked for afterwards";
    made.hook = hook;
    made.made_size = record_size;
    return 0;
}

const char *get_errString(int unused)
{
    platform().exchange_text_arguments.push_back(unused);
    return platform().exchange_text;
}

#define MIX_COMMIT(name)                                                                                     \
    int name(mgi_message *message, void *second, void *third)                                                \
    {                                                                                                        \
        EXPECT_EQ(second, nullptr);                                                                          \
        EXPECT_EQ(third, nullptr);                                                                           \
        return platform().commit(#name, message);                                                            \
    }
MIX_COMMIT(final_set_arp_arpe)
MIX_COMMIT(final_set_neighbor_neighbor)
MIX_COMMIT(final_set_gas_gase)
MIX_COMMIT(final_set_mac_mace)
MIX_COMMIT(final_set_mac_mace_ml)
MIX_COMMIT(final_set_md_macd)
MIX_COMMIT(final_set_if_if_dhcpsn)

int final_get_if_if_dhcpsn(mgi_message *message, mgi_batch_callback callback, void *context)
{
    const int result = platform().commit("final_get_if_if_dhcpsn", message);
    return platform().on_read ? platform().on_read(callback, context) : result;
}

void *init_shared_mem(const char *name, size_t size)
{
    platform().shared_memories.emplace_back(name, size);
    return platform().shared_memory ? platform().shared_memory(name, size) : nullptr;
}

#define MIX_BOARD_NUMBER(name)                                                                               \
    uint32_t name(void)                                                                                      \
    {                                                                                                        \
        return platform().board_value(#name);                                                                \
    }
#define MIX_BOARD_NUMBER_OF(name)                                                                            \
    uint32_t name(uint32_t argument)                                                                         \
    {                                                                                                        \
        return platform().board_value(#name, argument);                                                      \
    }
#define MIX_BOARD_TEST_OF(name)                                                                              \
    int name(uint32_t argument)                                                                              \
    {                                                                                                        \
        return static_cast<int>(platform().board_value(#name, argument));                                    \
    }
#define MIX_BOARD_TEST(name)                                                                                 \
    int name(void)                                                                                           \
    {                                                                                                        \
        return static_cast<int>(platform().board_value(#name));                                              \
    }
#include "platform/board_functions.def"

int console_print(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const std::string text = mixtest::formatted(format, arguments);
    va_end(arguments);
    platform().console += text;
    return static_cast<int>(text.size());
}

void tq_clog(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    platform().log.push_back(mixtest::formatted(format, arguments));
    va_end(arguments);
}

void tq_debug_print(int level, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    platform().debug.emplace_back(level, mixtest::formatted(format, arguments));
    va_end(arguments);
}

const char *tq_get_image_path(void)
{
    return platform().image_path;
}

static int disk_figures(uint64_t *first, uint64_t *second, uint64_t *third)
{
    *first = platform().disk_figures[0];
    *second = platform().disk_figures[1];
    *third = platform().disk_figures[2];
    return platform().disk_result;
}

int tq_get_diskinfo_bypath(const char *path, uint64_t *first, uint64_t *second, uint64_t *third)
{
    platform().disk_calls.push_back({path, {}});
    return disk_figures(first, second, third);
}

int tq_get_disk_info_by_devname(const char *device, uint32_t type, uint64_t *first, uint64_t *second,
                                uint64_t *third)
{
    platform().disk_calls.push_back({device, type});
    return disk_figures(first, second, third);
}

int tq_localtime(const time_t *when, struct tm *out)
{
    platform().local_times_asked.push_back(*when);
    if (!platform().local_time)
        return -1;
    *out = *platform().local_time;
    return 0;
}

int save_configuration(int a, const char *b, const char *c, const char *d, const char *e, const char *f,
                       int g, int h, int i, int j)
{
    platform().saved_configurations.push_back({std::to_string(a), b, c, d, e, f, std::to_string(g),
                                               std::to_string(h), std::to_string(i), std::to_string(j)});
    auto &results = platform().save_results;
    if (results.empty())
        return 0;
    const int result = results.front();
    results.pop_front();
    return result;
}
}

#include "fuzz/hostile_daemon.h"

#include <algorithm>

#include "support/scripted_platform.h"

namespace mixfuzz
{

using mixtest::answer;
using mixtest::platform;
using mixtest::sent_message;

void touch(const void *bytes, size_t size)
{
    const auto *from = static_cast<const volatile uint8_t *>(bytes);
    for (size_t i = 0; i < size; i++)
        static_cast<void>(from[i]);
}

print_callback call::print() const
{
    return is(silent) ? nullptr : mixtest::collect_print;
}

const char *call::text()
{
    if (!is(with_texts))
        return nullptr;
    static constexpr char letters[] = "Vlan10-20%s%n%d/eth0.";
    text_.clear();
    for (size_t i = 0; i < value_; i++)
        text_ += letters[i % (sizeof letters - 1)];
    return text_.c_str();
}

const uint8_t *call::bytes(size_t size)
{
    if (!is(with_addresses))
        return nullptr;
    uint8_t *block = out(size);
    std::memset(block, value_, size);
    return block;
}

int call::take_row(const void *row, size_t size)
{
    touch(row, size);
    delivered_++;
    return is(stopping) && delivered_ == value_ ? -1 : 0;
}

void call::counted(uint64_t rows) const
{
    if (!is(without_callback) && rows != delivered_)
        complain("a listing delivered another number of rows than it says");
}

void call::counted_unless_stopped(uint64_t rows) const
{
    if (!is(stopping))
        counted(rows);
    else if (rows < delivered_)
        complain("a listing delivered more rows than it says");
}

namespace
{

constexpr uint32_t longest_reply = 65536;

/* What the low bits of `how` make of an exchange; all else is a good one. */
enum fate : uint8_t { unsent = 0, refused = 1, status_of_choice = 2 };
constexpr uint8_t fate_bits = 7, full_length = 8, as_page = 16, overstated = 32, miscounted = 64;

/*
 * One answer: u8 how; a refusal or a status of choice has its i32 next; then the length, if `how` says
 * neither full_length nor as_page: u32; as_page: u8, the number of rows; overstated: u32 more than fits;
 * u16 the number of bytes that follow, which are the reply's first; u8 what all others are; with
 * miscounted: u32, added to the number of rows that the page claims.
 */
class hostile_daemon
{
  public:
    hostile_daemon(input &from, const page_layout &page) : from_(from), page_(page) {}

    answer reply_to(const sent_message &asked)
    {
        if (from_.empty())
            return {-1, 0, {}, {}};
        const auto how = from_.take<uint8_t>();
        answer out;
        switch (how & fate_bits) {
        case unsent:
            return {-1 - how, 0, {}, {}};
        case refused:
            out.status = static_cast<int32_t>(from_.take<uint32_t>() | 0x80000000u);
            break;
        case status_of_choice:
            out.status = from_.take<int32_t>();
            break;
        default:
            break;
        }
        if (asked.capacity != 0)
            fill(out, how, asked.capacity);
        return out;
    }

  private:
    void fill(answer &out, uint8_t how, uint32_t capacity)
    {
        uint32_t rows = 0;
        uint32_t length = capacity;
        if ((how & as_page) != 0 && page_.row != 0) {
            rows = from_.take<uint8_t>() % ((capacity - page_.header) / page_.row + 1);
            length = page_.header + rows * page_.row;
        } else if ((how & full_length) == 0) {
            length = std::min(from_.take<uint32_t>(), longest_reply);
        }
        if ((how & overstated) != 0) {
            length = capacity;
            out.length = capacity + from_.take<uint32_t>() % (UINT32_MAX - capacity);
        }
        const auto first = from_.take(from_.take<uint16_t>());
        out.reply.assign(length, from_.take<uint8_t>());
        std::copy_n(first.begin(), std::min<size_t>(first.size(), length), out.reply.begin());
        if ((how & miscounted) != 0)
            rows += from_.take<uint32_t>();
        if ((how & as_page) != 0 && page_.row != 0)
            std::memcpy(out.reply.data() + page_.count_at, &rows, page_.count_width);
    }

    input &from_;
    const page_layout &page_;
};

/* The boards that clients decide by; the input has a bit for each. */
void choose_board(input &from)
{
    static constexpr const char *predicates[] = {
        "tq_is_numa_ioc",     "tq_is_numa_platform",    "tq_is_mcp_master",
        "tq_is_mcp_slave",    "tq_is_mcpu_platform",    "tq_is_mcpu_swm_slot",
        "tq_is_vfw_platform", "tq_is_platform",         "tq_is_mcpu_hardware_platform",
        "tq_is_qsm_id",       "tq_is_mcpu_subcard_200", "tq_is_mcpu_Mirel9_series_hardware_platform"};
    const auto bits = from.take<uint16_t>();
    for (size_t i = 0; i < std::size(predicates); i++)
        platform().board[predicates[i]] = bits >> i & 1;
    platform().board["tq_platform_type"] = from.take<uint8_t>();
    platform().board["tq_system_platform_type"] = platform().board["tq_platform_type"];
    platform().board["tq_get_slot"] = from.take<uint8_t>();
}

void check_buffers()
{
    if (platform().outstanding() != 0)
        complain("a buffer is left allocated");
    if (platform().bad_frees != 0)
        complain("a buffer was freed twice, or was never allocated");
}

} // namespace

} // namespace mixfuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using namespace mixfuzz;
    input from(data, size);
    platform().reset();
    const client &chosen = clients[from.take<uint8_t>() % clients.size()];
    platform().closes_replies = !chosen.hands_over;
    const auto flags = from.take<uint8_t>();
    call with(flags, from.take<uint8_t>());
    if (with.is(call::short_of_memory)) {
        const auto which = from.take<uint8_t>();
        platform().fail_allocation(which & 0x7fu, which >> 7 != 0);
    }
    if (with.is(call::board_of_choice))
        choose_board(from);
    hostile_daemon peer(from, chosen.page);
    platform().handler = [&peer](const sent_message &asked) { return peer.reply_to(asked); };
    chosen.run(with);
    check_buffers();
    return 0;
}

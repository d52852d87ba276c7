#include "sweep/client.h"

#include <libmix/bhv.h>
#include <libmix/isp.h>

#include "platform/ipcmsg.h"
#include "support/guarded_text.h"

namespace mixtest
{

int64_t given::take_buffer(int result, size_t size)
{
    if (result != 0)
        return result;
    void *buffer = *no_buffer();
    handed.assign(static_cast<uint8_t *>(buffer), static_cast<uint8_t *>(buffer) + size);
    ipcmsg_free(buffer);
    std::memset(output, untouched, sizeof buffer);
    return result;
}

int64_t given::take_buffer(int result, size_t size, uint32_t told)
{
    if (result == 0)
        told_length = told;
    return take_buffer(result, std::min<size_t>(size, told));
}

const uint8_t *guarded_row(const bytes &row)
{
    static guarded_text place;
    char *at = place.room(row.size());
    std::copy(row.begin(), row.end(), at);
    return reinterpret_cast<const uint8_t *>(at);
}

seen call(const client &one, given &with)
{
    std::memset(with.output, given::untouched, sizeof with.output);
    std::memset(with.error, given::untouched, sizeof with.error);
    with.row_size = one.is.row_size;
    const int64_t result = one.call(with);
    return {result,
            bytes(with.output, with.output + std::min(one.is.output_size + 64, sizeof with.output)),
            bytes(with.error, with.error + sizeof with.error),
            std::move(with.rows),
            with.row_count,
            std::move(with.first_flags),
            std::move(with.handed),
            with.told_length};
}

bool seen::is_untouched(const shape &of, bool error_too) const
{
    const auto is_clean = [](uint8_t each) { return each == given::untouched; };
    const bool error_clean = !error_too || std::all_of(error.begin(), error.end(), is_clean);
    if (of.own_message)
        return error_clean;
    const auto left = static_cast<ptrdiff_t>(of.failed_output.size());
    return error_clean && std::equal(of.failed_output.begin(), of.failed_output.end(), output.begin()) &&
           std::all_of(output.begin() + left, output.end(), is_clean);
}

std::string difference(const seen &one, const seen &other)
{
    std::string out;
    const auto compare = [&](const char *what, bool equal) {
        if (!equal)
            out += std::string(what) + ", ";
    };
    compare("result", one.result == other.result);
    compare("output", one.output == other.output);
    compare("error text", one.error == other.error);
    compare("rows", one.rows == other.rows && one.row_count == other.row_count);
    compare("first-row flags", one.first_flags == other.first_flags);
    compare("handed buffer", one.handed == other.handed && one.told_length == other.told_length);
    return out;
}

void expect_failed(const client &one, const seen &got, size_t at, int64_t result, bool refused)
{
    const exchange &failed = one.is.exchanges[at];
    if (failed.tolerated) {
        EXPECT_EQ(got.result, one.is.good) << "goes on without exchange " << at;
        return;
    }
    EXPECT_EQ(got.result, one.is.of_rows != nullptr ? one.is.of_rows(failed.rows_before) : result);
    EXPECT_TRUE(got.is_untouched(one.is, !refused)) << "outputs are untouched on failure";
    EXPECT_EQ(got.row_count, one.is.row_size != 0 ? failed.rows_before : 0) << "no row after the failure";
    EXPECT_TRUE(got.handed.empty());
}

/* Their callbacks take no first-row flag. */
static int take_record(const void *record, void *arg)
{
    return given::take_row(record, arg, 0);
}

static int64_t low_half(size_t rows)
{
    return static_cast<uint16_t>(rows);
}

std::vector<client> other_clients()
{
    const page_format object{4096, 8, 616, {0, 2}, {4, 4}};
    const page_format profile{8192, 4, 7640, {0, 2}, {2, 2}};
    std::vector<client> table = {
        {MIX_CALL(get_bhv_obj, "object", 1, 2, take_record, &g, g.print),
         lists(object, {6, 1}).set(&shape::full_pages, true).set(&shape::of_rows, low_half)},
        {MIX_CALL(get_bhv_profile, nullptr, take_record, &g, g.print),
         lists(profile, {1, 1}).set(&shape::of_rows, low_half)},
        {MIX_CALL(check_ip_isp, 0x0A000001, 7), answers_status(always(0), 73)},
    };
    shape &isp = table.back().is;
    isp.good = 1;
    isp.of_status = [](int32_t status) -> int64_t { return status >= 1; };
    return table;
}

const std::vector<client> &clients()
{
    static const std::vector<client> all = [] {
        std::vector<client> joined;
        for (const auto &family : {neighbour_clients, switching_clients, upgrade_clients, chassis_clients,
                                   virtual_chassis_clients, port_clients, other_clients})
            for (client &each : family())
                joined.push_back(std::move(each));
        return joined;
    }();
    return all;
}

} // namespace mixtest

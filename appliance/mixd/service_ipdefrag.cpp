/*
 * IP fragment reassembly settings: message type 38 of the main local daemon, and the gateway's object
 * 0x1a0001.
 *
 * The first setting is how many fragments of other datagrams may arrive from one source before an incomplete
 * datagram is given up (the kernel's ipfrag_max_dist), the second how many seconds one is waited for
 * (ipfrag_time). A setting that was never committed is the kernel's, or the scenario's [ipdefrag].
 */
#include <array>
#include <cerrno>

#include "appliance/mixd/event.h"
#include "appliance/mixd/kernel_settings.h"
#include "appliance/mixd/service.h"
#include "neigh/ipdefrag_wire.h"

namespace mixd
{

namespace
{

using namespace mix::wire;

struct setting {
    const char *key; /* in the store and in scenarios */
    const char *kernel_file;
    uint32_t field; /* of the change record */
    uint32_t most;  /* the least is 1: 0 means no change */
    uint64_t usual; /* of an appliance whose scenario does not say */
    const char *english;
    const char *chinese;
};

constexpr std::array<setting, 2> settings = {{
    {"fragments", "/proc/sys/net/ipv4/ipfrag_max_dist", ipdefrag_first, 65535, 64,
     "fragment count limit must be 1 to 65535", "分片数量限制必须在1到65535之间"},
    {"seconds", "/proc/sys/net/ipv4/ipfrag_time", ipdefrag_second, 3600, 30,
     "reassembly time must be 1 to 3600 seconds", "重组时间必须在1到3600秒之间"},
}};

constexpr const char *migrations[] = {
    "CREATE TABLE ipdefrag(setting TEXT PRIMARY KEY, value INTEGER NOT NULL)",
};

class ipdefrag final : public service
{
  public:
    explicit ipdefrag(setup &with);

  private:
    int32_t show(const request &, reply &) const;
    std::optional<refusal> change(const record &, transaction &);
    std::optional<refusal> apply(const setting &, uint32_t value, transaction &) const;
    [[nodiscard]] std::optional<uint64_t> value_of(size_t which) const;

    const options &options_;
    std::array<uint64_t, settings.size()> scenario_{};
    std::array<std::optional<uint32_t>, settings.size()> committed_;
};

ipdefrag::ipdefrag(setup &with) : options_(with.settings())
{
    scenario_table table = with.scenario("ipdefrag");
    for (size_t i = 0; i < settings.size(); ++i) {
        scenario_[i] = table.number(settings[i].key, settings[i].usual, 1, settings[i].most);
        statement query = with.state().prepare("SELECT value FROM ipdefrag WHERE setting=?");
        query.bind(std::string_view(settings[i].key));
        if (!query.step())
            continue;
        committed_[i] = static_cast<uint32_t>(query.integer(0));
        if (!options_.apply)
            continue;
        if (const int result = write_kernel_number(settings[i].kernel_file, *committed_[i]); result < 0)
            log(priority::warning, fmt::format("{}: {}", settings[i].kernel_file, std::strerror(-result)));
    }
    with.serve(0, ipdefrag_type, [this](const request &asked, reply &out) { return show(asked, out); });
    with.on_record(ipdefrag_object,
                   [this](const record &wanted, transaction &in) { return change(wanted, in); });
}

std::optional<uint64_t> ipdefrag::value_of(size_t which) const
{
    if (committed_[which])
        return *committed_[which];
    if (!options_.host)
        return scenario_[which];
    const std::optional<int64_t> kernel = read_kernel_number(settings[which].kernel_file);
    if (!kernel || *kernel < 0)
        return {};
    return static_cast<uint64_t>(*kernel);
}

int32_t ipdefrag::show(const request &asked, reply &out) const
{
    if (asked.bytes.size() < sizeof(ipdefrag_request) ||
        asked.record<ipdefrag_request>().subcommand != ipdefrag_show)
        return -EINVAL;
    const std::optional<uint64_t> first = value_of(0), second = value_of(1);
    if (!first || !second)
        return -ENODATA; /* a kernel without these settings */
    /* The reply has 16 bits each; the kernel's numbers may be larger. */
    out.append(ipdefrag_reply{static_cast<uint16_t>(std::min<uint64_t>(*first, UINT16_MAX)),
                              static_cast<uint16_t>(std::min<uint64_t>(*second, UINT16_MAX))});
    return 0;
}

std::optional<refusal> ipdefrag::change(const record &wanted, transaction &in)
{
    for (const setting &one : settings)
        if (const auto value = wanted.field(one.field); value && (*value == 0 || *value > one.most))
            return refusal{result_bad_value, one.english, one.chinese};
    for (size_t i = 0; i < settings.size(); ++i) {
        const setting &one = settings[i];
        const std::optional<uint32_t> value = wanted.field(one.field);
        if (!value)
            continue;
        in.run("INSERT OR REPLACE INTO ipdefrag VALUES(?,?)", std::string_view(one.key), *value);
        if (auto no = apply(one, *value, in))
            return no;
        in.after_commit([this, i, value] { committed_[i] = value; });
    }
    return {};
}

/* The kernel is written before the commit and gets its old value back when that fails. */
std::optional<refusal> ipdefrag::apply(const setting &one, uint32_t value, transaction &in) const
{
    if (!options_.apply)
        return {};
    const std::optional<int64_t> before = read_kernel_number(one.kernel_file);
    if (const int result = write_kernel_number(one.kernel_file, value); result < 0)
        return refusal_about(result_not_applied,
                             fmt::format("{}: {}", one.kernel_file, std::strerror(-result)));
    if (before)
        in.on_rollback([&one, before] { write_kernel_number(one.kernel_file, *before); });
    return {};
}

} // namespace

const service_entry ipdefrag_service = {"ipdefrag", migrations, [](setup &with) -> std::unique_ptr<service> {
                                            return std::make_unique<ipdefrag>(with);
                                        }};

} // namespace mixd

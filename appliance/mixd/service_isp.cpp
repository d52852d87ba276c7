/*
 * The ISP address table: message type 128 of daemon 6.
 *
 * An address belongs to the ISP of the longest prefix that holds it. Prefixes come from a file ([isp] file),
 * a line "ISP A.B.C.D/N" each, '#' begins a comment, and from [[isp.entry]] with isp and network. Addresses
 * are asked for in host byte order. SIGHUP reads the file again.
 */
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <charconv>
#include <sstream>
#include <unordered_map>

#include <fmt/format.h>

#include "appliance/mixd/hosts.h"
#include "appliance/mixd/service.h"
#include "appliance/wire/text_file.h"
#include "sys/isp_wire.h"

namespace mixd
{

namespace
{

using namespace mix::wire;

struct prefix {
    uint32_t network;
    unsigned bits;
};

/* Digits and nothing else: a stream would take "-1" for 4294967295. */
std::optional<uint32_t> read_number(std::string_view text)
{
    uint32_t value = 0;
    const char *end = text.data() + text.size();
    const auto [last, failed] = std::from_chars(text.data(), end, value);
    if (failed != std::errc() || last != end)
        return {};
    return value;
}

std::optional<prefix> read_prefix(std::string_view text)
{
    const size_t slash = text.find('/');
    in_addr address;
    if (inet_pton(AF_INET, std::string(text.substr(0, slash)).c_str(), &address) != 1)
        return {};
    const auto bits = slash == std::string_view::npos ? 32 : read_number(text.substr(slash + 1));
    if (!bits || *bits > 32)
        return {};
    return prefix{ntohl(address.s_addr) & mask_of(*bits), *bits};
}

/* Networks and their ISPs, by length of prefix. */
class isp_table
{
  public:
    void put(const prefix &of, uint32_t isp) { by_length_[of.bits][of.network] = isp; }
    /* That of the longest prefix. */
    [[nodiscard]] std::optional<uint32_t> find(uint32_t address) const
    {
        for (unsigned bits = 33; bits-- > 0;)
            if (const auto found = by_length_[bits].find(address & mask_of(bits));
                found != by_length_[bits].end())
                return found->second;
        return {};
    }

  private:
    std::array<std::unordered_map<uint32_t, uint32_t>, 33> by_length_;
};

/* Throws std::runtime_error with what is wrong first. */
void read_file(const std::string &file, isp_table &out)
{
    std::ifstream in;
    if (!mix::wire::open_text(in, file))
        throw std::runtime_error(fmt::format("{}: {}", file, std::strerror(errno)));
    size_t number = 0;
    for (std::string line; std::getline(in, line);) {
        number++;
        std::istringstream words(line.substr(0, line.find('#')));
        std::string isp, network, more;
        if (words >> std::ws; words.eof())
            continue;
        const bool read = static_cast<bool>(words >> isp >> network) && !(words >> more);
        const auto which = read_number(isp);
        const auto found = read ? read_prefix(network) : std::nullopt;
        if (!which || !found)
            throw std::runtime_error(
                fmt::format("{}:{}: must be an ISP's number and A.B.C.D/N", file, number));
        out.put(*found, *which);
    }
}

class isp final : public service
{
  public:
    explicit isp(setup &with);
    void reload() override;

  private:
    void read();
    int32_t check(const request &) const;

    std::string file_;
    std::vector<std::pair<prefix, uint32_t>> described_; /* by the scenario itself */
    isp_table table_;
};

isp::isp(setup &with)
{
    scenario_table table = with.scenario("isp");
    file_ = table.text("file", "", 4095);
    for (scenario_table &row : table.rows("entry")) {
        const auto number = static_cast<uint32_t>(row.required_number("isp", 0, UINT32_MAX));
        const auto network = read_prefix(row.required_text("network"));
        if (network)
            described_.emplace_back(*network, number);
        else
            row.fail("network", "must be A.B.C.D/N");
    }
    try {
        read();
    } catch (const std::runtime_error &why) {
        table.fail("file", why.what());
    }
    with.serve(isp_daemon, isp_type, [this](const request &asked, reply &) { return check(asked); });
}

void isp::read()
{
    isp_table fresh;
    if (!file_.empty())
        read_file(file_, fresh);
    for (const auto &[network, number] : described_)
        fresh.put(network, number);
    table_ = std::move(fresh);
}

void isp::reload()
{
    try {
        read();
    } catch (const std::runtime_error &why) {
        log(priority::error, fmt::format("{}; the ISP addresses stay as they are", why.what()));
    }
}

int32_t isp::check(const request &asked) const
{
    const auto wanted = asked.record<isp_request>();
    if (asked.bytes.size() < sizeof(isp_request) || wanted.code != isp_check)
        return -EINVAL;
    return table_.find(wanted.address) == uint32_t{wanted.isp} ? 1 : 0;
}

} // namespace

const service_entry isp_service = {
    "isp", {}, [](setup &with) -> std::unique_ptr<service> { return std::make_unique<isp>(with); }};

} // namespace mixd

/*
 * The ISP address table: message type 128 of daemon 6.
 *
 * An address belongs to the ISP of the longest prefix that holds it. Prefixes come from a file ([isp] file),
 * a line "ISP A.B.C.D/N" each, '#' begins a comment, and from [[isp.entry]] with isp and network. Addresses
 * are asked for in host byte order.
 */
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <charconv>
#include <fstream>
#include <sstream>
#include <unordered_map>

#include <fmt/format.h>

#include "appliance/mixd/hosts.h"
#include "appliance/mixd/service.h"
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

std::optional<prefix> read_prefix(std::string_view text)
{
    const size_t slash = text.find('/');
    in_addr address;
    unsigned bits = 32;
    if (inet_pton(AF_INET, std::string(text.substr(0, slash)).c_str(), &address) != 1)
        return {};
    if (slash != std::string_view::npos) {
        const char *end = text.data() + text.size();
        const auto [last, failed] = std::from_chars(text.data() + slash + 1, end, bits);
        if (failed != std::errc() || last != end || bits > 32)
            return {};
    }
    return prefix{ntohl(address.s_addr) & mask_of(bits), bits};
}

class isp : public service
{
  public:
    explicit isp(setup &with);

  private:
    void read_file(scenario_table &table, const std::string &file);
    int32_t check(const request &) const;

    std::array<std::unordered_map<uint32_t, uint32_t>, 33> by_length_; /* network to ISP */
};

isp::isp(setup &with)
{
    scenario_table table = with.scenario("isp");
    if (const std::string file = table.text("file", "", 4095); !file.empty())
        read_file(table, file);
    for (scenario_table &row : table.rows("entry")) {
        const auto number = static_cast<uint32_t>(row.required_number("isp", 0, UINT32_MAX));
        const auto network = read_prefix(row.required_text("network"));
        if (network)
            by_length_[network->bits][network->network] = number;
        else
            row.fail("network", "must be A.B.C.D/N");
    }
    with.serve(isp_daemon, isp_type, [this](const request &asked, reply &) { return check(asked); });
}

void isp::read_file(scenario_table &table, const std::string &file)
{
    std::ifstream in(file);
    if (!in)
        table.fail("file", fmt::format("{} can't be read", file));
    size_t number = 0;
    for (std::string line; std::getline(in, line);) {
        number++;
        std::istringstream words(line.substr(0, line.find('#')));
        uint32_t which = 0;
        std::string network, more;
        if (words >> std::ws; words.eof())
            continue;
        const bool read = static_cast<bool>(words >> which >> network) && !(words >> more);
        const auto found = read ? read_prefix(network) : std::nullopt;
        if (found)
            by_length_[found->bits][found->network] = which;
        else
            table.fail("file", fmt::format("{}:{}: must be an ISP's number and A.B.C.D/N", file, number));
    }
}

int32_t isp::check(const request &asked) const
{
    const auto wanted = asked.record<isp_request>();
    if (asked.bytes.size() < sizeof(isp_request) || wanted.code != isp_check)
        return -EINVAL;
    for (unsigned bits = 33; bits-- > 0;) {
        const auto found = by_length_[bits].find(wanted.address & mask_of(bits));
        if (found != by_length_[bits].end())
            return found->second == wanted.isp ? 1 : 0;
    }
    return 0;
}

} // namespace

const service_entry isp_service = {
    "isp", {}, [](setup &with) -> std::unique_ptr<service> { return std::make_unique<isp>(with); }};

} // namespace mixd

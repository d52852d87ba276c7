// Address words, rated by the library's own matchers and validators.
#include "appliance/mixsh/kinds.h"

#include <libmix/ip_util.h>

namespace mixsh
{

namespace
{

rating rate_ipv4(const argument &, const std::string &typed)
{
    return rate_by_matcher(ipv4_match, is_ipv4_r_str, typed);
}

rating rate_ipv4_prefix(const argument &, const std::string &typed)
{
    return rate_by_matcher(ipv4_prefix_match, is_ipv4_r_prefix_str, typed);
}

rating rate_ipv6(const argument &, const std::string &typed)
{
    return rate_by_matcher(ipv6_match, is_ipv6_str, typed);
}

} // namespace

namespace kinds
{

const kind ipv4{"A.B.C.D", "an IPv4 address", rate_ipv4};
const kind ipv4_prefix{"A.B.C.D/N", "an IPv4 prefix such as 10.1.0.0/16", rate_ipv4_prefix};
const kind ipv6{"X:X::X", "an IPv6 address", rate_ipv6};

} // namespace kinds

} // namespace mixsh

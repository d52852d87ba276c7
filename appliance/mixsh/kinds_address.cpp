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

rating rate_ipv6_prefix(const argument &, const std::string &typed)
{
    return rate_by_matcher(ipv6_prefix_match, is_ipv6_prefix_str, typed);
}

// Colons are IPv6's, dots alone IPv4's; before either has been typed both are possible.
rating rate_ip(const argument &self, const std::string &typed)
{
    const auto four = rate_ipv4(self, typed);
    const auto six = rate_ipv6(self, typed);
    if (typed.find(':') != std::string::npos)
        return six;
    if (typed.find('.') != std::string::npos)
        return four;
    return four.is != verdict::wrong || six.is == verdict::wrong ? four : six;
}

} // namespace

namespace kinds
{

const kind ipv4{"A.B.C.D", "an IPv4 address", rate_ipv4};
const kind ipv4_prefix{"A.B.C.D/N", "an IPv4 prefix such as 10.1.0.0/16", rate_ipv4_prefix};
const kind ipv6{"X:X::X", "an IPv6 address", rate_ipv6};
const kind ipv6_prefix{"X:X::X/N", "an IPv6 prefix such as 2001:db8::/32", rate_ipv6_prefix};
const kind ip{"ADDRESS", "an IPv4 or IPv6 address", rate_ip};

} // namespace kinds

} // namespace mixsh

/*
 * What the token matchers and validators are to answer, said another way than they work: by regular
 * expressions and by counting over the whole word. The unit tests and the fuzz target hold both against each
 * other.
 */
#ifndef MIX_TESTS_ADDRESS_MODELS_H
#define MIX_TESTS_ADDRESS_MODELS_H

#include <arpa/inet.h>
#include <regex.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

namespace mixtest::model
{

class expression
{
  public:
    explicit expression(const std::string &text)
    {
        if (regcomp(&compiled_, ("^(" + text + ")$").c_str(), REG_EXTENDED | REG_NOSUB) != 0)
            std::abort();
    }
    expression(const expression &) = delete;
    expression &operator=(const expression &) = delete;
    ~expression() { regfree(&compiled_); }
    [[nodiscard]] bool matches(const std::string &word) const
    {
        return regexec(&compiled_, word.c_str(), 0, nullptr, 0) == 0;
    }

  private:
    regex_t compiled_;
};

inline std::string either(const std::vector<std::string> &expressions)
{
    std::string all;
    for (const std::string &one : expressions)
        all += (all.empty() ? "(" : "|(") + one + ")";
    return all;
}

inline std::string times(int least, int most)
{
    return "{" + std::to_string(least) + "," + std::to_string(most) + "}";
}

/* A decimal octet without leading zeros; the same or nothing. */
inline const std::string octet = "(25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9]?[0-9])";
inline const std::string maybe_octet = octet + "?";

inline int ipv4_match(const std::string &word)
{
    static const expression complete(maybe_octet + "(\\." + octet + "){3}");
    static const expression incomplete(either({
        maybe_octet + "(\\." + octet + "){0,2}",
        "[0-9]*\\.", /* what stands before a last dot is not judged yet */
        maybe_octet + "(\\." + octet + "){0,1}\\.[0-9]+\\.",
    }));
    if (complete.matches(word))
        return 8;
    return incomplete.matches(word) ? 7 : 0;
}

inline int ipv4_prefix_match(const std::string &word)
{
    static const std::string first = maybe_octet + "(/" + maybe_octet + ")*";
    static const std::string next = "(\\." + octet + "(/" + maybe_octet + ")*)";
    static const expression complete(first + next + "{2}\\." + octet + "/0*([12]?[0-9]|3[0-2])");
    static const expression incomplete(either({
        first + next + "{0,2}",
        first + next + "{2}\\." + octet + "/?",
        "/*[0-9]*\\.",
        first + next + "{0,2}/[0-9]*\\.",
        first + next + "{0,1}\\.[0-9]+\\.",
    }));
    if (complete.matches(word))
        return 8;
    return incomplete.matches(word) ? 7 : 0;
}

/* All the ways in which one-character and two-character pieces make up 1 to 4 characters. */
inline std::string ipv6_group()
{
    const std::string hex = "[0-9a-fA-F%]";
    const std::string dotted = "\\.[0-9a-fA-F%:.]";
    std::vector<std::string> groups;
    for (unsigned pieces = 1; pieces <= 4; pieces++) {
        for (unsigned pattern = 0; pattern < 1u << pieces; pattern++) {
            unsigned length = 0;
            std::string group;
            for (unsigned i = 0; i < pieces; i++) {
                const bool dot = (pattern >> i & 1) != 0;
                length += dot ? 2 : 1;
                group += dot ? dotted : hex;
            }
            if (length <= 4)
                groups.push_back(group);
        }
    }
    return "(" + either(groups) + ")";
}

inline std::vector<std::string> ipv6_shapes()
{
    const std::string g = ipv6_group();
    const std::string open =
        "([0-9a-fA-F%]|\\.[0-9a-fA-F%:.])*\\."; /* ends right after a dot, of any length */
    std::vector<std::string> shapes = {
        "",
        ":",
        "::",
        g + "(:" + g + "){0,7}",
        g + "(:" + g + "){0,6}:",
        "(" + g + ":){0,7}" + open,
        g + "(:" + g + "){0,6}::",
        "::" + g + "(:" + g + "){0,6}",
        "::" + g + "(:" + g + "){0,5}:",
        "::(" + g + ":){0,6}" + open,
    };
    for (int before = 1; before <= 6; before++) {
        const std::string head = g + "(:" + g + "){" + std::to_string(before - 1) + "}::";
        const int after = 7 - before;
        shapes.push_back(head + g + "(:" + g + ")" + times(0, after - 1));
        if (after > 1)
            shapes.push_back(head + "(" + g + ":)" + times(1, after - 1));
        shapes.push_back(head + "(" + g + ":)" + times(0, after - 1) + open);
    }
    return shapes;
}

inline int ipv6_match(const std::string &word)
{
    static const std::string all = either(ipv6_shapes());
    static const expression complete(all);
    return complete.matches(word) ? 8 : 0;
}

/* Counts over the whole of the part before the "/"; nothing when some limit is passed. */
struct ipv6_body {
    bool ends_in_single_colon;
};

inline std::optional<ipv6_body> ipv6_prefix_body(std::string body, bool slash_follows)
{
    int tokens = 0;
    int colons = 0;
    const size_t twin = body.find("::");
    if (twin != std::string::npos && body.find("::", twin + 1) != std::string::npos)
        return {}; /* two of them, or three colons in a row */
    if (twin == 0) {
        tokens = colons = 1;
        body.erase(0, 2);
        if (body.empty())
            return ipv6_body{false};
    } else if (!body.empty() && body[0] == ':') {
        return {};
    }
    const size_t inner = body.find("::");
    const bool ends_twin = inner != std::string::npos && inner + 2 == body.size();
    const bool ends_single = !ends_twin && !body.empty() && body.back() == ':';
    if (inner != std::string::npos) {
        tokens++;
        if (ends_twin) {
            body.resize(inner);
            colons += slash_follows ? 2 : 0;
        } else {
            colons++; /* and once more as a separator, below */
            body.erase(inner, 1);
        }
    }
    if (!slash_follows && !ends_twin && !body.empty() && body.back() == '.')
        body.pop_back(); /* the token behind a last dot has not begun */
    size_t begin = 0;
    for (size_t at = 0; at <= body.size(); at++) {
        const bool end = at == body.size();
        if (!end && body[at] != ':' && body[at] != '.')
            continue;
        tokens++;
        colons += !end && body[at] == ':' ? 1 : 0;
        if (at - begin > 4)
            return {};
        begin = at + 1;
    }
    if (tokens > 11 || colons > 7)
        return {};
    return ipv6_body{ends_single};
}

inline int ipv6_prefix_match(const std::string &word)
{
    static const expression length("0*([0-9]|[1-9][0-9]|1[01][0-9]|12[0-8])");
    if (word.find_first_not_of("0123456789abcdefABCDEF:.%/") != std::string::npos)
        return 0;
    if (word.empty() || word == ":")
        return 7;
    const size_t slash = word.find('/');
    const bool has_slash = slash != std::string::npos;
    const auto body = ipv6_prefix_body(word.substr(0, slash), has_slash);
    if (!body)
        return 0;
    if (!has_slash)
        return 7;
    if (body->ends_in_single_colon)
        return 0;
    const std::string rest = word.substr(slash + 1);
    if (rest.empty())
        return 7;
    return length.matches(rest) ? 8 : 0;
}

/* --- validators, by the C library's own converters --- */

inline bool aton_accepts(const std::string &text)
{
    in_addr parsed;
    return inet_aton(text.c_str(), &parsed) != 0;
}

inline bool is_ipv4(const std::string &text, bool relaxed)
{
    if (!aton_accepts(text) || ipv4_match(text) != 8)
        return false;
    return relaxed || text[0] != '0' || text == "0.0.0.0";
}

inline bool is_ipv6(const std::string &text)
{
    std::array<uint8_t, 16> parsed{};
    return inet_pton(AF_INET6, text.c_str(), parsed.data()) > 0;
}

inline bool is_ipv4_prefix(const std::string &text, bool relaxed)
{
    const size_t slash = text.find('/');
    return slash < 16 && is_ipv4(text.substr(0, slash), relaxed) && ipv4_prefix_match(text) == 8;
}

inline bool is_ipv6_prefix(const std::string &text, bool zero_too)
{
    static const expression zero(".*/0+");
    const size_t slash = text.find('/');
    return slash < 40 && is_ipv6(text.substr(0, slash)) && ipv6_prefix_match(text) == 8 &&
           (zero_too || !zero.matches(text));
}

struct wildcard {
    int result;
    std::optional<uint32_t> out = {};
};

inline wildcard wildcard_mask(const std::string &text, bool limited)
{
    in_addr parsed;
    if (ipv4_match(text) != 8 || inet_aton(text.c_str(), &parsed) == 0)
        return {-1};
    const uint32_t value = parsed.s_addr;
    int top = 32;
    while (top > 0 && (value >> (top - 1) & 1) == 0)
        top--;
    int holes = 0;
    for (int bit = 0; bit < top; bit++)
        holes += (value >> bit & 1) == 0 ? 1 : 0;
    if (limited && holes > 8)
        return {0};
    return {1, holes == 0 ? static_cast<uint32_t>(top) : value};
}

inline bool is_hex(const std::string &text)
{
    static const expression hex("[0-9a-fA-F]+");
    return hex.matches(text);
}

} // namespace mixtest::model

#endif

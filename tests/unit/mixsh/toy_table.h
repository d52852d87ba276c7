// A small command table with every kind of argument, for the tests of the shell's reading and completing.
#ifndef MIX_TESTS_TOY_TABLE_H
#define MIX_TESTS_TOY_TABLE_H

#include "appliance/mixsh/invocation.h"
#include "appliance/mixsh/kinds.h"

namespace toy
{

using namespace mixsh;

inline outcome nothing(invocation &)
{
    return outcome::done;
}

inline rating rate_fruit(const argument &, const std::string &word)
{
    if (std::string_view("banana").starts_with(word))
        return word == "banana" ? rating{} : rating{verdict::incomplete, 0, {}};
    std::size_t at = 0;
    while (at < word.size() && at < 6 && word[at] == "banana"[at])
        ++at;
    return {verdict::wrong, at, {}};
}
inline std::vector<candidate> suggest_fruit(const argument &, const std::string &)
{
    return {{"banana", "yellow"}, {"two words", "needs quotes"}};
}
inline const kind fruit{"", "a fruit", rate_fruit, suggest_fruit};

inline constexpr choice colours[] = {{"red", "as blood", 1}, {"green", "as grass", 2}, {"grey", "as fog", 3}};

inline constexpr argument port_arguments[] = {
    value("PORT", kinds::number, "port number", {.low = 1, .high = 52}),
    option("vlan", kinds::number, "of this VLAN", vlan_ids),
    option("colour", kinds::one_of, "painted so", {.choices = colours}),
    flag("verbose", "say more"),
};
inline constexpr argument name_arguments[] = {
    value("NAME", kinds::word, "its name", {.longest = 8}),
    needed("colour", kinds::one_of, "painted so", {.choices = colours}),
    option("note", kinds::text, "what to remember"),
};
inline constexpr argument many_arguments[] = {
    value("COLOUR", kinds::one_of, "which", {.choices = colours}),
    values("PORT", kinds::number, "ports", {.low = 1, .high = 52}),
};
inline constexpr argument fruit_arguments[] = {optional_value("FRUIT", fruit, "to eat"),
                                               flag("bare", "peeled")};

inline constexpr command commands[] = {
    {"show port", "one port", nothing, port_arguments},
    {"show port summary", "all ports in short", nothing},
    {"show policy", "policies", nothing},
    {"add name", "name something", nothing, name_arguments},
    {"set colours", "paint ports", nothing, many_arguments},
    {"eat", "eat something", nothing, fruit_arguments},
};
inline const family families[] = {{"toy", "toys", commands}};

} // namespace toy

#endif

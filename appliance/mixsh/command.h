// The shell's command table: what a family of commands looks like, and nothing about how it is read.
//
// A family is one file, commands_<family>.cpp: a constexpr table of commands, their arguments and one
// function for each. Help, completion, the rating of words and the manual all come from these tables. A
// family is added by its file and one line in families.def. See docs/adding-a-command.md.
#ifndef MIXSH_COMMAND_H
#define MIXSH_COMMAND_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace mixsh
{

class invocation;
struct argument;

// --- words

// What a word is to an argument: it can stand as it is, it is a beginning of something that could, or its
// character `at` can't stand there whatever follows.
enum class verdict { complete, incomplete, wrong };

struct rating {
    verdict is = verdict::complete;
    std::size_t at = 0;   // wrong: offset of the first byte that can't stand
    std::string why = {}; // incomplete or wrong: the reason, when the kind's description doesn't say it all
};

struct candidate {
    std::string word;
    std::string help;
};

// A kind of argument. Families may define kinds of their own beside those of kinds.h.
struct kind {
    std::string_view form; // of a value, "A.B.C.D"; empty: it has none, its argument's name stands for it
    std::string_view describes; // "an IPv4 address"; follows "expected"
    rating (*rate)(const argument &self, const std::string &word);
    // Words to offer for a beginning; nullptr: nothing to offer. May look at the system, must be quick, and
    // may offer too much: what does not begin like the word is dropped.
    std::vector<candidate> (*suggest)(const argument &self, const std::string &beginning) = nullptr;
};

// One word of a closed set, and what it stands for.
struct choice {
    std::string_view word;
    std::string_view help;
    std::int64_t value = 0;
};

// --- arguments

// The form of a kind whose values are limited by numbers: "<1-65535>", by each argument's own.
inline constexpr std::string_view form_of_limits = "<>";

struct limits {
    std::uint64_t low = 0; // kind number
    std::uint64_t high = std::numeric_limits<std::uint32_t>::max();
    std::size_t longest = 0;              // kinds word and text: bytes; 0: any length
    std::span<const choice> choices = {}; // kind one_of
};

// repeated: one or more; any: none or more. Both only for the last positional argument.
enum class presence { required, optional, repeated, any };

struct argument {
    std::string_view name;    // how the command's function asks for it
    bool keyword = false;     // the name itself is typed before the value, at any place after the fixed words
    const kind *is = nullptr; // nullptr: a keyword without a value (a flag)
    std::string_view help;
    presence needed = presence::required;
    limits within = {};
};

// ADDRESS: a value at its place.
constexpr argument value(std::string_view name, const kind &is, std::string_view help, limits within = {})
{
    return {name, false, &is, help, presence::required, within};
}

// [ADDRESS]: a value that may be left out; after the required ones.
constexpr argument optional_value(std::string_view name, const kind &is, std::string_view help,
                                  limits within = {})
{
    return {name, false, &is, help, presence::optional, within};
}

// WORD...: one or more values; the last positional argument of a command.
constexpr argument values(std::string_view name, const kind &is, std::string_view help, limits within = {})
{
    return {name, false, &is, help, presence::repeated, within};
}

// [WORD...]: any number of values, none too.
constexpr argument any_values(std::string_view name, const kind &is, std::string_view help,
                              limits within = {})
{
    return {name, false, &is, help, presence::any, within};
}

// [vr ID]: a keyword with its value, in any order among the keywords.
constexpr argument option(std::string_view name, const kind &is, std::string_view help, limits within = {})
{
    return {name, true, &is, help, presence::optional, within};
}

// interface NAME: a keyword with its value that must be there.
constexpr argument needed(std::string_view name, const kind &is, std::string_view help, limits within = {})
{
    return {name, true, &is, help, presence::required, within};
}

// [detail]: a keyword alone.
constexpr argument flag(std::string_view name, std::string_view help)
{
    return {name, true, nullptr, help, presence::optional, {}};
}

// --- commands

// How a command ended. misused: the words were read but don't go together; leave: it was the shell's last
// one.
enum class outcome { done, failed, misused, leave };

struct command {
    std::string_view words; // "show fragment": fixed words, one blank between them
    std::string_view help;  // one line, lower case, no full stop
    outcome (*run)(invocation &call);
    std::span<const argument> arguments = {};
};

struct family {
    std::string_view name; // "fragment"
    std::string_view help; // shown beside a fixed word that several of its commands begin with
    std::span<const command> commands;
};

// Every family of families.def, in its order.
std::span<const family> all_families();

} // namespace mixsh

#endif

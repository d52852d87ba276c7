// What a command's function is given: its words, where its answer goes, and how it says what went wrong.
#ifndef MIXSH_INVOCATION_H
#define MIXSH_INVOCATION_H

#include "appliance/mixsh/command.h"
#include "appliance/mixsh/output.h"

#include <array>
#include <cstdarg>
#include <libmix/mix_base.h>
#include <optional>

namespace mixsh
{

// A word bound to its argument. text is what was meant: an abbreviated choice is spelled out.
struct bound_word {
    const argument *to;
    std::string text;
};

// The exchange that a command makes, for the reason of its failure.
struct request {
    std::uint32_t destination = 0; // address of the daemon
    std::uint32_t type = 0;        // message type
    std::optional<std::uint32_t> subcommand = {};
};

// The management gateway, for commands that change configuration; object in words, "the fragment settings".
struct change {
    std::string_view object;
};

struct failure {
    std::string what;                 // one sentence, no full stop
    std::vector<std::string> reasons; // what the library and the transport said, where it went
    std::vector<std::string> advice;  // what to try
};

// Keeps a text for the failure of the command that runs, as invocation::print() does. Its length.
[[gnu::format(printf, 1, 0)]] int keep_said(const char *format, va_list arguments);

class invocation
{
  public:
    invocation(const command &which, std::vector<bound_word> words, output &out, std::uint8_t language);
    invocation(const invocation &) = delete;
    invocation &operator=(const invocation &) = delete;

    // --- words. Asking for an argument that the command doesn't have ends the shell: it is a mistake in the
    // command's own file.
    bool has(std::string_view name) const;
    // The word as libmix's functions take it; nullptr when it was left out.
    const char *text(std::string_view name) const;
    const char *text_or(std::string_view name, const char *otherwise) const;
    std::vector<const char *> texts(std::string_view name) const; // of a repeated argument
    std::optional<std::uint64_t> number(std::string_view name) const;
    // The value in the type of the library's argument; the table's limits keep it in range.
    template <typename Integer>
    Integer number_or(std::string_view name, Integer otherwise) const
    {
        const auto given = number(name);
        return given ? static_cast<Integer>(*given) : otherwise;
    }
    std::optional<std::int64_t> chosen(std::string_view name) const; // value of a one_of
    std::optional<std::uint32_t> ipv4(std::string_view name) const;  // host order: 10.1.2.3 is 0x0A010203
    std::optional<std::array<std::uint8_t, 16>> ipv6(std::string_view name) const; // network order
    std::optional<std::array<std::uint8_t, 6>> mac(std::string_view name) const;

    // --- the answer
    output &out() { return out_; }
    std::uint8_t language() const { return language_; } // of refusals: 0 English, 1 Chinese

    // --- failures
    // Give this to libmix as its print callback: what it prints is kept as the reason of a failure.
    static print_callback print();
    // What libmix has said so far in this command, without the last newline; empty if nothing.
    std::string said() const;
    // The usual end of a command whose exchange failed: what libmix said, where the request went, what the
    // transport knows, and what to try. `what` is a sentence of the command's own; empty: what libmix said.
    outcome fail(const request &exchange, std::string_view what = {});
    outcome fail(const change &exchange, std::string_view what = {});
    // The end of a command whose function in libmix tells a failure by what it prints alone.
    template <typename Exchange>
    outcome end(const Exchange &exchange, std::string_view what)
    {
        return said().empty() ? outcome::done : fail(exchange, what);
    }
    // A failure without an exchange.
    outcome fail(std::string_view what, std::string_view advice = {});
    // The words don't go together: "name at least one of limit and seconds".
    outcome misused(std::string_view why);

    const command &which() const { return which_; }
    const failure &reported() const { return failure_; }

  private:
    const bound_word *find(std::string_view name) const;
    const argument &declared(std::string_view name) const;

    const command &which_;
    std::vector<bound_word> words_;
    output &out_;
    std::uint8_t language_;
    failure failure_;
};

} // namespace mixsh

#endif

// What several families share: arguments, the words of numbers, failures of functions that say nothing.
#ifndef MIXSH_SHARED_H
#define MIXSH_SHARED_H

#include "appliance/mixsh/addresses.h"
#include "appliance/mixsh/invocation.h"
#include "appliance/mixsh/kinds.h"
#include "appliance/platform/reason.h"
#include "platform/ipcmsg.h"

#include <cstring>

namespace mixsh
{

// --- arguments, and what was given for them

inline constexpr argument vr_option = option("vr", kinds::number, "virtual router, 0 for all", router_ids);
inline constexpr argument vsys_option =
    option("vsys", kinds::number, "virtual system, 0 if not given", router_ids);
inline constexpr argument node_option =
    option("node", kinds::number, "board to ask, its slot + 1; 0 for this one", slots);
inline constexpr argument maximum_option =
    option("maximum", kinds::number, "about how many rows are wanted", {.low = 1, .high = INT32_MAX});

inline std::uint16_t vr_of(const invocation &call)
{
    return call.number_or<std::uint16_t>("vr", 0);
}

inline std::uint16_t vsys_of(const invocation &call)
{
    return call.number_or<std::uint16_t>("vsys", 0);
}

inline std::uint32_t node_of(const invocation &call)
{
    return call.number_or<std::uint32_t>("node", 0);
}

// A board of the chassis by its slot, and one of its processors.
inline constexpr limits cpus{.low = 0, .high = 63};
inline constexpr argument slot_value = value("SLOT", kinds::number, "a slot of the chassis", slots);
inline constexpr argument cpu_value = value("CPU", kinds::number, "a processor of the board", cpus);
inline constexpr argument slot_option = option("slot", kinds::number, "a board of the chassis", slots);
inline constexpr argument cpu_option = option("cpu", kinds::number, "a processor of the board", cpus);
inline constexpr argument slot_arguments[] = {slot_value};
inline constexpr argument board_arguments[] = {slot_option, cpu_option};

// The bytes of an address as the library takes them: nullptr when it was left out.
template <std::size_t Size>
const std::uint8_t *bytes_of(const std::optional<std::array<std::uint8_t, Size>> &address)
{
    return address ? address->data() : nullptr;
}

// --- answers

// The word that stands for a number.
inline std::string_view word_of(std::span<const choice> words, std::int64_t value)
{
    for (const choice &each : words)
        if (each.value == value)
            return each.word;
    return "unknown";
}

// "1 entry", "2 entries": a line below a table.
inline void note_rows(invocation &call, const table &of, std::string_view one, std::string_view many)
{
    call.out().note(fmt::format("{} {}", of.rows(), of.rows() == 1 ? one : many));
}

// Asks a daemon that clears a bounded number at a time until nothing is left, and tells how many went.
template <typename Step>
outcome clear_all(invocation &call, const request &exchange, std::string_view failed, Step step)
{
    std::int64_t cleared = 0;
    for (;;) {
        const int now = step();
        if (now < 0 || !call.said().empty())
            return call.fail(exchange, failed);
        if (now == 0 || call.out().unwanted())
            break;
        cleared += now;
    }
    call.out().record({{"Cleared", "cleared", cleared}});
    return outcome::done;
}

// Some functions of the library are silent, and a failure counts as 0 or no: only the transport tells it from
// a real one.
inline bool failed_silently()
{
    return *mixplatform_last_reason() != '\0';
}

} // namespace mixsh

#endif

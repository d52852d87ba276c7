#include "appliance/mixd/lan_table.h"

#include <algorithm>
#include <bit>

namespace mixd
{

using mix::wire::lan_entries_max;
using mix::wire::lan_entry;

lan_network lan_table::entry(int32_t k) const
{
    const lan_entry &at = shared_.entries[k];
    return {at.network, at.length};
}

void lan_table::set_entry(int32_t k, lan_network network)
{
    static_assert(sizeof(lan_entry) == sizeof(uint64_t));
    const auto both = std::bit_cast<uint64_t>(lan_entry{network.address, network.length});
    auto *whole =
        reinterpret_cast<uint64_t *>(&shared_.entries[k]); /* aligned: it stands at 8 + 8 k of a page */
    __atomic_store_n(whole, both, __ATOMIC_RELEASE);
}

/* Another mixd may have left the segment, or anybody: its count is not to be believed. */
int32_t lan_table::count() const
{
    return std::clamp(shared_.count, 0, lan_entries_max);
}

void lan_table::set_count(int32_t count)
{
    __atomic_store_n(&shared_.count, count, __ATOMIC_RELEASE);
}

size_t lan_table::replace(std::vector<lan_network> wanted)
{
    std::sort(wanted.begin(), wanted.end());
    wanted.erase(std::unique(wanted.begin(), wanted.end()), wanted.end());
    const size_t dropped = wanted.size() - std::min(wanted.size(), size_t{lan_entries_max});
    wanted.resize(wanted.size() - dropped);

    std::vector<bool> present(wanted.size());
    std::vector<int32_t> free;
    const int32_t slots = count();
    /* From the end: of repeated entries the last one stays,
     * which a reader comes to whatever he has passed. */
    for (int32_t k = slots - 1; k >= 0; --k) {
        const auto found = std::lower_bound(wanted.begin(), wanted.end(), entry(k));
        const auto index = static_cast<size_t>(found - wanted.begin());
        if (found != wanted.end() && *found == entry(k) && !present[index])
            present[index] = true;
        else
            free.push_back(k);
    }
    std::reverse(free.begin(), free.end());
    size_t used = 0;
    int32_t end = slots;
    for (size_t i = 0; i < wanted.size(); ++i) {
        if (!present[i])
            set_entry(used < free.size() ? free[used++] : end++, wanted[i]);
    }
    for (size_t left = free.size(); left > used; --left) {
        if (free[left - 1] == end - 1)
            --end;
        else
            set_entry(free[left - 1], entry(end - 1)); /* so that the last of them is where it always was */
    }
    set_count(end);
    return dropped;
}

} // namespace mixd

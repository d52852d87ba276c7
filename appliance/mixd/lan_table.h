/*
 * The writer of the shared "lan_addr" table. Readers take no lock: an entry is written in one store, and an
 * entry that stays keeps its place, so that a reader finds it at every moment. A place that becomes free in
 * the middle repeats another entry until there is something new for it.
 */
#ifndef MIXD_LAN_TABLE_H
#define MIXD_LAN_TABLE_H

#include <compare>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "addr/lan_wire.h"

namespace mixd
{

struct lan_network {
    uint32_t address; /* host order, no bits beyond the length */
    uint32_t length;  /* of the prefix, 0 to 32 */
    auto operator<=>(const lan_network &) const = default;
};

class lan_table
{
  public:
    /* The segment, with whatever it holds; stays the caller's. */
    explicit lan_table(mix::wire::lan_table &shared) : shared_(shared) {}

    /* Makes the table hold these networks, in no order. Returns how many found no room. */
    size_t replace(std::vector<lan_network> wanted);

  private:
    [[nodiscard]] lan_network entry(int32_t k) const;
    void set_entry(int32_t k, lan_network network);
    [[nodiscard]] int32_t count() const;
    void set_count(int32_t count);

    mix::wire::lan_table &shared_;
};

} // namespace mixd

#endif

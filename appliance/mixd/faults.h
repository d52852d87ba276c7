/* Faults: chosen services misbehave in chosen ways, a counted number of times. */
#ifndef MIXD_FAULTS_H
#define MIXD_FAULTS_H

#include <cstdint>
#include <optional>
#include <vector>

#include "appliance/mixd/scenario.h"
#include "appliance/wire/control.h"

namespace mixd
{

struct fault {
    mix::wire::fault_kind kind;
    int32_t value;
};

class fault_table
{
  public:
    static constexpr size_t most = 256;

    /* 0, -EINVAL (a kind or value that makes no sense, the control service) or -ENOSPC. One for the same
     * daemon and type is replaced. */
    int set(const mix::wire::control_fault &);
    /* How many were cleared. */
    int clear(uint32_t daemon, uint32_t type);
    /* The fault that hits a request now, if any; counts it.
     * A fault of the exact type goes before one of all. */
    std::optional<fault> hit(uint8_t daemon, uint32_t type);
    [[nodiscard]] const std::vector<mix::wire::control_fault> &all() const { return faults_; }
    /* [[fault]] of a scenario. */
    void read(scenario_table &top);

  private:
    mix::wire::control_fault *find(uint32_t daemon, uint32_t type);
    std::vector<mix::wire::control_fault> faults_;
};

} // namespace mixd

#endif

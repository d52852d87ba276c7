/* Processor, memory and storage figures of this host, from /proc and /sys. */
#ifndef MIXD_HOST_FIGURES_H
#define MIXD_HOST_FIGURES_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "appliance/wire/chassis.h"

namespace mixd
{

using cpu_record = std::array<uint32_t, mix::wire::cpu_fields>;
using memory_figures = std::array<uint64_t, mix::wire::mem_fields>;

/* Processor figures since the last time they were asked for; the first time since the system started. */
class host_processors
{
  public:
    cpu_record read();
    /* Each processor by itself, since the last time that this was asked for. */
    std::vector<mix::wire::cpu_each_row> read_each();
    /* Since the system started. */
    static cpu_record since_start();

  private:
    struct ticks {
        uint64_t busy = 0, user = 0, system = 0, all = 0;
    };
    /* The first is of all processors together. */
    static std::vector<ticks> now();
    static cpu_record difference(const ticks &, const ticks &before, cpu_record otherwise);
    ticks before_;
    std::vector<ticks> each_before_;
    cpu_record last_{};
};

enum class process_order { by_processor_time, by_memory };
/* The first `most` in that order, and how many there are. */
std::vector<mix::wire::cpu_process_row> host_processes(process_order, size_t most, size_t &all);
std::vector<mix::wire::cpu_interrupt_row> host_interrupts();
uint32_t host_up_seconds();

memory_figures host_memory(uint32_t mode);
/* The hottest zone, in degrees; nothing where the host has no sensor. */
std::optional<int16_t> host_temperature();
/* The number of processors that are on line. */
uint32_t host_cpu_count();

} // namespace mixd

#endif

/* Whether the appliance is a virtual machine. */
#ifndef MIX_SYS_VIRTUAL_PLATFORM_H
#define MIX_SYS_VIRTUAL_PLATFORM_H

#include "platform/board.h"

namespace mix::sys
{

inline bool is_virtual_platform()
{
    return tq_is_vfw_platform() || tq_is_vwaf_platform() || tq_is_vadc_platform();
}

} // namespace mix::sys

#endif

#include "appliance/mixsh/command.h"

namespace mixsh
{

#define FAMILY(name) extern const family name##_family;
#include "appliance/mixsh/families.def"
#undef FAMILY

std::span<const family> all_families()
{
    static const std::vector<family> all = {
#define FAMILY(name) name##_family,
#include "appliance/mixsh/families.def"
#undef FAMILY
    };
    return all;
}

} // namespace mixsh

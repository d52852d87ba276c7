/* The management gateway's client side. */
#ifndef MIX_APPLIANCE_PLATFORM_GATEWAY_H
#define MIX_APPLIANCE_PLATFORM_GATEWAY_H

#include "appliance/wire/gateway.h"

namespace mixplatform
{

/* Saves the configuration: 0, or the refusal's number. */
int save(const mix::wire::save_request &request);

} // namespace mixplatform

#endif

// The kinds of arguments that families share.
#pragma once

#include "appliance/mixsh/command.h"

namespace mixsh
{

extern const kind number;  // decimal or 0x hexadecimal, within.low to within.high
extern const kind word;    // anything without checks but its length: names
extern const kind text;    // the same, meant for prose: quotes are usual
extern const kind one_of;  // within.choices; unique beginnings are accepted
extern const kind switch_; // on or off; chosen() gives 1 or 0
extern const kind ipv4;    // rated by the library's own matcher and validator
extern const kind ipv4_prefix;
extern const kind ipv6;
extern const kind ipv6_prefix;
extern const kind ip;             // either family; text()
extern const kind mac;            // 00:11:22:33:44:55, 00-11-22-33-44-55 or 0011.2233.4455
extern const kind interface_name; // offers those of this host
extern const kind slot;           // 0 to 255
extern const kind vlan;           // 1 to 4094
extern const kind virtual_router; // 0 to 65535
extern const kind file;           // a path; offers what is there

// Rates a word by one of the library's matchers (0: wrong, 7: incomplete, 8: complete) and, if there is one,
// the validator of the same kind: a word that only the matcher takes is still incomplete. The wrong character
// is the last one of the shortest beginning that the matcher refuses.
rating rate_by_matcher(int (*match)(const char *), int (*valid)(const char *), const std::string &word);

} // namespace mixsh

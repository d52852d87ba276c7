// The kinds of arguments that families share.
#ifndef MIXSH_KINDS_H
#define MIXSH_KINDS_H

#include "appliance/mixsh/command.h"
#include "appliance/wire/mac.h"

// In a namespace of their own, so that a variable may be called number.
namespace mixsh::kinds
{

extern const kind number; // decimal or 0x hexadecimal, within.low to within.high
extern const kind word;   // anything without checks but its length: names
extern const kind text;   // the same, meant for prose: quotes are usual
extern const kind one_of; // within.choices; unique beginnings are accepted
extern const kind ipv4;   // rated by the library's own matcher and validator
extern const kind ipv4_prefix;
extern const kind ipv6;
extern const kind mac;            // 00:11:22:33:44:55, 00-11-22-33-44-55 or 0011.2233.4455
extern const kind interface_name; // offers those of the appliance
extern const kind file;           // a path; offers what is there

} // namespace mixsh::kinds

namespace mixsh
{

// For one_of: on is 1, off is 0.
inline constexpr choice on_off_words[] = {{"on", "switch it on", 1}, {"off", "switch it off", 0}};
inline constexpr limits on_off{.choices = on_off_words};

// For number.
inline constexpr limits slots{.low = 0, .high = 255};
inline constexpr limits vlan_ids{.low = 1, .high = mix::wire::highest_vlan};
inline constexpr limits router_ids{.low = 0, .high = 65535};
inline constexpr limits one_to_65535{.low = 1, .high = 65535};

// Rates a word by one of the library's matchers (0: wrong, 7: incomplete, 8: complete) and, if there is one,
// the validator of the same kind: a word that only the matcher takes is still incomplete. The wrong character
// is the last one of the shortest beginning that the matcher refuses.
rating rate_by_matcher(int (*match)(const char *), int (*valid)(const char *), const std::string &word);

} // namespace mixsh

#endif

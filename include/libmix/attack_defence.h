/*
 * libmix: names of attack types and of defence rules.
 *
 * Numbers 1 to 31; number 0 has the empty name. The two tables differ on purpose: the spoofing protections
 * are one attack type each and three rules each. Lookups by name ignore case and answer the first number of
 * that name.
 */
#ifndef LIBMIX_ATTACK_DEFENCE_H
#define LIBMIX_ATTACK_DEFENCE_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

#define TQ_ATTACK_TYPES 32

/* Names of attack types, by number. */
MIX_API extern const char *const tq_attack_desc_table[TQ_ATTACK_TYPES];

/* The name of an attack type; "" above 31. */
MIX_API const char *tq_ad_type2name(uint32_t type) MIX_NOEXCEPT;

/* The attack type of a name; 32 for a name that there is not. name is not NULL. */
MIX_API uint32_t tq_ad_name2type(const char *name) MIX_NOEXCEPT;

/* The name of a defence rule; "" above 31 and below 0. */
MIX_API const char *ad_id2name(int32_t id) MIX_NOEXCEPT;

/* The defence rule of a name; -1 for a name that there is not. name is not NULL. */
MIX_API int32_t ad_name2id(const char *name) MIX_NOEXCEPT;

MIX_END_DECLS

#endif

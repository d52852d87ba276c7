/* What libmix imports: board identity and predicates. A predicate answers 0 or not 0. */
#ifndef MIX_PLATFORM_BOARD_H
#define MIX_PLATFORM_BOARD_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define MIX_BOARD_NUMBER(name) uint32_t name(void);
#define MIX_BOARD_NUMBER_OF(name) uint32_t name(uint32_t);
#define MIX_BOARD_TEST_OF(name) int name(uint32_t);
#define MIX_BOARD_TEST(name) int name(void);
#include "board_functions.def"

#ifdef __cplusplus
}
#endif

#endif

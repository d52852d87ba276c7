#include <libmix/ip_util.h>

const uint32_t masklen2make[33] = {
    0x00000000, 0x80000000, 0xC0000000, 0xE0000000, 0xF0000000, 0xF8000000, 0xFC000000,
    0xFE000000, 0xFF000000, 0xFF800000, 0xFFC00000, 0xFFE00000, 0xFFF00000, 0xFFF80000,
    0xFFFC0000, 0xFFFE0000, 0xFFFF0000, 0xFFFF8000, 0xFFFFC000, 0xFFFFE000, 0xFFFFF000,
    0xFFFFF800, 0xFFFFFC00, 0xFFFFFE00, 0xFFFFFF00, 0xFFFFFF80, 0xFFFFFFC0, 0xFFFFFFE0,
    0xFFFFFFF0, 0xFFFFFFF8, 0xFFFFFFFC, 0xFFFFFFFE, 0xFFFFFFFF,
};

#define BAD4 255, 255, 255, 255
#define BAD8 BAD4, BAD4
#define BAD16 BAD8, BAD8
#define BAD32 BAD16, BAD16
#define BAD64 BAD32, BAD32

/* A row starts at each octet whose ones are contiguous from the top. */
const uint8_t mask_bmap_table[256] = {
    0, BAD64, BAD32, BAD16, BAD8, BAD4, 255, 255, 255, /* 0x00 */
    1, BAD32, BAD16, BAD8,  BAD4, 255,  255, 255,      /* 0x80 */
    2, BAD16, BAD8,  BAD4,  255,  255,  255,           /* 0xC0 */
    3, BAD8,  BAD4,  255,   255,  255,                 /* 0xE0 */
    4, BAD4,  255,   255,   255,                       /* 0xF0 */
    5, 255,   255,   255,                              /* 0xF8 */
    6, 255,                                            /* 0xFC */
    7,                                                 /* 0xFE */
    8,                                                 /* 0xFF */
};

const uint8_t ipv6_maskbit[9] = {0x00, 0x80, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC, 0xFE, 0xFF};

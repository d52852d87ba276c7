/*
 * libmix: address text, command-line token matchers, classification, local addresses.
 *
 * Byte orders, fixed for this header:
 *  - "host order": the most significant byte of the integer is the first dotted octet (10.1.2.3 is
 *    0x0A010203).
 *  - "network order": the four bytes as they stand in a packet; on this little-endian machine the first
 *    dotted octet is the least significant byte of the integer (10.1.2.3 is 0x0302010A).
 *  - IPv6 addresses and masks are 16 bytes in network order, MAC addresses 6 bytes in wire order.
 *
 * No function here prints or logs. All may be called from any thread, but for init_lan_addr, which is called
 * once, before other threads ask is_lan_addr.
 */
#ifndef LIBMIX_IP_UTIL_H
#define LIBMIX_IP_UTIL_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

/* --- records --- */

/* Address record with a host-order IPv4 address: 24 bytes, the address at offset 8. */
struct mix_addr {
    uint8_t family; /* 2 (AF_INET) or 10 (AF_INET6) */
    union {
        uint32_t ipv4;     /* host order */
        uint8_t ipv6[16];  /* network order */
        uint64_t words[2]; /* aligns the address to 8 */
    } address;
};

/* Address record in network order throughout: 17 bytes, no alignment. Other than mix_addr, on purpose. */
struct mix_inet_addr {
    uint8_t family;      /* 2 (AF_INET) or 10 (AF_INET6) */
    uint8_t address[16]; /* IPv4: the first 4 bytes; network order */
};

/* --- constant tables --- */

/* Entry n: the IPv4 mask of n leading ones, host order. */
MIX_API extern const uint32_t masklen2make[33];

/* By mask octet: its leading ones (0 to 8) where the ones are contiguous from the top, else 255. */
MIX_API extern const uint8_t mask_bmap_table[256];

/* Entry k: the octet of k leading ones. */
MIX_API extern const uint8_t ipv6_maskbit[9];

/* --- text to binary: 0 on success, -1 on failure --- */

/*
 * text: any form that inet_aton accepts (10.1, 0x0A.1.2.3, octal parts, one number).
 * out: receives the address in host order; untouched on failure.
 * A NULL text or out is a failure.
 */
MIX_API int ipv4str_2_uint(const char *text, uint32_t *out) MIX_NOEXCEPT;

/*
 * buf: receives the 16 bytes of the address; untouched on failure. buflen: its size in bytes, at least 16.
 * A NULL text or buf is a failure.
 */
MIX_API int ipv6str_2_bin(const char *text, uint8_t *buf, int buflen) MIX_NOEXCEPT;

/*
 * IPv6 text gives family 10, everything else is read as ipv4str_2_uint does and gives family 2.
 * out: the family is written first and stays written when the address can't be read. A NULL text fails.
 */
MIX_API int ipstr_2_addr(const char *text, struct mix_addr *out) MIX_NOEXCEPT;

/*
 * As ipstr_2_addr, for a text that may stand in brackets. A text that starts with "[" is an IPv6 address
 * without its first and last character; what the last one is, is not looked at. A lone "[" and more than 45
 * characters inside fail before the family is written.
 * text must not be NULL.
 */
MIX_API int ipstr_with_bracket_2_addr(const char *text, struct mix_addr *out) MIX_NOEXCEPT;

/*
 * A text with a colon is IPv6, one with a dot but no colon is a strict dotted quad (as inet_pton takes it),
 * anything else and a NULL text fail. out: untouched on failure; network order.
 */
MIX_API int tq_ip_string_2_inet_addr(struct mix_inet_addr *out, const char *text) MIX_NOEXCEPT;

/*
 * As tq_ip_string_2_inet_addr, for a text that may stand in brackets, IPv4 too. A text that starts with "["
 * loses its first and last character; what the last one is, is not looked at. A lone "[", more than 45
 * characters inside, and a NULL text fail.
 */
MIX_API int tq_ip_string_with_bracket_2_inet_addr(struct mix_inet_addr *out, const char *text) MIX_NOEXCEPT;

/* --- binary to text, into the caller's buffer --- */

/*
 * ip: host order. dst: zeroed over all len bytes, then the dotted quad. len: at least 16, else NULL and
 * nothing is written. Returns dst.
 */
MIX_API char *ipv4_2_str(uint32_t ip, char *dst, int len) MIX_NOEXCEPT;

/*
 * The mask of that many leading ones as a dotted quad; 32 and more give "255.255.255.255". len: at least 16,
 * else NULL and nothing is written. Returns dst; bytes behind the text are zeroed for bits 0 to 31 only.
 */
MIX_API char *maskv4num_2_str(uint32_t bits, char *dst, int len) MIX_NOEXCEPT;

/* addr: 16 bytes. buf: the compressed form in lower case. len: at least 40, else NULL. Returns buf. */
MIX_API char *ipv6_2_str(const uint8_t *addr, char *buf, int len) MIX_NOEXCEPT;

/*
 * addr: 16 bytes. out: the compressed form in brackets and, unlike ipv6_2_str, in upper case.
 * len: size of out in bytes; with 47 or less nothing is written.
 */
MIX_API void tq_ipv6_addr_2_string_with_bracket(const uint8_t *addr, char *out, uint32_t len) MIX_NOEXCEPT;

/* --- masks --- */

/*
 * The host-order mask of that many leading ones. No range check: above 32 the number is taken modulo 32, so
 * that 33 gives 0x80000000 and 64 gives all ones.
 */
MIX_API uint32_t masknum_2_v4(uint32_t bits) MIX_NOEXCEPT;

/* mask: host order. Returns the number of leading ones, 0 to 32, or -1 when the ones are not contiguous. */
MIX_API int maskv4_2_num(uint32_t mask) MIX_NOEXCEPT;

/* As maskv4_2_num, of a text that ipv4str_2_uint accepts; -1 for any other. */
MIX_API int maskv4str_2_num(const char *text) MIX_NOEXCEPT;

/* 1 when maskv4str_2_num makes a number of the text, else 0. */
MIX_API int is_maskv4_str(const char *text) MIX_NOEXCEPT;

/*
 * out: 16 bytes, receives the mask of that many leading ones. bits: 0 to 128; what lies outside is taken as
 * the nearer of the two.
 */
MIX_API void masknum_2_v6(uint8_t *out, int bits) MIX_NOEXCEPT;

/*
 * mask: 16 bytes. Returns the number of leading ones, 0 to 128. A mask that is not contiguous gives 0 or
 * less: with w the first of its four 32-bit words that is not all ones, -w when w itself is at fault, else
 * minus the index of the first word behind it that is not zero (-2 for word 1). A result of 0 is therefore
 * the mask /0 or a bad first word; who needs to tell them apart looks at the mask.
 */
MIX_API int maskv6_2_num(const uint8_t *mask) MIX_NOEXCEPT;

/* --- validators: 1 or 0, 0 for NULL --- */

/* A dotted quad of decimal octets without leading zeros, not in 0.0.0.0/8 unless it is 0.0.0.0. */
MIX_API int is_ipv4_str(const char *text) MIX_NOEXCEPT;

/* The same, all of 0.0.0.0/8 included. */
MIX_API int is_ipv4_r_str(const char *text) MIX_NOEXCEPT;

/* An IPv6 address as inet_pton takes it. The two are alike. */
MIX_API int is_ipv6_str(const char *text) MIX_NOEXCEPT;
MIX_API int is_ipv6_r_str(const char *text) MIX_NOEXCEPT;

/* One hexadecimal digit or more and nothing else, fewer than 2^31 of them. */
MIX_API int is_hex_str(const char *text) MIX_NOEXCEPT;

/* "address/length" with an address that is_ipv4_str accepts and a length of 0 to 32. */
MIX_API int is_ipv4_prefix_str(const char *text) MIX_NOEXCEPT;

/* The same with an address that is_ipv4_r_str accepts. */
MIX_API int is_ipv4_r_prefix_str(const char *text) MIX_NOEXCEPT;

/*
 * "address/length" with an IPv6 address of at most 39 characters and a length of 0 to 128, that
 * ipv6_prefix_match rates complete. The two are alike.
 */
MIX_API int is_ipv6_prefix_str(const char *text) MIX_NOEXCEPT;
MIX_API int is_ipv6_r_prefix_str(const char *text) MIX_NOEXCEPT;

/* The same with a length of 1 to 128. */
MIX_API int is_ipv6_g_prefix_str(const char *text) MIX_NOEXCEPT;

/* --- token matchers --- */

/* What a matcher makes of a partly or wholly typed word. The numbers are fixed. */
enum mix_match {
    MATCH_NONE = 0,       /* can never become an argument of this kind */
    MATCH_INCOMPLETE = 7, /* the beginning of one; NULL too */
    MATCH_COMPLETE = 8    /* one */
};

/* A dotted quad without leading zeros. An empty first octet is one of the four: .1.2.3 passes. */
MIX_API int ipv4_match(const char *word) MIX_NOEXCEPT;

/*
 * A dotted quad, "/" and 0 to 32. "/" before the first octet is skipped, and before the third dot it
 * separates octets as a dot does, uncounted.
 */
MIX_API int ipv4_prefix_match(const char *word) MIX_NOEXCEPT;

/*
 * An IPv6 address. Every acceptable beginning, the empty word too, is rated complete; MATCH_INCOMPLETE is the
 * answer for NULL only. A dot takes the character behind it into its group, a colon too, and the group passes
 * up to four characters; but a word that ends right behind a dot is complete at any length (::1.2.3. and
 * 12345.).
 */
MIX_API int ipv6_match(const char *word) MIX_NOEXCEPT;

/* An IPv6 address, "/" and 0 to 128. */
MIX_API int ipv6_prefix_match(const char *word) MIX_NOEXCEPT;

/*
 * range: such as <1-4094>; the first character is not looked at, each bound has at most 10 characters.
 * word: a decimal number; NULL is in every range, the empty word is 0.
 * Returns 1 when the number lies in the range, both bounds included, else 0.
 */
MIX_API int range_match(const char *range, const char *word) MIX_NOEXCEPT;

/* --- wildcard masks --- */

/*
 * Reads a dotted quad as a wildcard mask, its first octet least significant (network order).
 * out: k when the value is 2^k - 1 (so 255.255.0.0 gives 16), else the value itself, network order.
 * Returns 1; 0 with out untouched when more than 8 zero bits lie below the highest one; -1 when the text is
 * not an address.
 */
MIX_API int get_wildcard_mask_ipv4(const char *text, uint32_t *out) MIX_NOEXCEPT;

/* The same without the limit of 8 zero bits: 1 or -1. */
MIX_API int get_wildcard_mask_without_limit_ipv4(const char *text, uint32_t *out) MIX_NOEXCEPT;

/* --- classification: 1 or 0 --- */

/* mac: 6 bytes. All zero. */
MIX_API int mac_is_zerocast(const uint8_t *mac) MIX_NOEXCEPT;
/* All ones. */
MIX_API int mac_is_broadcast(const uint8_t *mac) MIX_NOEXCEPT;
/* The group bit is set and the address is not broadcast. */
MIX_API int mac_is_multicast(const uint8_t *mac) MIX_NOEXCEPT;
/* Not zero and the group bit is clear: a usable unicast address. */
MIX_API int mac_is_general(const uint8_t *mac) MIX_NOEXCEPT;
/* Neither all zero nor all ones. */
MIX_API int mac_is_non_zero_broadcast(const uint8_t *mac) MIX_NOEXCEPT;

/* ip: network order. 224.0.0.0/4. */
MIX_API int ip_is_multicast(uint32_t ip) MIX_NOEXCEPT;
/* ip: network order. Not multicast, and as a number neither 0 nor 0xFFFFFFFF nor 0xFFFFFFFE. */
MIX_API int ip_is_general(uint32_t ip) MIX_NOEXCEPT;
/* ip: host order. 127/8, 10/8, 169.254/16, 192.168/16 or 172.16/12. */
MIX_API int is_private_ip(uint32_t ip) MIX_NOEXCEPT;

/* --- local addresses --- */

/* The shared "lan_addr" table that init_lan_addr attached; NULL before. Written by another process, never
 * here. */
MIX_API extern void *lan_addrs;

/* Attaches the table, at every call anew. Returns 1, or 0 with lan_addrs NULL when it can't be had. */
MIX_API int init_lan_addr(void) MIX_NOEXCEPT;

/*
 * ip: host order. Returns 1 when it falls into a network of the table, else 0; 0 before init_lan_addr. The
 * table is read without a lock while its writer may be at work. A prefix length above 32 never matches.
 */
MIX_API int is_lan_addr(uint32_t ip) MIX_NOEXCEPT;

/* ip: network order. Returns 1 when one of the first 64 IPv4 addresses of the kernel's list is ip, else 0. */
MIX_API int is_linux_ip(uint32_t ip) MIX_NOEXCEPT;

/*
 * The index of the interface on which a TCP connection came in; turns packet information on for the socket.
 * sock: an accepted stream socket. family: 2 or 10, the socket's. Returns the index, or -1.
 */
MIX_API int get_tcp_sock_if_index(int sock, uint16_t family) MIX_NOEXCEPT;

MIX_END_DECLS

#endif

/*
 * The control service of mixd: daemon 201 on this board. It lists what mixd serves, with counters, and makes
 * services misbehave on request. Every board of a chassis tells about itself, the rest is answered on this
 * board alone. All numbers are little-endian.
 */
#ifndef MIX_APPLIANCE_WIRE_CONTROL_H
#define MIX_APPLIANCE_WIRE_CONTROL_H

#include <cstddef>
#include <cstdint>

namespace mix::wire
{

inline constexpr uint8_t control_daemon = 201;

/* Message types. Statuses are 0, or a negative error number (-EINVAL, -ENOENT). */
inline constexpr uint32_t control_list_interfaces = 245; /* control_list; page of control_interface */
inline constexpr uint32_t control_set_fault = 250;       /* control_fault; no reply bytes */
inline constexpr uint32_t control_clear_faults = 251; /* control_clear; the status is how many were cleared */
inline constexpr uint32_t control_list_faults = 252;  /* control_list; page of control_fault */
inline constexpr uint32_t control_list_services = 253; /* control_list; page of control_service */
inline constexpr uint32_t control_about_type = 254;    /* nothing; control_about */

enum class fault_kind : uint32_t {
    delay = 1,       /* the answer leaves `value` ms late */
    drop = 2,        /* the request is lost: not executed, not answered */
    refuse = 3,      /* not executed; the status is `value`, which is negative */
    short_reply = 4, /* `value` bytes are missing at the reply's end */
    long_reply = 5,  /* `value` bytes (0xee) too many at the reply's end */
    overstated = 6,  /* the message's header claims `value` bytes more than it carries */
    crash = 7        /* mixd dies at once, before it executes the request */
};

/* A fault of all messages of (daemon, type), on every board. */
struct [[gnu::packed]] control_fault {
    uint32_t daemon;
    uint32_t type; /* 0: every type of the daemon */
    uint32_t kind; /* fault_kind */
    int32_t value;
    uint32_t count; /* of requests that are hit, in a listing of those left; 0: all until it is cleared */
    uint32_t hits;  /* in a listing: how many were hit */
};
static_assert(sizeof(control_fault) == 24);
static_assert(offsetof(control_fault, daemon) == 0);
static_assert(offsetof(control_fault, type) == 4);
static_assert(offsetof(control_fault, kind) == 8);
static_assert(offsetof(control_fault, value) == 12);
static_assert(offsetof(control_fault, count) == 16);
static_assert(offsetof(control_fault, hits) == 20);

inline constexpr uint32_t every_daemon = 0xffffffff;

struct [[gnu::packed]] control_clear {
    uint32_t daemon; /* every_daemon: all faults */
    uint32_t type;   /* 0: all faults of the daemon */
};
static_assert(sizeof(control_clear) == 8);

struct [[gnu::packed]] control_list {
    uint32_t cursor; /* 0 at first, then the last page's */
};
static_assert(sizeof(control_list) == 4);

struct [[gnu::packed]] control_page {
    uint32_t cursor; /* 0: this was the last page */
    uint32_t count;
};
static_assert(sizeof(control_page) == 8);

struct [[gnu::packed]] control_service {
    uint32_t address; /* node, instance, daemon */
    uint32_t type;
    char name[32];        /* terminated */
    uint64_t requests;    /* all, notices included */
    uint64_t refused;     /* answered with a negative status */
    uint64_t faulted;     /* hit by a fault */
    uint64_t total_ns;    /* time spent in the service */
    uint64_t slowest_ns;  /* its longest answer */
    uint64_t reply_bytes; /* sent, headers not counted */
};
static_assert(sizeof(control_service) == 88);
static_assert(offsetof(control_service, address) == 0);
static_assert(offsetof(control_service, type) == 4);
static_assert(offsetof(control_service, name) == 8);
static_assert(offsetof(control_service, requests) == 40);
static_assert(offsetof(control_service, refused) == 48);
static_assert(offsetof(control_service, faulted) == 56);
static_assert(offsetof(control_service, total_ns) == 64);
static_assert(offsetof(control_service, slowest_ns) == 72);
static_assert(offsetof(control_service, reply_bytes) == 80);

/* An interface of the appliance: of what mixd describes. */
struct [[gnu::packed]] control_interface {
    uint32_t index;
    char name[32]; /* terminated */
};
static_assert(sizeof(control_interface) == 36);
static_assert(offsetof(control_interface, index) == 0);
static_assert(offsetof(control_interface, name) == 4);

struct [[gnu::packed]] control_about {
    uint32_t pid;
    uint32_t flags;     /* about_flag */
    uint64_t started;   /* seconds since 1970 */
    uint32_t clients;   /* connections open now */
    uint32_t addresses; /* sockets served */
    char version[32];   /* terminated, as all texts here */
    char run_dir[256];
    char store[256];
    char scenario[256];
    uint32_t slot; /* of the board that was asked */
    char board[32];
};
static_assert(sizeof(control_about) == 860);
static_assert(offsetof(control_about, pid) == 0);
static_assert(offsetof(control_about, flags) == 4);
static_assert(offsetof(control_about, started) == 8);
static_assert(offsetof(control_about, clients) == 16);
static_assert(offsetof(control_about, addresses) == 20);
static_assert(offsetof(control_about, version) == 24);
static_assert(offsetof(control_about, run_dir) == 56);
static_assert(offsetof(control_about, store) == 312);
static_assert(offsetof(control_about, scenario) == 568);
static_assert(offsetof(control_about, slot) == 824);
static_assert(offsetof(control_about, board) == 828);

enum about_flag : uint32_t {
    about_scenario = 1, /* a scenario, not the host, is described */
    about_apply = 2     /* commits are written to the kernel */
};

/* A page's rows fit this many bytes. */
inline constexpr uint32_t control_page_size = 3000;

} // namespace mix::wire

#endif

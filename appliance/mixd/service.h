/*
 * What a daemon service is made of. A service is one file, service_<name>.cpp, with one `service_entry`, and
 * one line in services.def. docs/adding-a-service.md walks through it.
 *
 * mixd is one thread: handlers run one after the other on the event loop, so they must be short. A listing
 * answers one page per request; kernel events are taken a bounded number at a time.
 */
#ifndef MIXD_SERVICE_H
#define MIXD_SERVICE_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <type_traits>
#include <typeindex>
#include <vector>

#include <systemd/sd-event.h>

#include "appliance/mixd/boards.h"
#include "appliance/mixd/gateway_object.h"
#include "appliance/mixd/scenario.h"
#include "appliance/mixd/store.h"

namespace mixd
{

class core;

/* mixd cannot start; the text is for the operator. */
class startup_error : public std::runtime_error
{
    using std::runtime_error::runtime_error;
};

/* The client at the other end of a connection. */
struct peer {
    uint64_t connection = 0; /* unique for the life of this mixd */
    pid_t pid = 0;
    uid_t uid = 0;
    std::string program;
};

struct request {
    address_parts to;
    const board &at; /* whose daemon was asked */
    uint32_t type;
    bool one_way; /* nobody waits: the reply is dropped */
    std::span<const uint8_t> bytes;
    const peer &from;

    /* A number at an offset, little-endian; what a short request does not reach counts as zero. */
    template <class T>
    requires std::is_unsigned_v<T>
    [[nodiscard]] T field(size_t offset) const
    {
        T value = 0;
        if (offset < bytes.size())
            std::memcpy(&value, bytes.data() + offset, std::min(sizeof value, bytes.size() - offset));
        return value;
    }
    /* A whole record; bytes that a short request does not reach are zero. */
    template <class T>
    requires std::is_trivially_copyable_v<T>
    [[nodiscard]] T record() const
    {
        T value{};
        if (!bytes.empty())
            std::memcpy(&value, bytes.data(), std::min(sizeof value, bytes.size()));
        return value;
    }
    /* Whether the request has just the size of a record: clients send whole ones. */
    template <class T>
    [[nodiscard]] bool is_a() const
    {
        return bytes.size() == sizeof(T);
    }
};

/* The reply being built. Its memory is kept between requests, so a page costs no allocation. */
struct reply {
    std::vector<uint8_t> bytes;

    /*
     * Set by a handler whose answer takes long: called once in each turn of the loop, so that others are
     * answered in between, until it gives the status; what the handler itself returns does not count then.
     * It must keep copies of what it needs of the request. Nothing is left of it when the client hangs up.
     */
    std::function<std::optional<int32_t>(reply &)> go_on;

    void clear()
    {
        bytes.clear();
        go_on = nullptr;
    }
    void append(const void *data, size_t size)
    {
        const auto *from = static_cast<const uint8_t *>(data);
        bytes.insert(bytes.end(), from, from + size);
    }
    template <class T>
    requires std::is_trivially_copyable_v<T>
    void append(const T &record) { append(&record, sizeof record); }
    /* Overwrites bytes already appended, for a page's header. */
    template <class T>
    requires std::is_trivially_copyable_v<T>
    void put(size_t offset, const T &record) { std::memcpy(bytes.data() + offset, &record, sizeof record); }
};

/* Answers one request; the result is the status that the client gets (negative: refused, use -errno). */
using handler = std::function<int32_t(const request &, reply &)>;

/* Which instances of each board an address is served at. */
struct board_addresses {
    enum class numbering { slot_plus_one, slot } node = numbering::slot_plus_one;
    std::vector<uint16_t> instances = {}; /* empty: one for each CPU of the board, from 0 */
};

struct options {
    bool host = true;   /* the host's kernel is the truth; false: a scenario is */
    bool apply = false; /* commits are written to the kernel, too */
    std::string run_dir;
    std::string store_file;
    std::string applications_file; /* the catalogue's predefined ones; empty: the file that comes with mixd */
    bool keep_catalogue = true;    /* make and keep the application catalogue */
    bool share_catalogue = false;  /* but leave it to another mixd that keeps it already */
    std::string scenario_file;     /* empty: none */
    std::string lease_file = "/var/lib/misc/dnsmasq.leases"; /* of the DHCP server on this host */
};

/*
 * What a service gets when it is made. References stay valid for the service's life, the setup itself does
 * not.
 */
class setup
{
  public:
    virtual ~setup() = default;

    /* Serves (daemon, type) at node 0, instance 0. Serving one twice is a startup_error. */
    virtual void serve(uint8_t daemon, uint32_t type, handler) = 0;
    /* Serves (daemon, type) on every board of the model, this one included (node 0 as well). */
    virtual void serve_on_boards(uint8_t daemon, uint32_t type, handler, const board_addresses & = {}) = 0;
    /* The management gateway's objects (appliance/wire/gateway.h): attribute commits, record exchanges,
     * reads. */
    virtual void on_commit(uint32_t object, commit_handler) = 0;
    virtual void on_record(uint32_t object, record_handler) = 0;
    virtual void on_read(uint32_t object, read_handler) = 0;

    /* The service's table of the scenario. */
    virtual scenario_table scenario(std::string_view name) = 0;
    [[nodiscard]] virtual const options &settings() const = 0;
    [[nodiscard]] virtual const board_model &boards() const = 0;
    [[nodiscard]] virtual store &state() = 0;
    [[nodiscard]] virtual sd_event *loop() = 0;
    /* State that several services share: made by the first who asks for it, kept until mixd ends. */
    virtual std::shared_ptr<void> shared(std::type_index,
                                         const std::function<std::shared_ptr<void>()> &make) = 0;
    template <class T>
    T &shared_state()
    {
        return *static_cast<T *>(shared(typeid(T), [this] { return std::make_shared<T>(*this); }).get());
    }
    /* For the services that are about mixd itself. */
    [[nodiscard]] virtual core &internals() = 0;
};

/* What a service keeps between requests. */
class service
{
  public:
    service() = default;
    service(const service &) = delete;
    service &operator=(const service &) = delete;
    virtual ~service() = default;
    /* All services are made and the scenario is in order; nothing is served yet. What a scenario puts into
     * the store goes there now, so that a wrong scenario changes nothing. May throw startup_error or
     * store_error. */
    virtual void begin() {}
    virtual void reload() {} /* SIGHUP */
    /* The store is about to be copied: what belongs into it and is not there yet goes there. */
    virtual void bring_to_store() {}
    /* The store has another content now. True: this service has taken it over by itself and goes on; for one
     * that serves no messages. The others are made anew. */
    virtual bool store_replaced() { return false; }
};

struct service_entry {
    const char *name; /* shown by `show daemons`; its store schema goes by this name */
    /* SQL; the i-th leads from schema i to i + 1; never edited later. */
    std::span<const char *const> migrations;
    std::unique_ptr<service> (*make)(setup &);
};

/* The entries of all services: gives each definition its linkage. */
#define MIXD_SERVICE(name) extern const service_entry name##_service;
#include "appliance/mixd/services.def"
#undef MIXD_SERVICE

/* A line on standard error, with the priority that the journal understands. */
enum class priority { error = 3, warning = 4, notice = 5, info = 6 };
void log(priority, std::string_view text);

} // namespace mixd

#endif

#include "appliance/mixd/core.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <numeric>
#include <sys/resource.h>

#include <systemd/sd-daemon.h>

namespace mixd
{

namespace
{

#define MIXD_SERVICE(name) &name##_service,
constexpr const service_entry *entries[] = {
#include "appliance/mixd/services.def"
};
#undef MIXD_SERVICE

event_loop new_loop()
{
    sd_event *loop = nullptr;
    need(sd_event_new(&loop), "event loop");
    return event_loop(loop);
}

/* Each client is a descriptor; the soft limit is for programs that use select. */
void raise_descriptor_limit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) < 0)
        return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace

core::core(options chosen)
    : options_(std::move(chosen)), loop_(new_loop()),
      scenario_(options_.scenario_file.empty() ? mixd::scenario() : mixd::scenario(options_.scenario_file)),
      boards_(read_boards(scenario_.top())), run_(options_.run_dir)
{
    raise_descriptor_limit();
    options_.run_dir = run_.path();
    faults_.read(scenario_.top());
    store_ = std::make_unique<store>(options_.store_file);
    watch_signals();
    make_services();
    const std::vector<std::string> wrong = scenario_.finish();
    if (!wrong.empty())
        throw startup_error(fmt::format("{}", fmt::join(wrong, "\n")));
    for (const auto &one : services_)
        one->begin();
    server_ = std::make_unique<server>(loop_.get(), run_, registry_, faults_);
    server_->listen();
    store_->keep();
}

core::~core() = default;

/* Those that are missing: all of them when mixd starts. */
void core::make_services()
{
    services_.resize(std::size(entries));
    for (size_t i = 0; i < std::size(entries); ++i) {
        if (services_[i])
            continue;
        making_ = entries[i]->name;
        store_->migrate(entries[i]->name, entries[i]->migrations);
        services_[i] = entries[i]->make(*this);
    }
    making_ = "";
}

void core::bring_all_to_store()
{
    for (const auto &one : services_)
        one->bring_to_store();
}

void core::start_services_again()
{
    try {
        remake_services();
    } catch (const std::exception &failure) {
        log(priority::error, fmt::format("the services can't start again: {}", failure.what()));
        sd_event_exit(loop_.get(), -EIO);
        throw;
    }
}

/* The addresses stay: boards and scenario are those that mixd started with. */
void core::remake_services()
{
    server_->end_long_answers(-ESTALE);
    std::vector<const service *> kept;
    for (auto &one : services_) {
        if (one->store_replaced())
            kept.push_back(one.get());
        else
            one.reset();
    }
    shared_.clear();
    gateway_ = {};
    registry_.begin_again();
    scenario_.begin_again();
    make_services();
    for (const auto &one : services_)
        if (std::find(kept.begin(), kept.end(), one.get()) == kept.end())
            one->begin();
    log(priority::notice, "every service has started from the store again");
}

void core::watch_signals()
{
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN); /* a size limit shows as a failed write of the store, not as the end of mixd */
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&blocked, number);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        sd_event_source *source = nullptr;
        /* Without a handler the loop ends, and what stands for the handler's data is its result. */
        const bool ends = number != SIGHUP;
        need(sd_event_add_signal(loop_.get(), &source, number, ends ? nullptr : on_hangup,
                                 ends ? nullptr : this),
             "watching signals");
        signals_.emplace_back(source);
    }
}

int core::on_hangup(sd_event_source *, const struct signalfd_siginfo *, void *data)
{
    log(priority::info, "reloading");
    for (const auto &one : static_cast<core *>(data)->services_)
        one->reload();
    return 0;
}

int core::run()
{
    sd_event_set_watchdog(loop_.get(), true);
    sd_notify(0, "READY=1");
    log(priority::info, fmt::format("ready: {} addresses under {}", server_->addresses(), run_.path()));
    const int result = sd_event_loop(loop_.get());
    sd_notify(0, "STOPPING=1");
    log(priority::info, "stopping");
    return result < 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}

void core::add(const address_parts &to, uint32_t type, const board &at, const handler &call)
{
    registry_.add({to, type, making_, &at, call, {}});
}

std::shared_ptr<void> core::shared(std::type_index type, const std::function<std::shared_ptr<void>()> &make)
{
    const auto found = shared_.find(type);
    if (found != shared_.end())
        return found->second;
    std::shared_ptr<void> made = make(); /* may itself ask for shared state */
    return shared_[type] = std::move(made);
}

void core::serve(uint8_t daemon, uint32_t type, handler call)
{
    add({0, 0, daemon}, type, boards_.here(), call);
}

void core::serve_on_boards(uint8_t daemon, uint32_t type, handler call, const board_addresses &where)
{
    for (const board &at : boards_.boards) {
        std::vector<uint16_t> instances = where.instances;
        if (instances.empty()) {
            instances.resize(at.cpus);
            std::iota(instances.begin(), instances.end(), uint16_t{0});
        }
        const bool plus_one = where.node == board_addresses::numbering::slot_plus_one;
        const uint32_t node = at.slot + (plus_one ? 1 : 0);
        for (const uint16_t instance : instances) {
            if (at.is_this)
                add({0, instance, daemon}, type, at, call);
            /* Node 0 always means this board, also where nodes are numbered as slots are. A board that is
             * alone is asked by its slot, too: as the master of its own chassis. */
            if (node != 0 && (boards_.chassis || plus_one))
                add({static_cast<uint8_t>(node), instance, daemon}, type, at, call);
        }
    }
}

namespace
{

template <class Handlers, class Handler>
void keep(Handlers &handlers, uint32_t object, Handler &&handler, const char *service)
{
    if (!mix::wire::find_object(object))
        throw startup_error(
            fmt::format("service {} serves object {:#x}, which nobody knows", service, object));
    if (!handlers.emplace(object, std::forward<Handler>(handler)).second)
        throw startup_error(
            fmt::format("service {} serves object {:#x}, which is served already", service, object));
}

} // namespace

void core::on_commit(uint32_t object, commit_handler call)
{
    keep(gateway_.commits, object, std::move(call), making_);
}

void core::on_record(uint32_t object, record_handler call)
{
    keep(gateway_.records, object, std::move(call), making_);
}

void core::on_read(uint32_t object, read_handler call)
{
    keep(gateway_.reads, object, std::move(call), making_);
}

} // namespace mixd

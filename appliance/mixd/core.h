/* mixd itself: makes the services, serves them, ends. */
#ifndef MIXD_CORE_H
#define MIXD_CORE_H

#include <ctime>
#include <map>
#include <memory>

#include "appliance/mixd/event.h"
#include "appliance/mixd/faults.h"
#include "appliance/mixd/registry.h"
#include "appliance/mixd/run_directory.h"
#include "appliance/mixd/server.h"
#include "appliance/mixd/service.h"

namespace mixd
{

/* What services have registered with the management gateway, by object. */
struct gateway_handlers {
    std::map<uint32_t, commit_handler> commits;
    std::map<uint32_t, record_handler> records;
    std::map<uint32_t, read_handler> reads;
};

class core final : public setup
{
  public:
    explicit core(options);
    ~core() override;

    /* Until SIGTERM or SIGINT; the process's exit status. */
    int run();

    /* So that a copy of the store has everything. */
    void bring_all_to_store();
    /* The store's content was replaced: every service is made anew and starts from the store again. Clients
     * stay connected. The caller's own service is gone when this returns, so it belongs into a go_on. */
    void start_services_again();

    void serve(uint8_t daemon, uint32_t type, handler) override;
    void serve_on_boards(uint8_t daemon, uint32_t type, handler, const board_addresses &) override;
    void on_commit(uint32_t object, commit_handler) override;
    void on_record(uint32_t object, record_handler) override;
    void on_read(uint32_t object, read_handler) override;
    scenario_table scenario(std::string_view name) override { return scenario_.top().table(name); }
    [[nodiscard]] const options &settings() const override { return options_; }
    [[nodiscard]] const board_model &boards() const override { return boards_; }
    [[nodiscard]] store &state() override { return *store_; }
    [[nodiscard]] sd_event *loop() override { return loop_.get(); }
    std::shared_ptr<void> shared(std::type_index,
                                 const std::function<std::shared_ptr<void>()> &make) override;
    [[nodiscard]] core &internals() override { return *this; }

    [[nodiscard]] registry &endpoints() { return registry_; }
    [[nodiscard]] fault_table &faults() { return faults_; }
    [[nodiscard]] const server &sockets() const { return *server_; }
    [[nodiscard]] const gateway_handlers &gateway() const { return gateway_; }
    [[nodiscard]] time_t started() const { return started_; }

  private:
    void make_services();
    void remake_services();
    void watch_signals();
    void add(const address_parts &, uint32_t type, const board &, const handler &);
    static int on_hangup(sd_event_source *, const struct signalfd_siginfo *, void *data);

    options options_;
    time_t started_ = time(nullptr);
    event_loop loop_;
    mixd::scenario scenario_;
    board_model boards_;
    run_directory run_;
    std::unique_ptr<store> store_;
    registry registry_;
    fault_table faults_;
    gateway_handlers gateway_;
    const char *making_ = "";                                 /* the service that is being made */
    std::map<std::type_index, std::shared_ptr<void>> shared_; /* outlives the services */
    std::vector<std::unique_ptr<service>> services_;
    std::unique_ptr<server> server_;
    std::vector<event_source> signals_;
};

} // namespace mixd

#endif

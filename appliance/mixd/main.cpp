/* mixd: the daemons of the reference appliance, in one process. */
#include <cstdlib>
#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "appliance/mixd/core.h"
#include "appliance/mixd/version.h"
#include "appliance/wire/places.h"

namespace
{

constexpr int wrong_options = 2;

// Help without CLI11's remarks on which options exclude each other: the texts say so where it isn't plain.
class plain_help : public CLI::Formatter
{
    std::string make_option_opts(const CLI::Option *of) const override
    {
        const auto type = of->get_type_name();
        return type.empty() ? type : " " + type;
    }
};

int run(int argc, char **argv)
{
    CLI::App program("The daemons of the mix appliance: answers what libmix asks, from this host's kernel\n"
                     "or from a scenario, and keeps what is configured in a store.",
                     "mixd");
    program.formatter(std::make_shared<plain_help>());
    mixd::options chosen;
    bool host = false, without_catalogue = false;
    program.set_version_flag("--version", fmt::format("mixd {}", mixd::version));
    auto *host_flag = program.add_flag("--host", host, "describe this host (the default)");
    auto *scenario = program
                         .add_option("--scenario", chosen.scenario_file,
                                     "describe the appliance of a TOML file instead of this host")
                         ->type_name("FILE")
                         ->excludes(host_flag);
    program
        .add_option("--run-dir", chosen.run_dir,
                    "directory of the sockets (default: $MIX_RUN_DIR, $XDG_RUNTIME_DIR/mix or /run/mix)")
        ->type_name("DIR");
    program
        .add_option("--store", chosen.store_file,
                    "the store (default: mixd.db in $MIX_STATE_DIR, else in the run directory if one was "
                    "chosen, else in /var/lib/mix or the user's state directory)")
        ->type_name("FILE");
    program
        .add_option("--applications", chosen.applications_file,
                    "the predefined applications of the catalogue (default: the file that comes with mixd)")
        ->type_name("FILE");
    auto *no_catalogue = program.add_flag(
        "--no-catalogue", without_catalogue,
        "leave the application catalogue in /dev/shm alone: it is kept by one mixd of a machine");
    program
        .add_flag("--share-catalogue", chosen.share_catalogue,
                  "keep the application catalogue unless another mixd of this machine does so already")
        ->excludes(no_catalogue);
    program.add_flag("--apply", chosen.apply, "write what is committed to this host's kernel, too")
        ->excludes(scenario);
    program
        .add_option(
            "--leases", chosen.lease_file,
            "lease file of the DHCP server on this host, as dnsmasq writes it (default: dnsmasq's own)")
        ->type_name("FILE")
        ->excludes(scenario);
    try {
        program.parse(argc, argv);
    } catch (const CLI::Success &asked) { /* --help, --version */
        return program.exit(asked);
    } catch (const CLI::ParseError &wrong) {
        mixd::log(mixd::priority::error, fmt::format("{}; \"mixd --help\" tells the options", wrong.what()));
        return wrong_options;
    }

    chosen.keep_catalogue = !without_catalogue;
    const bool by_hand = !chosen.run_dir.empty() || !mix::wire::environment("MIX_RUN_DIR").empty();
    if (chosen.run_dir.empty())
        chosen.run_dir = mix::wire::run_directory();
    if (chosen.store_file.empty())
        chosen.store_file = mixd::default_store(chosen.run_dir, by_hand);
    chosen.host = chosen.scenario_file.empty();
    return mixd::core(std::move(chosen)).run();
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception &failure) {
        mixd::log(mixd::priority::error, failure.what());
        return EXIT_FAILURE;
    }
}

#include "appliance/mixd/lock_keeper.h"

#include <csignal>
#include <fstream>
#include <string>

namespace mixd
{

namespace
{

constexpr int look_every_ms = 100;
/* How long a lock must stay as it is before it is taken from a writer that is gone... */
constexpr std::chrono::milliseconds sure_of_owner{200};
/* ...and from one that never gave its number, or had taken it back. */
constexpr std::chrono::milliseconds sure_of_nobody{1000};
constexpr int look_again_every_ms = 10;

/* A thread that is no more, or a process of which only the exit status is left. */
bool is_gone(pid_t thread)
{
    std::ifstream from(fmt::format("/proc/{}/stat", thread));
    std::string line;
    if (!std::getline(from, line))
        return true;
    const size_t name_end = line.rfind(')');
    const char state = name_end + 2 < line.size() ? line[name_end + 2] : 'X';
    return state == 'Z' || state == 'X' || state == 'x';
}

} // namespace

lock_keeper::lock_keeper(const catalogue &of) : catalogue_(of)
{
    if (!lock_layout_is_known()) {
        log(priority::warning,
            "this C library's locks are laid out in a way that is not known here: a writer "
            "that dies inside the application catalogue will block all others");
        return;
    }
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    thread_ = std::thread([this] { run(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

lock_keeper::~lock_keeper()
{
    {
        const std::lock_guard here(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable())
        thread_.join();
}

/* False: it is time to stop. */
bool lock_keeper::sleep(int milliseconds)
{
    std::unique_lock here(mutex_);
    return !wake_.wait_for(here, std::chrono::milliseconds(milliseconds), [this] { return stopping_; });
}

void lock_keeper::run()
{
    while (sleep(look_every_ms))
        look();
}

void lock_keeper::look()
{
    const lock_state now = look_at(catalogue_.lock());
    wake_writers(catalogue_.lock());
    if (!is_stuck(now))
        return;
    if (stays(now, now.writer != 0 ? sure_of_owner : sure_of_nobody) && is_stuck(now))
        free(now);
}

/* A writer that waits for readers is not stuck, and libmix's own programs never read-lock. */
bool lock_keeper::is_stuck(const lock_state &state) const
{
    if (!state.written || state.read)
        return false;
    return state.writer == 0 || is_gone(state.writer) || !catalogue_.is_mapped_by(state.writer);
}

/*
 * By the clock, so that a busy machine, where each sleep takes longer, frees a lock as soon as another does;
 * and by the number of looks, so that a machine which stood still itself does not take that time for proof.
 */
bool lock_keeper::stays(const lock_state &state, std::chrono::milliseconds long_enough)
{
    const auto end = std::chrono::steady_clock::now() + long_enough;
    for (auto looks = long_enough.count() / look_again_every_ms / 4;
         looks > 0 || std::chrono::steady_clock::now() < end; --looks)
        if (!sleep(look_again_every_ms) || look_at(catalogue_.lock()) != state)
            return false;
    return true;
}

void lock_keeper::free(const lock_state &of)
{
    pthread_rwlock_t &lock = catalogue_.lock();
    if (!take_over(lock, of.writer))
        return;
    recount(catalogue_.segment());
    const uint32_t counted = catalogue_.segment().cur_app_num;
    release_for_all(lock);
    /* Said when others go on already: nobody waits for whoever reads the log. */
    const std::string who = of.writer != 0 ? fmt::format("thread {}", of.writer) : "a thread";
    log(priority::warning, fmt::format("{} died while it wrote the application catalogue; its lock is free "
                                       "again, {} applications counted",
                                       who, counted));
}

} // namespace mixd

/* Processes beside the test, memory that they share with it, and bounded waits for what they do. */
#ifndef MIX_TESTS_CHILDREN_H
#define MIX_TESTS_CHILDREN_H

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace mixtest
{

inline double seconds()
{
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

/* Waits until a condition holds; false: it did not in time. */
inline bool within(double limit, const std::function<bool()> &condition)
{
    for (const double end = seconds() + limit; !condition(); usleep(1000))
        if (seconds() > end)
            return false;
    return true;
}

/* Runs in a process of its own, which ends with status 0 when the function says true. */
inline pid_t beside(const std::function<bool()> &run)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(run() ? 0 : 1);
    return child;
}

/* Whether a process ends in time, and with status 0. One that does not is killed. */
inline bool ends_well(pid_t child, double limit)
{
    int status = -1;
    if (!within(limit, [&] { return waitpid(child, &status, WNOHANG) == child; })) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        return false;
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

inline int end(pid_t child, int signal_number = SIGKILL)
{
    int status = 0;
    kill(child, signal_number);
    waitpid(child, &status, 0);
    return status;
}

/* How often a test kills, from which seed. */
inline unsigned from_environment(const char *name, unsigned otherwise)
{
    const char *text = std::getenv(name);
    return text != nullptr ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : otherwise;
}

/* Memory that children share with the test. */
template <class T>
class shared
{
  public:
    shared()
        : at_(static_cast<T *>(
              mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
    {
    }
    ~shared() { munmap(at_, sizeof(T)); }
    shared(const shared &) = delete;
    shared &operator=(const shared &) = delete;
    T *operator->() const { return at_; }
    T &operator*() const { return *at_; }

  private:
    T *at_;
};

} // namespace mixtest

#endif

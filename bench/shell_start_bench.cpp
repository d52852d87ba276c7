/* How long the shell takes to start, do nothing and end, beside the smallest program that there is. */
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ratio.h"

namespace
{

void run_program(benchmark::State &state, std::vector<const char *> words)
{
    words.push_back(nullptr);
    for (auto _ : state) {
        pid_t started;
        int status = 1;
        if (posix_spawn(&started, words[0], nullptr, nullptr, const_cast<char **>(words.data()), environ) !=
                0 ||
            waitpid(started, &status, 0) != started || status != 0)
            state.SkipWithError("the program failed");
    }
}

void shell_without_a_command(benchmark::State &state)
{
    run_program(state, {MIXSH_PROGRAM, "-c", "# nothing"});
}
BENCHMARK(shell_without_a_command)->UseRealTime()->Unit(benchmark::kMillisecond);

void true_program(benchmark::State &state)
{
    run_program(state, {"/bin/true"});
}
BENCHMARK(true_program)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    return mixbench::run(argc, argv, {{"shell_without_a_command/real_time", "true_program/real_time", 0}},
                         {{"shell_without_a_command/real_time", 20e6}});
}

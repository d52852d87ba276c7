/*
 * Some paths are fixed: files under /etc, /sys, /tmp and /flash, programs under /bin. A test that touches one
 * runs in a child process with a root directory of its own, which looks like the machine's but can be
 * changed.
 */
#ifndef MIX_TESTS_OWN_ROOT_H
#define MIX_TESTS_OWN_ROOT_H

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/end_process.h"
#include "support/private_mounts.h"
#include "support/scripted_platform.h"
#include "support/temporary_directory.h"

namespace mixtest
{

namespace fs = std::filesystem;

class own_root
{
  public:
    /* A file with that text; directories above it are made. */
    static void write(const fs::path &path, const std::string &text)
    {
        fs::create_directories(path.parent_path());
        std::ofstream(path) << text;
    }
    static std::string read(const fs::path &path)
    {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    /* An empty directory in the place of another. */
    static void empty(const fs::path &path)
    {
        fs::create_directories(path);
        ASSERT_EQ(mount("tmpfs", path.c_str(), "tmpfs", MS_NOSUID, "mode=755"), 0) << path;
    }

    /* The entries of a directory can be replaced: each becomes a link to the machine's. */
    static void make_replaceable(const fs::path &path)
    {
        const fs::path real = fs::canonical(path);
        const fs::path originals = fs::path("/.originals") / real.relative_path();
        fs::create_directories(originals);
        ASSERT_EQ(mount(real.c_str(), originals.c_str(), nullptr, MS_BIND | MS_REC, nullptr), 0);
        empty(real);
        for (const auto &entry : fs::directory_iterator(originals))
            fs::create_symlink(entry.path(), real / entry.path().filename());
    }

    /* Puts a script in the place of a program of /bin, which is then the original's path. */
    static void replace_program(const std::string &name, const std::string &script)
    {
        const fs::path real = fs::canonical("/bin");
        if (!fs::exists("/.originals" / real.relative_path()))
            make_replaceable("/bin");
        const fs::path program = real / name;
        fs::remove(program);
        write(program, "#!/.originals" + (real / "sh").string() + "\n" + script);
        fs::permissions(program, fs::perms{0755});
    }
};

/* In the child. False where the machine does not allow it. */
inline bool move_into_own_root(const fs::path &place)
{
    if (!private_mounts() || mount("tmpfs", place.c_str(), "tmpfs", MS_NOSUID, "mode=755") != 0)
        return false;
    for (const auto &entry : fs::directory_iterator("/")) {
        const fs::path inside = place / entry.path().filename();
        if (entry.is_symlink()) {
            fs::copy_symlink(entry.path(), inside);
        } else if (entry.path() == "/tmp" || entry.path() == "/flash") {
            fs::create_directory(inside);
        } else if (entry.is_directory()) {
            fs::create_directory(inside);
            if (mount(entry.path().c_str(), inside.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
                return false;
        }
    }
    return chroot(place.c_str()) == 0 && chdir("/") == 0;
}

/* Runs the body there; a failed expectation in it fails this test. Skipped where that is not allowed. */
inline void in_own_root(const std::function<void()> &body)
{
    constexpr int not_allowed = 77;
    const temporary_directory place;
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        const int outside = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (!move_into_own_root(place.path()))
            _exit(not_allowed);
        body();
        EXPECT_EQ(platform().outstanding(), 0u) << "buffers left allocated";
        EXPECT_EQ(platform().bad_frees, 0u);
        std::fflush(nullptr);
        /* Counts of coverage belong where the program was built. */
        const bool back = fchdir(outside) == 0 && chroot(".") == 0;
        end_process(testing::Test::HasFailure() || !back ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == not_allowed)
        GTEST_SKIP() << "no root directory of its own may be made here";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the child says why";
}

} // namespace mixtest

#endif

#ifndef MIX_TESTS_TEMPORARY_DIRECTORY_H
#define MIX_TESTS_TEMPORARY_DIRECTORY_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace mixtest
{

/* A directory below $TMPDIR that goes away with all that is in it. */
class temporary_directory
{
  public:
    temporary_directory()
    {
        const char *base = std::getenv("TMPDIR");
        path_ = std::string(base && *base ? base : "/tmp") + "/mixXXXXXX";
        if (!mkdtemp(path_.data()))
            std::abort();
    }
    ~temporary_directory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    temporary_directory(const temporary_directory &) = delete;
    temporary_directory &operator=(const temporary_directory &) = delete;
    [[nodiscard]] const std::string &path() const { return path_; }
    /* Writes a file there; its path. */
    [[nodiscard]] std::string file(const std::string &name, const std::string &content) const
    {
        const std::string path = path_ + "/" + name;
        std::ofstream(path) << content;
        return path;
    }

  private:
    std::string path_;
};

} // namespace mixtest

#endif

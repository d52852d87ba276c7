/* Text whose terminator is the last byte of a page that an inaccessible page follows: reading on is fatal. */
#ifndef MIX_TESTS_GUARDED_TEXT_H
#define MIX_TESTS_GUARDED_TEXT_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string_view>

namespace mixtest
{

class guarded_text
{
  public:
    guarded_text()
        : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))),
          pages_(static_cast<char *>(
              mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)))
    {
        if (pages_ == MAP_FAILED || mprotect(pages_ + page_, page_, PROT_NONE) != 0)
            std::abort();
    }
    guarded_text(const guarded_text &) = delete;
    guarded_text &operator=(const guarded_text &) = delete;
    ~guarded_text() { munmap(pages_, 2 * page_); }

    /* The bytes at the end of the page, terminated; valid until the next call. Shorter than a page. */
    const char *put(std::string_view text)
    {
        char *at = pages_ + page_ - text.size() - 1;
        std::memcpy(at, text.data(), text.size());
        at[text.size()] = '\0';
        return at;
    }

    /* Room for `size` bytes that end with the page. */
    char *room(size_t size) { return pages_ + page_ - size; }

  private:
    size_t page_;
    char *pages_;
};

} // namespace mixtest

#endif

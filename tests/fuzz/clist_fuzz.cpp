/*
 * The compatibility lists of an image, on any text and version: held against the model of the unit tests.
 * Input: the version, a zero byte, the text. Both stand in memory of their own size, so that reading on is
 * found.
 */
#include <libmix/issu.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "unit/sys/clist_model.h"

namespace
{

constexpr uint8_t untouched = 0x5A;

void must(bool agreed, const char *what)
{
    if (agreed)
        return;
    std::fprintf(stderr, "%s disagrees\n", what);
    std::abort();
}

std::unique_ptr<char[]> own_copy(const std::string &text)
{
    auto out = std::make_unique<char[]>(text.size() + 1);
    std::memcpy(out.get(), text.c_str(), text.size() + 1);
    return out;
}

/* Walks the entries; each step must lead forward and stay within its buffer. */
void walk(const char *text)
{
    uint8_t out[9];
    for (const char *at = text; at != nullptr;) {
        std::memset(out, untouched, sizeof out);
        const char *next = issu_get_clist_one(at, reinterpret_cast<char *>(out), 8);
        must(next == nullptr || next > at, "the position after an entry");
        must(next == nullptr || std::memchr(out, 0, 8) != nullptr, "the entry's end");
        must(out[8] == untouched && (next != nullptr || out[0] == untouched), "the bytes beyond");
        at = next;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string all(reinterpret_cast<const char *>(data), size);
    const std::string version_text(all.c_str());
    const std::string list_text(version_text.size() < size ? all.c_str() + version_text.size() + 1 : "");
    const auto version = own_copy(version_text), text = own_copy(list_text);

    namespace model = mixtest::clist_model;
    must(issu_ver_up_ck(text.get(), version.get()) == model::check(list_text, version_text, "UP-LIST"),
         "issu_ver_up_ck");
    must(issu_ver_down_ck(text.get(), version.get()) == model::check(list_text, version_text, "DOWN-LIST"),
         "issu_ver_down_ck");
    const auto entries = model::entries(list_text, "UP-LIST");
    char first[256] = "";
    const bool found = issu_first_ver_get(text.get(), "UP-LIST", first, sizeof first) == 0;
    must(found == (entries && !entries->empty()), "issu_first_ver_get");
    must(!found || entries->front() == first, "the first entry");
    walk(text.get());
    return 0;
}

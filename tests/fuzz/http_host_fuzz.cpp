/* check_http_host on any bytes, held against the model of the unit tests. The bytes end with their page:
 * reading on is fatal. */
#include <libmix/http_host.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/guarded_text.h"
#include "unit/misc/host_model.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static mixtest::guarded_text pages;
    constexpr size_t longest = 2048;
    if (size > longest)
        return 0;
    char *text = pages.room(size);
    if (size != 0)
        std::memcpy(text, data, size);
    const int expected = size == 0 ? -1 : mixtest::model::check_http_host(std::string(text, size));
    if (check_http_host(text, static_cast<uint32_t>(size)) != expected) {
        std::fprintf(stderr, "expected %d\n", expected);
        std::abort();
    }
    return 0;
}

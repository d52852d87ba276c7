/* What a board is: the answer of every identity function and predicate. */
#ifndef MIX_APPLIANCE_PLATFORM_PROFILE_H
#define MIX_APPLIANCE_PLATFORM_PROFILE_H

#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace mixplatform
{

/* The functions by shape, in the order of board_functions.def. */
enum class number_function {
#define MIX_BOARD_NUMBER(name) name,
#include "platform/board_functions.def"
    count
};
enum class number_of_function {
#define MIX_BOARD_NUMBER_OF(name) name,
#include "platform/board_functions.def"
    count
};
enum class test_of_function {
#define MIX_BOARD_TEST_OF(name) name,
#include "platform/board_functions.def"
    count
};
enum class test_function {
#define MIX_BOARD_TEST(name) name,
#include "platform/board_functions.def"
    count
};

template <typename Function, typename Value>
using answers = std::array<Value, static_cast<size_t>(Function::count)>;

/* Answers by argument; an argument that is not listed gets `otherwise`. */
struct number_table {
    std::map<uint32_t, uint32_t> of = {};
    uint32_t otherwise = 0;
};

struct profile {
    std::string name;
    std::string image_path = "/";
    answers<number_function, uint32_t> numbers = {};
    answers<number_of_function, number_table> numbers_of = {};
    answers<test_of_function, std::vector<uint32_t>> true_for = {}; /* arguments that are answered with 1 */
    answers<test_function, bool> tests = {};
};

/* The profiles that come with the library, as TOML texts. The first is the default. */
struct builtin_profile {
    std::string_view name;
    std::string_view text;
};
extern const std::span<const builtin_profile> builtin_profiles;

/* The profile that MIX_BOARD names: a built-in one, or a file (a name with a slash or with the ending
 * ".toml"). Without MIX_BOARD the default. A wrong one is reported on standard error and the default is used.
 * Read once. */
const profile &board();

} // namespace mixplatform

#endif

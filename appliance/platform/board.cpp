#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "appliance/platform/profile.h"
#include "appliance/platform/settings.h"
#include "platform/board.h"
#include "platform/services.h"

namespace mixplatform
{

namespace
{

std::optional<profile> read_builtin(std::string_view name, std::string &why)
{
    for (const builtin_profile &each : builtin_profiles)
        if (each.name == name)
            return read_profile_text(each.text, each.name, why);
    why = "there is no built-in board profile \"" + std::string(name) + '"';
    return std::nullopt;
}

profile read_board()
{
    std::string why;
    const char *chosen = std::getenv("MIX_BOARD");
    if (chosen != nullptr && *chosen != '\0') {
        const std::string name = chosen;
        const bool is_file = name.find('/') != std::string::npos || name.ends_with(".toml");
        auto read = is_file ? read_profile_file(name, why) : read_builtin(name, why);
        if (read)
            return std::move(*read);
        std::fprintf(stderr, "mixplatform: MIX_BOARD: %s; the built-in profile \"%s\" is used\n", why.c_str(),
                     std::string(builtin_profiles[0].name).c_str());
    }
    auto usual = read_builtin(builtin_profiles[0].name, why);
    return usual ? std::move(*usual) : profile{};
}

uint32_t look_up(const number_table &table, uint32_t argument)
{
    const auto found = table.of.find(argument);
    return found == table.of.end() ? table.otherwise : found->second;
}

int contains(const std::vector<uint32_t> &list, uint32_t argument)
{
    return std::find(list.begin(), list.end(), argument) != list.end() ? 1 : 0;
}

} // namespace

const profile &board()
{
    static const profile read = read_board();
    return read;
}

} // namespace mixplatform

using namespace mixplatform;

#define MIX_BOARD_NUMBER(name)                                                                               \
    uint32_t name(void)                                                                                      \
    {                                                                                                        \
        return board().numbers[static_cast<size_t>(number_function::name)];                                  \
    }
#define MIX_BOARD_NUMBER_OF(name)                                                                            \
    uint32_t name(uint32_t argument)                                                                         \
    {                                                                                                        \
        return look_up(board().numbers_of[static_cast<size_t>(number_of_function::name)], argument);         \
    }
#define MIX_BOARD_TEST_OF(name)                                                                              \
    int name(uint32_t argument)                                                                              \
    {                                                                                                        \
        return contains(board().true_for[static_cast<size_t>(test_of_function::name)], argument);            \
    }
#define MIX_BOARD_TEST(name)                                                                                 \
    int name(void)                                                                                           \
    {                                                                                                        \
        return board().tests[static_cast<size_t>(test_function::name)] ? 1 : 0;                              \
    }
#include "platform/board_functions.def"

const char *tq_get_image_path(void)
{
    return board().image_path.c_str();
}

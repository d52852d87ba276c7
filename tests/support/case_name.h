/* Names instances of parameterised tests after their cases. */
#ifndef MIX_TESTS_CASE_NAME_H
#define MIX_TESTS_CASE_NAME_H

#include <string>

namespace mixtest
{

inline constexpr auto case_name = [](const auto &info) { return std::string(info.param.name); };

} // namespace mixtest

#endif

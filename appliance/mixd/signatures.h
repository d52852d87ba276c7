/* The signature file: the predefined applications of the catalogue, as CSV. */
#ifndef MIXD_SIGNATURES_H
#define MIXD_SIGNATURES_H

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace mixd
{

struct signature {
    uint16_t type = 0;
    std::string name, name_cn;
    std::string category, category_cn, subcategory, subcategory_cn, technology;
    uint32_t risk = 0, flags = 0, property = 0;
};

struct signature_list {
    std::vector<signature> rows;
    std::vector<std::string> complaints; /* "FILE:LINE: reason", one for each line that was skipped */
};

/*
 * One application a line, after a line that names the columns in any order; type and name must be among them.
 * Lines that begin with # and empty lines are passed over. A field may stand in double quotes, a quote inside
 * of them is doubled. A line that is wrong is skipped and complained of. Throws std::runtime_error when there
 * is nothing to go by: no file, or a first line that does not name columns.
 */
signature_list read_signatures(const std::string &file);
signature_list read_signatures(std::istream &from, const std::string &name);

} // namespace mixd

#endif

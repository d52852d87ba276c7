/* Listings of the control daemon that are answered from the store. */
#ifndef MIXD_CONTROL_PAGES_H
#define MIXD_CONTROL_PAGES_H

#include "appliance/mixd/service.h"
#include "appliance/mixd/store.h"
#include "appliance/wire/control.h"

namespace mixd
{

/* A page of what a query selects, in the order of its first column, a number that the query's only parameter
 * is the least of. The cursor is the number that the next page begins at. */
template <class Row, class Convert>
int32_t page_by_number(statement rows, const request &asked, reply &out, Convert convert)
{
    mix::wire::control_page head{};
    out.append(head);
    rows.bind(asked.record<mix::wire::control_list>().cursor);
    while (rows.step()) {
        if (out.bytes.size() + sizeof(Row) > mix::wire::control_page_size) {
            out.put(0, head);
            return 0;
        }
        const Row row = convert(rows);
        out.append(row);
        head.count++;
        head.cursor = static_cast<uint32_t>(rows.integer(0)) + 1;
    }
    head.cursor = 0;
    out.put(0, head);
    return 0;
}

} // namespace mixd

#endif

/* The two management exchanges: one record, or a set of attributes. */
#ifndef MIX_FRAME_MANAGEMENT_H
#define MIX_FRAME_MANAGEMENT_H

#include <libmix/mix_base.h>

#include <initializer_list>
#include <optional>

#include "platform/mgi.h"

namespace mix::frame
{

enum mgi_request_type : uint32_t {
    mgi_set = 2,
    mgi_add = 4,
    mgi_delete = 5,
    mgi_first_attempt = 7,
    mgi_read = 8,
    mgi_unset_all = 9
};

/*
 * Sends `count` u32 fields as object's change record; field 0 is always 0. A field whose value is not 0 is
 * marked in the mask. Silent and without an exchange when the record can't be had.
 */
void exchange_record(uint32_t object, mgi_response_hook hook, const uint32_t *fields, uint32_t count,
                     print_callback print);

using commit_hook = int (*)(mgi_message *, void *, void *);

/* The address of the variable that carries an attribute's value; NULL leaves the attribute absent. */
struct attribute {
    uint8_t number;
    const void *value;
};

/* For text: the variable that holds its address. Absent when the text is NULL. */
inline attribute text_attribute(uint8_t number, const char *const *text)
{
    return {number, *text != nullptr ? text : nullptr};
}

/* What is done with the text of a refusal. */
enum class refusal_text : uint8_t {
    unused,
    printed,
    printed_and_copied,     /* each where the caller gave a place for it */
    copied_only_if_printed, /* the error buffer is tied to the print callback */
    copied_even_if_absent,  /* the buffer gets whatever "%s" makes of a text that is not there */
    to_standard_output      /* after the change's prefix */
};

struct change {
    commit_hook object;
    uint32_t type;
    std::optional<uint8_t> language = {};
    std::optional<uint16_t> vsysid = {};
    std::optional<uint8_t> request_flag = {};
    std::initializer_list<attribute> attributes = {};
    refusal_text told = refusal_text::printed;
    const char *prefix = nullptr;          /* a format with one %s, for to_standard_output */
    const char *parameter_error = nullptr; /* not NULL: an argument is missing, nothing is committed */
};

/* Where refusals are told. A NULL buffer, or one without length, is left alone. */
struct refusal_place {
    print_callback print = nullptr;
    char *buffer = nullptr;
    int32_t length = 0;
};

/* 0, the commit's result, or -1 for a parameter error. response: receives the response's type. */
int commit(const change &what, const refusal_place &place, int *response = nullptr);

} // namespace mix::frame

#endif

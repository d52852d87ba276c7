/* libmix: behaviour objects and profiles, and the mail services that behaviour rules tell apart. */
#ifndef LIBMIX_BHV_H
#define LIBMIX_BHV_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

#define BHV_MAIL_TYPES 19

struct bhv_mail_type {
    int32_t type;
    char name[32];
};

/* The mail services, by type, and a last row of zeros. */
MIX_API extern const struct bhv_mail_type bhv_mail_type_table[BHV_MAIL_TYPES + 1];

/* The name of a mail service, 0 to 18; "" above. */
MIX_API const char *bhv_mail_type2name(uint32_t type) MIX_NOEXCEPT;

/* record: a behaviour record's bytes, valid during the call only and not aligned; arg: the caller's. The
 * result is ignored. */
typedef int (*bhv_callback)(const void *record, void *arg);

/*
 * Asks the main local daemon for behaviour objects, page by page, at most 500 ms each. The next page is asked
 * for while the cursor is not 0 and the page held exactly 6 records, with a name too.
 *
 * name: one object's name, at most 31 characters (more are cut); empty or NULL: all. class_, subclass: as the
 * daemon defines them. cb: called with each record of 616 bytes; NULL: records are only counted. Returns the
 * number of records delivered (its low 16 bits), also after a failure, which is printed: "No enough memory\n"
 * (no request buffer; a missing reply buffer is silent), "ipcmsg send failed\n", "Failed to get bhv obj, ret
 * is %d\n" (the daemon's negative status), "Received buf len is wrong, len is %d\n" (0 or more than 4096),
 * "Received buf len is wrong, len is %d,correct:%d\n" (not what the page's records need).
 */
MIX_API uint16_t get_bhv_obj(const char *name, uint8_t class_, uint8_t subclass, bhv_callback cb, void *arg,
                             print_callback print) MIX_NOEXCEPT;

/*
 * The same for behaviour profiles, records of 7640 bytes. The cursor alone decides on the next page; with a
 * name one request only is made.
 * Texts: as above, "Failed to get bhv profile, ret is %d\n" for a negative status, and "Received buf len is
 * wrong, len is %d\n" for every wrong length.
 */
MIX_API uint16_t get_bhv_profile(const char *name, bhv_callback cb, void *arg,
                                 print_callback print) MIX_NOEXCEPT;

MIX_END_DECLS

#endif

/*
 * libmix: the application catalogue, one shared-memory segment of 16383 entries that every process of the
 * appliance reads and writes in place.
 *
 * A process attaches once, by tq_app_table_init or tq_app_table_create; until then every lookup answers "" or
 * 0. Lookups take no lock and may see an entry while another process changes it: a text is then a mixture of
 * its old and its new bytes, but always terminated inside its field. Writers take the write side of the lock
 * inside the segment, so they are serialised across threads and processes; a writer must not call another one
 * from a signal handler. Types 0 to 15870 are predefined applications, 15871 to 16382 user-defined ones.
 */
#ifndef LIBMIX_APP_TABLE_H
#define LIBMIX_APP_TABLE_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

/* The kind of a user-defined application, and the pseudo-type that the name lookups know by this number. */
#define APP_KIND_USER_DEFINED 65535

/* One entry of the segment: 664 bytes, in the machine's byte order. Texts are UTF-8, zero-terminated. */
struct app_entry {
    uint8_t reserved; /* 0 */
    uint8_t in_use;   /* 1: the entry is valid */
    uint16_t type;    /* as its writer gave it; a user-defined entry is known by its index, not by this */
    uint32_t property;
    uint32_t risk;
    uint32_t flags;       /* bit 0: shadow IT */
    uint32_t name_key;    /* first four bytes of the name in upper case, the first lowest */
    uint32_t name_cn_key; /* the same of name_cn, as it was when the entry was added */
    char name[96];
    char name_cn[96];
    char technology[64];
    char category[96];
    char category_cn[96];
    char subcategory[96];
    char subcategory_cn[96];
};

/* One application that libmix itself puts into the catalogue. */
struct app_table_row {
    int32_t type;
    char name[96];
    char name_cn[96];
};

/* The predefined rows, in the order in which they are added. */
MIX_API extern const struct app_table_row tq_app_table[24];

/*
 * The attached segment, NULL before. Set once per process, with the three pointers into the segment below, by
 * tq_app_table_init; the process that builds a segment by other means may set all four itself instead.
 */
MIX_API extern struct app_entry *tq_app_ext_table;
MIX_API extern void *app_table_rwlock; /* a pthread_rwlock_t, process-shared */
MIX_API extern uint32_t *cur_app_num;  /* entries in use */
MIX_API extern uint32_t *cur_predef_app_num;

/* --- attaching, and the catalogue as a whole --- */

/*
 * Attaches this process: to "app_ext_table", or to "app_ext_table_<slot>" of the board's slot on a NUMA
 * platform. The first process of all creates the segment and initialises its lock; it fills nothing in.
 * Attached already: returns at once. Returns 1 always; when the segment can't be had, the process stays
 * unattached.
 */
MIX_API int tq_app_table_init(void) MIX_NOEXCEPT;

/*
 * Attaches, clears every entry, and adds the predefined rows; both counters are then 24. Waits for the lock.
 * Returns 0; -1 when the segment can't be had.
 */
MIX_API int tq_app_table_create(void) MIX_NOEXCEPT;

/*
 * Drops every predefined entry, keeps the user-defined ones, adds the predefined rows and sets both counters
 * anew. A dropped slot keeps its texts and numbers for the entry that takes it next. Waits for the lock.
 * Returns 0; -1 when the process is not attached.
 */
MIX_API int tq_app_table_reset(void) MIX_NOEXCEPT;

/* --- changing entries; each waits for the lock and nothing else --- */

/*
 * Adds an application.
 *
 * name, name_cn: copied, at most 95 bytes of each; not NULL.
 * kind: APP_KIND_USER_DEFINED takes the highest free slot of 16382 down to 15871 and stores type as it is;
 *   anything else adds the predefined application type.
 * Returns the entry's index; 0 when the catalogue or the user-defined range is full, when type is above 15870
 * or taken already, or when the process is not attached. (Type 0 added gives 0 as well.) The slot's other
 * fields stay as they are.
 */
MIX_API int app_ext_table_add(const char *name, const char *name_cn, int kind, uint16_t type) MIX_NOEXCEPT;

/*
 * Fills in an entry that is in use. Each text that is neither NULL nor empty is copied (technology 63 bytes,
 * the others 95); property, risk and flags are always stored. Returns 0; -1 when the entry is not in use, is
 * beyond the table, or the process is not attached: nothing is touched then.
 */
MIX_API int app_ext_table_add_element(uint16_t index, uint32_t property, uint32_t risk, uint32_t flags,
                                      const char *subcategory, const char *subcategory_cn,
                                      const char *category, const char *category_cn,
                                      const char *technology) MIX_NOEXCEPT;

/*
 * Deletes an entry. The count of predefined entries goes down whenever kind is not APP_KIND_USER_DEFINED,
 * also when there was nothing to delete: the caller answers for kind. Returns the result of unlocking, 0 or
 * an errno value; -1 when the process is not attached.
 */
MIX_API int app_ext_table_del(uint16_t index, int kind) MIX_NOEXCEPT;

/*
 * Change a user-defined entry: its four category texts (95 bytes each, empty ones too), its technology (63
 * bytes), its property and risk. Without effect unless every text is given, type is 15871 to 16382 and the
 * entry is in use.
 */
MIX_API void tq_app_modify_category(int type, const char *category, const char *category_cn,
                                    const char *subcategory, const char *subcategory_cn) MIX_NOEXCEPT;
MIX_API void tq_app_modify_technology(int type, const char *technology) MIX_NOEXCEPT;
MIX_API void tq_app_modify_app_property_and_risk(int type, uint32_t property, uint32_t risk) MIX_NOEXCEPT;

/*
 * Changes the Chinese name (95 bytes) of an entry other than 0. The key that the lookup by Chinese name goes
 * by stays as it is, so the new name is not found by tq_app_name2type_cn unless its first four bytes are
 * those of the name that the entry was added with. Returns 0; -1 when name_cn is NULL or empty or index is 0;
 * -2 when the entry is not in use, is beyond the table, or the process is not attached.
 */
MIX_API int tq_app_edit_cn_name(uint16_t index, const char *name_cn) MIX_NOEXCEPT;

/* --- from a type to its attributes --- */

/*
 * Texts point into the segment or to constant text: never to be freed, and changing under the caller's eyes
 * when a writer changes the entry. "" when the entry is not in use, the type is out of range or the process
 * is not attached; never NULL.
 */

/* Types 0 to 16382; APP_KIND_USER_DEFINED gives "user-defined" and its Chinese translation. */
MIX_API const char *tq_app_type2name(uint32_t type) MIX_NOEXCEPT;
MIX_API const char *tq_app_type2name_cn(uint32_t type) MIX_NOEXCEPT;

/*
 * Types 1 to 16382: entry 0 has a name and no attributes. A user-defined entry without a category or
 * subcategory gives "APP_USERDEFINED_CATEGORY" or "APP_USERDEFINED_SUBCATEGORY", in Chinese the translation
 * of "user-defined".
 */
MIX_API const char *tq_app_type2category(uint32_t type) MIX_NOEXCEPT;
MIX_API const char *tq_app_type2category_cn(uint32_t type) MIX_NOEXCEPT;
MIX_API const char *tq_app_type2subcategory(uint32_t type) MIX_NOEXCEPT;
MIX_API const char *tq_app_type2subcategory_cn(uint32_t type) MIX_NOEXCEPT;
MIX_API const char *tq_app_type2technology(int type) MIX_NOEXCEPT;

/* Types 1 to 16382; 0 for all others and for entries that are not in use. shadow_it is 1 or 0. */
MIX_API uint32_t tq_apptype2risk(int type) MIX_NOEXCEPT;
MIX_API int tq_apptype2shadow_it(int type) MIX_NOEXCEPT;
MIX_API uint32_t tq_apptype2property(int type) MIX_NOEXCEPT;

/* --- from a name to its type --- */

/*
 * The index of the first entry of that name, letter case ignored; 0 when there is none, which is the type of
 * the application "Other" as well. A star that ends the name (or is its 96th byte, then the rest does not
 * count) is dropped; it does not make the name a pattern. The first two search from 0 upwards and accept NULL
 * (0), the third searches 16382 down to 15871 and its name must not be NULL.
 */
MIX_API uint32_t tq_app_name2type(const char *name) MIX_NOEXCEPT;
MIX_API uint16_t tq_app_name2type_cn(const char *name_cn) MIX_NOEXCEPT;
MIX_API uint32_t tq_app_userdefined_name2type(const char *name) MIX_NOEXCEPT;

/* --- entries --- */

/* The number of rows in tq_app_table: 24. */
MIX_API int tq_get_app_table_member_num(void) MIX_NOEXCEPT;

/*
 * The entry at an index up to 16382, when the process is attached and the entry is in use; NULL otherwise. It
 * lies in the segment. A negative index is the caller's mistake, it is not caught.
 */
MIX_API const struct app_entry *tq_get_one_app_table_member(int index) MIX_NOEXCEPT;

/*
 * For hash tables of entries (struct app_entry, not NULL) that are looked up by name: 1 when the entry is in
 * use and has that name, letter case ignored; else 0.
 */
MIX_API int app_hashtbl_cmp(const void *entry, const char *name) MIX_NOEXCEPT;

/* --- export --- */

/* Size in bytes of one export record. */
#define APP_EXPORT_RECORD_SIZE 686

/*
 * Writes the entries in use, from *cursor on, as export records: as many as fit. All integers of a record are
 * in network byte order; buf is zeroed first, whatever it then takes.
 *
 * buf, buf_len: the page and its size in bytes; a negative size counts as 0.
 * cursor: index of the next entry to look at, 0 at first; 16383 or more: there are no more.
 * out_len: is increased by 686 for each record; the caller sets it to 0 before a page.
 * Returns 0; -1 after writing to standard output "%s: tq_app_ext_table is NULL.\n" (not attached) or
 * "%s: parameter is NULL.\n", with this function's name: nothing is touched then.
 */
MIX_API int tq_get_all_app_to_x86(void *buf, int buf_len, uint32_t *cursor, int *out_len) MIX_NOEXCEPT;

MIX_END_DECLS

#endif

/* What libmix imports: the management gateway, the one way to change configuration. */
#ifndef MIX_PLATFORM_MGI_H
#define MIX_PLATFORM_MGI_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The type of a response that says the object is already there. */
#define MGI_RESP_EXISTS 15

/*
 * A request message, on the caller's stack. Cookie and attributes point at the caller's variables, which stay
 * valid until the commit or read returns. libmix writes request_flag and attr itself, the rest by the
 * setters.
 */
struct mgi_message {
    uint32_t rqt_type;    /* 2 set, 4 add, 5 delete, 7 add unless there, 8 read, 9 unset the whole item */
    uint8_t language;     /* of a refusal's text */
    uint8_t request_flag; /* passed on */
    uint16_t vsysid;      /* virtual system */
    const void *cookie;   /* of a read: what to select */
    uint32_t cookie_length;
    const void *attr[16]; /* per attribute its value, of a text the variable with its address; NULL: absent */
    int32_t resp_type;    /* for get_mgi_resp_type */
};

/* Zeroes the message. */
void mgi_init_rqt_message(struct mgi_message *message);
/* Each fills in the field of its name. */
void mgi_set_rqt_type(struct mgi_message *message, uint32_t type);
void mgi_set_rqt_language(struct mgi_message *message, uint8_t language);
void mgi_set_rqt_vsysid(struct mgi_message *message, uint16_t vsysid);
void mgi_set_rqt_cookie(struct mgi_message *message, const void *cookie, uint32_t length);
/* The type of the last response to this message. */
int get_mgi_resp_type(const struct mgi_message *message);
/* The caller's current virtual system. */
uint16_t get_mgi_vsysid(void);
/* The text of a commit's result other than 0, or NULL. Valid until the calling thread's next request. */
const char *mgi_get_rsp_err_string(int result);

/* --- the record exchange: prepare it, make it, ask for its text; all of one thread --- */

/*
 * header: 40 bytes, the object's number (u32) and zeros. record: record_size bytes, u32 fields; bit i of mask
 * is set when field i carries a value, the others are not looked at. Both stay valid until the exchange is
 * made. The remaining numbers are 1, 2 and zeros. libmix ignores the result.
 */
int prepare_mgi_exchange(const void *header, int one, int two, uint32_t record_size, int, int, uint32_t mask,
                         int, const void *record);
/* Called with the response's record, of size bytes. */
typedef int (*mgi_response_hook)(const void *record, uint32_t size);
/* Sends the prepared record; record_size as it was prepared. libmix ignores the result. */
int make_mgi_exchange(mgi_response_hook hook, uint32_t record_size);
/* The text of the thread's last exchange when it was refused, else NULL. Callers pass 0. Valid as above. */
const char *get_errString(int unused);

/* --- commits and reads --- */

/* Commits, one for each object; 0, or a result that mgi_get_rsp_err_string has a text for. The last two
 * arguments are NULL. */
int final_set_arp_arpe(struct mgi_message *message, void *, void *);
int final_set_neighbor_neighbor(struct mgi_message *message, void *, void *);
int final_set_gas_gase(struct mgi_message *message, void *, void *);
int final_set_mac_mace(struct mgi_message *message, void *, void *);
int final_set_mac_mace_ml(struct mgi_message *message, void *, void *);
int final_set_md_macd(struct mgi_message *message, void *, void *);
int final_set_if_if_dhcpsn(struct mgi_message *message, void *, void *);

/*
 * One batch of a read. data: the cookie to go on with, the number of rows as u16 behind it, the rows; NULL
 * when there is none. length: bytes of all that. error: not 0 when the exchange failed. context: as given to
 * the read. A result other than 0 ends the read.
 */
typedef int (*mgi_batch_callback)(const void *data, uint32_t length, int error, void *context);
/* Reads an object's settings: calls back with each batch. libmix ignores the result. */
int final_get_if_if_dhcpsn(struct mgi_message *message, mgi_batch_callback callback, void *context);

#ifdef __cplusplus
}
#endif

#endif

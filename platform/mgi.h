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
 * A request message, on the caller's stack. attr[i] points at the caller's variable that carries attribute i
 * (for text, at the variable that holds the text's address); NULL: the attribute is absent. Values must stay
 * valid until the commit returns.
 */
struct mgi_message {
    uint32_t rqt_type;
    uint8_t language;
    uint8_t request_flag;
    uint16_t vsysid;
    const void *cookie;
    uint32_t cookie_length;
    const void *attr[16];
    int32_t resp_type;
};

void mgi_init_rqt_message(struct mgi_message *message);
void mgi_set_rqt_type(struct mgi_message *message, uint32_t type);
void mgi_set_rqt_language(struct mgi_message *message, uint8_t language);
void mgi_set_rqt_vsysid(struct mgi_message *message, uint16_t vsysid);
void mgi_set_rqt_cookie(struct mgi_message *message, const void *cookie, uint32_t length);
/* The type of the last response to this message. */
int get_mgi_resp_type(const struct mgi_message *message);
/* The caller's current virtual system. */
uint16_t get_mgi_vsysid(void);
/* The text of a commit's result, or NULL. */
const char *mgi_get_rsp_err_string(int result);

/* The record exchange. header: 40 bytes, the object's number in the first four. mask: bit i set when the
 * record's u32 field i carries a value. */
int prepare_mgi_exchange(const void *header, int one, int two, uint32_t record_size, int, int, uint32_t mask,
                         int, const void *record);
typedef int (*mgi_response_hook)(const void *record, uint32_t size);
int make_mgi_exchange(mgi_response_hook hook, uint32_t record_size);
/* The text of the last exchange, or NULL. Callers pass 0. */
const char *get_errString(int unused);

/* Commits, one for each object; 0, or a result that mgi_get_rsp_err_string has a text for. The last two
 * arguments are NULL. */
int final_set_arp_arpe(struct mgi_message *message, void *, void *);
int final_set_neighbor_neighbor(struct mgi_message *message, void *, void *);
int final_set_gas_gase(struct mgi_message *message, void *, void *);
int final_set_mac_mace(struct mgi_message *message, void *, void *);
int final_set_mac_mace_ml(struct mgi_message *message, void *, void *);
int final_set_md_macd(struct mgi_message *message, void *, void *);
int final_set_if_if_dhcpsn(struct mgi_message *message, void *, void *);

/* Reads an object's settings: the callback is called with each batch of rows. */
typedef int (*mgi_batch_callback)(const void *data, uint32_t length, int error, void *context);
int final_get_if_if_dhcpsn(struct mgi_message *message, mgi_batch_callback callback, void *context);

#ifdef __cplusplus
}
#endif

#endif

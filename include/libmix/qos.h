/* libmix: names of per-hop behaviours and of pipes. */
#ifndef LIBMIX_QOS_H
#define LIBMIX_QOS_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

#define QOS_DSCP_PHB_ROWS 21

struct qos_dscp_phb_row {
    const char *name;
    const char *description;
    int16_t value; /* DSCP, 0 to 63 */
};

/* The per-hop behaviours that have a name. */
MIX_API extern const struct qos_dscp_phb_row qos_dscp_phb[QOS_DSCP_PHB_ROWS];

/* The DSCP value of a name, whatever its case; -1 for a name that there is not. name is not NULL. */
MIX_API int32_t qos_phb_name2type(const char *name) MIX_NOEXCEPT;

/* The name of a DSCP value; NULL when it has none. */
MIX_API const char *qos_phb_type2name(int16_t value) MIX_NOEXCEPT;

/* Name and description of a row, 0 to QOS_DSCP_PHB_ROWS - 1; the number is not checked. */
MIX_API const char *get_dscp_phb_name(int row) MIX_NOEXCEPT;
MIX_API const char *get_dscp_phb_desc(int row) MIX_NOEXCEPT;

/*
 * The pipe's name inside a generated object name: what follows its fifth '-', or the empty text at its end
 * when there are fewer. The result points into object_name, nothing is copied.
 */
MIX_API const char *get_qos_pipe_name(const char *object_name) MIX_NOEXCEPT;

MIX_END_DECLS

#endif

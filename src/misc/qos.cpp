#include <libmix/qos.h>

#include <cstring>
#include <strings.h>

/* The class selectors all say "CS1", with the right precedence: the texts are what scripts match on. */
const qos_dscp_phb_row qos_dscp_phb[QOS_DSCP_PHB_ROWS] = {
    {"ef", "match packets with EF DSCP (101110)", 46},
    {"af11", "match packets with AF11 DSCP (001010)", 10},
    {"af12", "match packets with AF12 DSCP (001100)", 12},
    {"af13", "match packets with AF13 DSCP (001110)", 14},
    {"af21", "match packets with AF21 DSCP (010010)", 18},
    {"af22", "match packets with AF22 DSCP (010100)", 20},
    {"af23", "match packets with AF23 DSCP (010110)", 22},
    {"af31", "match packets with AF31 DSCP (011010)", 26},
    {"af32", "match packets with AF32 DSCP (011100)", 28},
    {"af33", "match packets with AF33 DSCP (011110)", 30},
    {"af41", "match packets with AF41 DSCP (100010)", 34},
    {"af42", "match packets with AF42 DSCP (100100)", 36},
    {"af43", "match packets with AF43 DSCP (100110)", 38},
    {"default", "match packets with default DSCP (000000)", 0},
    {"cs1", "match packets with CS1 (precedence 1) DSCP (001000)", 8},
    {"cs2", "match packets with CS1 (precedence 2) DSCP (010000)", 16},
    {"cs3", "match packets with CS1 (precedence 3) DSCP (011000)", 24},
    {"cs4", "match packets with CS1 (precedence 4) DSCP (100000)", 32},
    {"cs5", "match packets with CS1 (precedence 5) DSCP (101000)", 40},
    {"cs6", "match packets with CS1 (precedence 6) DSCP (110000)", 48},
    {"cs7", "match packets with CS1 (precedence 7) DSCP (111000)", 56},
};

int32_t qos_phb_name2type(const char *name) noexcept
{
    for (const qos_dscp_phb_row &row : qos_dscp_phb)
        if (strcasecmp(row.name, name) == 0)
            return row.value;
    return -1;
}

const char *qos_phb_type2name(int16_t value) noexcept
{
    for (const qos_dscp_phb_row &row : qos_dscp_phb)
        if (row.value == value)
            return row.name;
    return nullptr;
}

const char *get_dscp_phb_name(int row) noexcept
{
    return qos_dscp_phb[row].name;
}

const char *get_dscp_phb_desc(int row) noexcept
{
    return qos_dscp_phb[row].description;
}

const char *get_qos_pipe_name(const char *object_name) noexcept
{
    for (int hyphens = 0; hyphens < 5; hyphens++) {
        const char *hyphen = std::strchr(object_name, '-');
        if (hyphen == nullptr)
            return object_name + std::strlen(object_name);
        object_name = hyphen + 1;
    }
    return object_name;
}

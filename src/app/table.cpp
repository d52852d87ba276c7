#include <libmix/app_table.h>

#include <iterator>

/* In every row the Chinese name equals the English one. */
#define SAME(name) name, name
constexpr app_table_row tq_app_table[24] = {
    {0, SAME("Other")},          {2, SAME("UDP-ANY")},        {3, SAME("TCP-ANY")},
    {9, SAME("TFTP")},           {14, SAME("NBNAME")},        {27, SAME("H.245")},
    {30, SAME("H323-Media")},    {32, SAME("SCCP")},          {35, SAME("GTPCv1")},
    {36, SAME("GTPUv1")},        {37, SAME("GTPv0")},         {39, SAME("OSPF")},
    {40, SAME("SCTP")},          {61, SAME("SOQ")},           {65, SAME("Jabber")},
    {70, SAME("FTP-DATA")},      {106, SAME("REXEC")},        {123, SAME("DB2")},
    {125, SAME("ORACLE")},       {126, SAME("SUNRPC-CALL")},  {875, SAME("SIP MEDIA")},
    {5115, SAME("ONVIF-PROBE")}, {5116, SAME("DAHUA-PROBE")}, {6102, SAME("FTPS-DATA")},
};
#undef SAME

int tq_get_app_table_member_num() noexcept
{
    return static_cast<int>(std::size(tq_app_table));
}

// The shell is the operator's console: what libmix's system families print there is the reason of a failure,
// like what they print through a callback. This definition stands before the platform library's.
#include "appliance/mixsh/invocation.h"
#include "platform/services.h"

int console_print(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int length = mixsh::keep_said(format, arguments);
    va_end(arguments);
    return length;
}

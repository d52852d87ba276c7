#include "appliance/platform/trace.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

namespace mixplatform
{

namespace
{

int open_trace()
{
    const char *path = std::getenv("MIX_TRACE");
    if (path == nullptr || *path == '\0')
        return -1;
    const int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0)
        std::fprintf(stderr, "mixplatform: no trace: %s: %s\n", path, strerrordesc_np(errno));
    return fd;
}

int trace_fd()
{
    static const int fd = open_trace();
    return fd;
}

void put_hex(std::string &line, std::span<const uint8_t> bytes)
{
    static constexpr char digits[] = "0123456789abcdef";
    line += '"';
    for (uint8_t byte : bytes) {
        line += digits[byte >> 4];
        line += digits[byte & 15];
    }
    line += '"';
}

/* Everything outside printable ASCII is written as the code of its byte,
 * so that any path makes valid JSON. */
void put_text(std::string &line, std::string_view text)
{
    line += '"';
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        char escaped[8];
        if (byte < ' ' || byte >= 127) {
            std::snprintf(escaped, sizeof(escaped), "\\u%04x", static_cast<unsigned>(byte));
            line += escaped;
            continue;
        }
        if (c == '"' || c == '\\')
            line += '\\';
        line += c;
    }
    line += '"';
}

__attribute__((format(printf, 2, 3))) void put(std::string &line, const char *format, ...)
{
    char text[160];
    va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof(text), format, values);
    va_end(values);
    line += text;
}

} // namespace

bool tracing()
{
    return trace_fd() >= 0;
}

trace_clock::trace_clock()
{
    if (!tracing())
        return;
    clock_gettime(CLOCK_REALTIME, &real);
    monotonic_ns = mix::wire::monotonic_ns();
}

void trace(const traced &what)
{
    const auto parts = mix::wire::split_address(what.sent.destination);
    const bool notice = what.kind == mix::wire::message_kind::notice;
    std::string line;
    line.reserve(400 + 2 * (what.sent.payload.size() + what.answer.payload.size()));
    put(line, "{\"time\":%lld.%06ld,\"took_us\":%lld,\"pid\":%d,\"thread\":%d",
        static_cast<long long>(what.started.real.tv_sec), what.started.real.tv_nsec / 1000,
        static_cast<long long>((mix::wire::monotonic_ns() - what.started.monotonic_ns) / 1000),
        static_cast<int>(getpid()), static_cast<int>(gettid()));
    put(line, ",\"address\":%u,\"node\":%u,\"instance\":%u,\"daemon\":%u,\"type\":%u,\"kind\":\"%s\"",
        static_cast<unsigned>(what.sent.destination), static_cast<unsigned>(parts.node),
        static_cast<unsigned>(parts.instance), static_cast<unsigned>(parts.daemon),
        static_cast<unsigned>(what.sent.type), notice ? "notice" : "request");
    put(line, ",\"timeout_ms\":%u,\"result\":%d,\"request_length\":%zu,\"request\":",
        static_cast<unsigned>(what.sent.timeout_ms), static_cast<int>(what.result), what.sent.payload.size());
    put_hex(line, what.sent.payload);
    if (what.result == 0 && !notice) {
        put(line, ",\"status\":%d,\"reply_length\":%zu,\"reply\":", static_cast<int>(what.answer.status),
            what.answer.payload.size());
        put_hex(line, what.answer.payload);
    }
    line += ",\"reason\":";
    put_text(line, what.reason);
    line += "}\n";
    /* One write, so that lines of several threads and processes don't mix. */
    if (write(trace_fd(), line.data(), line.size()) < 0)
        return;
}

} // namespace mixplatform

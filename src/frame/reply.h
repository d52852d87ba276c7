/* A received reply: untrusted bytes, read within what was received. */
#ifndef MIX_FRAME_REPLY_H
#define MIX_FRAME_REPLY_H

#include <cstdint>
#include <cstring>

namespace mix::frame
{

/* An unsigned little-endian field of a record. Width 0: the record has no such field. */
struct field {
    uint16_t offset = 0;
    uint8_t width = 0;

    [[nodiscard]] constexpr bool present() const { return width != 0; }
};

inline void put(uint8_t *record, field where, uint32_t value)
{
    std::memcpy(record + where.offset, &value, where.width);
}

class reply_view
{
  public:
    reply_view(uint8_t *bytes, uint32_t received) : bytes_(bytes), received_(received) {}

    [[nodiscard]] uint32_t received() const { return received_; }
    [[nodiscard]] const uint8_t *bytes() const { return bytes_; }

    /* Fields that the reply does not reach count as zero. */
    [[nodiscard]] uint32_t number(field where) const
    {
        uint32_t value = 0;
        if (uint32_t{where.offset} + where.width <= received_)
            std::memcpy(&value, bytes_ + where.offset, where.width);
        return value;
    }
    [[nodiscard]] uint16_t u16(uint16_t offset) const { return static_cast<uint16_t>(number({offset, 2})); }
    [[nodiscard]] uint32_t u32(uint16_t offset) const { return number({offset, 4}); }

    /* Copies size bytes; those that were not received are zero. */
    void copy(void *out, uint32_t offset, uint32_t size) const
    {
        const uint32_t there = offset >= received_ ? 0 : received_ - offset;
        const uint32_t taken = size < there ? size : there;
        if (taken != 0)
            std::memcpy(out, bytes_ + offset, taken);
        if (size != taken)
            std::memset(static_cast<uint8_t *>(out) + taken, 0, size - taken);
    }

    /*
     * Copies the text at an offset: what stands before its terminator, the end of its field or the end of the
     * reply, cut to room - 1 characters. Nothing is written when there is no room at all.
     */
    void text(char *out, uint32_t room, uint32_t offset, uint32_t size = UINT32_MAX) const
    {
        if (room == 0)
            return;
        uint32_t limit = offset >= received_ ? 0 : received_ - offset;
        limit = size < limit ? size : limit;
        limit = room - 1 < limit ? room - 1 : limit;
        const auto *from = reinterpret_cast<const char *>(bytes_) + offset;
        const uint32_t length = limit == 0 ? 0 : static_cast<uint32_t>(strnlen(from, limit));
        if (length != 0)
            std::memcpy(out, from, length);
        out[length] = '\0';
    }

    /* Hands the buffer to the library's caller, who releases it with ipcmsg_free. */
    [[nodiscard]] void *keep()
    {
        kept_ = true;
        return bytes_;
    }
    [[nodiscard]] bool kept() const { return kept_; }

  private:
    uint8_t *bytes_;
    uint32_t received_;
    bool kept_ = false;
};

} // namespace mix::frame

#endif

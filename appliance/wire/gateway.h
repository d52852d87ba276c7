/*
 * The management gateway's objects and messages. The platform library encodes by this table, the gateway
 * decodes and validates by it.
 *
 * The gateway is daemon 200 of this board. All numbers are little-endian and unaligned. Message types:
 *   1 record   request: record_header, the fields (u32 each)          reply: reply_header, text
 *   2 commit   request: commit_header, cookie, attributes             reply: reply_header, text
 *   3 read     request: as commit (operation 8)                       reply: reply_header, text, one batch
 *   4 save     request: save_header, five texts                       reply: reply_header, text
 *   5 current virtual system, request: nothing; the reply's status is its id
 * An attribute is {u8 number, u8 kind, u16 length} and its value; attributes stand in ascending order of
 * number. A text of save is a u16 length and its bytes; length 0xffff: there is none. A batch is 44 bytes of
 * cookie, a u16 row count and the rows; with `more` set in the reply's header the reader asks again with that
 * cookie.
 */
#ifndef MIX_APPLIANCE_WIRE_GATEWAY_H
#define MIX_APPLIANCE_WIRE_GATEWAY_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>
#include <type_traits>

#include "platform/mgi.h"

namespace mix::wire
{

inline constexpr uint32_t gateway_daemon = 200;
inline constexpr const char *gateway_name = "gateway";

enum gateway_type : uint32_t {
    gateway_record = 1,
    gateway_commit = 2,
    gateway_read = 3,
    gateway_save = 4,
    gateway_current_vsys = 5
};

enum gateway_operation : uint32_t {
    operation_set = 2,
    operation_add = 4,
    operation_delete = 5,
    operation_create = 7, /* answered with response type 15 when the object is there */
    operation_read = 8,
    operation_unset = 9
};

inline constexpr uint8_t language_english = 0;
inline constexpr uint8_t language_chinese = 1;

/* --- results --- */

enum gateway_result : int32_t {
    result_failed = -4,      /* made by the client: the gateway answered with a negative status */
    result_unreachable = -1, /* made by the client: no gateway, or no answer in time */
    result_nonsense = -2,    /* made by the client: an answer that can't be read */
    result_too_large = -3,   /* made by the client: a value that no message can carry */
    result_ok = 0,
    result_malformed = 1,
    result_unknown_object = 2,
    result_unknown_operation = 3,
    result_unknown_attribute = 4,
    result_missing_attribute = 5,
    result_bad_value = 6,
    result_exists = 7,
    result_absent = 8,
    result_full = 9,
    result_store_failed = 10,
    result_not_permitted = 11,
    result_not_applied = 12
};

struct result_text {
    int32_t result;
    const char *english;
    const char *chinese;
};

inline constexpr result_text result_texts[] = {
    {result_unreachable, "management gateway does not answer", "管理网关无应答"},
    {result_failed, "management gateway failed", "管理网关故障"},
    {result_nonsense, "management gateway answered with something unreadable", "管理网关的应答无法识别"},
    {result_too_large, "value too long to be sent", "取值过长，无法发送"},
    {result_malformed, "request malformed", "请求格式错误"},
    {result_unknown_object, "no such object", "对象不存在"},
    {result_unknown_operation, "operation not possible on this object", "该对象不支持此操作"},
    {result_unknown_attribute, "no such attribute", "属性不存在"},
    {result_missing_attribute, "attribute missing", "缺少属性"},
    {result_bad_value, "value not allowed", "取值不合法"},
    {result_exists, "already there", "已存在"},
    {result_absent, "not there", "不存在"},
    {result_full, "table full", "表已满"},
    {result_store_failed, "configuration could not be stored", "配置无法保存"},
    {result_not_permitted, "not permitted", "不允许"},
    {result_not_applied, "could not be applied to the system", "无法应用到系统"},
};

/* The usual text of a result; NULL for one that has none, 0 included. */
constexpr const char *text_of_result(int32_t result, uint8_t language)
{
    for (const result_text &row : result_texts)
        if (row.result == result)
            return language == language_chinese ? row.chinese : row.english;
    return nullptr;
}

/* --- objects --- */

enum class attribute_kind : uint8_t {
    u8 = 1,
    u16 = 2,
    u32 = 3,
    word = 4,  /* 8 bytes the gateway does not look into */
    bytes = 5, /* exactly `size` of them */
    text = 6   /* at most `size` bytes, without a terminator */
};

constexpr uint16_t operation_bit(uint32_t operation)
{
    return static_cast<uint16_t>(operation < 16 ? 1u << operation : 0u);
}

template <typename... Operations>
constexpr uint16_t on(Operations... operations)
{
    return static_cast<uint16_t>((0u | ... | operation_bit(operations)));
}

struct attribute_description {
    uint8_t number; /* below 16 */
    const char *name;
    attribute_kind kind;
    uint16_t size;      /* of the value; for text the longest one */
    uint16_t mandatory; /* the operations (operation_bit) that can't do without it */
};

struct object_description {
    uint32_t number;
    const char *name;
    uint16_t operations; /* operation_bit of each that is possible */
    std::span<const attribute_description> attributes;

    constexpr const attribute_description *attribute(unsigned number_of) const
    {
        for (const attribute_description &each : attributes)
            if (each.number == number_of)
                return &each;
        return nullptr;
    }
};

enum object_number : uint32_t {
    object_arp = 0x010001,
    object_neighbor = 0x020001,
    object_gas = 0x030001,
    object_mac_interface = 0x040001,
    object_mac = 0x040002,
    object_mac_description = 0x050001,
    object_dhcpsn = 0x060001,
    object_ipdefrag = 0x1a0001 /* set by record exchange: its attributes are the record's fields */
};

inline constexpr uint16_t interface_name_max = 31;
inline constexpr uint16_t vrouter_name_max = 31;
inline constexpr uint16_t description_max = 127;
inline constexpr uint16_t mac_size = 6;
inline constexpr uint16_t ipv6_size = 16;

namespace detail
{
using enum attribute_kind;

inline constexpr attribute_description arp_attributes[] = {
    {0, "address", u32, 4, on(operation_set, operation_delete)},
    {1, "virtual router id", u16, 2, on(operation_set, operation_delete, operation_unset)},
    {2, "mac", bytes, mac_size, on(operation_set)},
    {3, "virtual router", text, vrouter_name_max, 0},
    {6, "option", u8, 1, on(operation_set)},
};
inline constexpr attribute_description neighbor_attributes[] = {
    {0, "address", bytes, ipv6_size, on(operation_set)},
    {1, "interface", text, interface_name_max, on(operation_set)},
    {2, "mac", bytes, mac_size, on(operation_set)},
};
inline constexpr attribute_description gas_attributes[] = {
    {0, "address", u32, 4, on(operation_add, operation_delete)},
    {1, "interface", text, interface_name_max, on(operation_add, operation_delete)},
    {2, "word", word, 8, on(operation_add)},
    {3, "mac", bytes, mac_size, on(operation_add)},
    {4, "option", u8, 1, on(operation_add)},
};
inline constexpr attribute_description mac_interface_attributes[] = {
    {0, "interface", text, interface_name_max, on(operation_create, operation_add)},
};
inline constexpr attribute_description mac_attributes[] = {
    {0, "interface", text, interface_name_max, on(operation_add)},
    {1, "mac", bytes, mac_size, on(operation_add, operation_delete)},
    {2, "port", text, interface_name_max, on(operation_add)},
    {3, "vlan", u16, 2, on(operation_add)},
};
inline constexpr attribute_description mac_description_attributes[] = {
    {0, "mac", bytes, mac_size, on(operation_add, operation_delete)},
    {1, "description", text, description_max, 0},
};
inline constexpr attribute_description dhcpsn_attributes[] = {
    {0, "interface", text, interface_name_max, on(operation_set)},
    {1, "enable", u8, 1, 0},
    {2, "rate limit", u16, 2, 0},
    {3, "deny request", u8, 1, 0},
    {4, "deny response", u8, 1, 0},
    {5, "validity check", u8, 1, 0},
};
inline constexpr attribute_description ipdefrag_attributes[] = {
    {1, "first", u32, 4, 0},
    {2, "second", u32, 4, 0},
};
} // namespace detail

inline constexpr object_description objects[] = {
    {object_arp, "static arp", on(operation_set, operation_delete, operation_unset), detail::arp_attributes},
    {object_neighbor, "neighbour", on(operation_set), detail::neighbor_attributes},
    {object_gas, "gratuitous arp sender", on(operation_add, operation_delete), detail::gas_attributes},
    {object_mac_interface, "static mac interface", on(operation_add, operation_create, operation_unset),
     detail::mac_interface_attributes},
    {object_mac, "static mac", on(operation_add, operation_delete), detail::mac_attributes},
    {object_mac_description, "mac description", on(operation_add, operation_delete, operation_unset),
     detail::mac_description_attributes},
    {object_dhcpsn, "dhcp snooping", on(operation_set, operation_read), detail::dhcpsn_attributes},
    {object_ipdefrag, "ip fragment settings", 0, detail::ipdefrag_attributes},
};

constexpr const object_description *find_object(uint32_t number)
{
    for (const object_description &each : objects)
        if (each.number == number)
            return &each;
    return nullptr;
}

inline constexpr size_t attribute_slots = std::extent_v<decltype(mgi_message::attr)>;
static_assert(attribute_slots == 16);

constexpr bool objects_are_sound()
{
    for (const object_description &object : objects) {
        int before = -1;
        for (const attribute_description &each : object.attributes) {
            if (each.number <= before || each.number >= attribute_slots || each.size == 0)
                return false;
            before = each.number;
        }
    }
    return true;
}
static_assert(objects_are_sound(), "attribute numbers are ascending and below 16");

/* --- layouts --- */

struct [[gnu::packed]] record_header {
    uint32_t object;
    uint32_t mask; /* bit i: field i carries a value; the others are sent as 0 */
    uint16_t fields;
    uint8_t language;
    uint8_t reserved;
};
static_assert(sizeof(record_header) == 12 && offsetof(record_header, fields) == 8 &&
              offsetof(record_header, language) == 10);

struct [[gnu::packed]] commit_header {
    uint32_t object;
    uint32_t operation;
    uint8_t language;
    uint8_t flag;
    uint16_t vsysid;
    uint16_t cookie_length;
    uint16_t attributes;
};
static_assert(sizeof(commit_header) == 16 && offsetof(commit_header, operation) == 4 &&
              offsetof(commit_header, language) == 8 && offsetof(commit_header, flag) == 9 &&
              offsetof(commit_header, vsysid) == 10 && offsetof(commit_header, cookie_length) == 12 &&
              offsetof(commit_header, attributes) == 14);

struct [[gnu::packed]] attribute_header {
    uint8_t number;
    uint8_t kind;
    uint16_t length;
};
static_assert(sizeof(attribute_header) == 4 && offsetof(attribute_header, length) == 2);

struct [[gnu::packed]] save_header {
    int32_t numbers[5]; /* the caller's first argument and its last four */
};
static_assert(sizeof(save_header) == 20);
inline constexpr size_t save_texts = 5;
inline constexpr uint16_t no_text = 0xffff;

struct [[gnu::packed]] reply_header {
    int32_t result;        /* 0, or a refusal */
    int32_t response_type; /* MGI_RESP_EXISTS, or 0 */
    uint16_t text_length;
    uint8_t more; /* of a read: ask again with the batch's cookie */
    uint8_t reserved;
};
static_assert(sizeof(reply_header) == 12 && offsetof(reply_header, response_type) == 4 &&
              offsetof(reply_header, text_length) == 8 && offsetof(reply_header, more) == 10);

inline constexpr size_t cookie_size = 44;
inline constexpr size_t batch_count_at = 44;
inline constexpr size_t batch_rows_at = 46;
inline constexpr size_t dhcpsn_row_size = 40;

inline constexpr size_t gateway_text_max = 1024;   /* of a refusal */
inline constexpr size_t attribute_text_max = 4096; /* that a message carries, whatever the object allows */
inline constexpr size_t record_fields_max = 32;    /* one bit of the mask each */

/* --- writing --- */

/* Appends to a caller's bytes. Once something did not fit, good() is false and nothing more is written. */
class writer
{
  public:
    explicit writer(std::span<uint8_t> out) : out_(out) {}

    void bytes(const void *data, size_t size)
    {
        if (!good_ || size > out_.size() - used_) {
            good_ = false;
            return;
        }
        if (size != 0)
            std::memcpy(out_.data() + used_, data, size);
        used_ += size;
    }
    template <typename Record>
    void record(const Record &value)
    {
        static_assert(std::is_trivially_copyable_v<Record>);
        bytes(&value, sizeof(value));
    }
    [[nodiscard]] bool good() const { return good_; }
    [[nodiscard]] size_t size() const { return used_; }
    [[nodiscard]] std::span<const uint8_t> written() const { return out_.first(used_); }

  private:
    std::span<uint8_t> out_;
    size_t used_ = 0;
    bool good_ = true;
};

/* Takes from received bytes. Once something was not there, good() is false and zeroes come. */
class reader
{
  public:
    explicit reader(std::span<const uint8_t> in) : in_(in) {}

    std::span<const uint8_t> bytes(size_t size)
    {
        if (!good_ || size > in_.size()) {
            good_ = false;
            return {};
        }
        const std::span<const uint8_t> taken = in_.first(size);
        in_ = in_.subspan(size);
        return taken;
    }
    template <typename Record>
    Record record()
    {
        static_assert(std::is_trivially_copyable_v<Record>);
        Record value{};
        const std::span<const uint8_t> taken = bytes(sizeof(value));
        if (!taken.empty())
            std::memcpy(&value, taken.data(), sizeof(value));
        return value;
    }
    [[nodiscard]] bool good() const { return good_; }
    [[nodiscard]] bool at_end() const { return in_.empty(); }
    [[nodiscard]] std::span<const uint8_t> rest() const { return in_; }

  private:
    std::span<const uint8_t> in_;
    bool good_ = true;
};

/* --- a commit or read, client side --- */

/* The bytes of the value that a message's slot points at; nothing when the attribute is absent. A text's slot
 * holds the address of the pointer to it. */
inline std::optional<std::span<const uint8_t>> slot_value(const mgi_message &message,
                                                          const attribute_description &attribute)
{
    const void *slot = message.attr[attribute.number];
    if (slot == nullptr)
        return std::nullopt;
    if (attribute.kind != attribute_kind::text)
        return std::span(static_cast<const uint8_t *>(slot), attribute.size);
    const char *text;
    std::memcpy(&text, slot, sizeof(text));
    if (text == nullptr)
        return std::nullopt;
    return std::span(reinterpret_cast<const uint8_t *>(text), strnlen(text, attribute_text_max + 1));
}

/* Writes a message for `object`. Slots that the object has no attribute for are not sent. False: it does not
 * fit, or a text is longer than a message carries. */
inline bool encode_commit(const mgi_message &message, const object_description &object, writer &out)
{
    commit_header header{.object = object.number,
                         .operation = message.rqt_type,
                         .language = message.language,
                         .flag = message.request_flag,
                         .vsysid = message.vsysid,
                         .cookie_length = 0,
                         .attributes = 0};
    const size_t cookie = message.cookie == nullptr ? 0 : message.cookie_length;
    if (cookie > attribute_text_max)
        return false;
    header.cookie_length = static_cast<uint16_t>(cookie);
    for (const attribute_description &each : object.attributes)
        header.attributes = static_cast<uint16_t>(header.attributes + slot_value(message, each).has_value());
    out.record(header);
    out.bytes(message.cookie, cookie);
    for (const attribute_description &each : object.attributes) {
        const auto value = slot_value(message, each);
        if (!value)
            continue;
        if (value->size() > attribute_text_max)
            return false;
        out.record(attribute_header{each.number, static_cast<uint8_t>(each.kind),
                                    static_cast<uint16_t>(value->size())});
        out.bytes(value->data(), value->size());
    }
    return out.good();
}

/* --- a commit or read, gateway side --- */

/* A decoded commit or read; its spans stand in the received bytes. */
struct commit {
    const object_description *object = nullptr;
    uint32_t operation = 0;
    uint8_t language = language_english;
    uint8_t flag = 0;
    uint16_t vsysid = 0;
    std::span<const uint8_t> cookie = {};
    std::array<std::optional<std::span<const uint8_t>>, attribute_slots> values = {};

    [[nodiscard]] bool has(unsigned number) const { return number < values.size() && values[number]; }
    /* The value of an attribute, or zero (nothing) when it is absent. */
    [[nodiscard]] uint8_t u8(unsigned number) const { return value<uint8_t>(number); }
    [[nodiscard]] uint16_t u16(unsigned number) const { return value<uint16_t>(number); }
    [[nodiscard]] uint32_t u32(unsigned number) const { return value<uint32_t>(number); }
    [[nodiscard]] uint64_t word(unsigned number) const { return value<uint64_t>(number); }
    [[nodiscard]] std::span<const uint8_t> bytes(unsigned number) const
    {
        return has(number) ? *values[number] : std::span<const uint8_t>{};
    }
    [[nodiscard]] std::string_view text(unsigned number) const
    {
        const std::span<const uint8_t> value = bytes(number);
        return {reinterpret_cast<const char *>(value.data()), value.size()};
    }
    template <typename Value> /* a number, or an array of bytes */
    [[nodiscard]] Value value(unsigned number) const
    {
        Value value{};
        const std::span<const uint8_t> from = bytes(number);
        if (!from.empty())
            std::memcpy(&value, from.data(), std::min(from.size(), sizeof(value)));
        return value;
    }
};

/* What is wrong with a request: a result, and the attribute it is about, if it is about one. */
struct decode_fault {
    gateway_result result;
    const attribute_description *attribute = nullptr;
};

namespace detail
{
inline decode_fault take_attribute(reader &in, commit &out, int &before)
{
    const auto header = in.record<attribute_header>();
    const std::span<const uint8_t> value = in.bytes(header.length);
    if (!in.good() || header.number <= before)
        return {result_malformed};
    before = header.number;
    const attribute_description *known = out.object->attribute(header.number);
    if (known == nullptr)
        return {result_unknown_attribute};
    if (header.kind != static_cast<uint8_t>(known->kind))
        return {result_malformed, known};
    if (known->kind == attribute_kind::text) {
        if (value.size() > known->size || std::find(value.begin(), value.end(), 0) != value.end())
            return {result_bad_value, known};
    } else if (value.size() != known->size) {
        return {result_malformed, known};
    }
    out.values[header.number] = value;
    return {result_ok};
}
} // namespace detail

/* Checks and takes apart a commit's or read's payload: object, operation, attributes and their sizes, the
 * attributes that the operation needs. As far as it got, `out` is filled (the language first). */
inline decode_fault decode_commit(std::span<const uint8_t> payload, commit &out)
{
    reader in(payload);
    const auto header = in.record<commit_header>();
    out.language = header.language;
    out.operation = header.operation;
    out.flag = header.flag;
    out.vsysid = header.vsysid;
    out.cookie = in.bytes(header.cookie_length);
    if (!in.good())
        return {result_malformed};
    out.object = find_object(header.object);
    if (out.object == nullptr)
        return {result_unknown_object};
    if ((out.object->operations & operation_bit(header.operation)) == 0)
        return {result_unknown_operation};
    int before = -1;
    for (unsigned i = 0; i < header.attributes; i++) {
        const decode_fault fault = detail::take_attribute(in, out, before);
        if (fault.result != result_ok)
            return fault;
    }
    if (!in.at_end())
        return {result_malformed};
    for (const attribute_description &each : out.object->attributes)
        if ((each.mandatory & operation_bit(header.operation)) != 0 && !out.has(each.number))
            return {result_missing_attribute, &each};
    return {result_ok};
}

/* --- records --- */

/* Writes a record; fields that the mask does not name are sent as 0, whatever they hold. */
inline bool encode_record(uint32_t object, uint32_t mask, const void *record, size_t fields, uint8_t language,
                          writer &out)
{
    if (fields > record_fields_max)
        return false;
    out.record(record_header{object, mask, static_cast<uint16_t>(fields), language, 0});
    for (size_t i = 0; i < fields; i++) {
        uint32_t value = 0;
        if ((mask >> i & 1) != 0)
            std::memcpy(&value, static_cast<const uint8_t *>(record) + i * sizeof(value), sizeof(value));
        out.record(value);
    }
    return out.good();
}

/* A decoded record. A field counts where the mask names it. */
struct record {
    const object_description *object = nullptr;
    uint8_t language = language_english;
    uint32_t mask = 0;
    size_t count = 0;
    std::array<uint32_t, record_fields_max> fields = {};

    [[nodiscard]] std::optional<uint32_t> field(unsigned number) const
    {
        if (number >= count || (mask >> number & 1) == 0)
            return std::nullopt;
        return fields[number];
    }
};

inline decode_fault decode_record(std::span<const uint8_t> payload, record &out)
{
    reader in(payload);
    const auto header = in.record<record_header>();
    out.language = header.language;
    out.mask = header.mask;
    if (!in.good() || header.fields > record_fields_max ||
        in.rest().size() != header.fields * sizeof(uint32_t) ||
        (header.fields < record_fields_max && header.mask >> header.fields != 0))
        return {result_malformed};
    out.count = header.fields;
    for (size_t i = 0; i < out.count; i++)
        out.fields[i] = in.record<uint32_t>();
    out.object = find_object(header.object);
    if (out.object == nullptr)
        return {result_unknown_object};
    for (unsigned i = 0; i < out.count; i++)
        if ((out.mask >> i & 1) != 0 && out.object->attribute(i) == nullptr)
            return {result_unknown_attribute};
    return {result_ok};
}

/* --- saved configurations --- */

struct save_request {
    std::array<int32_t, 5> numbers = {};
    std::array<std::optional<std::string_view>, save_texts> texts = {};
};

inline bool encode_save(const save_request &request, writer &out)
{
    for (int32_t number : request.numbers)
        out.record(number);
    for (const auto &text : request.texts) {
        if (text && text->size() > attribute_text_max)
            return false;
        out.record(text ? static_cast<uint16_t>(text->size()) : no_text);
        if (text)
            out.bytes(text->data(), text->size());
    }
    return out.good();
}

inline decode_fault decode_save(std::span<const uint8_t> payload, save_request &out)
{
    reader in(payload);
    for (int32_t &number : out.numbers)
        number = in.record<int32_t>();
    for (auto &text : out.texts) {
        const auto length = in.record<uint16_t>();
        if (length == no_text)
            continue;
        const std::span<const uint8_t> value = in.bytes(length);
        text = std::string_view(reinterpret_cast<const char *>(value.data()), value.size());
    }
    return {in.good() && in.at_end() ? result_ok : result_malformed};
}

/* --- replies --- */

/* A reply's text is cut at gateway_text_max, before a character that would be split. */
inline std::string_view fitting_text(std::string_view text)
{
    if (text.size() <= gateway_text_max)
        return text;
    size_t size = gateway_text_max;
    while (size > 0 && (static_cast<uint8_t>(text[size]) & 0xc0) == 0x80)
        size--;
    return text.substr(0, size);
}

struct gateway_reply {
    int32_t result = result_ok;
    int32_t response_type = 0;
    bool more = false;
    std::string_view text = {};
    std::span<const uint8_t> batch = {}; /* of a read */
};

inline bool encode_reply(const gateway_reply &reply, writer &out)
{
    const std::string_view text = fitting_text(reply.text);
    out.record(reply_header{reply.result, reply.response_type, static_cast<uint16_t>(text.size()),
                            static_cast<uint8_t>(reply.more), 0});
    out.bytes(text.data(), text.size());
    out.bytes(reply.batch.data(), reply.batch.size());
    return out.good();
}

/* False: the bytes are no reply. `batch` is whatever follows the text. */
inline bool decode_reply(std::span<const uint8_t> payload, gateway_reply &out)
{
    reader in(payload);
    const auto header = in.record<reply_header>();
    const std::span<const uint8_t> text = in.bytes(header.text_length);
    if (!in.good())
        return false;
    out = {.result = header.result,
           .response_type = header.response_type,
           .more = header.more != 0,
           .text = {reinterpret_cast<const char *>(text.data()), text.size()},
           .batch = in.rest()};
    return true;
}

/* The rows of a batch; nothing when the batch is not one of rows of that size. */
inline std::optional<uint16_t> rows_of_batch(std::span<const uint8_t> batch, size_t row_size)
{
    if (batch.size() < batch_rows_at)
        return std::nullopt;
    uint16_t rows;
    std::memcpy(&rows, batch.data() + batch_count_at, sizeof(rows));
    if (batch.size() - batch_rows_at != rows * row_size)
        return std::nullopt;
    return rows;
}

} // namespace mix::wire

#endif

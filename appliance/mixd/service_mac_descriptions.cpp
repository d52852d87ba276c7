/* Descriptions of MAC addresses: message type 93 of the main local daemon,
 * and the gateway's object for them. */
#include <cerrno>
#include <ctime>

#include "appliance/mixd/mac_descriptions.h"
#include "appliance/mixd/service.h"

namespace mixd
{

namespace
{

using namespace mix::wire;

constexpr const char *migrations[] = {
    "CREATE TABLE mac_description(vsys INTEGER NOT NULL, mac BLOB NOT NULL, text TEXT NOT NULL,"
    " changed INTEGER NOT NULL, PRIMARY KEY(vsys, mac)) WITHOUT ROWID",
};

constexpr size_t most_descriptions = 65536;
constexpr uint32_t rows_of_a_page = (mac_page_capacity - sizeof(mac_desc_page)) / sizeof(mac_description_row);

mac_description_row make_row(const description_key &key, std::string_view text, uint64_t changed)
{
    mac_description_row row{};
    std::copy(key.mac.begin(), key.mac.end(), row.mac);
    row.vsysid = key.virtual_system;
    fill_text(row.description, text);
    row.changed = changed;
    return row;
}

class description_service final : public service
{
  public:
    explicit description_service(setup &with);

  private:
    int32_t list(const request &, reply &);
    std::optional<refusal> change(const commit &, transaction &);
    std::optional<refusal> add(const commit &, transaction &);
    std::optional<refusal> remove(const commit &, transaction &);
    void remove_all(const commit &, transaction &);

    mac_descriptions &kept_;
    positions<description_key> positions_;
};

description_service::description_service(setup &with) : kept_(with.shared_state<mac_descriptions>())
{
    statement query = with.state().prepare("SELECT vsys, mac, text, changed FROM mac_description");
    while (query.step()) {
        const description_key key{static_cast<uint16_t>(query.integer(0)), query.bytes<6>(1)};
        kept_.rows.put(make_row(key, query.text(2), static_cast<uint64_t>(query.integer(3))));
    }
    with.serve(0, mac_desc_type, [this](const request &asked, reply &out) { return list(asked, out); });
    with.on_commit(object_mac_description,
                   [this](const commit &wanted, transaction &in) { return change(wanted, in); });
}

int32_t description_service::list(const request &asked, reply &out)
{
    const auto wanted = asked.record<mac_desc_request>();
    if (wanted.opcode != mac_desc_list || !asked.is_a<mac_desc_request>())
        return -EINVAL;
    out.append(mac_desc_page{});
    const auto page = take_page(
        kept_.rows, positions_, {asked.from.connection, wanted.cursor, wanted.budget, rows_of_a_page},
        [&](const mac_description_row &row) {
            return row.vsysid == wanted.vsysid &&
                   (wanted.has_mac == 0 || std::equal(std::begin(row.mac), std::end(row.mac), wanted.mac));
        },
        [&](const mac_description_row &row) { out.append(row); });
    if (!page)
        return -ESTALE;
    out.put(0, mac_desc_page{page->cursor, page->rows});
    return 0;
}

std::optional<refusal> description_service::change(const commit &wanted, transaction &in)
{
    if (wanted.operation == operation_add)
        return add(wanted, in);
    if (wanted.operation == operation_delete)
        return remove(wanted, in);
    remove_all(wanted, in);
    return {};
}

description_key key_of(const commit &wanted)
{
    return {wanted.vsysid, wanted.value<mac_address>(mac_desc_attribute_mac)};
}

std::optional<refusal> description_service::add(const commit &wanted, transaction &in)
{
    const description_key key = key_of(wanted);
    const std::string text(wanted.text(mac_desc_attribute_text));
    if (text.empty())
        return refusal{result_missing_attribute, "a description is missing", "缺少描述"};
    if (kept_.rows.find(key) == nullptr && kept_.rows.size() >= most_descriptions)
        return refusal{result_full, "there are 65536 descriptions already", "描述数量已达65536条"};
    const auto now = static_cast<uint64_t>(std::time(nullptr));
    in.run("INSERT OR REPLACE INTO mac_description VALUES(?,?,?,?)", key.virtual_system,
           std::span<const uint8_t>(key.mac), std::string_view(text), now);
    in.after_commit([this, key, text, now] { kept_.rows.put(make_row(key, text, now)); });
    return {};
}

std::optional<refusal> description_service::remove(const commit &wanted, transaction &in)
{
    const description_key key = key_of(wanted);
    if (kept_.rows.find(key) == nullptr)
        return refusal{result_absent, "this MAC address has no description", "该MAC地址没有描述"};
    in.run("DELETE FROM mac_description WHERE vsys=? AND mac=?", key.virtual_system,
           std::span<const uint8_t>(key.mac));
    in.after_commit([this, key] { kept_.rows.erase(key); });
    return {};
}

void description_service::remove_all(const commit &wanted, transaction &in)
{
    in.run("DELETE FROM mac_description WHERE vsys=?", wanted.vsysid);
    std::vector<description_key> gone;
    kept_.rows.walk({}, [&](const mac_description_row &row) {
        if (row.vsysid == wanted.vsysid)
            gone.push_back(description_key_of{}(row));
        return true;
    });
    in.after_commit([this, gone] {
        for (const description_key &key : gone)
            kept_.rows.erase(key);
    });
}

} // namespace

const service_entry mac_descriptions_service = {
    "mac_descriptions", migrations,
    [](setup &with) -> std::unique_ptr<service> { return std::make_unique<description_service>(with); }};

} // namespace mixd

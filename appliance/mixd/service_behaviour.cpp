/*
 * Behaviour objects and profiles: message types 97 and 96 of the main local daemon. Described by the
 * scenario's [[behaviour.object]] and [[behaviour.profile]] with its [[behaviour.profile.rule]].
 */
#include <cerrno>

#include "appliance/mixd/kept_rows.h"
#include "appliance/mixd/service.h"
#include "appliance/wire/bhv.h"
#include "appliance/wire/text.h"

namespace mixd
{

namespace
{

using namespace mix::wire;

constexpr const char *migrations[] = {
    MIXD_KEPT_ROWS_TABLE("bhv_object"),
    MIXD_KEPT_ROWS_TABLE("bhv_profile"),
};

constexpr uint32_t profiles_of_a_page =
    (bhv_profile_capacity - sizeof(bhv_profile_page)) / sizeof(bhv_profile_row);
static_assert((bhv_obj_capacity - sizeof(bhv_obj_page)) / sizeof(bhv_obj_row) == bhv_obj_rows);
constexpr uint64_t mail_types = 19;

/* Objects are told apart by class as well: a URL object and a keyword object may have one name. */
struct object_key {
    std::array<char, 32> name;
    uint8_t object_class;
    uint8_t subclass;

    auto operator<=>(const object_key &) const = default;
};

struct object_key_of {
    object_key operator()(const bhv_obj_row &row) const
    {
        return {std::to_array(row.name), row.object_class, row.subclass};
    }
};

struct profile_key {
    std::array<char, 32> name;

    auto operator<=>(const profile_key &) const = default;
};

struct profile_key_of {
    profile_key operator()(const bhv_profile_row &row) const { return {std::to_array(row.name)}; }
};

class behaviour final : public service
{
  public:
    explicit behaviour(setup &with);
    void begin() override;

  private:
    void read_object(scenario_table &each);
    void read_profile(scenario_table &each);
    void count_uses();
    int32_t list_objects(const request &, reply &);
    int32_t list_profiles(const request &, reply &);

    bool described_;
    kept_rows<bhv_obj_row, object_key_of> objects_;
    kept_rows<bhv_profile_row, profile_key_of> profiles_;
    positions<object_key> object_positions_;
    positions<profile_key> profile_positions_;
};

behaviour::behaviour(setup &with)
    : described_(!with.settings().host), objects_(with.state(), "bhv_object"),
      profiles_(with.state(), "bhv_profile")
{
    scenario_table table = with.scenario("behaviour");
    for (scenario_table &each : table.rows("object"))
        read_object(each);
    for (scenario_table &each : table.rows("profile"))
        read_profile(each);
    with.serve(0, bhv_obj_type,
               [this](const request &asked, reply &out) { return list_objects(asked, out); });
    with.serve(0, bhv_profile_type,
               [this](const request &asked, reply &out) { return list_profiles(asked, out); });
}

void behaviour::begin()
{
    objects_.begin(described_);
    profiles_.begin(described_);
    count_uses();
}

/* --- scenarios --- */

constexpr scenario_word<uint8_t> class_words[] = {{"url", bhv_url},
                                                  {"keyword", bhv_keyword},
                                                  {"mail", bhv_mail},
                                                  {"file", bhv_file},
                                                  {"application", bhv_application}};
constexpr scenario_word<uint8_t> action_words[] = {{"permit", bhv_permit}, {"block", bhv_block}};

/* Class and subclass of an object, or of the object that a rule is about. */
template <class Row>
void read_class(scenario_table &each, Row &row)
{
    each.require("class");
    row.object_class = each.one_of("class", "url", class_words).value;
    row.subclass = static_cast<uint8_t>(each.number("subclass", 0, 0, UINT8_MAX));
}

void behaviour::read_object(scenario_table &each)
{
    bhv_obj_row row{};
    fill_text(row.name, each.required_text("name", sizeof row.name - 1));
    read_class(each, row);
    fill_text(row.description, each.text("description", "", sizeof row.description - 1));
    for (const std::string &item : each.texts("items", sizeof row.item[0] - 1)) {
        if (row.items == bhv_most_items) {
            each.fail("items", fmt::format("must be at most {}", bhv_most_items));
            break;
        }
        fill_text(row.item[row.items++], item);
    }
    objects_.describe(each, row);
}

bhv_rule read_rule(scenario_table &each)
{
    bhv_rule rule{};
    fill_text(rule.object, each.required_text("object", sizeof rule.object - 1));
    read_class(each, rule);
    rule.action = each.one_of("action", "permit", action_words).value;
    rule.log = each.boolean("log", false) ? 1 : 0;
    rule.mail = static_cast<uint32_t>(each.number("mail_types", 0, 0, (uint64_t{1} << mail_types) - 1));
    rule.hits = each.number("hits", 0, 0, INT64_MAX);
    return rule;
}

void behaviour::read_profile(scenario_table &each)
{
    bhv_profile_row row{};
    fill_text(row.name, each.required_text("name", sizeof row.name - 1));
    fill_text(row.description, each.text("description", "", sizeof row.description - 1));
    for (scenario_table &of : each.rows("rule")) {
        if (row.rules == bhv_most_rules) {
            each.fail("rule", fmt::format("must be at most {}", bhv_most_rules));
            break;
        }
        row.rule[row.rules++] = read_rule(of);
    }
    profiles_.describe(each, row);
}

void behaviour::count_uses()
{
    profiles_.rows().walk({}, [&](const bhv_profile_row &profile) {
        for (size_t i = 0; i < std::min<size_t>(profile.rules, bhv_most_rules); ++i) {
            const bhv_rule &rule = profile.rule[i];
            if (bhv_obj_row *object =
                    objects_.find({std::to_array(rule.object), rule.object_class, rule.subclass}))
                ++object->uses;
        }
        return true;
    });
}

/* --- requests --- */

int32_t behaviour::list_objects(const request &asked, reply &out)
{
    const auto wanted = asked.record<bhv_obj_request>();
    if (wanted.operation != bhv_obj_operation || asked.bytes.size() < offsetof(bhv_obj_request, rest))
        return -EINVAL;
    out.append(bhv_obj_page{});
    const auto page = take_page(
        objects_.rows(), object_positions_, {asked.from.connection, wanted.cursor, 0, bhv_obj_rows},
        [&](const bhv_obj_row &row) {
            return (wanted.name[0] == '\0' || text_in(wanted.name) == text_in(row.name)) &&
                   (wanted.object_class == 0 || wanted.object_class == row.object_class) &&
                   (wanted.subclass == 0 || wanted.subclass == row.subclass);
        },
        [&](const bhv_obj_row &row) { out.append(row); });
    if (!page)
        return -ESTALE;
    out.put(0, bhv_obj_page{static_cast<uint16_t>(page->cursor), 0, page->rows});
    return 0;
}

int32_t behaviour::list_profiles(const request &asked, reply &out)
{
    const auto wanted = asked.record<bhv_profile_request>();
    if (wanted.operation != bhv_profile_operation || asked.bytes.size() < sizeof wanted)
        return -EINVAL;
    out.append(bhv_profile_page{});
    const auto page = take_page(
        profiles_.rows(), profile_positions_, {asked.from.connection, wanted.cursor, 0, profiles_of_a_page},
        [&](const bhv_profile_row &row) {
            return wanted.name[0] == '\0' || text_in(wanted.name) == text_in(row.name);
        },
        [&](const bhv_profile_row &row) { out.append(row); });
    if (!page)
        return -ESTALE;
    out.put(0, bhv_profile_page{static_cast<uint16_t>(page->cursor), static_cast<uint16_t>(page->rows)});
    return 0;
}

} // namespace

const service_entry behaviour_service = {
    "behaviour", migrations,
    [](setup &with) -> std::unique_ptr<service> { return std::make_unique<behaviour>(with); }};

} // namespace mixd

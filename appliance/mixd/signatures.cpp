#include "appliance/mixd/signatures.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <map>
#include <stdexcept>
#include <string_view>
#include <strings.h>

#include <fmt/format.h>
#include <libmix/app_table.h>

#include "app/app_wire.h"
#include "appliance/wire/text_file.h"

namespace mixd
{

namespace
{

using mix::wire::app_longest_name;
using mix::wire::app_longest_technology;

/* Why a line is skipped. */
struct wrong_line : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct ignoring_case {
    bool operator()(const std::string &one, const std::string &other) const
    {
        return strcasecmp(one.c_str(), other.c_str()) < 0;
    }
};

/* --- the fields of a line --- */

/* A field in quotes; at stands behind the opening one and is left behind the closing one. */
std::string quoted(std::string_view line, size_t &at)
{
    std::string out;
    for (; at < line.size(); at++) {
        if (line[at] != '"') {
            out += line[at];
            continue;
        }
        if (at + 1 == line.size() || line[at + 1] != '"') {
            at++;
            return out;
        }
        out += line[++at];
    }
    throw wrong_line("a quote is not closed");
}

std::vector<std::string> split(std::string_view line)
{
    std::vector<std::string> out;
    size_t at = 0;
    for (;;) {
        if (at < line.size() && line[at] == '"') {
            out.push_back(quoted(line, ++at));
            if (at < line.size() && line[at] != ',')
                throw wrong_line("something follows a closing quote");
        } else {
            const size_t end = std::min(line.find(',', at), line.size());
            out.emplace_back(line.substr(at, end - at));
            at = end;
        }
        if (at == line.size())
            return out;
        at++; /* the comma */
    }
}

/* Length of the UTF-8 sequence that begins a text; 0: it is none. */
size_t sequence(std::string_view text)
{
    const auto byte = [&](size_t i) { return i < text.size() ? static_cast<uint8_t>(text[i]) : 0u; };
    const auto follows = [&](size_t i) { return (byte(i) & 0xc0) == 0x80; };
    if (byte(0) < 0x80)
        return 1;
    if (byte(0) >= 0xc2 && byte(0) < 0xe0)
        return follows(1) ? 2 : 0;
    if (byte(0) >= 0xe0 && byte(0) < 0xf0) {
        const bool overlong = byte(0) == 0xe0 && byte(1) < 0xa0,
                   surrogate = byte(0) == 0xed && byte(1) >= 0xa0;
        return follows(1) && follows(2) && !overlong && !surrogate ? 3 : 0;
    }
    if (byte(0) >= 0xf0 && byte(0) < 0xf5) {
        const bool overlong = byte(0) == 0xf0 && byte(1) < 0x90, beyond = byte(0) == 0xf4 && byte(1) >= 0x90;
        return follows(1) && follows(2) && follows(3) && !overlong && !beyond ? 4 : 0;
    }
    return 0;
}

void check_text(std::string_view column, std::string_view text, size_t longest)
{
    if (text.size() > longest)
        throw wrong_line(fmt::format("{} has {} bytes, {} fit", column, text.size(), longest));
    for (size_t at = 0; at < text.size();) {
        const size_t length = sequence(text.substr(at));
        if (length == 0)
            throw wrong_line(fmt::format("{} is not UTF-8 at byte {}", column, at + 1));
        if (static_cast<uint8_t>(text[at]) < 0x20 || text[at] == 0x7f)
            throw wrong_line(fmt::format("{} has a control character at byte {}", column, at + 1));
        at += length;
    }
}

uint32_t to_number(std::string_view column, std::string_view text, uint32_t most)
{
    uint32_t value = 0;
    const bool hexadecimal = text.starts_with("0x");
    const std::string_view digits = hexadecimal ? text.substr(2) : text;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, hexadecimal ? 16 : 10);
    if (error == std::errc::result_out_of_range || (error == std::errc() && value > most))
        throw wrong_line(fmt::format("{} {} is above {}", column, text, most));
    if (error != std::errc() || end != digits.data() + digits.size())
        throw wrong_line(fmt::format("{} \"{}\" is not a number", column, text));
    return value;
}

/* --- columns --- */

struct column {
    std::string_view name;
    void (*take)(const column &self, const std::string &text, signature &out);
    std::string signature::*text = nullptr;
    uint32_t signature::*number = nullptr;
    size_t longest = 0;
};

void take_text(const column &self, const std::string &text, signature &out)
{
    check_text(self.name, text, self.longest);
    out.*self.text = text;
}

void take_number(const column &self, const std::string &text, signature &out)
{
    out.*self.number = text.empty() ? 0 : to_number(self.name, text, std::numeric_limits<uint32_t>::max());
}

void take_type(const column &self, const std::string &text, signature &out)
{
    out.type = static_cast<uint16_t>(to_number(self.name, text, mix::wire::app_first_user_defined - 1));
}

constexpr column text_column(std::string_view name, std::string signature::*field, size_t longest)
{
    return {name, take_text, field, nullptr, longest};
}

constexpr column number_column(std::string_view name, uint32_t signature::*field)
{
    return {name, take_number, nullptr, field};
}

constexpr column columns[] = {
    {"type", take_type},
    text_column("name", &signature::name, app_longest_name),
    text_column("name_cn", &signature::name_cn, app_longest_name),
    text_column("category", &signature::category, app_longest_name),
    text_column("category_cn", &signature::category_cn, app_longest_name),
    text_column("subcategory", &signature::subcategory, app_longest_name),
    text_column("subcategory_cn", &signature::subcategory_cn, app_longest_name),
    text_column("technology", &signature::technology, app_longest_technology),
    number_column("risk", &signature::risk),
    number_column("flags", &signature::flags),
    number_column("property", &signature::property),
};

const column &find_column(const std::string &name)
{
    const auto *found = std::find_if(std::begin(columns), std::end(columns),
                                     [&](const column &one) { return one.name == name; });
    if (found == std::end(columns))
        throw wrong_line(fmt::format("\"{}\" is not a column", name));
    return *found;
}

std::vector<const column *> read_header(std::string_view line)
{
    std::vector<const column *> out;
    for (const std::string &name : split(line)) {
        const column *one = &find_column(name);
        if (std::find(out.begin(), out.end(), one) != out.end())
            throw wrong_line(fmt::format("column {} stands twice", name));
        out.push_back(one);
    }
    for (const column &required : {columns[0], columns[1]})
        if (std::none_of(out.begin(), out.end(),
                         [&](const column *one) { return one->name == required.name; }))
            throw wrong_line(fmt::format("column {} is missing", required.name));
    return out;
}

/* --- the file --- */

class reader
{
  public:
    reader(std::istream &from, const std::string &name) : from_(from), name_(name)
    {
        for (const app_table_row &row : tq_app_table)
            taken_.emplace(row.name, row.type);
    }
    signature_list read()
    {
        std::string line;
        while (std::getline(from_, line)) {
            number_++;
            if (number_ == 1 && line.starts_with("\xEF\xBB\xBF"))
                line.erase(0, 3);
            if (line.ends_with('\r'))
                line.pop_back();
            if (!line.empty() && line[0] != '#')
                take(line);
        }
        if (header_.empty())
            throw std::runtime_error(fmt::format("{}: names no columns", name_));
        return std::move(out_);
    }

  private:
    void take(const std::string &line)
    try {
        if (header_.empty())
            header_ = read_header(line);
        else
            out_.rows.push_back(read_row(split(line)));
    } catch (const wrong_line &why) {
        const std::string complaint = fmt::format("{}:{}: {}", name_, number_, why.what());
        if (header_.empty())
            throw std::runtime_error(complaint);
        out_.complaints.push_back(complaint);
    }

    signature read_row(const std::vector<std::string> &fields)
    {
        if (fields.size() != header_.size())
            throw wrong_line(fmt::format("has {} fields, not {}", fields.size(), header_.size()));
        signature out;
        for (size_t i = 0; i < fields.size(); i++)
            header_[i]->take(*header_[i], fields[i], out);
        if (out.name.empty())
            throw wrong_line("name is empty");
        if (out.name_cn.empty())
            out.name_cn = out.name;
        claim(out);
        return out;
    }

    /* A lookup by name finds one application only, and libmix's own rows keep their names. */
    void claim(const signature &row)
    {
        const auto own = std::find_if(std::begin(tq_app_table), std::end(tq_app_table),
                                      [&](const app_table_row &one) { return one.type == row.type; });
        if (own != std::end(tq_app_table) && row.name != own->name)
            throw wrong_line(fmt::format("type {} is \"{}\" always", row.type, own->name));
        if (const auto line = lines_.find(row.type); line != lines_.end())
            throw wrong_line(fmt::format("type {} stands in line {} already", row.type, line->second));
        const auto [name, fresh] = taken_.emplace(row.name, row.type);
        if (!fresh && name->second != row.type)
            throw wrong_line(fmt::format("\"{}\" is the name of type {}", row.name, name->second));
        lines_.emplace(row.type, number_);
    }

    std::istream &from_;
    const std::string &name_;
    size_t number_ = 0;
    std::vector<const column *> header_;
    std::map<std::string, int32_t, ignoring_case> taken_; /* name to type */
    std::map<uint16_t, size_t> lines_;                    /* type to line */
    signature_list out_;
};

} // namespace

signature_list read_signatures(std::istream &from, const std::string &name)
{
    return reader(from, name).read();
}

signature_list read_signatures(const std::string &file)
{
    std::ifstream from;
    if (!mix::wire::open_text(from, file))
        throw std::runtime_error(fmt::format("{}: {}", file, std::strerror(errno)));
    return read_signatures(from, file);
}

} // namespace mixd

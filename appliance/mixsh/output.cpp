#include "appliance/mixsh/output.h"

#include <algorithm>
#include <csignal>
#include <cwchar>
#include <fmt/format.h>
#include <fmt/ranges.h>

namespace mixsh
{

namespace
{

// A table is measured on its first rows: so many, or what came within this time.
constexpr std::size_t measured_rows = 40;
constexpr auto measured_time = std::chrono::milliseconds(100);
constexpr std::size_t gap = 2; // blanks between columns
constexpr std::size_t narrowest_cut = 8;

volatile std::sig_atomic_t interrupt_seen = 0;

struct decoded {
    std::size_t bytes; // taken from the text, 1 for a byte that is not UTF-8
    wchar_t character; // 0 for such a byte
};

bool continues(std::string_view text, std::size_t at)
{
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xc0) == 0x80;
}

// Strict UTF-8: no overlong forms, no surrogates, nothing above 0x10ffff.
decoded decode(std::string_view text, std::size_t at)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
    const unsigned first = byte(0);
    if (first < 0x80)
        return {1, static_cast<wchar_t>(first)};
    const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4)
        return {1, 0};
    std::uint32_t value = first & (0xffu >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if (!continues(text, at + i))
            return {1, 0};
        value = value << 6 | (byte(i) & 0x3fu);
    }
    constexpr std::uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    if (value < least[length] || (value >= 0xd800 && value < 0xe000) || value > 0x10ffff)
        return {1, 0};
    return {length, static_cast<wchar_t>(value)};
}

std::size_t columns_of(wchar_t character)
{
    if (character != 0 && character < 0x7f)
        return 1;
    const int width = wcwidth(character);
    return width < 0 ? 1 : static_cast<std::size_t>(width);
}

bool is_control(wchar_t character)
{
    return character < 0x20 || (character >= 0x7f && character < 0xa0) || character == 0x2028 ||
           character == 0x2029 || (character >= 0x202a && character <= 0x202e) ||
           (character >= 0x2066 && character <= 0x2069);
}

} // namespace

// --- text

std::size_t display_width(std::string_view text)
{
    std::size_t width = 0;
    for (std::size_t at = 0; at < text.size();) {
        const auto [bytes, character] = decode(text, at);
        width += character ? columns_of(character) : 1;
        at += bytes;
    }
    return width;
}

std::string printable(std::string_view text)
{
    std::string safe;
    safe.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const auto [bytes, character] = decode(text, at);
        if (!is_control(character))
            safe += text.substr(at, bytes);
        else
            for (std::size_t i = 0; i < bytes; ++i)
                safe += fmt::format("\\x{:02x}", static_cast<unsigned char>(text[at + i]));
        at += bytes;
    }
    return safe;
}

std::string cut_to(std::string_view text, std::size_t width)
{
    if (display_width(text) <= width)
        return std::string(text);
    if (width == 0)
        return {};
    std::size_t used = 0;
    std::size_t at = 0;
    while (at < text.size()) {
        const auto [bytes, character] = decode(text, at);
        const auto more = character ? columns_of(character) : 1;
        if (used + more > width - 1)
            break;
        used += more;
        at += bytes;
    }
    return std::string(text.substr(0, at)) + "…" + std::string(width - 1 - used, ' ');
}

std::string json_string(std::string_view text)
{
    std::string quoted = "\"";
    for (std::size_t at = 0; at < text.size();) {
        const auto [bytes, character] = decode(text, at);
        if (text[at] == '"' || text[at] == '\\')
            quoted += {'\\', text[at]};
        else if (text[at] == '\n')
            quoted += "\\n";
        else if (text[at] == '\t')
            quoted += "\\t";
        else if (bytes == 1 && character == 0 && text[at] != '\0')
            quoted += "\xef\xbf\xbd"; // a byte that is not UTF-8 can't stand in JSON
        else if (character < 0x20 || character == 0x7f)
            quoted += fmt::format("\\u{:04x}", static_cast<unsigned>(character));
        else
            quoted += text.substr(at, bytes);
        at += bytes;
    }
    return quoted + '"';
}

std::string json_list(const std::vector<std::string> &texts)
{
    std::string list;
    for (const auto &text : texts)
        list += (list.empty() ? "" : ", ") + json_string(text);
    return "[" + list + "]";
}

void set_interrupted(bool now)
{
    interrupt_seen = now ? 1 : 0;
}

bool interrupted()
{
    return interrupt_seen != 0;
}

// --- cells

cell::cell(std::string text)
{
    if (!text.empty())
        is_ = std::move(text);
}

cell::cell(std::vector<std::string> texts) : is_(std::move(texts)) {}

cell::cell(const cell &) = default;
cell::cell(cell &&) noexcept = default;
cell &cell::operator=(const cell &) = default;
cell &cell::operator=(cell &&) noexcept = default;
cell::~cell() = default;

bool cell::is_number() const
{
    return std::holds_alternative<std::int64_t>(is_) || std::holds_alternative<std::uint64_t>(is_) ||
           std::holds_alternative<double>(is_);
}

std::string cell::shown() const
{
    if (const auto *text = std::get_if<std::string>(&is_))
        return printable(*text);
    if (const auto *texts = std::get_if<std::vector<std::string>>(&is_); texts && !texts->empty())
        return printable(fmt::format("{}", fmt::join(*texts, ",")));
    if (const auto *truth = std::get_if<bool>(&is_))
        return *truth ? "yes" : "no";
    if (const auto *number = std::get_if<std::int64_t>(&is_))
        return fmt::format("{}", *number);
    if (const auto *number = std::get_if<std::uint64_t>(&is_))
        return fmt::format("{}", *number);
    if (const auto *number = std::get_if<double>(&is_))
        return fmt::format("{:.{}f}", *number, decimals_);
    return "-";
}

std::string cell::json() const
{
    if (const auto *text = std::get_if<std::string>(&is_))
        return json_string(*text);
    if (const auto *texts = std::get_if<std::vector<std::string>>(&is_))
        return json_list(*texts);
    if (const auto *truth = std::get_if<bool>(&is_))
        return *truth ? "true" : "false";
    if (const auto *number = std::get_if<double>(&is_))
        return std::isfinite(*number) ? shown() : "null";
    return is_number() ? shown() : "null";
}

// --- the output

bool output::unwanted() const
{
    return interrupted() || std::ferror(stream_);
}

void output::write(std::string_view text)
{
    silent_ = silent_ && text.empty();
    std::fwrite(text.data(), 1, text.size(), stream_);
}

bool output::flush()
{
    return std::fflush(stream_) == 0 && !std::ferror(stream_);
}

void output::record(std::span<const field> fields)
{
    std::string text;
    if (as_ == form::json) {
        for (const auto &one : fields)
            text += fmt::format("{}{}: {}", text.empty() ? "" : ", ", json_string(one.key), one.value.json());
        text = "{" + text + "}\n";
    } else {
        std::size_t widest = 0;
        for (const auto &one : fields)
            widest = std::max(widest, display_width(one.title));
        for (const auto &one : fields)
            text += fmt::format("{}{:{}}{}\n", one.title, "", widest - display_width(one.title) + gap,
                                one.value.shown());
    }
    write(text);
}

void output::note(std::string_view line)
{
    if (as_ == form::json)
        return;
    const auto text = printable(line) + "\n";
    write(text);
}

void output::plain(std::string_view text)
{
    if (as_ == form::json) {
        record({{"Text", "text", text}});
        return;
    }
    std::string safe;
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size());
        safe += printable(text.substr(0, end)) + "\n";
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    write(safe);
}

// --- tables

table::table(output &out, std::span<const column> columns) : out_(out), columns_(columns)
{
    for (std::size_t i = 0; i < columns.size(); ++i)
        if (out.as() == form::json || !columns[i].programs_only)
            shown_.push_back(i);
}

table::~table()
{
    end();
}

bool table::row(std::vector<cell> cells)
{
    cells.resize(columns_.size());
    ++count_;
    if (out_.as() == form::json) {
        std::string text = "{";
        for (const auto i : shown_)
            text += fmt::format("{}{}: {}", i ? ", " : "", json_string(columns_[i].key), cells[i].json());
        text += "}\n";
        out_.write(text);
        if (count_ == measured_rows)
            out_.flush();
        return !out_.unwanted();
    }
    if (settled_) {
        std::vector<std::string> texts;
        for (const auto i : shown_)
            texts.push_back(cells[i].shown());
        print(texts);
        return !out_.unwanted();
    }
    const auto now = std::chrono::steady_clock::now();
    if (held_.empty())
        first_row_ = now;
    held_.push_back(std::move(cells));
    if (held_.size() >= measured_rows || now - first_row_ >= measured_time)
        settle();
    return !out_.unwanted();
}

// Measures the columns on the rows held back, prints the titles and these rows.
void table::settle()
{
    settled_ = true;
    std::vector<std::vector<std::string>> shown;
    right_.assign(shown_.size(), false);
    for (const auto i : shown_)
        widths_.push_back(std::max(display_width(columns_[i].title), columns_[i].at_least));
    for (const auto &cells : held_) {
        auto &texts = shown.emplace_back();
        for (std::size_t i = 0; i < shown_.size(); ++i) {
            const auto &one = cells[shown_[i]];
            texts.push_back(one.shown());
            widths_[i] = std::max(widths_[i], display_width(texts[i]));
            right_[i] = right_[i] || one.is_number();
        }
    }
    held_.clear();
    fit();
    std::vector<std::string> titles;
    for (const auto i : shown_)
        titles.emplace_back(columns_[i].title);
    print(titles);
    for (const auto &texts : shown)
        print(texts);
    out_.flush();
}

// Takes width from the columns that may be cut until a row fits the terminal; from the right, since the
// columns that tell rows apart stand on the left.
void table::fit()
{
    std::size_t all = (shown_.size() - 1) * gap;
    for (const auto width : widths_)
        all += width;
    for (auto i = shown_.size(); i-- > 0 && out_.width() && all > out_.width();) {
        const auto &of = columns_[shown_[i]];
        const auto least = std::max(narrowest_cut, display_width(of.title));
        if (!of.may_be_cut || widths_[i] <= least)
            continue;
        const auto less = std::min(widths_[i] - least, all - out_.width());
        widths_[i] -= less;
        all -= less;
    }
}

void table::print(const std::vector<std::string> &texts)
{
    std::string line;
    std::size_t owed = 0; // blanks before the next column; none at a line's end
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const bool cut = out_.width() && columns_[shown_[i]].may_be_cut;
        const auto text = cut ? cut_to(texts[i], widths_[i]) : texts[i];
        const auto width = display_width(text);
        const auto fill = widths_[i] > width ? widths_[i] - width : 0;
        line.append(owed + (right_[i] ? fill : 0), ' ');
        line += text;
        owed = gap + (right_[i] ? 0 : fill);
    }
    line += '\n';
    out_.write(line);
}

void table::end()
{
    if (out_.as() == form::columns && !settled_ && !held_.empty())
        settle();
}

} // namespace mixsh

#include "appliance/mixsh/shell.h"

#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>

namespace mixsh
{

namespace
{

void write(std::FILE *to, std::string_view text)
{
    std::fwrite(text.data(), 1, text.size(), to);
}

std::vector<std::string> names_of(const std::vector<expected> &instead)
{
    std::vector<std::string> names;
    for (const auto &is : instead)
        names.push_back(is.text);
    return names;
}

std::string joined(const std::vector<std::string> &names)
{
    std::string all;
    for (const auto &name : names)
        all += (all.empty() ? "" : ", ") + name;
    return all;
}

// A line that ends in a "?" outside quotes asks what may stand there.
bool asks(std::string_view line, const token_line &split)
{
    return !split.open && !split.comment && !split.tokens.empty() && !split.tokens.back().quoted &&
           split.tokens.back().text.ends_with('?') && split.tokens.back().end <= line.size();
}

constexpr column place_columns[] = {{"Word", "word"}, {"Meaning", "help", true}};

} // namespace

void show_place(output &out, const place &here, std::string_view beginning)
{
    table rows(out, place_columns);
    for (const auto &is : here.next) {
        if (is.is == expected::what::word && !std::string_view(is.text).starts_with(beginning))
            continue;
        if (is.is == expected::what::value && !beginning.empty() &&
            is.of->is->rate(*is.of, std::string(beginning)).is == verdict::wrong)
            continue;
        rows.row({is.text, is.help});
    }
    if (here.ends && beginning.empty())
        rows.row({"<enter>", here.ends->help});
}

status shell::explain(std::string_view line, std::size_t prompt_width)
{
    const auto at = complete(families_, line);
    if (!at.readable)
        return complain(line, at.why, prompt_width);
    output out(how_.answers, how_.as, how_.width);
    show_place(out, at.here, at.beginning);
    return out.flush() ? status::ok : status::failed;
}

status shell::run(std::string_view line, std::size_t prompt_width)
{
    if (line.find('\0') != std::string_view::npos) {
        report(line, {"the line has a zero byte in it", {}, {}}, status::wrong);
        return status::wrong;
    }
    const auto split = split_words(line);
    if (split.comment || (split.tokens.empty() && !split.open))
        return status::ok;
    if (asks(line, split))
        return explain(line.substr(0, split.tokens.back().end - 1), prompt_width);
    auto read = read_line(families_, line, split);
    if (!read.runs)
        return complain(line, read.why, prompt_width);

    output out(how_.answers, how_.as, how_.width);
    set_interrupted(false);
    invocation call(*read.which, std::move(read.words), out, how_.language);
    const auto ended = read.which->run(call);
    if (ended == outcome::done && out.silent() && read.which->words.starts_with("show ") && !interrupted())
        out.note("nothing to show");
    const bool written = out.flush();
    const auto result = ended == outcome::misused  ? status::wrong
                        : ended == outcome::failed ? status::failed
                                                   : status::ok;
    if (result != status::ok)
        report(line, call.reported(), result);
    if (interrupted())
        return status::interrupted;
    if (!written) {
        report(line, {"the answer can't be written", {}, {}}, status::failed);
        return status::failed;
    }
    leaving_ = leaving_ || ended == outcome::leave;
    return result;
}

std::string shell::where() const
{
    return number_ != 0 ? fmt::format("line {}: ", number_) : "";
}

std::string shell::json_where(std::string_view line) const
{
    return fmt::format("\"line\": {}, \"line_number\": {}", json_string(line),
                       number_ != 0 ? fmt::format("{}", number_) : "null");
}

status shell::complain(std::string_view line, const complaint &why, std::size_t prompt_width)
{
    const auto at = std::min(why.at, line.size());
    const auto column = display_width(printable(line.substr(0, at))) + (why.at - at);
    const auto result = why.is == verdict::wrong ? status::wrong : status::incomplete;
    const auto names = names_of(why.instead);
    if (how_.as == form::json) {
        write(how_.errors,
              fmt::format("{{\"error\": {}, \"status\": {}, {}, \"column\": {}, \"expected\": {}}}\n",
                          json_string(why.text), static_cast<int>(result), json_where(line), column + 1,
                          json_list(names)));
        return result;
    }
    std::string text;
    const auto shown = printable(line);
    const bool in_sight = prompt_width && prompt_width + display_width(shown) < how_.width;
    if (!in_sight)
        text += fmt::format("{}{}\n", where(), shown);
    text += fmt::format("{:{}}^\n", "", column + (in_sight ? prompt_width : display_width(where())));
    text += why.text + "\n";
    if (!names.empty())
        text += fmt::format("  {}: {}\n", why.is == verdict::wrong ? "expected" : "could be followed by",
                            joined(names));
    write(how_.errors, text);
    return result;
}

void shell::report(std::string_view line, const failure &why, status as)
{
    if (how_.as == form::json) {
        write(how_.errors,
              fmt::format("{{\"error\": {}, \"status\": {}, {}, \"reasons\": {}, \"advice\": {}}}\n",
                          json_string(why.what), static_cast<int>(as), json_where(line),
                          json_list(why.reasons), json_list(why.advice)));
        return;
    }
    auto text = fmt::format("{}{}\n", where(), printable(why.what));
    for (const auto &reason : why.reasons)
        text += fmt::format("  {}\n", printable(reason));
    for (const auto &advice : why.advice)
        text += fmt::format("  try: {}\n", printable(advice));
    write(how_.errors, text);
}

status shell::run_script(std::FILE *script)
{
    auto first = status::ok;
    char *line = nullptr;
    std::size_t room = 0;
    while (!leaving_) {
        const auto length = getline(&line, &room, script);
        if (length < 0)
            break;
        std::string_view text(line, static_cast<std::size_t>(length));
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
            text.remove_suffix(1);
        ++number_;
        const auto result = run(text);
        if (first == status::ok)
            first = result;
        if (result == status::interrupted || (result != status::ok && !how_.keep_going))
            break;
    }
    std::free(line);
    return first;
}

status shell::run_lines(std::string_view lines)
{
    auto first = status::ok;
    while (!lines.empty() && !leaving_) {
        const auto end = std::min(lines.find('\n'), lines.size());
        const auto result = run(lines.substr(0, end));
        lines.remove_prefix(std::min(end + 1, lines.size()));
        if (first == status::ok)
            first = result;
        if (result == status::interrupted || (result != status::ok && !how_.keep_going))
            break;
    }
    return first;
}

} // namespace mixsh

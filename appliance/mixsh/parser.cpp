#include "appliance/mixsh/parser.h"

#include <algorithm>
#include <cctype>
#include <fmt/format.h>
#include <set>

namespace mixsh
{

namespace
{

constexpr std::pair<std::string_view, std::string_view> verbs[] = {
    {"show", "show what is there"},
    {"set", "change a setting"},
    {"add", "add an entry"},
    {"delete", "delete an entry"},
    {"clear", "remove what was learned or counted"},
    {"export", "write to a file"},
};

std::vector<std::string_view> words_of(const command &row)
{
    std::vector<std::string_view> words;
    for (auto rest = row.words; !rest.empty();) {
        const auto end = std::min(rest.find(' '), rest.size());
        words.push_back(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return words;
}

bool begins(std::string_view text, std::string_view beginning)
{
    return text.substr(0, beginning.size()) == beginning;
}

bool repeats(const argument &is)
{
    return is.needed == presence::repeated || is.needed == presence::any;
}

bool may_be_left_out(const argument &is)
{
    return is.needed == presence::optional || is.needed == presence::any;
}

// An argument in a usage: a keyword and what follows it, or the name of a value at its place.
std::string written(const argument &is)
{
    if (!is.is)
        return std::string(is.name);
    if (is.keyword)
        return fmt::format("{} {}", is.name, form_of(is));
    return is.within.choices.empty() ? std::string(is.name) : form_of(is);
}

// A command of the table whose fixed words agree with the line so far.
struct row {
    const family *of;
    const command *is;
    std::vector<std::string_view> words;
};

// The walk: one word is taken after the other.
class walk
{
  public:
    explicit walk(std::span<const family> families)
    {
        for (const auto &group : families)
            for (const auto &is : group.commands)
                rows_.push_back({&group, &is, words_of(is)});
    }

    place here() const;
    // Empty: taken.
    std::optional<complaint> take(const token &next);
    // The words so far as a command, or what is missing. `end` is where the next word would stand.
    reading finish(std::size_t end);

  private:
    const command *row_here() const;
    bool bound(const argument &is) const;
    const argument *next_positional(const command &row) const;
    std::vector<expected> fixed_words() const;
    std::vector<expected> arguments_of(const command &row) const;
    void expect_value(std::vector<expected> &into, const argument &is) const;
    std::vector<const expected *> matching(const std::vector<expected> &next, const token &word) const;
    std::optional<complaint> take_value(const argument &is, const token &word);
    void take_word(const expected &which);
    complaint no_such_word(const place &here, const token &word) const;
    complaint ambiguous(const std::vector<const expected *> &which, const token &word) const;

    std::vector<row> rows_;             // those that agree so far
    std::size_t depth_ = 0;             // fixed words taken
    const command *chosen_ = nullptr;   // once an argument has been taken
    const argument *pending_ = nullptr; // a keyword whose value comes next
    std::vector<bound_word> words_;
};

// The command whose fixed words are all there.
const command *walk::row_here() const
{
    if (chosen_)
        return chosen_;
    for (const auto &candidate : rows_)
        if (depth_ > 0 && candidate.words.size() == depth_)
            return candidate.is;
    return nullptr;
}

bool walk::bound(const argument &is) const
{
    return std::ranges::any_of(words_, [&](const bound_word &word) { return word.to == &is; });
}

const argument *walk::next_positional(const command &row) const
{
    for (const auto &is : row.arguments)
        if (!is.keyword && (!bound(is) || repeats(is)))
            return &is;
    return nullptr;
}

std::vector<expected> walk::fixed_words() const
{
    std::vector<expected> next;
    if (chosen_)
        return next;
    for (const auto &candidate : rows_) {
        if (candidate.words.size() <= depth_)
            continue;
        const auto word = candidate.words[depth_];
        const bool ends = candidate.words.size() == depth_ + 1;
        auto known = std::ranges::find_if(next, [&](const expected &is) { return is.text == word; });
        if (known == next.end()) {
            const auto verb = std::ranges::find_if(verbs, [&](auto &v) { return v.first == word; });
            std::string_view help = candidate.of->help;
            if (ends)
                help = candidate.is->help;
            else if (depth_ == 0 && verb != std::end(verbs))
                help = verb->second;
            next.push_back({expected::what::word, std::string(word), std::string(help), nullptr, nullptr});
        } else if (ends) {
            known->help = candidate.is->help;
        }
    }
    return next;
}

void walk::expect_value(std::vector<expected> &into, const argument &is) const
{
    if (is.within.choices.empty()) {
        into.push_back({expected::what::value, form_of(is), std::string(is.help), &is, nullptr});
        return;
    }
    for (const auto &pick : is.within.choices)
        into.push_back({expected::what::word, std::string(pick.word), std::string(pick.help), &is, &pick});
}

std::vector<expected> walk::arguments_of(const command &row) const
{
    std::vector<expected> next;
    if (const auto *positional = next_positional(row))
        expect_value(next, *positional);
    for (const auto &is : row.arguments)
        if (is.keyword && !bound(is))
            next.push_back({expected::what::word, std::string(is.name), std::string(is.help), &is, nullptr});
    return next;
}

place walk::here() const
{
    place result;
    if (pending_) {
        expect_value(result.next, *pending_);
        return result;
    }
    result.next = fixed_words();
    const auto *row = row_here();
    if (!row)
        return result;
    auto arguments = arguments_of(*row);
    result.next.insert(result.next.end(), arguments.begin(), arguments.end());
    const bool all = std::ranges::all_of(
        row->arguments, [&](const argument &is) { return bound(is) || may_be_left_out(is); });
    result.ends = all ? row : nullptr;
    return result;
}

// The words that a token can mean: the one that it spells out, else those that it begins. What is quoted is
// never a word of the grammar, and what a value at this place would take is no abbreviation.
std::vector<const expected *> walk::matching(const std::vector<expected> &next, const token &word) const
{
    std::vector<const expected *> found;
    if (word.quoted)
        return found;
    bool is_value = false;
    for (const auto &is : next) {
        if (is.is == expected::what::value)
            is_value = is_value || is.of->is->rate(*is.of, word.text).is == verdict::complete;
        else if (is.text == word.text)
            return {&is};
        else if (!word.text.empty() && begins(is.text, word.text))
            found.push_back(&is);
    }
    if (is_value)
        found.clear();
    return found;
}

void walk::take_word(const expected &which)
{
    if (which.picks) {
        words_.push_back({which.of, std::string(which.picks->word)});
        pending_ = nullptr;
        chosen_ = row_here();
        return;
    }
    if (which.of) {
        chosen_ = row_here();
        if (which.of->is)
            pending_ = which.of;
        else
            words_.push_back({which.of, std::string(which.of->name)});
        return;
    }
    std::erase_if(rows_,
                  [&](const row &is) { return is.words.size() <= depth_ || is.words[depth_] != which.text; });
    ++depth_;
}

std::optional<complaint> walk::take_value(const argument &is, const token &word)
{
    auto rated = is.is->rate(is, word.text);
    if (rated.is == verdict::complete) {
        words_.push_back({&is, word.text});
        pending_ = nullptr;
        if (!chosen_)
            chosen_ = row_here();
        return {};
    }
    complaint why{.is = rated.is, .at = word.place(rated.at)};
    const auto reason = rated.why.empty() ? fmt::format("expected {}", is.is->describes) : rated.why;
    if (rated.is == verdict::incomplete) {
        why.at = word.end;
        why.text = fmt::format("\"{}\" is not complete: {}", printable(word.text), reason);
    } else {
        why.text = fmt::format("\"{}\" is wrong: {}", printable(word.text), reason);
    }
    return why;
}

complaint walk::ambiguous(const std::vector<const expected *> &which, const token &word) const
{
    complaint why{.is = verdict::incomplete, .at = word.end};
    why.text = fmt::format("\"{}\" may mean more than one word", printable(word.text));
    for (const auto *is : which)
        why.instead.push_back(*is);
    return why;
}

// Points at the first character that no word of this place has there.
complaint walk::no_such_word(const place &here, const token &word) const
{
    complaint why{.is = verdict::wrong, .at = word.place(0)};
    why.instead = here.next;
    if (here.next.empty()) {
        why.text = fmt::format("nothing may follow here, but \"{}\" does", printable(word.text));
        return why;
    }
    std::size_t longest = 0;
    for (const auto &is : here.next) {
        if (is.is != expected::what::word || word.quoted)
            continue;
        const auto [mine, its] = std::ranges::mismatch(word.text, is.text);
        longest = std::max(longest, static_cast<std::size_t>(mine - word.text.begin()));
    }
    why.at = word.place(longest);
    why.text = fmt::format("\"{}\" is not a word that may stand here", printable(word.text));
    return why;
}

std::optional<complaint> walk::take(const token &next)
{
    const auto here = this->here();
    const auto found = matching(here.next, next);
    if (found.size() == 1) {
        take_word(*found.front());
        return {};
    }
    if (found.size() > 1)
        return ambiguous(found, next);
    for (const auto &is : here.next)
        if (is.is == expected::what::value)
            return take_value(*is.of, next);
    // A quoted word still picks a choice, when it spells it out.
    for (const auto &is : here.next)
        if (is.picks && is.text == next.text) {
            take_word(is);
            return {};
        }
    return no_such_word(here, next);
}

reading walk::finish(std::size_t end)
{
    const auto here = this->here();
    if (here.ends)
        return {.runs = true, .which = here.ends, .words = std::move(words_), .why = {}};
    complaint why{
        .is = verdict::incomplete, .at = end, .text = "the command is not complete", .instead = here.next};
    if (pending_)
        why.text = fmt::format("{} needs a value", pending_->name);
    else if (const auto *row = row_here())
        for (const auto &is : row->arguments)
            if (!may_be_left_out(is) && !bound(is)) {
                why.text = fmt::format("{} is missing", written(is));
                break;
            }
    return {.runs = false, .which = nullptr, .words = {}, .why = std::move(why)};
}

// Takes the first `count` tokens.
std::optional<complaint> take_all(walk &reader, const token_line &split, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
        if (auto why = reader.take(split.tokens[i]))
            return why;
    return {};
}

std::size_t next_word_at(std::string_view line)
{
    const bool parted = line.empty() || line.back() == ' ' || line.back() == '\t';
    return line.size() + (parted ? 0 : 1);
}

// Adds what can be offered for a beginning at a place.
void offer(completion &into)
{
    std::set<std::string> offered;
    const auto add = [&](std::string word, std::string help) {
        if (begins(word, into.beginning) && offered.insert(word).second)
            into.candidates.push_back({std::move(word), std::move(help)});
    };
    for (const auto &is : into.here.next) {
        if (is.is == expected::what::word) {
            add(is.text, is.help);
            continue;
        }
        if (!is.of->is->suggest) {
            into.value_expected = true;
            continue;
        }
        for (auto &one : is.of->is->suggest(*is.of, into.beginning))
            add(std::move(one.word), std::move(one.help));
    }
}

} // namespace

reading read_line(std::span<const family> families, std::string_view line, const token_line &split)
{
    if (split.open)
        return {.runs = false,
                .which = nullptr,
                .words = {},
                .why = {.is = verdict::incomplete,
                        .at = split.open_at,
                        .text = line[split.open_at] == '\\' ? "nothing follows the backslash"
                                                            : "the quote is not closed",
                        .instead = {}}};
    walk reader(families);
    if (auto why = take_all(reader, split, split.tokens.size()))
        return {.runs = false, .which = nullptr, .words = {}, .why = std::move(*why)};
    return reader.finish(next_word_at(line));
}

lookahead look_after(std::span<const family> families, const token_line &split, std::size_t count)
{
    walk reader(families);
    if (auto why = take_all(reader, split, count))
        return {.readable = false, .here = {}, .why = std::move(*why)};
    return {.readable = true, .here = reader.here(), .why = {}};
}

completion complete(std::span<const family> families, std::string_view line)
{
    const auto split = split_words(line);
    completion result{.replaces = line.size()};
    auto before = split.tokens.size();
    if (split.touches_last) {
        const auto &last = split.tokens.back();
        --before;
        result.replaces = last.begin;
        result.beginning = last.text;
    }
    auto ahead = look_after(families, split, before);
    result.readable = ahead.readable;
    result.here = std::move(ahead.here);
    result.why = std::move(ahead.why);
    if (result.readable)
        offer(result);
    return result;
}

std::string form_of(const argument &of)
{
    if (!of.within.choices.empty()) {
        std::string all;
        for (const auto &pick : of.within.choices)
            all += fmt::format("{}{}", all.empty() ? "" : "|", pick.word);
        return all;
    }
    if (of.is->form == form_of_limits)
        return fmt::format("<{}-{}>", of.within.low, of.within.high);
    std::string text(of.is->form.empty() ? of.name : of.is->form);
    if (of.is->form.empty())
        std::ranges::transform(text, text.begin(),
                               [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

std::string usage(const command &which)
{
    std::string text(which.words);
    for (const auto &is : which.arguments) {
        const auto one = written(is) + (repeats(is) ? "..." : "");
        text += may_be_left_out(is) ? fmt::format(" [{}]", one) : fmt::format(" {}", one);
    }
    return text;
}

std::vector<std::string> check_tables(std::span<const family> families)
{
    std::vector<std::string> mistakes;
    std::set<std::string_view> known;
    const auto say = [&](const command &is, std::string_view what) {
        mistakes.push_back(fmt::format("{}: {}", is.words, what));
    };
    for (const auto &group : families)
        for (const auto &is : group.commands) {
            if (!known.insert(is.words).second)
                say(is, "stands in the tables twice");
            if (is.help.empty() || !is.run || is.words.empty())
                say(is, "has no words, no help or no function");
            std::set<std::string_view> names;
            bool optional = false; // a positional argument before may be left out
            bool ended = false;    // or takes all that follows
            for (const auto &one : is.arguments) {
                if (!names.insert(one.name).second)
                    say(is, fmt::format("{} is declared twice", one.name));
                if (one.help.empty())
                    say(is, fmt::format("{} has no help", one.name));
                if (!one.is && !one.keyword)
                    say(is, fmt::format("{} is a value of no kind", one.name));
                if (one.within.low > one.within.high)
                    say(is, fmt::format("{} has an empty range", one.name));
                if (one.keyword)
                    continue;
                if (ended || (optional && !may_be_left_out(one)))
                    say(is, fmt::format("{} can never be reached", one.name));
                ended = ended || repeats(one);
                optional = optional || may_be_left_out(one);
            }
        }
    return mistakes;
}

} // namespace mixsh

#include "appliance/mixsh/tokens.h"

#include <algorithm>

namespace mixsh
{

namespace
{

bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

class splitter
{
  public:
    explicit splitter(std::string_view line) : line_(line) {}

    token_line run()
    {
        skip_blanks();
        if (at_ < line_.size() && (line_[at_] == '#' || line_[at_] == '!')) {
            result_.comment = true;
            return std::move(result_);
        }
        while (at_ < line_.size()) {
            one_token();
            result_.touches_last = at_ == line_.size();
            skip_blanks();
        }
        return std::move(result_);
    }

  private:
    void skip_blanks()
    {
        while (at_ < line_.size() && is_blank(line_[at_]))
            ++at_;
    }

    void take(std::size_t from)
    {
        token_.text += line_[from];
        token_.origin.push_back(from);
    }

    void open(std::size_t where)
    {
        result_.open = true;
        result_.open_at = where;
        at_ = line_.size();
    }

    void one_token()
    {
        token_ = {};
        token_.begin = at_;
        while (at_ < line_.size() && !is_blank(line_[at_])) {
            if (line_[at_] == '\'' || line_[at_] == '"')
                quoted_part(line_[at_]);
            else if (line_[at_] == '\\')
                escaped(true);
            else
                take(at_++);
        }
        token_.end = at_;
        result_.tokens.push_back(std::move(token_));
    }

    void quoted_part(char quote)
    {
        const auto start = at_++;
        token_.quoted = true;
        while (at_ < line_.size() && line_[at_] != quote) {
            if (quote == '"' && line_[at_] == '\\')
                escaped(false);
            else
                take(at_++);
        }
        if (at_ >= line_.size())
            return open(start);
        ++at_;
    }

    // A backslash: outside quotes it keeps any character, inside only a quote and a backslash.
    void escaped(bool any)
    {
        token_.quoted = true;
        if (at_ + 1 >= line_.size())
            return open(at_);
        const char next = line_[at_ + 1];
        if (!any && next != '"' && next != '\\') {
            take(at_++);
            return;
        }
        take(at_ + 1);
        at_ += 2;
    }

    std::string_view line_;
    std::size_t at_ = 0;
    token token_;
    token_line result_;
};

} // namespace

token_line split_words(std::string_view line)
{
    return splitter(line).run();
}

std::string quoted_for_line(std::string_view word)
{
    const bool plain = !word.empty() && std::ranges::none_of(word, [](char c) {
        return is_blank(c) || c == '\'' || c == '"' || c == '\\' || c == '#' || c == '!' || c == '?';
    });
    if (plain)
        return std::string(word);
    std::string quoted = "\"";
    for (const char c : word) {
        if (c == '"' || c == '\\')
            quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

} // namespace mixsh

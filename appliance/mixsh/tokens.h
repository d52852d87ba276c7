// Cuts a command line into words.
//
// Words are parted by blanks and tabs. 'single quotes' keep everything, "double quotes" keep everything but
// the escapes \" and \\, a backslash outside quotes keeps the character after it. A quoted part makes the
// word a value: it is never taken for a word of the grammar. A line whose first character is # or ! is a
// comment.
#ifndef MIXSH_TOKENS_H
#define MIXSH_TOKENS_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace mixsh
{

struct token {
    std::string text;
    std::size_t begin = 0; // bytes of the line: [begin, end)
    std::size_t end = 0;
    bool quoted = false;
    std::vector<std::size_t> origin = {}; // for each byte of text, where in the line it stands

    // Where in the line byte `at` of the text stands; past the text, its end.
    std::size_t place(std::size_t at) const { return at < origin.size() ? origin[at] : end; }
};

struct token_line {
    std::vector<token> tokens;
    bool comment = false;
    // The line ended inside a quote or right after a backslash. open_at is where that began.
    bool open = false;
    std::size_t open_at = 0;
    // The line ends inside or right behind its last token: a key typed now would lengthen it.
    bool touches_last = false;
};

token_line split_words(std::string_view line);

// The word as it must be typed to come back as one token that is a value.
std::string quoted_for_line(std::string_view word);

} // namespace mixsh

#endif

#include "appliance/mixsh/terminal.h"

#include "appliance/mixsh/history.h"

#include <algorithm>
#include <cstdlib>
#include <cwchar>
#include <fmt/format.h>
#include <histedit.h>
#include <memory>
#include <sys/ioctl.h>
#include <unistd.h>

namespace mixsh
{

namespace
{

constexpr std::size_t prompt_width = 7;

char *prompt(EditLine *)
{
    static char text[] = "mixsh> ";
    return text;
}

shell &shell_of(EditLine *editor)
{
    void *data = nullptr;
    el_get(editor, EL_CLIENTDATA, &data);
    return *static_cast<shell *>(data);
}

// The line up to the cursor.
std::string before_cursor(EditLine *editor)
{
    const auto *line = el_line(editor);
    return std::string(line->buffer, line->cursor);
}

std::size_t characters(std::string_view text)
{
    return static_cast<std::size_t>(
        std::ranges::count_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

// "?": what may stand here; inside quotes it is a character like any other.
unsigned char help_key(EditLine *editor, int)
{
    const auto line = before_cursor(editor);
    const auto split = split_words(line);
    if (split.open || (split.touches_last && split.tokens.back().quoted))
        return el_insertstr(editor, "?") == 0 ? CC_REFRESH : CC_ERROR;
    fmt::print("?\n");
    std::fflush(stdout);
    shell_of(editor).explain(line);
    return CC_REDISPLAY;
}

std::string common_beginning(const std::vector<candidate> &all)
{
    std::string common = all.front().word;
    for (const auto &one : all) {
        const auto [mine, its] = std::ranges::mismatch(common, one.word);
        common.resize(static_cast<std::size_t>(mine - common.begin()));
    }
    // Never half of a character.
    while (!common.empty() && (static_cast<unsigned char>(all.front().word[common.size()]) & 0xc0) == 0x80)
        common.pop_back();
    return common;
}

// Puts `word` in the place of what has been typed of it.
void replace_typed(EditLine *editor, const std::string &line, const completion &at, const std::string &word,
                   bool whole)
{
    const auto typed = line.substr(at.replaces);
    const auto fresh = whole ? quoted_for_line(word) + (word.ends_with('/') ? "" : " ") : word;
    if (fresh.starts_with(typed)) {
        el_insertstr(editor, fresh.substr(typed.size()).c_str());
        return;
    }
    el_deletestr(editor, static_cast<int>(characters(typed)));
    el_insertstr(editor, fresh.c_str());
}

unsigned char completion_key(EditLine *editor, int)
{
    const auto line = before_cursor(editor);
    const auto at = complete(shell_of(editor).families(), line);
    if (at.readable && at.candidates.size() == 1) {
        replace_typed(editor, line, at, at.candidates.front().word, true);
        return CC_REFRESH;
    }
    if (at.readable && at.candidates.size() > 1) {
        const auto common = common_beginning(at.candidates);
        if (common.size() > at.beginning.size() && quoted_for_line(common) == common) {
            replace_typed(editor, line, at, common, false);
            return CC_REFRESH;
        }
    }
    fmt::print("\n");
    std::fflush(stdout);
    auto &sh = shell_of(editor);
    if (!at.readable || at.candidates.empty()) {
        sh.explain(line);
        return CC_REDISPLAY;
    }
    output out(stdout, form::columns, sh.how().width);
    static constexpr column columns[] = {{"Word", "word"}, {"Meaning", "help", true}};
    table rows(out, columns);
    for (const auto &one : at.candidates)
        rows.row({one.word, one.help});
    rows.end();
    out.flush();
    return CC_REDISPLAY;
}

struct editor_ends {
    void operator()(EditLine *editor) const { el_end(editor); }
    void operator()(History *history) const { history_end(history); }
};
using editor_owner = std::unique_ptr<EditLine, editor_ends>;
using history_owner = std::unique_ptr<History, editor_ends>;

editor_owner open_editor(shell &sh, History *past)
{
    editor_owner editor(el_init("mixsh", stdin, stdout, stderr));
    if (!editor)
        return editor;
    auto *el = editor.get();
    el_set(el, EL_PROMPT, prompt);
    el_set(el, EL_EDITOR, "emacs");
    el_set(el, EL_SIGNAL, 0);
    el_set(el, EL_CLIENTDATA, &sh);
    el_set(el, EL_HIST, history, past);
    el_set(el, EL_ADDFN, "mix-help", "show what may stand here", help_key);
    el_set(el, EL_ADDFN, "mix-complete", "complete the word", completion_key);
    el_set(el, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    el_source(el, nullptr); // the user's ~/.editrc; the two keys below stay the shell's
    el_set(el, EL_BIND, "?", "mix-help", nullptr);
    el_set(el, EL_BIND, "^I", "mix-complete", nullptr);
    return editor;
}

std::size_t terminal_width()
{
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

} // namespace

status run_terminal(shell &sh)
{
    history_owner past(history_init());
    HistEvent event;
    history(past.get(), &event, H_SETSIZE, 1000);
    history(past.get(), &event, H_SETUNIQUE, 1);
    history_file kept(history_file::usual_path());
    for (const auto &line : kept.load())
        history(past.get(), &event, H_ENTER, line.c_str());
    const auto editor = open_editor(sh, past.get());
    if (!editor) {
        fmt::print(stderr, "the terminal can't be used for editing (TERM is {})\n", std::getenv("TERM"));
        return status::failed;
    }

    std::string last;
    while (!sh.leaving()) {
        set_interrupted(false);
        el_resize(editor.get());
        int length = 0;
        const char *typed = el_gets(editor.get(), &length);
        sh.how().width = terminal_width();
        if (!typed && interrupted()) {
            fmt::print("^C\n");
            el_reset(editor.get());
            continue;
        }
        if (!typed || length <= 0) {
            fmt::print("\n");
            break;
        }
        std::string line(typed, static_cast<std::size_t>(length));
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
            line.pop_back();
        if (line.find_first_not_of(" \t") == std::string::npos)
            continue;
        history(past.get(), &event, H_ENTER, line.c_str());
        if (line != last)
            kept.add(line);
        last = line;
        sh.run(line, prompt_width);
    }
    return std::fflush(stdout) == 0 ? status::ok : status::failed;
}

} // namespace mixsh

// Where a command's answer goes: columns for a terminal, one JSON object a line for programs.
//
// Nothing is kept but the first rows of a table, which its columns are measured on, so that a table of any
// size shows at once and takes the memory of a screen.
#ifndef MIXSH_OUTPUT_H
#define MIXSH_OUTPUT_H

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace mixsh
{

// One value of an answer. Numbers, truth values and lists stay what they are in JSON; nothing is "-" on a
// terminal and null in JSON. A text without a character is nothing.
class cell
{
  public:
    cell() = default;
    cell(std::nullptr_t) {}
    cell(bool truth) : is_(truth) {}
    template <typename Integer>
    requires(std::is_integral_v<Integer> && !std::is_same_v<Integer, bool>) cell(Integer number)
        : is_(widened(number))
    {
    }
    cell(double number, int decimals = 2) : is_(number), decimals_(decimals) {}
    cell(std::string text);
    cell(std::string_view text) : cell(std::string(text)) {}
    cell(const char *text) : cell(std::string(text ? text : "")) {}
    cell(std::vector<std::string> texts);
    // Not inline: every row makes and moves many.
    cell(const cell &);
    cell(cell &&) noexcept;
    cell &operator=(const cell &);
    cell &operator=(cell &&) noexcept;
    ~cell();

    // For people: safe to print (control characters are spelled out) and one line.
    std::string shown() const;
    std::string json() const;
    bool is_number() const;

  private:
    template <typename Integer>
    static auto widened(Integer number)
    {
        if constexpr (std::is_signed_v<Integer>)
            return static_cast<std::int64_t>(number);
        else
            return static_cast<std::uint64_t>(number);
    }
    std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string,
                 std::vector<std::string>>
        is_;
    int decimals_ = 2;
};

// A number that a record may be without: nothing where it is 0.
template <typename Integer>
cell unless_zero(Integer number)
{
    return number != 0 ? cell(number) : cell();
}

// Columns whose values are numbers line up on the right; text that may be cut on a narrow terminal says so.
struct column {
    std::string_view title;     // "Virtual router"
    std::string_view key;       // "virtual_router", "age_s": see JSON in mixsh(1)
    bool may_be_cut = false;    // with "…", on a terminal only, so that a row keeps to one line
    std::size_t at_least = 0;   // width to begin with, when later rows are wider than the first ones
    bool programs_only = false; // in JSON, but not on a terminal
};

struct field {
    std::string_view title;
    std::string_view key;
    cell value;
};

enum class form { columns, json };

class output
{
  public:
    // stream stays the caller's. width: columns of the terminal, 0 when it is none (nothing is cut then).
    output(std::FILE *stream, form as, std::size_t width) : stream_(stream), as_(as), width_(width) {}

    // One record: a line for each field, or one JSON object.
    void record(std::span<const field> fields);
    void record(std::initializer_list<field> fields) { record(std::span(fields.begin(), fields.size())); }
    // A line for people only: totals, hints, "done". Programs don't see it.
    void note(std::string_view line);
    // Text that a library function has laid out itself. JSON: {"text": ...}.
    void plain(std::string_view text);

    form as() const { return as_; }
    std::size_t width() const { return width_; }
    // A text as it is, of which the functions above and tables are made.
    void write(std::string_view text);
    // Nothing has been written yet.
    bool silent() const { return silent_; }
    // Writes what is buffered; false: the output can't be written (a full disk).
    bool flush();
    // The user pressed Ctrl-C or the output is gone: rows need not be fetched any more.
    bool unwanted() const;

  private:
    std::FILE *stream_;
    form as_;
    std::size_t width_;
    bool silent_ = true;
};

// Rows of one table. Ends by itself when it goes out of scope.
class table
{
  public:
    // columns must outlive the table.
    table(output &out, std::span<const column> columns);
    ~table();
    table(const table &) = delete;
    table &operator=(const table &) = delete;

    // One row, a cell for each column. False: rows are not wanted any more; a row callback that can stop its
    // listing does so then.
    bool row(std::vector<cell> cells);
    std::uint64_t rows() const { return count_; }
    // Prints what is held back. Called by the destructor; may be called earlier to print a note after the
    // rows.
    void end();

  private:
    void settle();
    void fit();
    void print(const std::vector<std::string> &texts);

    output &out_;
    std::span<const column> columns_;
    std::vector<std::vector<cell>> held_; // the first rows, until the columns are measured
    std::vector<std::size_t> shown_;      // which columns
    std::vector<std::size_t> widths_;     // of these
    std::vector<bool> right_;
    std::chrono::steady_clock::time_point first_row_{};
    std::uint64_t count_ = 0;
    bool settled_ = false;
};

// --- text on a terminal, also of use to commands

// Columns that a UTF-8 text takes. Bytes that are not UTF-8 take one each.
std::size_t display_width(std::string_view text);
// Control characters and bytes that are not UTF-8 spelled out as \xNN, so that no text from a daemon moves a
// terminal's cursor.
std::string printable(std::string_view text);
// Cut to `width` columns, the last one a "…".
std::string cut_to(std::string_view text, std::size_t width);
std::string json_string(std::string_view text);
std::string json_list(const std::vector<std::string> &texts);

// Set by the shell's SIGINT handler, cleared before each command.
void set_interrupted(bool now);
bool interrupted();

} // namespace mixsh

#endif

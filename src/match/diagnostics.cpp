#include <cctype>
#include <cstdio>

#include "match/matcher.h"

namespace
{

using namespace mix::match;

constexpr char title[] = "---Aho-Corasick Multi-pattern Matcher------------------";
constexpr char rule[] = "--------------------------------------------------------";

const tqac_pattern *matches_of(const tqac_matcher *matcher, int32_t state)
{
    return matcher->match_lists ? matcher->match_lists[state] : nullptr;
}

int64_t cells_of(const tqac_matcher *matcher)
{
    return static_cast<int64_t>(matcher->charset) * matcher->num_states;
}

/* Bytes the matcher takes: record, table, match lists. The record counts with its public fields. */
int64_t memory_of(const tqac_matcher *matcher, int cell_width)
{
    int64_t memory = static_cast<int64_t>(sizeof(tqac_matcher)) + cells_of(matcher) * cell_width;
    for (int32_t state = 0; state < matcher->num_states; ++state) {
        for (const tqac_pattern *entry = matches_of(matcher, state); entry; entry = entry->next)
            memory += 25 + entry->len;
    }
    return memory;
}

/* In Mbytes above 1048575 bytes; single precision, as the figure has always been printed. */
void print_memory(print_callback print, int64_t memory)
{
    const float bytes = static_cast<float>(memory);
    if (memory > 1048575)
        print("Memory           : %.2fMbytes\n", static_cast<double>(bytes * 9.536743e-07F));
    else
        print("Memory           : %.2fKbytes\n", static_cast<double>(bytes * 0.0009765625F));
}

double density_of(const tqac_matcher *matcher)
{
    const int64_t cells = cells_of(matcher);
    return cells ? matcher->num_trans * 100.0 / static_cast<double>(cells) : 0.0;
}

/* The byte of each column. Column 255 shows byte 255 where 254 and 255 share the map entry: on purpose. */
void reverse_map(const tqac_matcher *matcher, uint8_t (&reverse)[257])
{
    for (int byte = 0; byte < 256; ++byte) {
        const uint8_t column = matcher->input_map[byte];
        if (column)
            reverse[column] = static_cast<uint8_t>(byte);
        if (column == 255 && byte == 255)
            reverse[256] = 255;
    }
}

bool printable(int character)
{
    return isprint(static_cast<unsigned char>(character)) != 0;
}

void print_transitions(const tqac_matcher *matcher, print_callback print, int32_t state,
                       const uint8_t (&reverse)[257])
{
    if (!matcher->table)
        return;
    for (uint32_t column = 1; column < matcher->charset && column <= 256; ++column) {
        const uint32_t next = cell(matcher, static_cast<uint32_t>(state), column);
        if (next == 0)
            continue;
        const int character = static_cast<signed char>(reverse[column]);
        if (printable(character))
            print("%3c->%-5u\t", character, next);
        else
            print("%3d->%-5u\t", character, next);
    }
}

void print_state(const tqac_matcher *matcher, print_callback print, int32_t state, bool transitions,
                 const uint8_t (&reverse)[257])
{
    print("state %3d: ", state);
    if (transitions)
        print_transitions(matcher, print, state, reverse);
    for (const tqac_pattern *entry = matches_of(matcher, state); entry; entry = entry->next)
        print("%*s,n:%d\n", entry->len, bytes_of(entry), entry->len);
    print("\n");
}

int silent(const char *, ...)
{
    return 0;
}

int print_summary(const tqac_matcher *matcher, print_callback print)
{
    print("%s\n", title);
    print("Pattern Charset  : %d Chars\n", matcher->charset);
    print("Charset shift    : %u\n", matcher->charset_shift);
    print("Real charset     : %u Chars\n", matcher->real_charset - 1);
    print("Sizeof State     : %d bytes\n", matcher->state_size);
    print("nocase           : %s\n", matcher->nocase ? "YES" : "NO");
    print("Num States       : %d\n", matcher->num_states);
    print("Num Transitions  : %d\n", matcher->num_trans);
    print("State Density    : %.1f%%\n", density_of(matcher));
    print_memory(print, memory_of(matcher, matcher->state_size));
    print("Input map:\n");
    for (int byte = 0; byte < 256; ++byte) {
        print("%02x->%02x  ", byte, matcher->input_map[byte]);
        if (byte % 4 == 3)
            print("\n");
    }
    return print("%s\n", rule);
}

} // namespace

int tqac_print_info(const tqac_matcher *matcher) noexcept
{
    puts(title);
    printf("Pattern Charset  : %d Chars\n", matcher->charset - 1);
    printf("Sizeof State     : %d bytes\n", 4);
    printf("Num States       : %d\n", matcher->num_states);
    printf("Num Transitions  : %d\n", matcher->num_trans);
    printf("State Density    : %.1f%%\n", density_of(matcher));
    print_memory(printf, memory_of(matcher, 4));
    return puts(rule);
}

int tqac_dump(const tqac_matcher *matcher, int level, print_callback print) noexcept
{
    const int printed = print_summary(matcher, print ? print : silent);
    return level >= 1 ? tqac_print_dfa(matcher, print, level >= 2) : printed;
}

int tqac_print_dfa(const tqac_matcher *matcher, print_callback print, int all) noexcept
{
    if (!print)
        return matcher->num_states;
    uint8_t reverse[257] = {};
    reverse_map(matcher, reverse);
    print("Print AC - %d active states\n", matcher->num_states);
    for (int32_t state = 0; state < matcher->num_states; ++state) {
        if (all || matches_of(matcher, state))
            print_state(matcher, print, state, all != 0, reverse);
    }
    return matcher->num_states;
}

int tqac_print_trans_table(const tqac_matcher *matcher) noexcept
{
    if (!matcher->trans_lists)
        return 0;
    printf("Print Transition Table- %d active states\n", matcher->num_states);
    for (int32_t state = 0; state < matcher->num_states; ++state) {
        printf("state %3d: ", state);
        for (const trans_node *node = matcher->trans_lists[state]; node; node = node->link)
            printf(isprint(static_cast<int>(node->key)) ? "%3c->%-5d\t" : "%3d->%-5d\t",
                   static_cast<int>(node->key), static_cast<int>(node->next));
        for (const tqac_pattern *entry = matches_of(matcher, state); entry; entry = entry->next)
            printf("%.*s ", entry->len, reinterpret_cast<const char *>(bytes_of(entry)));
        printf("\n");
    }
    return 0;
}

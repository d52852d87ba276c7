#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>

#include "match/fast.h"

namespace
{

using namespace mix::match;

/* In the target of a transition: none. Never stored in practice. */
constexpr uint32_t no_state = 0xFFFFFFFF;

bool usable(const trans_node *node)
{
    return node && node->next != 0 && node->next != no_state;
}

template <class T>
T *allocate_zeroed(const tqac_matcher *matcher, int64_t count)
{
    const int64_t size = count * static_cast<int64_t>(sizeof(T));
    void *memory = matcher->alloc(size);
    if (memory)
        memset(memory, 0, static_cast<size_t>(size));
    return static_cast<T *>(memory);
}

trans_node *find(const tqac_matcher *matcher, uint32_t state, uint32_t key)
{
    trans_node *node = matcher->trans_lists[state];
    while (node && node->key != key)
        node = node->link;
    return node;
}

/* Makes a node for a key that the state's list does not hold. */
bool push_transition(tqac_matcher *matcher, uint32_t state, uint32_t key, uint32_t next)
{
    trans_node *node = static_cast<trans_node *>(matcher->alloc(sizeof(trans_node)));
    if (!node)
        return false;
    *node = {key, next, matcher->trans_lists[state]};
    matcher->trans_lists[state] = node;
    ++matcher->num_trans;
    return true;
}

bool push_copy(tqac_matcher *matcher, uint32_t state, const tqac_pattern *pattern)
{
    tqac_pattern *copy = tqac_pattern_copy(matcher, pattern);
    if (!copy)
        return false;
    copy->next = matcher->match_lists[state];
    matcher->match_lists[state] = copy;
    return true;
}

/* The transitions of one state by byte, for as long as the state is worked on. */
class expanded
{
  public:
    void take(trans_node *list)
    {
        memset(present_, 0, sizeof(present_));
        for (trans_node *node = list; node; node = node->link) {
            const uint32_t byte = node->key & 0xff;
            present_[byte / 64] |= uint64_t{1} << byte % 64;
            nodes_[byte] = node;
        }
    }
    trans_node *operator[](uint32_t byte) const
    {
        return present_[byte / 64] >> byte % 64 & 1 ? nodes_[byte] : nullptr;
    }
    [[nodiscard]] uint64_t present(uint32_t word) const { return present_[word]; }

  private:
    trans_node *nodes_[256]; /* what is not present is not set */
    uint64_t present_[4] = {};
};

/* Calls for each byte that one of the two states has a transition for, in ascending order, until a call
 * fails. */
template <class Call>
bool for_each_byte(const expanded &one, const expanded &other, Call call)
{
    for (uint32_t word = 0; word < 4; ++word) {
        for (uint64_t bits = one.present(word) | other.present(word); bits; bits &= bits - 1) {
            if (!call(word * 64 + static_cast<uint32_t>(std::countr_zero(bits))))
                return false;
        }
    }
    return true;
}

/*
 * States in breadth-first order. None is ever added twice, so nothing is looked up: both users add a state
 * when they pass a transition of the trie, a trie has one transition into each state, and a state's
 * transitions are passed once, when it leaves the queue. What completion adds to a list, it adds to the list
 * of a state that has left.
 */
class state_queue
{
  public:
    explicit state_queue(const tqac_matcher *matcher) : matcher_(matcher) {}
    state_queue(const state_queue &) = delete;
    state_queue &operator=(const state_queue &) = delete;
    ~state_queue()
    {
        while (head_)
            remove();
    }
    [[nodiscard]] bool empty() const { return !head_; }
    [[nodiscard]] bool add(uint32_t state)
    {
        node *added = static_cast<node *>(matcher_->alloc(sizeof(node)));
        if (!added)
            return false;
        *added = {state, nullptr};
        (head_ ? tail_->link : head_) = added;
        tail_ = added;
        return true;
    }
    uint32_t remove()
    {
        node *removed = head_;
        const uint32_t state = removed->state;
        head_ = removed->link;
        matcher_->free(removed);
        return state;
    }

  private:
    struct node {
        uint32_t state;
        node *link;
    };
    static_assert(sizeof(node) == 16);
    const tqac_matcher *matcher_;
    node *head_ = nullptr;
    node *tail_ = nullptr;
};

/* Codes of a failed compilation, as the matcher's `error` tells them. */
enum outcome : int32_t {
    done = 0,
    no_trans_lists = -1,
    no_match_lists = -2,
    no_trie = -3,
    no_fail = -4,
    no_links = -5,
    no_completion = -6,
    no_table = -7,
};

outcome allocate_lists(tqac_matcher *matcher)
{
    for (const tqac_pattern *pattern = matcher->patterns; pattern; pattern = pattern->next)
        matcher->max_states += pattern->len;
    matcher->max_states += 1;
    matcher->trans_lists = allocate_zeroed<trans_node *>(matcher, matcher->max_states);
    if (!matcher->trans_lists)
        return no_trans_lists;
    matcher->match_lists = allocate_zeroed<tqac_pattern *>(matcher, matcher->max_states);
    return matcher->match_lists ? done : no_match_lists;
}

/* num_states is the highest state used while the trie grows. */
bool add_to_trie(tqac_matcher *matcher, const tqac_pattern *pattern)
{
    const uint8_t *bytes = bytes_of(pattern);
    uint32_t state = 0;
    int i = 0;
    for (; i < pattern->len; ++i) {
        const trans_node *node = find(matcher, state, matcher->nocase ? fold(bytes[i]) : bytes[i]);
        if (!usable(node))
            break;
        state = node->next;
    }
    for (; i < pattern->len; ++i) {
        const uint32_t next = static_cast<uint32_t>(++matcher->num_states);
        if (tqac_list_putstate(matcher, state, matcher->nocase ? fold(bytes[i]) : bytes[i], next) != 0)
            return false;
        state = next;
    }
    return push_copy(matcher, state, pattern);
}

outcome build_trie(tqac_matcher *matcher)
{
    matcher->num_states = 0;
    for (const tqac_pattern *pattern = matcher->patterns; pattern; pattern = pattern->next) {
        if (!add_to_trie(matcher, pattern))
            return no_trie;
    }
    ++matcher->num_states;
    return done;
}

/* Both breadth-first walks begin with the root's children. */
bool add_root_children(state_queue &waiting, const expanded &root)
{
    return for_each_byte(root, root,
                         [&](uint32_t byte) { return !usable(root[byte]) || waiting.add(root[byte]->next); });
}

/* Where the failure links of a state lead on a byte, beginning at `from`. */
uint32_t follow_failures(const tqac_matcher *matcher, const expanded &root, uint32_t from, uint32_t byte)
{
    for (;;) {
        const trans_node *node = from ? find(matcher, from, byte) : root[byte];
        if (node && node->next != no_state)
            return node->next;
        if (from == 0)
            return 0;
        from = matcher->fail[from];
    }
}

/* Sets the failure state and puts the matches of that state before the state's own, in reverse order. */
bool link_state(tqac_matcher *matcher, uint32_t state, uint32_t failure)
{
    matcher->fail[state] = failure;
    for (const tqac_pattern *entry = matcher->match_lists[failure]; entry; entry = entry->next) {
        if (!push_copy(matcher, state, entry))
            return false;
    }
    return true;
}

outcome link_failures(tqac_matcher *matcher)
{
    matcher->fail = allocate_zeroed<uint32_t>(matcher, matcher->num_states);
    if (!matcher->fail)
        return no_fail;
    expanded root, row;
    root.take(matcher->trans_lists[0]);
    state_queue waiting(matcher);
    if (!add_root_children(waiting, root))
        return no_links;
    while (!waiting.empty()) {
        const uint32_t state = waiting.remove();
        row.take(matcher->trans_lists[state]);
        const bool linked = for_each_byte(row, row, [&](uint32_t byte) {
            const uint32_t child = row[byte]->next;
            return child == no_state ||
                   (waiting.add(child) &&
                    link_state(matcher, child, follow_failures(matcher, root, matcher->fail[state], byte)));
        });
        if (!linked)
            return no_links;
    }
    return done;
}

/* One state of the complete automaton: its children wait, the other bytes go where the failure state goes. */
bool complete_state(tqac_matcher *matcher, state_queue &waiting, uint32_t state, const expanded &row,
                    const expanded &failure)
{
    return for_each_byte(row, failure, [&](uint32_t byte) {
        if (usable(row[byte]))
            return waiting.add(row[byte]->next);
        if (!usable(failure[byte]))
            return true;
        if (!row[byte])
            return push_transition(matcher, state, byte, failure[byte]->next);
        row[byte]->next = failure[byte]->next;
        return true;
    });
}

outcome complete(tqac_matcher *matcher)
{
    expanded root, row, other;
    root.take(matcher->trans_lists[0]);
    uint32_t taken = 0; /* the state that `other` holds; 0: none */
    state_queue waiting(matcher);
    if (!add_root_children(waiting, root))
        return no_completion;
    while (!waiting.empty()) {
        const uint32_t state = waiting.remove();
        const uint32_t failure = matcher->fail[state];
        row.take(matcher->trans_lists[state]);
        if (failure != 0 && failure != taken)
            other.take(matcher->trans_lists[taken = failure]);
        if (!complete_state(matcher, waiting, state, row, failure == 0 ? root : other))
            return no_completion;
    }
    matcher->free(matcher->fail);
    matcher->fail = nullptr;
    return matcher->match_lists ? done : no_table;
}

/* Marks the pattern bytes on top of what an earlier compilation has marked, and numbers them. */
void map_input(tqac_matcher *matcher)
{
    for (const tqac_pattern *pattern = matcher->patterns; pattern; pattern = pattern->next) {
        const uint8_t *bytes = bytes_of(pattern);
        for (int i = 0; i < pattern->len; ++i)
            matcher->input_map[matcher->nocase ? fold(bytes[i]) : bytes[i]] = 1;
    }
    uint16_t marked = 0;
    for (uint8_t &entry : matcher->input_map) {
        if (entry)
            entry = static_cast<uint8_t>(std::min<uint16_t>(++marked, 255));
    }
    matcher->real_charset = static_cast<uint16_t>(marked + 1);
}

/* Row width, cell width, and the lower-case letters' columns. */
void choose_widths(tqac_matcher *matcher)
{
    matcher->charset = std::bit_ceil(matcher->real_charset);
    matcher->charset_shift = static_cast<uint8_t>(std::countr_zero(matcher->charset));
    matcher->state_size = 4;
    if (!matcher->nocase)
        return;
    for (uint32_t byte = 0; byte < 256; ++byte)
        matcher->input_map[byte] = matcher->input_map[fold(static_cast<uint8_t>(byte))];
    if (matcher->num_states <= 65535)
        matcher->state_size = 2;
}

template <class Cell>
void fill_table(tqac_matcher *matcher)
{
    Cell *row = static_cast<Cell *>(matcher->table);
    for (int32_t state = 0; state < matcher->num_states; ++state, row += matcher->charset) {
        if (matcher->match_lists[state])
            row[0] = 1;
        while (trans_node *node = matcher->trans_lists[state]) {
            row[column_of(matcher, static_cast<uint8_t>(node->key))] = static_cast<Cell>(node->next);
            matcher->trans_lists[state] = node->link;
            matcher->free(node);
        }
    }
}

outcome build_table(tqac_matcher *matcher)
{
    map_input(matcher);
    choose_widths(matcher);
    matcher->table = allocate_zeroed<uint8_t>(matcher, static_cast<int64_t>(matcher->charset) *
                                                           matcher->state_size * matcher->num_states);
    if (!matcher->table)
        return no_table;
    if (matcher->state_size == 2)
        fill_table<uint16_t>(matcher);
    else
        fill_table<uint32_t>(matcher);
    matcher->free(matcher->trans_lists);
    matcher->trans_lists = nullptr;
    return done;
}

} // namespace

int tqac_list_putstate(tqac_matcher *matcher, uint32_t state, int key, uint32_t next) noexcept
{
    if (!matcher->trans_lists)
        return -1;
    if (trans_node *node = find(matcher, state, static_cast<uint32_t>(key))) {
        node->next = next;
        return 0;
    }
    return push_transition(matcher, state, static_cast<uint32_t>(key), next) ? 0 : -1;
}

int tqac_compile(tqac_matcher *matcher) noexcept
{
    if (matcher->table) {
        puts("This AC struct has been compiled already!");
        return 0;
    }
    for (const auto step : {allocate_lists, build_trie, link_failures, complete, build_table}) {
        const outcome result = step(matcher);
        if (result != done) {
            matcher->error = result;
            tqac_clear(matcher);
            return -1;
        }
    }
    prepare_fast(matcher);
    tqac_free_unused_fields(matcher);
    if (tqac_compile_cb)
        tqac_compile_cb(matcher);
    matcher->compiled = 1;
    return 0;
}

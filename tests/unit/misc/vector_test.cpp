#include <libmix/vector.h>

#include <gtest/gtest.h>

#include <map>
#include <random>

#include <sys/resource.h>

namespace
{

void *slot(uintptr_t number)
{
    return reinterpret_cast<void *>(number);
}

struct vectors : testing::Test {
    vector *v = nullptr;

    void make(uint32_t size) { v = vector_init(size); }
    void TearDown() override
    {
        if (v != nullptr)
            vector_free(v);
    }
    void expect_sizes(uint32_t active, uint32_t alloced) const
    {
        EXPECT_EQ(v->active, active);
        EXPECT_EQ(v->alloced, alloced);
        for (uint32_t i = v->active; i < v->alloced; i++)
            EXPECT_EQ(v->index[i], nullptr) << i;
    }
};

static_assert(sizeof(vector) == 16);
static_assert(offsetof(vector, active) == 0);
static_assert(offsetof(vector, alloced) == 4);
static_assert(offsetof(vector, index) == 8);

TEST_F(vectors, have_at_least_one_slot)
{
    make(0);
    expect_sizes(0, 1);
}

TEST_F(vectors, have_the_size_they_are_made_with)
{
    make(5);
    expect_sizes(0, 5);
}

TEST_F(vectors, set_fills_the_next_slot_and_doubles)
{
    make(0);
    EXPECT_EQ(vector_set(v, slot(1)), 0u);
    expect_sizes(1, 1);
    EXPECT_EQ(vector_set(v, slot(2)), 1u);
    expect_sizes(2, 2);
    EXPECT_EQ(vector_set(v, slot(3)), 2u);
    expect_sizes(3, 4);
}

TEST_F(vectors, set_index_grows_by_doubling)
{
    make(1);
    EXPECT_EQ(vector_set_index(v, 10, slot(7)), 10u);
    expect_sizes(11, 16);
    EXPECT_EQ(vector_lookup(v, 10), slot(7));
}

TEST_F(vectors, double_what_is_no_power_of_two)
{
    make(3);
    vector_ensure(v, 2);
    expect_sizes(0, 3);
    vector_ensure(v, 3);
    expect_sizes(0, 6);
    vector_ensure(v, 12);
    expect_sizes(0, 24);
}

TEST_F(vectors, set_index_below_active_keeps_active)
{
    make(8);
    vector_set_index(v, 5, slot(1));
    vector_set_index(v, 2, slot(2));
    expect_sizes(6, 8);
}

TEST_F(vectors, set_takes_the_lowest_hole)
{
    make(8);
    for (uintptr_t i = 0; i < 5; i++)
        vector_set(v, slot(i + 1));
    vector_unset(v, 2);
    expect_sizes(5, 8);
    EXPECT_EQ(vector_empty_slot(v), 2u);
    EXPECT_EQ(vector_set(v, slot(9)), 2u);
    EXPECT_EQ(vector_empty_slot(v), 5u);
}

TEST_F(vectors, empty_slot_is_the_first_hole_wherever_it_is)
{
    make(16);
    for (uint32_t active = 1; active <= 12; active++) {
        vector_set_index(v, active - 1, slot(active));
        EXPECT_EQ(vector_empty_slot(v), active);
        for (uint32_t hole = 0; hole < active; hole++) {
            v->index[hole] = nullptr;
            EXPECT_EQ(vector_empty_slot(v), hole) << "of " << active;
            v->index[hole] = slot(1);
        }
    }
}

TEST_F(vectors, empty_slot_of_an_empty_vector_is_0)
{
    make(4);
    EXPECT_EQ(vector_empty_slot(v), 0u);
    vector_set_index(v, 3, slot(1));
    EXPECT_EQ(vector_empty_slot(v), 0u);
}

TEST_F(vectors, unset_of_the_last_slot_shrinks_past_holes)
{
    make(8);
    for (const uint32_t i : {0u, 1u, 2u, 4u})
        vector_set_index(v, i, slot(1));
    vector_unset(v, 4);
    expect_sizes(3, 8);
    vector_unset(v, 0);
    vector_unset(v, 1);
    expect_sizes(3, 8);
    vector_unset(v, 2);
    expect_sizes(0, 8);
}

TEST_F(vectors, unset_beyond_active_changes_nothing)
{
    make(8);
    vector_set(v, slot(1));
    vector_unset(v, 7);
    vector_unset(v, 8);
    vector_unset(v, 0xffffffff);
    expect_sizes(1, 8);
    EXPECT_EQ(vector_lookup(v, 0), slot(1));
}

TEST_F(vectors, unset_empties_a_slot_that_the_caller_filled_beyond_active)
{
    make(4);
    v->index[3] = slot(1);
    vector_unset(v, 3);
    expect_sizes(0, 4);
}

TEST_F(vectors, a_null_value_counts_as_set)
{
    make(4);
    EXPECT_EQ(vector_set(v, nullptr), 0u);
    expect_sizes(1, 4);
    EXPECT_EQ(vector_set(v, nullptr), 0u) << "the slot is still empty";
    EXPECT_EQ(vector_set_index(v, 2, nullptr), 2u);
    expect_sizes(3, 4);
    EXPECT_EQ(vector_count(v), 0u);
}

TEST_F(vectors, lookup_ends_at_active_not_at_the_slots)
{
    make(4);
    vector_set(v, slot(1));
    v->index[2] = slot(2);
    EXPECT_EQ(vector_lookup(v, 2), nullptr);
    EXPECT_EQ(vector_lookup(v, 4), nullptr);
    EXPECT_EQ(vector_lookup(v, 0xffffffff), nullptr);
    v->index[2] = nullptr;
}

TEST_F(vectors, lookup_ensure_grows_without_setting)
{
    make(1);
    EXPECT_EQ(vector_lookup_ensure(v, 5), nullptr);
    expect_sizes(0, 8);
    vector_set_index(v, 5, slot(3));
    EXPECT_EQ(vector_lookup_ensure(v, 5), slot(3));
}

TEST_F(vectors, count_leaves_out_holes)
{
    make(8);
    for (const uint32_t i : {0u, 3u, 6u})
        vector_set_index(v, i, slot(1));
    EXPECT_EQ(vector_count(v), 3u);
}

TEST_F(vectors, copy_has_slots_of_its_own)
{
    make(5);
    vector_set_index(v, 1, slot(1));
    vector_set_index(v, 3, slot(2));
    vector *copy = vector_copy(v);
    EXPECT_EQ(copy->active, 4u);
    EXPECT_EQ(copy->alloced, 5u);
    EXPECT_NE(copy->index, v->index);
    for (uint32_t i = 0; i < 5; i++)
        EXPECT_EQ(copy->index[i], v->index[i]);
    vector_set_index(copy, 0, slot(9));
    EXPECT_EQ(vector_lookup(v, 0), nullptr);
    vector_free(copy);
}

TEST_F(vectors, wrapper_and_index_are_released_apart)
{
    vector *other = vector_init(2);
    vector_set(other, slot(4));
    void **index = other->index;
    vector_only_wrapper_free(other);
    EXPECT_EQ(index[0], slot(4));
    vector_only_index_free(index);
}

TEST_F(vectors, agree_with_a_map_after_any_changes)
{
    make(0);
    std::map<uint32_t, uintptr_t> model;
    std::mt19937 random(20240607);
    for (uintptr_t step = 1; step <= 20000; step++) {
        const uint32_t i = random() % 300;
        switch (random() % 4) {
        case 0:
            vector_set_index(v, i, slot(step));
            model[i] = step;
            break;
        case 1: {
            uint32_t lowest = 0;
            while (model.contains(lowest))
                lowest++;
            EXPECT_EQ(vector_set(v, slot(step)), lowest);
            model[lowest] = step;
            break;
        }
        default:
            vector_unset(v, i);
            model.erase(i);
        }
        const uint32_t active = model.empty() ? 0 : model.rbegin()->first + 1;
        ASSERT_EQ(v->active, active);
        ASSERT_EQ(vector_count(v), model.size());
        ASSERT_EQ(vector_lookup(v, i), model.contains(i) ? slot(model[i]) : nullptr);
    }
}

using vectors_death = vectors;

TEST_F(vectors_death, growth_past_2_to_the_31_ends_the_process)
{
    make(1);
    EXPECT_EXIT(vector_ensure(v, 0x80000000), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(vector_set_index(v, 0xffffffff, slot(1)), testing::KilledBySignal(SIGABRT), "");
}

/* Memory for a gigabyte of slots can't be had under this limit. */
void forbid_large_memory()
{
    const rlimit limit{512 << 20, 512 << 20};
    setrlimit(RLIMIT_AS, &limit);
}

TEST_F(vectors_death, memory_that_can_not_be_had_ends_the_process)
{
#ifdef MIX_SANITIZE
    GTEST_SKIP() << "the sanitizer's own address space does not fit under the limit";
#endif
    make(1);
    const auto grow = [&] {
        forbid_large_memory();
        vector_ensure(v, 1 << 27);
    };
    EXPECT_EXIT(grow(), testing::KilledBySignal(SIGABRT), "");
    const auto create = [] {
        forbid_large_memory();
        vector_init(1 << 27);
    };
    EXPECT_EXIT(create(), testing::KilledBySignal(SIGABRT), "");
}

} // namespace

#include <libmix/vector.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace
{

/* The most slots there can be: the count is a u32 that is doubled. */
constexpr uint32_t most_slots = uint32_t{1} << 31;

void *or_abort(void *memory)
{
    if (memory == nullptr)
        std::abort();
    return memory;
}

vector *new_vector(uint32_t slots)
{
    auto *made = static_cast<vector *>(or_abort(std::calloc(1, sizeof(vector))));
    made->alloced = slots;
    made->index = static_cast<void **>(or_abort(std::calloc(slots, sizeof(void *))));
    return made;
}

/* The slots there are after doubling until `num` is among them. */
uint32_t doubled_past(uint32_t slots, uint32_t num)
{
    while (num >= slots) {
        if (slots > most_slots / 2)
            std::abort();
        slots *= 2;
    }
    return slots;
}

void grow(vector *v, uint32_t slots)
{
    v->index = static_cast<void **>(or_abort(std::realloc(v->index, slots * sizeof(void *))));
    std::fill(v->index + v->alloced, v->index + slots, nullptr);
    v->alloced = slots;
}

} // namespace

vector *vector_init(uint32_t size) noexcept
{
    return new_vector(size != 0 ? size : 1);
}

void vector_ensure(vector *v, uint32_t num) noexcept
{
    if (num >= v->alloced)
        grow(v, doubled_past(v->alloced, num));
}

uint32_t vector_empty_slot(vector *v) noexcept
{
    return static_cast<uint32_t>(std::find(v->index, v->index + v->active, nullptr) - v->index);
}

uint32_t vector_set(vector *v, void *val) noexcept
{
    return vector_set_index(v, vector_empty_slot(v), val);
}

uint32_t vector_set_index(vector *v, uint32_t i, void *val) noexcept
{
    vector_ensure(v, i);
    v->index[i] = val;
    v->active = std::max(v->active, i + 1);
    return i;
}

void *vector_lookup(vector *v, uint32_t i) noexcept
{
    return i < v->active ? v->index[i] : nullptr;
}

void *vector_lookup_ensure(vector *v, uint32_t i) noexcept
{
    vector_ensure(v, i);
    return v->index[i];
}

void vector_unset(vector *v, uint32_t i) noexcept
{
    if (i >= v->alloced)
        return;
    v->index[i] = nullptr;
    if (i + 1 != v->active)
        return;
    while (v->active != 0 && v->index[v->active - 1] == nullptr)
        v->active--;
}

uint32_t vector_count(vector *v) noexcept
{
    return v->active - static_cast<uint32_t>(std::count(v->index, v->index + v->active, nullptr));
}

vector *vector_copy(vector *v) noexcept
{
    vector *copy = new_vector(v->alloced);
    copy->active = v->active;
    std::memcpy(copy->index, v->index, v->alloced * sizeof(void *));
    return copy;
}

void vector_free(vector *v) noexcept
{
    vector_only_index_free(v->index);
    vector_only_wrapper_free(v);
}

void vector_only_wrapper_free(vector *v) noexcept
{
    std::free(v);
}

void vector_only_index_free(void *index) noexcept
{
    std::free(index);
}

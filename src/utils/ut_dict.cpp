// The hash dictionary. No state of its own and no lock: a dictionary belongs to whoever holds it.
//
// Which hook is called how often, in which order and with which argument first is part of the interface:
// applications count on it. So a hash is asked for wherever an operation looks for a bucket, never carried
// over from an earlier step. Memory comes from malloc and calloc, since nothing may throw.
#include "utils/ut_dict.h"

#include <cstdlib>

namespace {

constexpr uint32_t k_least_size = 4;          // [buckets]
constexpr uint32_t k_largest_size = 1U << 31; // [buckets] the greatest power of two that `size` can hold
constexpr uint32_t k_entries_per_bucket = 4;  // more than this on average, and the table grows
constexpr uint32_t k_growth = 4;              // times as many buckets

/// The number of buckets for a wanted size, up to k_largest_size.
uint32_t dict_next_power(uint32_t size) {
    uint32_t power = k_least_size;
    while (power < size) {
        power *= 2;
    }
    return power;
}

/// Empty buckets; null when there is no memory, or no such power of two.
dict_entry **make_table(uint32_t wanted) {
    if (wanted > k_largest_size) {
        return nullptr;
    }
    return static_cast<dict_entry **>(calloc(dict_next_power(wanted), sizeof(dict_entry *)));
}

dict_entry **bucket_of(const dict_t &dt, const void *key) {
    return &dt.table[dt.type.hash_function(key) & dt.mask];
}

void release_entry(dict_t &dt, dict_entry *entry) {
    if (dt.type.key_destructor != nullptr) {
        dt.type.key_destructor(entry->key);
    }
    if (dt.type.val_destructor != nullptr) {
        dt.type.val_destructor(entry->val);
    }
    free(entry);
    --dt.used;
}

/// Takes the entry that `link` points at out of its bucket and releases it.
void remove_entry(dict_t &dt, dict_entry **link) {
    dict_entry *entry = *link;
    *link = entry->next;
    release_entry(dt, entry);
}

/// Removes what dict_mark_clear has cleared from one bucket.
void check_clear(dict_t &dt, dict_entry **bucket) {
    for (dict_entry **link = bucket; *link != nullptr;) {
        if ((*link)->id < dt.id_clear) {
            remove_entry(dt, link);
        } else {
            link = &(*link)->next;
        }
    }
}

/// Makes room for one more entry; false when it cannot be had.
bool dict_expand_if_needed(dict_t *dt) {
    if (dt->used == UINT32_MAX) {
        return false; // one more could not be counted
    }
    if (dt->used / k_entries_per_bucket < dt->size) {
        return true;
    }
    // `used` is at least four times `size` here, so four times `size` fits too.
    return dict_expand(dt, k_growth * dt->size) == 0;
}

/// Moves a chain of entries to the heads of their buckets in a new table.
void move_chain(const dict_t &dt, dict_entry *chain, dict_entry **table, uint32_t mask) {
    while (chain != nullptr) {
        dict_entry *entry = chain;
        chain = entry->next;
        dict_entry **bucket = &table[dt.type.hash_function(entry->key) & mask];
        entry->next = *bucket;
        *bucket = entry;
    }
}

} // namespace

uint32_t dict_generic_hash_function(const void *data, size_t len) {
    const auto *bytes = static_cast<const uint8_t *>(data);
    uint32_t hash = 0x811C9DC5U;
    for (size_t i = 0; i < len; ++i) {
        hash ^= bytes[i];
        hash *= 0x01000193U;
    }
    return hash;
}

void dict_generic_free(void *ptr) {
    free(ptr);
}

dict_t *dict_create(dict_types *type, uint32_t init_size) {
    if (type == nullptr || type->hash_function == nullptr || type->key_compare == nullptr) {
        return nullptr;
    }
    auto *dt = static_cast<dict_t *>(calloc(1, sizeof(dict_t)));
    if (dt == nullptr) {
        return nullptr;
    }
    dt->type = *type;
    dt->table = make_table(init_size);
    if (dt->table == nullptr) {
        free(dt);
        return nullptr;
    }
    dt->size = dict_next_power(init_size);
    dt->mask = dt->size - 1;
    return dt;
}

int dict_expand(dict_t *dt, uint32_t size) {
    dict_entry **table = make_table(size);
    if (table == nullptr) {
        return -1;
    }
    const uint32_t new_size = dict_next_power(size);
    for (uint32_t i = 0; i < dt->size; ++i) {
        move_chain(*dt, dt->table[i], table, new_size - 1);
    }
    free(dt->table);
    dt->table = table;
    dt->size = new_size;
    dt->mask = new_size - 1;
    return 0;
}

dict_entry *dict_find(dict_t *dt, const void *key) {
    dict_entry **bucket = bucket_of(*dt, key);
    if (dt->id_clear != 0) {
        check_clear(*dt, bucket);
    }
    dict_entry *entry = *bucket;
    while (entry != nullptr && dt->type.key_compare(key, entry->key) != 0) {
        entry = entry->next;
    }
    return entry;
}

dict_entry *dict_add(dict_t *dt, void *key, void *val) {
    if (dict_find(dt, key) != nullptr || !dict_expand_if_needed(dt)) {
        return nullptr;
    }
    auto *entry = static_cast<dict_entry *>(malloc(sizeof(dict_entry)));
    if (entry == nullptr) {
        return nullptr;
    }
    dict_entry **bucket = bucket_of(*dt, key);
    *entry = {key, val, dt->id_start++, *bucket};
    *bucket = entry;
    if (dt->type.key_dup != nullptr) {
        entry->key = dt->type.key_dup(key);
    }
    if (dt->type.val_dup != nullptr) {
        entry->val = dt->type.val_dup(val);
    }
    ++dt->used;
    return entry;
}

int dict_replace(dict_t *dt, void *key, void *val) {
    dict_entry *entry = dict_find(dt, key);
    if (entry == nullptr) {
        return dict_add(dt, key, val) != nullptr ? 1 : -1;
    }
    void *old = entry->val;
    entry->val = dt->type.val_dup != nullptr ? dt->type.val_dup(val) : val;
    if (dt->type.val_destructor != nullptr) {
        dt->type.val_destructor(old);
    }
    return 0;
}

int dict_delete(dict_t *dt, const void *key) {
    for (dict_entry **link = bucket_of(*dt, key); *link != nullptr; link = &(*link)->next) {
        // The stored key first: the other way round than in dict_find, on purpose; hooks may tell them apart.
        if (dt->type.key_compare((*link)->key, key) == 0) {
            remove_entry(*dt, link);
            return 1;
        }
    }
    return 0;
}

void dict_mark_clear(dict_t *dt) {
    dt->id_clear = dt->id_start++;
}

void dict_clear(dict_t *dt) {
    dict_iterator *iter = dict_get_iterator(dt);
    for (const dict_entry *entry = dict_next(iter); entry != nullptr; entry = dict_next(iter)) {
        (void)dict_delete(dt, entry->key); // it is there: the walk has just come upon it
    }
    dict_release_iterator(iter);
}

void dict_release(dict_t *dt) {
    if (dt == nullptr) {
        return;
    }
    for (uint32_t i = 0; i < dt->size && dt->used != 0; ++i) {
        while (dt->table[i] != nullptr) {
            remove_entry(*dt, &dt->table[i]);
        }
    }
    free(dt->table);
    free(dt);
}

dict_iterator *dict_get_iterator(dict_t *dt) {
    auto *iter = static_cast<dict_iterator *>(malloc(sizeof(dict_iterator)));
    if (iter != nullptr) {
        *iter = {dt, -1, nullptr, nullptr};
    }
    return iter;
}

dict_entry *dict_next(dict_iterator *iter) {
    if (iter == nullptr) {
        return nullptr;
    }
    const dict_t &dt = *iter->dt;
    // A bucket's successor is noted before its entry is handed out, so that the caller may delete that one.
    iter->entry = iter->next_entry;
    while (iter->entry == nullptr && iter->index < dt.size && ++iter->index < dt.size) {
        iter->entry = dt.table[iter->index];
    }
    iter->next_entry = iter->entry != nullptr ? iter->entry->next : nullptr;
    return iter->entry;
}

void dict_release_iterator(dict_iterator *iter) {
    free(iter);
}

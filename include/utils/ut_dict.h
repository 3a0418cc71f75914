/**
 * @file
 * A hash dictionary from opaque keys to opaque values, chained, with hooks that hash, compare, copy and
 * release them. It grows fourfold when it holds four entries per bucket. dict_mark_clear empties it in
 * constant time: what was in it counts as gone, and is released bit by bit by the lookups that follow.
 *
 *     static uint32_t hash_text(const void *key) { return dict_generic_hash_function(key, strlen(key)); }
 *     static int compare_text(const void *a, const void *b) { return strcmp(a, b); }
 *
 *     dict_types ports = {.hash_function = hash_text, .key_compare = compare_text};
 *     dict_t *dict = dict_create(&ports, 0);
 *     dict_add(dict, "camera", &camera_port);
 *     dict_entry *entry = dict_find(dict, "camera");    // entry->val is &camera_port
 *     dict_release(dict);
 *
 * @par Ownership  With `key_dup` or `val_dup` the dictionary stores copies and the caller keeps what it
 * passed; without them it stores the pointers. What leaves the dictionary goes to the destructors, if there
 * are any.
 * @par Threads  No locking: one thread at a time for a dictionary together with its iterators. dict_find
 * changes the dictionary too when a clear is pending. Nothing blocks but what a hook does.
 * @par Not checked  A pointer to a dictionary or iterator must be valid; NULL is allowed only where it says
 * so. Keys and values may be NULL if the hooks can take it. Equal keys must have equal hashes, and a stored
 * key must keep its hash. A hook must not use the dictionary that called it, and must not throw.
 */
#ifndef UT_DICT_H
#define UT_DICT_H

#include "vexamsg_export.h"

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** One key with its value. A caller may change `val` of an entry, nothing else. */
typedef struct dict_entry {
    void *key;               /**< the caller's pointer, or what `key_dup` returned */
    void *val;               /**< the caller's pointer, or what `val_dup` returned */
    uint64_t id;             /**< generation stamp, given when the entry was added */
    struct dict_entry *next; /**< the next entry of the same bucket; NULL at its end */
} dict_entry;

/** The hooks of a dictionary. The four about copying and releasing may be NULL. */
typedef struct dict_types {
    uint32_t (*hash_function)(const void *key);       /**< required */
    void *(*key_dup)(const void *key);                /**< a copy; what it returns is stored, NULL too */
    void *(*val_dup)(const void *val);                /**< a copy; what it returns is stored, NULL too */
    int (*key_compare)(const void *a, const void *b); /**< required; 0 when equal. dict_find passes the
                                                         searched key first, dict_delete passes it second */
    void (*key_destructor)(void *key);                /**< releases a key that leaves the dictionary */
    void (*val_destructor)(void *val);                /**< releases a value that leaves the dictionary */
} dict_types;

/** A dictionary. Its fields may be read; only its operations change them. */
typedef struct dict_t {
    dict_entry **table; /**< `size` bucket heads */
    dict_types type;    /**< the hooks, as they were at creation */
    uint32_t size;      /**< number of buckets: a power of two, at least 4 */
    uint32_t mask;      /**< `size` - 1; hash AND mask is the bucket */
    uint32_t used;      /**< entries present, those of a pending clear included */
    uint64_t id_start;  /**< stamp of the next entry */
    uint64_t id_clear;  /**< entries with a stamp below this are cleared; 0 when nothing was ever cleared */
} dict_t;

/** A position in a walk through a dictionary. */
typedef struct dict_iterator {
    dict_t *dt;             /**< what is walked */
    int64_t index;          /**< current bucket; -1 before the first step */
    dict_entry *entry;      /**< returned last; may be gone */
    dict_entry *next_entry; /**< its successor in the bucket, noted before it was returned */
} dict_iterator;

/**
 * 32-bit FNV-1a over bytes, for use inside a `hash_function` that knows its key's length.
 * @param data  may be NULL when `len` is 0
 * @param len   [bytes]
 * @return the hash; 0x811C9DC5 for no bytes
 * @par Threads  Any thread.
 */
VEXAMSG_API uint32_t dict_generic_hash_function(const void *data, size_t len);

/**
 * Frees a block from malloc: a ready-made destructor.
 * @param ptr  NULL does nothing
 * @par Threads  Any thread.
 */
VEXAMSG_API void dict_generic_free(void *ptr);

/**
 * Makes an empty dictionary.
 * @param type       the hooks, copied into the dictionary
 * @param init_size  buckets wanted; rounded up to a power of two, 4 at least
 * @return the dictionary, to be released with dict_release; NULL when `type` is NULL or lacks `hash_function`
 * or `key_compare`, when `init_size` is above 2^31, or when out of memory
 */
VEXAMSG_API dict_t *dict_create(dict_types *type, uint32_t init_size);

/**
 * Gives the dictionary another number of buckets and moves every entry, cleared ones included. Entries that
 * land in the same bucket come to lie in the reverse order. dict_add calls this by itself.
 * @param size  buckets wanted, rounded as in dict_create; fewer than now is allowed, whatever it holds
 * @return 0; -1, with the dictionary unchanged, when out of memory or for a size above 2^31
 */
VEXAMSG_API int dict_expand(dict_t *dt, uint32_t size);

/**
 * Looks a key up. While a clear is pending, releases the cleared entries of the key's bucket first.
 * @return the entry, valid until it is removed; NULL when the key is absent or cleared
 */
VEXAMSG_API dict_entry *dict_find(dict_t *dt, const void *key);

/**
 * Adds a key that is not there yet.
 * @param key  stored as `key_dup(key)` with that hook, else as it is
 * @param val  stored as `val_dup(val)` with that hook, else as it is
 * @return the new entry; NULL, with nothing added, when the key is present (its value stays) or when out of
 * memory, be it for the entry or for the growth that is due
 */
VEXAMSG_API dict_entry *dict_add(dict_t *dt, void *key, void *val);

/**
 * Adds a key, or gives a present one a new value. The new value is stored before the old one goes to
 * `val_destructor`, so with `val_dup` a value may be replaced by itself.
 * @return 1 when added, 0 when replaced (the stored key stays), -1 when out of memory
 */
VEXAMSG_API int dict_replace(dict_t *dt, void *key, void *val);

/**
 * Removes a key; key and value go to their destructors. Finds cleared entries too, as long as they are there.
 * @return 1 when removed, 0 when absent
 */
VEXAMSG_API int dict_delete(dict_t *dt, const void *key);

/**
 * Clears the dictionary in constant time. No entry is released now: each is when a dict_find, dict_add or
 * dict_replace comes upon its bucket. Until then it counts in `used`, takes part in growth, is walked over by
 * iterators and found by dict_delete.
 */
VEXAMSG_API void dict_mark_clear(dict_t *dt);

/**
 * Removes every entry now, as dict_delete does; the number of buckets stays. Does nothing when out of memory
 * (it needs an iterator): `used` tells.
 */
VEXAMSG_API void dict_clear(dict_t *dt);

/**
 * Releases the dictionary with every entry; keys and values go to their destructors. Its iterators stay to be
 * released.
 * @param dt  NULL does nothing
 */
VEXAMSG_API void dict_release(dict_t *dt);

/**
 * Begins a walk, in the order of the buckets, cleared entries included. Deleting the entry that dict_next
 * returned last is safe during the walk; deleting another, adding, and (while a clear is pending) looking up
 * are not.
 * @return the iterator, to be released with dict_release_iterator; NULL when out of memory
 */
VEXAMSG_API dict_iterator *dict_get_iterator(dict_t *dt);

/**
 * Takes the next step of a walk.
 * @param iter  NULL counts as a walk that is over, so the result of dict_get_iterator needs no test
 * @return the entry stepped to; NULL at the end, and again at every further call
 */
VEXAMSG_API dict_entry *dict_next(dict_iterator *iter);

/**
 * Frees an iterator; the dictionary is not touched, and may be gone already.
 * @param iter  NULL does nothing
 */
VEXAMSG_API void dict_release_iterator(dict_iterator *iter);

#ifdef __cplusplus
}
#endif

#endif

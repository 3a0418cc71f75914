/**
 * @file
 * A doubly linked list of opaque `void *` values. Each list carries three hooks that copy, release and
 * compare its values, so that it can own what it holds or merely point at it. Nodes and iterators are heap
 * blocks.
 *
 *     list_type words = {copy_word, free, NULL};        // what is added is copied, what is removed is freed
 *     list_t *list = list_create(&words);
 *     list_add_node_tail(list, "left");
 *     list_iter *it = list_get_iterator(list, 0);
 *     for (list_node *node = list_next(it); node != NULL; node = list_next(it)) { puts(node->value); }
 *     list_release_iterator(it);
 *     list_release(list);
 *
 * @par Values   With a `dup` hook the list stores a fresh copy and the caller keeps its own value; without
 * one it stores the pointer. A stored value is never NULL. The `free` hook is the only means by which the
 * list releases values: it is called once for each value removed; without it values are dropped.
 * @par Threads  No locking: one thread at a time for a list together with its iterators. Nothing blocks but
 * what a hook does.
 * @par Not checked  A pointer to a list, node or iterator must be valid, and a node must be of the list it is
 * named with; NULL is allowed only where it says so. A hook must not change the list that called it, and must
 * not throw.
 */
#ifndef UT_LIST_H
#define UT_LIST_H

#include "vexamsg_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** One element. Its fields may be read at will; only the list's operations change the links. */
typedef struct list_node {
    struct list_node *prev; /**< towards the head; NULL in the first node */
    struct list_node *next; /**< towards the tail; NULL in the last node */
    void *value;            /**< never NULL in a list */
} list_node;

/** The hooks of a list. Each may be NULL. */
typedef struct list_type {
    void *(*dup)(void *value);                    /**< a copy of the value; NULL when it cannot be made */
    void (*free)(void *value);                    /**< releases a value that leaves the list */
    int (*compare)(const void *a, const void *b); /**< 0 when they match; for list_find */
} list_type;

/** A list. Its fields may be read; only its operations change them. */
typedef struct list_t {
    list_node *head;   /**< first node; NULL when empty */
    list_node *tail;   /**< last node; NULL when empty */
    list_type type;    /**< the hooks, as they were at creation */
    unsigned long len; /**< number of nodes */
} list_t;

/** A position in a walk along a list. */
typedef struct list_iter {
    list_node *next; /**< what the next step returns; NULL at the end */
    int direction;   /**< 0 from head to tail, 1 from tail to head */
} list_iter;

/**
 * Makes an empty list.
 * @param type  the hooks, copied into the list; NULL for a list without any
 * @return the list, to be released with list_release; NULL when out of memory
 */
VEXAMSG_API list_t *list_create(list_type *type);

/**
 * Adds a value before the first.
 * @param value  stored as `dup(value)` when the list has that hook, else as it is
 * @return `list`; NULL, with the list unchanged, when out of memory, when `dup` returns NULL, or when a list
 * without `dup` is given NULL
 */
VEXAMSG_API list_t *list_add_node_head(list_t *list, void *value);

/** Adds a value after the last. In all else as list_add_node_head. */
VEXAMSG_API list_t *list_add_node_tail(list_t *list, void *value);

/**
 * Adds a value beside a node.
 * @param pos     a node of this list; not checked, not NULL
 * @param value   as for list_add_node_head
 * @param before  0 puts it immediately after `pos`, anything else immediately before
 * @return as list_add_node_head
 */
VEXAMSG_API list_t *list_insert_node(list_t *list, list_node *pos, void *value, int before);

/** Removes the first node; its value goes to the `free` hook and is not returned. Nothing on an empty list.
 */
VEXAMSG_API void list_pop_head(list_t *list);

/** Removes the last node; its value goes to the `free` hook and is not returned. Nothing on an empty list. */
VEXAMSG_API void list_pop_tail(list_t *list);

/**
 * Removes a node; its value goes to the `free` hook.
 * @param node  a node of this list; not checked, not NULL. Gone afterwards
 */
VEXAMSG_API void list_del(list_t *list, list_node *node);

/** Moves the last node to the front. Nothing on a list of fewer than two. */
VEXAMSG_API void list_rotate(list_t *list);

/** Removes every node from head to tail, each value going to the `free` hook. The list stays usable. */
VEXAMSG_API void list_clear(list_t *list);

/**
 * As list_clear, then frees the list itself. Its iterators stay to be released.
 * @param list  NULL does nothing
 */
VEXAMSG_API void list_release(list_t *list);

/**
 * Begins a walk. Removing the node that list_next returned last is safe during the walk; removing the one
 * that comes next is not.
 * @param direction  0 walks from head to tail, anything else from tail to head
 * @return the iterator, to be released with list_release_iterator; NULL when out of memory
 */
VEXAMSG_API list_iter *list_get_iterator(list_t *list, int direction);

/**
 * Takes the next step of a walk.
 * @param iter  NULL counts as a walk that is over, so the result of list_get_iterator needs no test
 * @return the node stepped over; NULL at the end, and again at every further call
 */
VEXAMSG_API list_node *list_next(list_iter *iter);

/** Begins a walk from the head anew with an iterator that exists; it may have walked another list before. */
VEXAMSG_API void list_rewind_head(list_t *list, list_iter *iter);

/** Begins a walk from the tail anew with an iterator that exists; it may have walked another list before. */
VEXAMSG_API void list_rewind_tail(list_t *list, list_iter *iter);

/**
 * Frees an iterator; the list is not touched, and may be gone already.
 * @param iter  NULL does nothing
 */
VEXAMSG_API void list_release_iterator(list_iter *iter);

/**
 * Copies a list, with the same hooks and order.
 *
 * With a `dup` hook each value is copied twice: the new list holds the copy of a copy, and the copy in
 * between is released by nobody. Where values own memory and that matters, build the copy with
 * list_add_node_tail instead, which copies once.
 * @return the copy, to be released with list_release; NULL when out of memory or when `dup` returns NULL,
 * values copied until then went to the `free` hook
 */
VEXAMSG_API list_t *list_dup(list_t *orig);

/**
 * Looks a value up, from the head.
 * @param key  second argument of `compare`; the first is the value of each node in turn
 * @return the first node for which `compare` returns 0; NULL when there is none or the list has no `compare`
 */
VEXAMSG_API list_node *list_find(list_t *list, void *key);

/**
 * The node at a place.
 * @param index  0 is the first node, 1 the next; -1 is the last, -2 the one before it
 * @return the node; NULL beyond either end
 */
VEXAMSG_API list_node *list_index(list_t *list, long index);

#ifdef __cplusplus
}
#endif

#endif

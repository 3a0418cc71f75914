// The doubly linked list. No state of its own and no lock: a list belongs to whoever holds it.
//
// Memory comes from malloc and calloc, since C callers own the blocks as much as we do and nothing may throw.
#include "utils/ut_list.h"

#include <cstdlib>

namespace {

constexpr int k_from_head = 0;
constexpr int k_from_tail = 1;

/// A node with its value, not linked yet. Null when there is no memory or no value.
list_node *make_node(const list_t &list, void *value) {
    auto *node = static_cast<list_node *>(malloc(sizeof(list_node)));
    if (node == nullptr) {
        return nullptr;
    }
    void *stored = list.type.dup != nullptr ? list.type.dup(value) : value;
    if (stored == nullptr) {
        free(node);
        return nullptr;
    }
    *node = {nullptr, nullptr, stored};
    return node;
}

/// Puts a node between two neighbours; a null neighbour is that end of the list.
void link_between(list_t &list, list_node *prev, list_node *node, list_node *next) {
    node->prev = prev;
    node->next = next;
    (prev != nullptr ? prev->next : list.head) = node;
    (next != nullptr ? next->prev : list.tail) = node;
}

void unlink_node(list_t &list, const list_node *node) {
    (node->prev != nullptr ? node->prev->next : list.head) = node->next;
    (node->next != nullptr ? node->next->prev : list.tail) = node->prev;
}

list_t *add_between(list_t *list, list_node *prev, void *value, list_node *next) {
    list_node *node = make_node(*list, value);
    if (node == nullptr) {
        return nullptr;
    }
    link_between(*list, prev, node, next);
    ++list->len;
    return list;
}

/// Copies every value of `orig` to the tail of `copy`; false as soon as one cannot be copied.
bool copy_values(list_t *copy, list_iter *orig) {
    for (const list_node *node = list_next(orig); node != nullptr; node = list_next(orig)) {
        // Adding copies once more. Both copies are meant, and the first is not ours to release: hooks may
        // count on being called twice for each value.
        void *value = copy->type.dup != nullptr ? copy->type.dup(node->value) : node->value;
        if (value == nullptr || list_add_node_tail(copy, value) == nullptr) {
            return false;
        }
    }
    return true;
}

} // namespace

// cppcheck-suppress constParameter; the interface is given
list_t *list_create(list_type *type) {
    auto *list = static_cast<list_t *>(calloc(1, sizeof(list_t)));
    if (list != nullptr && type != nullptr) {
        list->type = *type;
    }
    return list;
}

list_t *list_add_node_head(list_t *list, void *value) {
    return add_between(list, nullptr, value, list->head);
}

list_t *list_add_node_tail(list_t *list, void *value) {
    return add_between(list, list->tail, value, nullptr);
}

list_t *list_insert_node(list_t *list, list_node *pos, void *value, int before) {
    return before != 0 ? add_between(list, pos->prev, value, pos) : add_between(list, pos, value, pos->next);
}

void list_pop_head(list_t *list) {
    if (list->head != nullptr) {
        list_del(list, list->head);
    }
}

void list_pop_tail(list_t *list) {
    if (list->tail != nullptr) {
        list_del(list, list->tail);
    }
}

void list_del(list_t *list, list_node *node) {
    unlink_node(*list, node);
    if (list->type.free != nullptr) {
        list->type.free(node->value);
    }
    free(node);
    --list->len;
}

void list_rotate(list_t *list) {
    if (list->len > 1) {
        list_node *last = list->tail;
        unlink_node(*list, last);
        link_between(*list, nullptr, last, list->head);
    }
}

void list_clear(list_t *list) {
    while (list->head != nullptr) {
        list_pop_head(list);
    }
}

void list_release(list_t *list) {
    if (list != nullptr) {
        list_clear(list);
        free(list);
    }
}

list_iter *list_get_iterator(list_t *list, int direction) {
    auto *iter = static_cast<list_iter *>(malloc(sizeof(list_iter)));
    if (iter == nullptr) {
        return nullptr;
    }
    if (direction == k_from_head) {
        list_rewind_head(list, iter);
    } else {
        list_rewind_tail(list, iter);
    }
    return iter;
}

list_node *list_next(list_iter *iter) {
    list_node *node = iter != nullptr ? iter->next : nullptr;
    if (node != nullptr) {
        // Stepping on before the node is handed out lets the caller delete it.
        iter->next = iter->direction == k_from_head ? node->next : node->prev;
    }
    return node;
}

void list_rewind_head(list_t *list, list_iter *iter) {
    *iter = {list->head, k_from_head};
}

void list_rewind_tail(list_t *list, list_iter *iter) {
    *iter = {list->tail, k_from_tail};
}

void list_release_iterator(list_iter *iter) {
    free(iter);
}

list_t *list_dup(list_t *orig) {
    list_iter *iter = list_get_iterator(orig, k_from_head);
    if (iter == nullptr) {
        return nullptr;
    }
    list_t *copy = list_create(&orig->type);
    if (copy != nullptr && !copy_values(copy, iter)) {
        list_release(copy);
        copy = nullptr;
    }
    list_release_iterator(iter);
    return copy;
}

list_node *list_find(list_t *list, void *key) {
    if (list->type.compare == nullptr) {
        return nullptr;
    }
    list_node *node = list->head;
    while (node != nullptr && list->type.compare(node->value, key) != 0) {
        node = node->next;
    }
    return node;
}

list_node *list_index(list_t *list, long index) {
    const bool from_tail = index < 0;
    list_node *node = from_tail ? list->tail : list->head;
    // -1 is no step from the tail; written so that the lowest long does not overflow.
    for (long steps = from_tail ? -(index + 1) : index; steps > 0 && node != nullptr; --steps) {
        node = from_tail ? node->prev : node->next;
    }
    return node;
}

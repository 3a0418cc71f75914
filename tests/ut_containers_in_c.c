/* The list and the dictionary through their headers, compiled as C11. */
#include "ut_containers_in_c.h"

#include "utils/ut_dict.h"
#include "utils/ut_list.h"

#include <stdlib.h>
#include <string.h>

#define CHECK(condition)                                                                                     \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            return __LINE__;                                                                                 \
        }                                                                                                    \
    } while (0)

static void *copy_text(const void *text) {
    const size_t size = strlen(text) + 1;
    void *copy = malloc(size);
    return copy != NULL ? memcpy(copy, text, size) : NULL;
}

static void *copy_value(void *text) {
    return copy_text(text);
}

static int compare_texts(const void *a, const void *b) {
    return strcmp(a, b);
}

static uint32_t hash_text(const void *text) {
    return dict_generic_hash_function(text, strlen(text));
}

int c_list_owns_copies(void) {
    list_type type = {.dup = copy_value, .free = free};
    list_t *list = list_create(&type);
    char text[] = "left";
    CHECK(list_add_node_tail(list, text) == list);
    memcpy(text, "gone", sizeof text);
    CHECK(strcmp(list->head->value, "left") == 0);
    CHECK(list->head->value != text);
    CHECK(list->len == 1);
    list_release(list);
    return 0;
}

int c_list_walks_finds_and_indexes(void) {
    list_type type = {.compare = compare_texts};
    list_t *list = list_create(&type);
    CHECK(list_add_node_tail(list, "b") == list);
    CHECK(list_add_node_head(list, "a") == list);
    CHECK(list_insert_node(list, list->tail, "c", 0) == list);
    list_rotate(list); /* c a b */
    char met[4] = "";
    list_iter *iter = list_get_iterator(list, 1);
    for (list_node *node = list_next(iter); node != NULL; node = list_next(iter)) {
        strcat(met, node->value);
    }
    list_release_iterator(iter);
    CHECK(strcmp(met, "bac") == 0);
    CHECK(list_find(list, "a") == list_index(list, 1));
    CHECK(list_index(list, -4) == NULL);
    list_del(list, list_index(list, -2));
    list_pop_head(list);
    CHECK(list->head == list->tail && strcmp(list->head->value, "b") == 0);
    list_pop_tail(list);
    CHECK(list->len == 0);
    list_release(list);
    return 0;
}

int c_list_is_copied(void) {
    list_t *list = list_create(NULL);
    CHECK(list_add_node_tail(list, "a") == list);
    list_t *copy = list_dup(list);
    list_clear(list);
    CHECK(list->len == 0);
    CHECK(copy->len == 1 && strcmp(copy->head->value, "a") == 0);
    list_release(copy);
    list_release(list);
    return 0;
}

int c_dict_keeps_what_it_is_given(void) {
    dict_types types = {.hash_function = hash_text, .key_compare = compare_texts};
    dict_t *dict = dict_create(&types, 5);
    int port = 9001;
    int other = 9002;
    CHECK(dict->size == 8);
    CHECK(dict_add(dict, "camera", &port) != NULL);
    CHECK(dict_add(dict, "camera", &other) == NULL);
    CHECK(dict_find(dict, "camera")->val == &port);
    CHECK(dict_replace(dict, "camera", &other) == 0);
    CHECK(dict_find(dict, "camera")->val == &other);
    CHECK(dict_delete(dict, "camera") == 1);
    CHECK(dict_delete(dict, "camera") == 0);
    CHECK(dict->used == 0);
    dict_release(dict);
    return 0;
}

int c_dict_owns_copies(void) {
    dict_types types = {hash_text, copy_text, copy_text, compare_texts, dict_generic_free, dict_generic_free};
    dict_t *dict = dict_create(&types, 0);
    char key[] = "k";
    CHECK(dict_replace(dict, key, "v") == 1);
    key[0] = 'x';
    CHECK(strcmp(dict_find(dict, "k")->val, "v") == 0);
    CHECK(dict_expand(dict, 64) == 0 && dict->mask == 63);
    int met = 0;
    dict_iterator *iter = dict_get_iterator(dict);
    while (dict_next(iter) != NULL) {
        ++met;
    }
    dict_release_iterator(iter);
    CHECK(met == 1);
    dict_clear(dict);
    CHECK(dict->used == 0);
    dict_release(dict);
    return 0;
}

int c_dict_clears_in_constant_time(void) {
    dict_types types = {.hash_function = hash_text, .key_compare = compare_texts};
    dict_t *dict = dict_create(&types, 0);
    CHECK(dict_add(dict, "a", NULL) != NULL);
    dict_mark_clear(dict);
    CHECK(dict->used == 1);
    CHECK(dict_find(dict, "a") == NULL);
    CHECK(dict->used == 0);
    dict_release(dict);
    return 0;
}

/* A dictionary from text to numbers: which node sends on which port. */
#include "utils/ut_dict.h"

#include <stdio.h>
#include <string.h>

/* The two hooks that every dictionary needs. This one stores the pointers it is given and copies nothing. */
static uint32_t hash_text(const void *key) {
    return dict_generic_hash_function(key, strlen(key));
}

static int compare_texts(const void *a, const void *b) {
    return strcmp(a, b);
}

static void print_port(dict_t *ports, const char *name) {
    const dict_entry *entry = dict_find(ports, name);
    if (entry == NULL) {
        printf("%s: unknown\n", name);
    } else {
        printf("%s: %d\n", name, *(const int *)entry->val);
    }
}

int main(void) {
    int camera = 9005;
    int depth = 9003;
    int new_depth = 9013;

    dict_types types = {.hash_function = hash_text, .key_compare = compare_texts};
    dict_t *ports = dict_create(&types, 16);
    if (ports == NULL) {
        return 1;
    }

    dict_add(ports, "camera", &camera);
    dict_add(ports, "depth", &depth);
    print_port(ports, "depth");

    if (dict_add(ports, "depth", &new_depth) == NULL) {
        printf("depth is there already\n");
    }
    dict_replace(ports, "depth", &new_depth);
    print_port(ports, "depth");

    dict_delete(ports, "camera");
    print_port(ports, "camera");

    dict_mark_clear(ports); /* at once, however many there are: the rest goes with the lookups that follow */
    print_port(ports, "depth");

    dict_release(ports);
    return 0;
}

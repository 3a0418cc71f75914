/* A list that owns its values: a flight plan of waypoint names. */
#include "utils/ut_list.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* Called for each value that is added: the list keeps the copy, the caller keeps the original. */
static void *copy_name(void *name) {
    char *copy = malloc(strlen(name) + 1);
    return copy != NULL ? strcpy(copy, name) : NULL;
}

static int compare_names(const void *a, const void *b) {
    return strcmp(a, b);
}

static void print_plan(list_t *plan, int direction) {
    list_iter *iter = list_get_iterator(plan, direction);
    for (list_node *node = list_next(iter); node != NULL; node = list_next(iter)) {
        printf(" %s", (const char *)node->value);
    }
    printf("\n");
    list_release_iterator(iter);
}

int main(void) {
    list_type names = {.dup = copy_name, .free = free, .compare = compare_names};
    list_t *plan = list_create(&names);
    if (plan == NULL) {
        return 1;
    }

    list_add_node_tail(plan, "river");
    list_add_node_tail(plan, "bridge");
    list_add_node_head(plan, "home");

    /* Beside a node that is already there: 0 puts the value after it, 1 before it. */
    list_insert_node(plan, list_find(plan, "river"), "mill", 0);

    printf("out: ");
    print_plan(plan, 0);
    printf("back:");
    print_plan(plan, 1);
    printf("%lu places, the last is %s\n", plan->len, (const char *)list_index(plan, -1)->value);

    list_del(plan, list_find(plan, "mill")); /* frees the list's copy too */
    printf("less:");
    print_plan(plan, 0);

    list_release(plan); /* the list, its nodes and its copies */
    return 0;
}

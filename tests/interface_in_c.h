/**
 * @file
 * The interface as a C program sees and uses it. A check returns 0, or the line of the first expectation that
 * did not hold; a search returns the name of the first member that lies elsewhere, or NULL.
 */
#ifndef INTERFACE_IN_C_H
#define INTERFACE_IN_C_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

struct interface_row;

/** A table of values as C sees them, and how many rows it has. */
struct interface_table {
    const char *name;
    const struct interface_row *rows;
    size_t count;
};

/** All tables; the last one has no name. */
extern const struct interface_table c_interface_tables[];

const char *c_misplaced_flag(void);
const char *c_misplaced_device_member(void);
const char *c_misplaced_core_member(void);
const char *c_misplaced_task_member(void);

int c_node_table_is_used(void);
int c_queues_are_used(void);
int c_heartbeat_is_used(void);
int c_headers_are_read_and_written(void);
int c_node_that_is_not_started_refuses(void);
int c_interface_has_its_types(void);

#ifdef __cplusplus
}
#endif

#endif

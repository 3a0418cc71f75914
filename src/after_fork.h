/**
 * @file
 * What each unit does in a forked child of a process that runs a node. The child has none of the node's
 * threads, and its locks may have been held by one of them: it forgets the node, as if the library had just
 * been loaded, and closes its copies of the node's descriptors, so that the parent's node is not held by it.
 *
 * All run in the child, on its only thread, before fork returns there. A lock found free is proof that what
 * it guards was whole at the fork; anything else is left as it is and never touched again.
 */
#ifndef AFTER_FORK_H
#define AFTER_FORK_H

#include "thread_io.h"

void thrio_after_fork(thr_in_data_t &context);
void io_pool_after_fork();
void nmapping_after_fork();
void hbmgr_after_fork();
void ut_loop_after_fork();
void vision_msg_after_fork();

#endif

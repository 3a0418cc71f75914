/**
 * @file
 * What holds for every descriptor that the library keeps open.
 */
#ifndef VX_FD_H
#define VX_FD_H

#include <fcntl.h>

/**
 * Keeps a descriptor from the programs that the process runs: one that outlives the node would hold its port.
 * Without it (it cannot fail for a descriptor that is one) everything else works.
 */
inline void keep_from_other_programs(int fd) {
    (void)fcntl(fd, F_SETFD, FD_CLOEXEC);
}

#endif

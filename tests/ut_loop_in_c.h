/**
 * @file
 * What of the loop's, the timers' and the sockets' tests is written in C. Each function returns 0, or the
 * line of the first check that did not hold.
 */
#ifndef UT_LOOP_IN_C_H
#define UT_LOOP_IN_C_H

#ifdef __cplusplus
extern "C" {
#endif

int c_loop_reads_a_datagram(void);
int c_timer_repeats_until_stopped(void);
int c_sock_reads_descriptions(void);

#ifdef __cplusplus
}
#endif

#endif

/**
 * @file
 * What the bench measures, one function per chapter of its report.
 */
#ifndef BENCH_SECTIONS_H
#define BENCH_SECTIONS_H

#include "report.h"
#include "settings.h"

namespace bench {

/** Round trips of four sizes and bursts, on one core and on two; a picture. */
void measure_round_trips(const settings &how, report &out);
/** Streams at a fixed pace, and what becomes of what is lost. */
void measure_streams(const settings &how, report &out);
/** One message to many nodes, in one process and in many; a picture. */
void measure_broadcast(const settings &how, report &out);
/** From the start of a process to its first message. */
void measure_start_up(const settings &how, report &out);
/** A node that has nothing to do. */
void measure_idle(const settings &how, report &out);
/** Calls that send nothing. */
void measure_inside(const settings &how, report &out);
/** System calls per message. */
void count_system_calls(const settings &how, report &out);

} // namespace bench

#endif

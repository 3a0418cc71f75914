/**
 * @file
 * The demo is a sequence of scenes; each shows one thing that the bus does, measures it and leaves the bus as
 * the next one expects it. A further path (to the flight side, to the camera) is a file with a scene in it
 * and a row in demo.cpp.
 */
#ifndef DEMO_SCENE_H
#define DEMO_SCENE_H

#include "bus.h"
#include "path_report.h"
#include "transcript.h"

namespace demo {

/** What a scene plays on. */
struct stage {
    bus &nodes;
    transcript &out;
    path_report &paths;
};

struct scene {
    const char *title;
    void (*play)(stage &on); /**< throws failure when the demo cannot go on */
};

// scenes_session.cpp
void play_registration(stage &on);
void play_node_table(stage &on);
void play_leaving(stage &on);
void play_end(stage &on);

// scenes_messages.cpp
void play_direct(stage &on);
void play_queued(stage &on);
void play_proxy(stage &on);
void play_statuses(stage &on);
void play_broadcast(stage &on);

// scenes_heartbeat.cpp
void play_heartbeat(stage &on);

// scenes_link.cpp
void play_link(stage &on);

} // namespace demo

#endif

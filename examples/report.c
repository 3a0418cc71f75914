/* report: tells the flight side about a tracked target and about an orbit. Needs no node and no node manager.
 */
#include "vision_protocol.h"

#include <stdio.h>

int main(void) {
    vxlink_movidus_report_track_status_t track = {0};
    track.status = 1;
    track.id = 7;
    track.start_x = 0.25F; /* of the picture's width */
    track.distance = 12.5F;
    track.resolution_width = 1280;
    track.resolution_height = 720;
    const int track_bytes = send_message_track_status(&track);

    vxlink_movidus_report_orbit_area_t area = {0};
    area.start_x = 0.125F;
    area.resolution_width = 1280;
    const int area_bytes = send_message_orbit_area(&area);

    /* The datagrams' lengths; that they have left says nothing about their arrival. */
    printf("sent %d and %d bytes\n", track_bytes, area_bytes);
    return track_bytes > 0 && area_bytes > 0 ? 0 : 1;
}

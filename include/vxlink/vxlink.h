/**
 * @file
 * The whole vision link, and the list of its messages.
 *
 *     #define PRINT(name, NAME) printf("%d " #name "\n", VXLINK_MSG_ID_##NAME);
 *     VXLINK_MESSAGES(PRINT)
 */
#ifndef VXLINK_H
#define VXLINK_H

#include "vxlink_msg_movidus_command.h"
#include "vxlink_msg_movidus_report_goal_area.h"
#include "vxlink_msg_movidus_report_orbit_area.h"
#include "vxlink_msg_movidus_report_orbit_status.h"
#include "vxlink_msg_movidus_report_track_status.h"

/**
 * Every message, by ascending id: its name as in vxlink_NAME_t and vxlink_msg_NAME_encode, and the same in
 * capitals as in VXLINK_NAME_FIELDS and VXLINK_MSG_ID_NAME.
 */
#define VXLINK_MESSAGES(MESSAGE)                                                                             \
    MESSAGE(movidus_command, MOVIDUS_COMMAND)                                                                \
    MESSAGE(movidus_report_goal_area, MOVIDUS_REPORT_GOAL_AREA)                                              \
    MESSAGE(movidus_report_track_status, MOVIDUS_REPORT_TRACK_STATUS)                                        \
    MESSAGE(movidus_report_orbit_status, MOVIDUS_REPORT_ORBIT_STATUS)                                        \
    MESSAGE(movidus_report_orbit_area, MOVIDUS_REPORT_ORBIT_AREA)

#endif

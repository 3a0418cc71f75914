/**
 * @file
 * The demo node's part on the vision link: one datagram of any kind, with contents that follow from a number,
 * so that the other end can tell which one it has.
 */
#ifndef DEMO_LINK_SENDER_H
#define DEMO_LINK_SENDER_H

#include <cstdint>
#include <string>

namespace demo {

/**
 * Sends one datagram.
 * @param kind    track_status and goal_area show the number in `id`, orbit_status in `flag`, orbit_area in
 * `status`; command_ack, command_ack_rc and camera_command in `command`
 * @param number  of the datagram
 * @return what the library's sender returned; -1 for a kind that there is not
 */
int send_link(const std::string &kind, uint8_t number);

} // namespace demo

#endif

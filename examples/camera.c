/* camera COMMAND: sends a command with two bytes of data to the camera, and acknowledges it to the flight
 * side. */
#include "vision_protocol.h"

#include <stdio.h>
#include <stdlib.h>

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: camera COMMAND\n");
        return 2;
    }
    const unsigned char command = (unsigned char)strtoul(argv[1], NULL, 0);
    unsigned char data[] = {0xA0, 0xA1}; /* at most 31 bytes; the rest of the command is 0 */
    const int sent = send_ifly_command_cam(command, data, sizeof data);
    const int acknowledged = send_ifly_command_ack(command, sent == 0 ? 0 : 1);
    printf("camera: %d, acknowledgement: %d bytes\n", sent, acknowledged);
    return sent;
}

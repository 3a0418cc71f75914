/* A UDP server and its client in one process: a question goes out, the answer comes back. */
#include "utils/netapi.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>

/* The port that the system has chosen for a socket bound to port 0. */
static unsigned short own_port(const net_sockfd_t *sock) {
    struct sockaddr_in addr = {0};
    socklen_t len = sizeof addr;
    if (getsockname(sock->sockfd, (struct sockaddr *)&addr, &len) < 0) {
        perror("getsockname");
    }
    return ntohs(addr.sin_port);
}

/* Waits a second at most, so that the program ends whatever happens. */
static int receive(net_sockfd_t *sock, const char *who, char *text, int size) {
    if (net_read_timeout(sock, 1000) < 1) {
        fprintf(stderr, "%s: nothing has come\n", who);
        return -1;
    }
    int len = net_recvfrom(sock, text, size - 1); /* keeps the sender in sock->remote_addr */
    if (len < 0) {
        perror(who);
        return -1;
    }
    text[len] = '\0';
    printf("%s got %d bytes: %s\n", who, len, text);
    return len;
}

static int converse(net_sockfd_t *server, net_sockfd_t *client) {
    char text[64];
    if (net_sendto(client, "how high?", 9, "127.0.0.1", own_port(server)) < 0 ||
        receive(server, "server", text, sizeof text) < 0) {
        return 1;
    }
    if (net_sendto_peer(server, "12 m", 4) < 0 || receive(client, "client", text, sizeof text) < 0) {
        return 1;
    }
    return 0;
}

int main(void) {
    net_sockfd_t server = {-1, {0}};
    net_sockfd_t client = {-1, {0}};
    int failed = 1;
    if (net_udp_server(&server, "127.0.0.1", 0) == 0 && net_udp_client(&client) == 0) {
        failed = converse(&server, &client);
    }
    (void)net_close(&client);
    (void)net_close(&server);
    return failed;
}

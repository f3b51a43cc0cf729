/* The other side of the socket handover test: started by sl_net_test with
 * the name of a socket file, it takes the socket over, announces itself,
 * answers one message and exits.
 *
 * Exchange on the socket: the child sends "child:ready"; the parent's end
 * sends 5 bytes; the child sends back "pong:" followed by those 5 bytes.
 * Exit status 0 on success; each failing step has its own status, with the
 * error stack on stderr. */
#include <stdio.h>
#include <string.h>

#include "vq_glob.h"

static int fail(int status, const char *step) {
    fprintf(stderr, "sl_net_socket_child: %s failed: %s\n", step, err_get_error_msg());
    return status;
}

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: sl_net_socket_child <socket file>\n");
        return 2;
    }
    err_set_log_interactive(0);
    if (sl_net_init() != 1) {
        return fail(3, "sl_net_init");
    }
    sl_net_socket socket = SL_NET_NO_SOCKET;
    if (sl_net_get_socket_from_file(&socket, argv[1]) != 1) {
        return fail(4, "sl_net_get_socket_from_file");
    }
    void *session = NULL;
    if (sl_net_allocate_handle(SL_NET_TCP, &session) != 1 || sl_net_override_socket(session, socket) != 1) {
        return fail(5, "taking the socket");
    }
    static const char ready[] = "child:ready";
    if (sl_net_send(session, ready, (int32_t)strlen(ready), NULL) != 1) {
        return fail(6, "sending ready");
    }
    char answer[10];
    memcpy(answer, "pong:", 5);
    if (sl_net_recv(session, answer + 5, 5, NULL) != 1) {
        return fail(7, "receiving the message");
    }
    if (sl_net_send(session, answer, (int32_t)sizeof answer, NULL) != 1) {
        return fail(8, "answering");
    }
    if (sl_net_free_handle(&session) != 1) {
        return fail(9, "sl_net_free_handle");
    }
    sl_net_clean();
    return 0;
}

/* The header of the socket transport is plain C. */
#include <stddef.h>
#include <tarn/tarnfwd_socket.h>

_Static_assert(sizeof(struct tarnfwd_socket_option) == 12, "three words");
_Static_assert(offsetof(struct tarnfwd_socket_option, value) == 8, "in order");

/* The driver's header is plain C, and its record is laid out as written. */
#include <stddef.h>
#include <tarn/rxtx_hw.h>

_Static_assert(offsetof(struct tarn_rx_meta, replicated) == 0, "first");
_Static_assert(offsetof(struct tarn_rx_meta, debug) == 1, "beside it");
_Static_assert(offsetof(struct tarn_rx_meta, queue) == 4, "words are aligned");
_Static_assert(offsetof(struct tarn_rx_meta, extra) == 20, "in order");
_Static_assert(offsetof(struct tarn_rx_meta, flood_except) == 28, "behind rx_flags");
_Static_assert(offsetof(struct tarn_rx_meta, local_post_kernel) ==
                   offsetof(struct tarn_rx_meta, local) + 1,
               "side by side: both are copied as one unit");

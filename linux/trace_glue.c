// SPDX-License-Identifier: GPL-2.0
/*
 * The event tarn:redirect. The core asks a word whether anybody wants it, which the event itself turns
 * on and off: C++ cannot use the kernel's static keys.
 */
#include <linux/compiler.h>
#include <linux/kernel.h>
#include <linux/string.h>
#include <linux/types.h>

#include "trace_glue.h"

int tarn_k_trace_wanted;

static int tarn_k_trace_on(void)
{
	WRITE_ONCE(tarn_k_trace_wanted, 1);
	return 0;
}

static void tarn_k_trace_off(void)
{
	WRITE_ONCE(tarn_k_trace_wanted, 0);
}

/* A name of the core's, which need not be terminated when it fills its room. */
static void tarn_k_trace_name(char *to, const char *name, size_t room)
{
	scnprintf(to, room + 1, "%.*s", (int)room, name ? name : "-");
}

#define CREATE_TRACE_POINTS
#include "tarn_trace.h"

void tarn_k_trace_redirect(const struct tarn_k_redirect_event *event)
{
	trace_redirect(event);
}

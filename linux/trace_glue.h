/* SPDX-License-Identifier: GPL-2.0 */
/* The functions of trace_glue.c, as both sides see them. */
#ifndef TARN_LINUX_TRACE_GLUE_H
#define TARN_LINUX_TRACE_GLUE_H

#ifdef __cplusplus
struct redirect_event;
#define TARN_K_REDIRECT_EVENT redirect_event
extern "C" {
#else
/* The core's record: src/kernel/trace.h. */
struct tarn_k_redirect_event {
	const void *frame;
	const char *port;
	u32 ifindex;
	u32 vid;
	u32 ethertype;
	u32 length;
	u8 destination[6], source[6];
	const char *redirect;
	u32 slot;
	u32 flags;
	u32 reason;
	const char *rule;
	const char *number;
	u32 measured, limit;
};
#define TARN_K_REDIRECT_EVENT struct tarn_k_redirect_event
#endif

/* Not 0 while the event tarn:redirect is on. */
extern int tarn_k_trace_wanted;

void tarn_k_trace_redirect(const TARN_K_REDIRECT_EVENT *event);

#ifdef __cplusplus
}
#endif

#endif

/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The event tarn:redirect: what a redirect decided about a frame, and why.
 *
 *   echo 1 >/sys/kernel/tracing/events/tarn/redirect/enable; cat /sys/kernel/tracing/trace_pipe
 *
 * An event without a redirect ("-") is what the pipeline itself says of the frame. The number was
 * measured against the limit; where there is none, both are 0 and its name is empty.
 */
#undef TRACE_SYSTEM
#define TRACE_SYSTEM tarn

#if !defined(TARN_LINUX_TARN_TRACE_H) || defined(TRACE_HEADER_MULTI_READ)
#define TARN_LINUX_TARN_TRACE_H

#include <linux/tracepoint.h>

#include "trace_glue.h"

#define TARN_K_REDIRECT_NAME 20
#define TARN_K_PORT_NAME 16

TRACE_EVENT_FN(redirect,
	TP_PROTO(const struct tarn_k_redirect_event *event),
	TP_ARGS(event),
	TP_STRUCT__entry(
		__field(const void *, frame)
		__array(char, port, TARN_K_PORT_NAME + 1)
		__field(u32, ifindex)
		__field(u32, vid)
		__field(u32, ethertype)
		__field(u32, length)
		__array(u8, destination, 6)
		__array(u8, source, 6)
		__array(char, redirect, TARN_K_REDIRECT_NAME + 1)
		__field(u32, slot)
		__field(u32, flags)
		__field(u32, reason)
		__string(rule, event->rule ? event->rule : "")
		__string(number, event->number ? event->number : "")
		__field(u32, measured)
		__field(u32, limit)
	),
	TP_fast_assign(
		__entry->frame = event->frame;
		tarn_k_trace_name(__entry->port, event->port, TARN_K_PORT_NAME);
		__entry->ifindex = event->ifindex;
		__entry->vid = event->vid;
		__entry->ethertype = event->ethertype;
		__entry->length = event->length;
		memcpy(__entry->destination, event->destination, 6);
		memcpy(__entry->source, event->source, 6);
		tarn_k_trace_name(__entry->redirect, event->redirect, TARN_K_REDIRECT_NAME);
		__entry->slot = event->slot;
		__entry->flags = event->flags;
		__entry->reason = event->reason;
		__assign_str(rule, event->rule ? event->rule : "");
		__assign_str(number, event->number ? event->number : "");
		__entry->measured = event->measured;
		__entry->limit = event->limit;
	),
	TP_printk("frame=%p port=%s ifindex=%u vid=%u type=0x%04x len=%u dst=%pM src=%pM "
		  "redirect=%s slot=%u flags=0x%02x reason=%u rule=\"%s\" number=\"%s\" "
		  "measured=%u limit=%u",
		  __entry->frame, __entry->port, __entry->ifindex, __entry->vid,
		  __entry->ethertype, __entry->length, __entry->destination, __entry->source,
		  __entry->redirect, __entry->slot, __entry->flags, __entry->reason,
		  __get_str(rule), __get_str(number), __entry->measured, __entry->limit),
	tarn_k_trace_on,
	tarn_k_trace_off
);

#endif

#undef TRACE_INCLUDE_PATH
#define TRACE_INCLUDE_PATH .
#undef TRACE_INCLUDE_FILE
#define TRACE_INCLUDE_FILE tarn_trace
#include <trace/define_trace.h>

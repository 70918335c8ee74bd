// Explaining what becomes of a frame, in the words of the rule that decided.
//
// While somebody watches, every decision is told as it is made: which redirect, what it decided,
// and why. A match tells why with one of
//
//   explain(info, "the VLAN is disabled on the port");
//   explain(info, "over the limit", "frames in this period", count, limit);
//
// which costs a test of a word on the stack while nobody does. Texts are constants.
#pragma once

#include "kernel/trace.h"
#include "pkt/pkt_info.h"

inline void explain(const tarn_pkt_info *info, const char *rule, const char *number = nullptr,
                    u32 measured = 0, u32 limit = 0) {
    if (info->why) [[unlikely]]
        *info->why = {.rule = rule, .number = number, .measured = measured, .limit = limit};
}

// Tells what the redirect in the slot decided, if it did or has a word on it.
void pkt_explain_decision(const tarn_pkt_info *info, u32 slot, const redirect_instruct *instruct);
// Tells what the pipeline itself did with the frame.
void pkt_explain_end(const tarn_pkt_info *info, const char *rule);
// The same of a frame that did not come to be classified.
void pkt_explain_unclassified(const sk_buff *skb, const tarn_if *port, u32 vid, const char *rule);

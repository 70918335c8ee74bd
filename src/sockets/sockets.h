// The starts of the protocol socket families, each in the file named after its protocol.
// Every one registers its redirect, then its family.
#pragma once

#include "kernel/types.h"

i32 tarn_af_lacp_sock_init();       // lacp.cc
i32 tarn_af_stp_sock_init();        // stp.cc
i32 tarn_af_garp_sock_init();       // garp.cc
i32 tarn_af_igs_sock_init();        // igmp.cc
i32 tarn_af_ryke_sock_init();       // ryke.cc
i32 tarn_af_ldf_sock_init();        // ldf.cc
i32 tarn_af_lldp_sock_init();       // lldp.cc
i32 tarn_af_testd_sock_init();      // testd.cc
i32 tarn_af_frame_sock_init();      // frame.cc
i32 tarn_af_kelm_sock_init();       // kelm.cc
i32 tarn_af_kelm_agent_sock_init(); // kelm_agent.cc
i32 tarn_af_openflowd_sock_init();  // openflow.cc
i32 tarn_af_udld_sock_init();       // udld.cc
i32 tarn_af_cfm_sock_init();        // cfm.cc
i32 tarn_befd_sock_init();          // befd.cc
i32 tarn_af_isis_sock_init();       // isis.cc
i32 tarn_mrp_sock_init();           // mrp.cc
i32 tarn_af_profinet_sock_init();   // profinet.cc
i32 tarn_af_mlds_sock_init();       // mld.cc

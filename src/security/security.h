// The starts of access security.
#pragma once

#include "kernel/types.h"

i32 tarn_af_eapol_sock_init();  // eapol.cc
i32 tarn_auth_init();           // auth.cc
i32 tarn_af_dhcpsn_sock_init(); // dhcpsn.cc
i32 tarn_init_arp_sec();        // arp_sec.cc; last in the start order

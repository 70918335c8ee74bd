/* VLAN interfaces come and go: a taste of lab/tests/long/vlans_ten_times.c. */
#include "lab.h"
#include "vlan_rounds.h"

int main(void)
{
	vlan_rounds(2, 201, 264);
	return lab_result();
}

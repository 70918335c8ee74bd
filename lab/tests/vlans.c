/* VLAN interfaces come and go: a taste of lab/tests/long/vlans_ten_times.c. */
#include "lab.h"
#include "vlan_rounds.h"

int main(void)
{
	vlan_start();
	vlan_rounds(2, 201, 264);
	vlan_returns(4, 201, 264);
	vlan_end();
	return lab_result();
}

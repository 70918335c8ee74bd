/*
 * What the files of /proc/tarn print and take, in C and C++ alike: one list for the process, for the
 * mounted tree and for a kernel. The steps are made in order; what one writes a later one reads.
 *
 * The switch has the port "if5011" with ifindex 5011, new and bound to nothing; nothing else of it is
 * asked.
 */
#ifndef TARN_TEST_PROC_CASES_H
#define TARN_TEST_PROC_CASES_H

enum proc_how {
	PROC_READS,    /* the whole text */
	PROC_BEGINS,   /* how the text begins */
	PROC_HAS,      /* what is somewhere in it */
	PROC_HAS_NOT,  /* what is nowhere in it */
	PROC_WRITE,    /* the text is written; `result` bytes were taken, or -errno */
	PROC_NO_READ,  /* reading gives `result` */
};

struct proc_case {
	enum proc_how how;
	const char *file;
	const char *text;
	long result;
};

struct proc_mode {
	const char *file;
	unsigned int mode;
};

static const struct proc_mode proc_modes[] = {
	{ "authglobal", 0666 },
	{ "arpseccnt", 0666 },
	{ "arpsecdb", 0444 },
	{ "clearpktcount", 0222 },
	{ "hidecounter", 0222 },
	{ "ifdb", 0444 },
	{ "meminfo", 0444 },
	{ "pktcounts", 0444 },
	{ "pktdebug", 0666 },
	{ "pktdebuglowmem", 0666 },
	{ "pktdebugpostenable", 0666 },
	{ "pktdebugpostinfo", 0444 },
	{ "pktdebugpvlanprimary", 0666 },
	{ "pktdebugratelimitinterval", 0666 },
	{ "pktdebugratelimitburst", 0666 },
	{ "pktdebugslaveonly", 0666 },
	{ "pktdebugvlan", 0666 },
	{ "redirectprotocoldisable", 0666 },
	{ "redirectprotocolenable", 0666 },
	{ "refcounts", 0444 },
	{ "rxmodifycounts", 0444 },
	{ "subnetvlan", 0444 },
	{ "txmodifycounts", 0444 },
	{ "if5011/auth", 0666 },
	{ "if5011/authfwd", 0444 },
	{ "if5011/authsupp", 0666 },
	{ "if5011/disablevlans", 0666 },
	{ "if5011/openflow", 0666 },
	{ "if5011/bridge", 0444 },
};

#define FOUR_BLOCKING(a, b, c, d) a ": Blocking\n" b ": Blocking\n" c ": Blocking\n" d ": Blocking\n"
#define PROC_NEW_BRIDGE                                                                            \
	FOUR_BLOCKING("00", "01", "02", "03") FOUR_BLOCKING("04", "05", "06", "07")                \
	FOUR_BLOCKING("08", "09", "10", "11") FOUR_BLOCKING("12", "13", "14", "15")                \
	FOUR_BLOCKING("16", "17", "18", "19") FOUR_BLOCKING("20", "21", "22", "23")                \
	FOUR_BLOCKING("24", "25", "26", "27") FOUR_BLOCKING("28", "29", "30", "31")                \
	FOUR_BLOCKING("32", "33", "34", "35") FOUR_BLOCKING("36", "37", "38", "39")                \
	FOUR_BLOCKING("40", "41", "42", "43") FOUR_BLOCKING("44", "45", "46", "47")                \
	FOUR_BLOCKING("48", "49", "50", "51") FOUR_BLOCKING("52", "53", "54", "55")                \
	FOUR_BLOCKING("56", "57", "58", "59") FOUR_BLOCKING("60", "61", "62", "63")

#define TEN_X "xxxxxxxxxx"
#define HUNDRED_ONES                                                                               \
	"11111111111111111111111111111111111111111111111111"                                       \
	"11111111111111111111111111111111111111111111111111"

#define PROC_ARPSEC_STATISTICS "DHCP Snooping ARP Security statistics\n---------\n"

/* EPERM 1, EIO 5, EFAULT 14 */
static const struct proc_case proc_cases[] = {
	/* --- views of what is not there yet ------------------------------------------------------ */
	{ PROC_READS, "arpsecdb",
	  "DHCP Snooping ARP Security Database\n---------\n"
	  "Client IP       MAC Address    VLAN Port(ifindex)\n", 0 },
	{ PROC_READS, "arpseccnt", PROC_ARPSEC_STATISTICS, 0 },
	{ PROC_READS, "authglobal",
	  "listening-socket=0.0.0.0:80/0\nhook-http-ports=\nhook-https-ports=\n", 0 },
	{ PROC_READS, "subnetvlan",
	  "Interfaces are skipped if the tree is NULL for that interface\n\n", 0 },
	{ PROC_READS, "pktdebugpostinfo", "{}\n", 0 },

	/* --- the database ------------------------------------------------------------------------ */
	{ PROC_BEGINS, "ifdb",
	  "Interface  IfIndex  Flags  Oper cnt.  Ref cnt. IfFlags\n"
	  "======================================================\n", 0 },
	{ PROC_HAS, "ifdb", "\nif5011      5011     ", 0 },
	{ PROC_BEGINS, "refcounts",
	  "IRREGULAR REFERENCE COUNTS\nRegular reference counts of 1 are not shown\n---------\n", 0 },
	{ PROC_HAS_NOT, "refcounts", "if5011", 0 },
	{ PROC_BEGINS, "meminfo", "MEMINFO TABLE\n---------\nFree Pages ", 0 },
	{ PROC_HAS, "meminfo", "\nNumber of vlan_port_adds ", 0 },

	/* --- a port ------------------------------------------------------------------------------ */
	{ PROC_READS, "if5011/bridge", PROC_NEW_BRIDGE, 0 },
	{ PROC_WRITE, "if5011/bridge", "3\n", -5 },
	{ PROC_READS, "if5011/auth", "state=Uncontrolled\nmethod=None\nguest-vlan=0\n", 0 },
	{ PROC_WRITE, "if5011/auth", "3,0,17\n", 7 },
	{ PROC_READS, "if5011/auth", "state=Uncontrolled\nmethod=None\nguest-vlan=17\n", 0 },
	{ PROC_WRITE, "if5011/auth", "3,0", -14 },
	{ PROC_WRITE, "if5011/auth", "3", -14 },
	{ PROC_WRITE, "if5011/auth", "3,0,1234567890123456", 16 },
	{ PROC_WRITE, "if5011/auth", "3,0,65537\n", 10 },
	{ PROC_READS, "if5011/auth", "state=Uncontrolled\nmethod=None\nguest-vlan=1\n", 0 },
	{ PROC_READS, "if5011/authfwd", "", 0 },
	{ PROC_WRITE, "if5011/authfwd", "1\n", -5 },
	{ PROC_READS, "if5011/authsupp", "", 0 },
	{ PROC_WRITE, "if5011/authsupp", "1,02:00:00:00:00:01,1,10\n", -14 }, /* it has no table */
	{ PROC_WRITE, "if5011/authsupp", "0,02:00:00:00:00:01,1,10\n", 25 },
	{ PROC_WRITE, "if5011/authsupp", "0,02:00:00:00:00:01,1\n", -14 },
	{ PROC_WRITE, "if5011/authsupp", "0,nobody,x,y", 12 },
	{ PROC_READS, "if5011/disablevlans", "00000000\n", 0 },
	{ PROC_WRITE, "if5011/disablevlans", "1\n", 2 },
	{ PROC_READS, "if5011/disablevlans", "00000001\n", 0 },
	{ PROC_WRITE, "if5011/disablevlans", "10\n", 3 },
	{ PROC_READS, "if5011/disablevlans", "00000010\n", 0 },
	{ PROC_WRITE, "if5011/disablevlans", "0xabcdef01234", 10 },
	{ PROC_READS, "if5011/disablevlans", "abcdef01\n", 0 },
	{ PROC_WRITE, "if5011/disablevlans", "none\n", 5 },
	{ PROC_READS, "if5011/disablevlans", "00000000\n", 0 },
	{ PROC_READS, "if5011/openflow", "0\n", 0 },
	{ PROC_WRITE, "if5011/openflow", "1\n", 2 },
	{ PROC_READS, "if5011/openflow", "1\n", 0 },
	{ PROC_WRITE, "if5011/openflow", "123\n", 2 },
	{ PROC_READS, "if5011/openflow", "12\n", 0 },
	{ PROC_WRITE, "if5011/openflow", "-1", 2 },
	{ PROC_READS, "if5011/openflow", "255\n", 0 },
	{ PROC_WRITE, "if5011/openflow", "0\n", 2 },

	/* --- the frame log ----------------------------------------------------------------------- */
	{ PROC_READS, "pktdebug", "0\n", 0 },
	{ PROC_WRITE, "pktdebug", HUNDRED_ONES, 8 },
	{ PROC_READS, "pktdebug", "11111111\n", 0 },
	{ PROC_WRITE, "pktdebug", "-1\n", 3 },
	{ PROC_READS, "pktdebug", "4294967295\n", 0 },
	{ PROC_WRITE, "pktdebug", " 3\n", 3 },
	{ PROC_READS, "pktdebug", "0\n", 0 },
	{ PROC_WRITE, "pktdebugvlan", "4094\n", 5 },
	{ PROC_READS, "pktdebugvlan", "4094\n", 0 },
	{ PROC_WRITE, "pktdebugvlan", "0x10\n", 5 },
	{ PROC_READS, "pktdebugvlan", "0\n", 0 },
	{ PROC_WRITE, "pktdebuglowmem", "7\n", 2 },
	{ PROC_READS, "pktdebuglowmem", "1\n", 0 },
	{ PROC_WRITE, "pktdebuglowmem", "0\n", 2 },
	{ PROC_READS, "pktdebuglowmem", "0\n", 0 },
	{ PROC_WRITE, "pktdebugslaveonly", "-2\n", 3 },
	{ PROC_READS, "pktdebugslaveonly", "1\n", 0 },
	{ PROC_WRITE, "pktdebugslaveonly", "no\n", 3 },
	{ PROC_READS, "pktdebugslaveonly", "0\n", 0 },
	{ PROC_WRITE, "pktdebugpostenable", "12345678901", 10 },
	{ PROC_READS, "pktdebugpostenable", "1234567890\n", 0 },
	{ PROC_WRITE, "pktdebugpostenable", "0\n", 2 },
	{ PROC_READS, "pktdebugpostenable", "0\n", 0 },
	{ PROC_WRITE, "pktdebugpvlanprimary", "-5\n", 3 },
	{ PROC_READS, "pktdebugpvlanprimary", "-5\n", 0 },
	{ PROC_WRITE, "pktdebugpvlanprimary", "0\n", 2 },
	{ PROC_READS, "pktdebugratelimitinterval", "500\n", 0 },
	{ PROC_READS, "pktdebugratelimitburst", "100\n", 0 },
	{ PROC_WRITE, "pktdebugratelimitburst", "0x20\n", 5 },
	{ PROC_READS, "pktdebugratelimitburst", "32\n", 0 },
	{ PROC_WRITE, "pktdebugratelimitburst", "017\n", 4 },
	{ PROC_READS, "pktdebugratelimitburst", "15\n", 0 },
	{ PROC_WRITE, "pktdebugratelimitburst", "100\n", 4 },
	{ PROC_WRITE, "pktdebugratelimitinterval", "123456789", 7 },
	{ PROC_READS, "pktdebugratelimitinterval", "1234567\n", 0 },
	{ PROC_WRITE, "pktdebugratelimitinterval", "-1\n", 3 },
	{ PROC_READS, "pktdebugratelimitinterval", "0\n", 0 },
	{ PROC_WRITE, "pktdebugratelimitinterval", "500\n", 4 },
	{ PROC_WRITE, "pktdebugpostinfo", "1\n", -5 },

	/* --- redirects --------------------------------------------------------------------------- */
	{ PROC_WRITE, "clearpktcount", "", 0 },
	{ PROC_WRITE, "clearpktcount", "whatever this says\n", 19 },
	{ PROC_NO_READ, "clearpktcount", "", -5 },
	{ PROC_NO_READ, "hidecounter", "", -5 },
	{ PROC_BEGINS, "pktcounts",
	  "PACKET COUNTS\n---------\n"
	  "vlan_local_inspects: 0\nvlan_local_userspace: 0\nvlan_local_kernel: 0\n", 0 },
	{ PROC_HAS, "pktcounts", "\npppoe_inspects: 0\n", 0 },
	{ PROC_WRITE, "hidecounter", "pppoe\n", 6 },
	{ PROC_HAS_NOT, "pktcounts", "pppoe", 0 },
	{ PROC_HAS, "pktcounts", "\nvrrp_inspects: 0\n", 0 },
	{ PROC_WRITE, "hidecounter", "vrrp\n" TEN_X TEN_X, 20 },
	{ PROC_HAS, "pktcounts", "\nvrrp_inspects: 0\n", 0 },
	{ PROC_WRITE, "hidecounter", "\n", 1 },
	{ PROC_HAS, "pktcounts", "\npppoe_inspects: 0\n", 0 },
	{ PROC_BEGINS, "rxmodifycounts", "PACKET COUNTS\n---------\n", 0 },
	{ PROC_HAS, "rxmodifycounts", "pbrMark_modify_rx_inspects: 0\n", 0 },
	{ PROC_BEGINS, "txmodifycounts", "PACKET COUNTS\n---------\n", 0 },
	{ PROC_HAS, "txmodifycounts", "orvo-bridge_modify_tx_inspects: ", 0 },
	{ PROC_HAS, "redirectprotocolenable", "pppoe\n", 0 },
	{ PROC_HAS_NOT, "redirectprotocoldisable", "pppoe\n", 0 },
	{ PROC_WRITE, "redirectprotocoldisable", "pppoe\n", 6 },
	{ PROC_HAS_NOT, "redirectprotocolenable", "pppoe\n", 0 },
	{ PROC_HAS, "redirectprotocoldisable", "pppoe\n", 0 },
	{ PROC_WRITE, "redirectprotocolenable", "pppoe", 5 }, /* looks for "pppo" */
	{ PROC_HAS, "redirectprotocoldisable", "pppoe\n", 0 },
	{ PROC_WRITE, "redirectprotocolenable", "pppoe\n", 6 },
	{ PROC_HAS, "redirectprotocolenable", "pppoe\n", 0 },
	{ PROC_WRITE, "redirectprotocoldisable", "", 0 },
	{ PROC_WRITE, "redirectprotocoldisable", TEN_X TEN_X TEN_X, 30 }, /* 18 are looked for */

	/* --- writes that only their syntax counts of ---------------------------------------------- */
	{ PROC_WRITE, "authglobal", "10.0.0.1:80/8080,1,2,3\n", 23 },
	{ PROC_WRITE, "authglobal", "10.0.0.1:80/8080,1,2\n", -14 },
	{ PROC_WRITE, "authglobal", ",,,", 3 },
	{ PROC_READS, "authglobal",
	  "listening-socket=0.0.0.0:80/0\nhook-http-ports=\nhook-https-ports=\n", 0 },

	/* --- statistics that nobody has ----------------------------------------------------------- */
	{ PROC_WRITE, "arpseccnt", "0\n", 0 },
	{ PROC_WRITE, "arpseccnt", "5011\n", 5 },
	{ PROC_WRITE, "arpseccnt", "5011,\n", 4 },
	{ PROC_WRITE, "arpseccnt", "5011,0,\n", 4 }, /* less than four bytes are left */
	{ PROC_WRITE, "arpseccnt", "5011,0,5012,\n", -1 },
	{ PROC_WRITE, "arpseccnt", "5011,5012", 4 },
	{ PROC_WRITE, "arpseccnt", "1234567,\n", 7 },
	{ PROC_WRITE, "arpseccnt", "12345678,\n", -1 },
	{ PROC_WRITE, "arpseccnt", ",\n", -1 },
	{ PROC_WRITE, "arpseccnt", "none,\n", -1 },
};

#endif

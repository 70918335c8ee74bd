/*
 * The control family, over the kernel's own generic netlink: the same list of cases, and the same
 * judge, that the process is held to.
 */
#include "lab.h"

#include <sys/socket.h>
#include <unistd.h>

#include "../../tests/control/nl_cases.h"

static int sock;
static uint16_t family;
static uint32_t group;

static int ask(const void *message, size_t length, void *answer, size_t room)
{
	if (send(sock, message, length, 0) != (ssize_t)length)
		return -1;
	return (int)recv(sock, answer, room, 0);
}

/* Calls with each attribute of these bytes. */
static void each_attribute(const uint8_t *at, size_t rest,
			   void (*each)(unsigned type, const uint8_t *value, size_t length))
{
	struct nlattr header;

	while (rest >= NLA_HDRLEN) {
		memcpy(&header, at, sizeof(header));
		if (header.nla_len < NLA_HDRLEN || header.nla_len > rest)
			return;
		each(header.nla_type & NLA_TYPE_MASK, at + NLA_HDRLEN, header.nla_len - NLA_HDRLEN);
		if ((size_t)NLA_ALIGN(header.nla_len) >= rest)
			return;
		rest -= NLA_ALIGN(header.nla_len);
		at += NLA_ALIGN(header.nla_len);
	}
}

static unsigned operations;

static void in_group(unsigned type, const uint8_t *value, size_t length)
{
	if (type == CTRL_ATTR_MCAST_GRP_ID && length == sizeof(group))
		memcpy(&group, value, length);
}

static void in_groups(unsigned type, const uint8_t *value, size_t length)
{
	(void)type;
	each_attribute(value, length, in_group);
}

static void count_operation(unsigned type, const uint8_t *value, size_t length)
{
	uint32_t words[4];

	(void)type;
	/* Each an id and flags: it can be done, and has a policy. */
	if (length == sizeof(words)) {
		memcpy(words, value, length);
		operations += words[3] == 0xA;
	}
}

static void in_family(unsigned type, const uint8_t *value, size_t length)
{
	if (type == CTRL_ATTR_FAMILY_ID)
		memcpy(&family, value, sizeof(family));
	if (type == CTRL_ATTR_MCAST_GROUPS)
		each_attribute(value, length, in_groups);
	if (type == CTRL_ATTR_OPS)
		each_attribute(value, length, count_operation);
}

static void find_family(void)
{
	struct nl_message question;
	uint8_t answer[8192];
	int length;

	nl_message_start(&question, GENL_ID_CTRL, CTRL_CMD_GETFAMILY, 0, 1);
	nl_message_put(&question, CTRL_ATTR_FAMILY_NAME, TARNFWD_NL_FAMILY,
		       sizeof(TARNFWD_NL_FAMILY));
	question.u.header.nlmsg_len = question.length;
	length = ask(question.u.bytes, question.length, answer, sizeof(answer));
	if (length > (int)(NLMSG_HDRLEN + GENL_HDRLEN))
		each_attribute(answer + NLMSG_HDRLEN + GENL_HDRLEN,
			       (size_t)length - NLMSG_HDRLEN - GENL_HDRLEN, in_family);
}

static void cases(void)
{
	uint8_t answer[8192];
	unsigned sent = 0, wrong = 0, sequence = 100;

	for (size_t c = 0; c < NL_CASES; c++)
		for (int v = 0; v < NL_VARIATIONS; v++)
			for (unsigned i = 0; i < nl_case_indices(&nl_cases[c], v); i++) {
				struct nl_message message;
				struct nl_expected expected = nl_expect(&nl_cases[c], v, i);
				const char *why;
				int length;

				nl_case_build(&message, &nl_cases[c], v, i, family, ++sequence);
				length = ask(message.u.bytes, message.length, answer,
					     sizeof(answer));
				why = length < 0 ? "there is none" :
						   nl_case_judge(&message, &expected, answer,
								 (size_t)length);
				sent++;
				if (!why)
					continue;
				wrong++;
				printf("  FAIL %s, %s (%u): %s\n", nl_cases[c].name,
				       nl_variation_name(v), i, why);
			}
	CHECK(sent > 79 * 8 && wrong == 0, "%u messages, %u wrong acknowledgements", sent, wrong);
}

int main(void)
{
	struct sockaddr_nl address = { .nl_family = AF_NETLINK };
	struct timeval patience = { .tv_sec = 5 };
	int on = 1;

	sock = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_GENERIC);
	CHECK(sock >= 0, "a generic netlink socket");
	setsockopt(sock, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
	CHECK(bind(sock, (struct sockaddr *)&address, sizeof(address)) == 0, "it is bound");
	CHECK(setsockopt(sock, SOL_NETLINK, NETLINK_EXT_ACK, &on, sizeof(on)) == 0,
	      "it wants extended acknowledgements");
	find_family();
	CHECK(family != 0, "the family \"" TARNFWD_NL_FAMILY "\" is there, with id %u", family);
	CHECK(operations == NL_CASES, "it has %u operations", operations);
	CHECK(group != 0, "it has a group");
	CHECK(setsockopt(sock, SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &group, sizeof(group)) == 0,
	      "which can be joined");
	if (family)
		cases();
	close(sock);
	return lab_result();
}

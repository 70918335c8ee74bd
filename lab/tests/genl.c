/* See genl.h. */
#include "genl.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

uint16_t genl_family;
uint32_t genl_group;

/* The number at the end of a path of nests, each the first of its type; 0 where there is none. */
static uint32_t number_at(const uint8_t *at, size_t rest, const uint16_t *path, int steps)
{
	struct nlattr header;
	uint32_t number = 0;

	for (; rest >= NLA_HDRLEN; at += NLA_ALIGN(header.nla_len), rest -= NLA_ALIGN(header.nla_len)) {
		size_t length;

		memcpy(&header, at, sizeof(header));
		if (header.nla_len < NLA_HDRLEN || (size_t)NLA_ALIGN(header.nla_len) > rest)
			return 0;
		if ((header.nla_type & NLA_TYPE_MASK) != path[0])
			continue;
		length = header.nla_len - NLA_HDRLEN;
		if (steps > 1)
			return number_at(at + NLA_HDRLEN, length, path + 1, steps - 1);
		memcpy(&number, at + NLA_HDRLEN, length < sizeof(number) ? length : sizeof(number));
		return number;
	}
	return 0;
}

/* How long the answer is, or -1. */
static ssize_t ask(const struct nl_message *message, uint8_t *answer, size_t room)
{
	struct sockaddr_nl address = { .nl_family = AF_NETLINK };
	struct timeval patience = { .tv_sec = 20 };
	int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_GENERIC);
	ssize_t length = -1;

	setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
	if (bind(fd, (struct sockaddr *)&address, sizeof(address)) == 0 &&
	    send(fd, message->u.bytes, message->length, 0) == (ssize_t)message->length)
		length = recv(fd, answer, room, 0);
	close(fd);
	return length;
}

void genl_find(void)
{
	static const uint16_t to_family[] = { CTRL_ATTR_FAMILY_ID };
	static const uint16_t to_group[] = { CTRL_ATTR_MCAST_GROUPS, 1, CTRL_ATTR_MCAST_GRP_ID };
	struct nl_message question;
	uint8_t answer[8192], *attributes = answer + NLMSG_HDRLEN + GENL_HDRLEN;
	ssize_t length;

	nl_message_start(&question, GENL_ID_CTRL, CTRL_CMD_GETFAMILY, 0, 1);
	nl_message_put(&question, CTRL_ATTR_FAMILY_NAME, TARNFWD_NL_FAMILY, sizeof(TARNFWD_NL_FAMILY));
	question.u.header.nlmsg_len = question.length;
	length = ask(&question, answer, sizeof(answer)) - (attributes - answer);
	if (length <= 0)
		return;
	genl_family = (uint16_t)number_at(attributes, (size_t)length, to_family, 1);
	genl_group = number_at(attributes, (size_t)length, to_group, 3);
}

int genl_ask(struct nl_message *message)
{
	struct nlmsgerr error;
	uint8_t answer[8192];

	message->u.header.nlmsg_len = message->length;
	if (ask(message, answer, sizeof(answer)) < (ssize_t)(NLMSG_HDRLEN + sizeof(error)))
		return GENL_NO_ANSWER;
	memcpy(&error, answer + NLMSG_HDRLEN, sizeof(error));
	return error.error;
}

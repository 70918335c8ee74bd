// A client of the control family over a Unix socket.
#pragma once

#include "control/nl_client.h"
#include "servers/unix_end.h"
#include "tarn/tarnfwd_socket.h"

class NetlinkEnd : public UnixEnd {
public:
    explicit NetlinkEnd(const std::string &path) : UnixEnd(path, SOCK_SEQPACKET) {}

    // A command that is refused, since it has no attributes.
    static Bytes request(u16 family, u32 sequence) {
        nl_message message;
        nl_message_start(&message, family, TARNFWD_CMD_L2_FDB_SET, 0, sequence);
        message.u.header.nlmsg_len = message.length;
        return {message.u.bytes, message.u.bytes + message.length};
    }
    int ask(u16 family, u32 sequence) {
        put(request(family, sequence));
        return Client::error_of(read());
    }
    int option(u32 name, u32 value) {
        struct {
            nlmsghdr header;
            tarnfwd_socket_option option;
        } packet{};
        packet.header.nlmsg_len = sizeof(packet);
        packet.header.nlmsg_type = TARNFWD_SOCKET_OPTION;
        packet.header.nlmsg_flags = NLM_F_REQUEST;
        packet.option = {NETLINK_GENERIC, name, value};
        put({reinterpret_cast<const u8 *>(&packet), sizeof(packet)});
        return Client::error_of(read_answer());
    }
    // Events that come before it are passed over.
    Bytes read_answer() const {
        Bytes packet = read();
        while (!packet.empty() && type_of(packet) != NLMSG_ERROR)
            packet = read();
        return packet;
    }

    static nlmsghdr header_of(const Bytes &packet) {
        nlmsghdr header{};
        std::memcpy(&header, packet.data(), std::min(packet.size(), sizeof(header)));
        return header;
    }
    static u16 type_of(const Bytes &packet) { return header_of(packet).nlmsg_type; }
    static u32 sequence_of(const Bytes &packet) { return header_of(packet).nlmsg_seq; }
};

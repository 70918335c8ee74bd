// One end of a carried protocol socket, without the preload library.
#pragma once

#include "servers/unix_end.h"

#include "tarn/skaddr.h"
#include "tarn/socket_carrier.h"

#include <cstring>

class CarriedEnd : public UnixEnd {
public:
    explicit CarriedEnd(const std::string &path) : UnixEnd(path, SOCK_SEQPACKET) {}

    // Whether it is taken; the descriptors go beside it.
    bool put_with(std::span<const u8> bytes, const std::vector<int> &descriptors) const {
        std::vector<char> control(CMSG_SPACE(descriptors.size() * sizeof(int)));
        iovec data{const_cast<u8 *>(bytes.data()), bytes.size()};
        msghdr msg{};
        msg.msg_iov = &data;
        msg.msg_iovlen = 1;
        msg.msg_control = control.data();
        msg.msg_controllen = control.size();
        cmsghdr *beside = CMSG_FIRSTHDR(&msg);
        beside->cmsg_level = SOL_SOCKET;
        beside->cmsg_type = SCM_RIGHTS;
        beside->cmsg_len = CMSG_LEN(descriptors.size() * sizeof(int));
        std::memcpy(CMSG_DATA(beside), descriptors.data(), descriptors.size() * sizeof(int));
        return sendmsg(fd(), &msg, MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }
    // The result, or 1 when there is no answer. `more`: what else goes beside the request.
    i64 call(const tarn_carrier_request &request, const std::vector<int> &more = {}) const {
        int answers = begin(request, more);
        struct {
            tarn_carrier_reply reply;
            char data[2048];
        } answer{};
        ssize_t length = recv(answers, &answer, sizeof(answer), 0);
        char nothing; // the switch has given its descriptor back when this ends
        EXPECT_LE(recv(answers, &nothing, sizeof(nothing), 0), 0);
        ::close(answers);
        return length >= static_cast<ssize_t>(sizeof(answer.reply)) ? answer.reply.result : 1;
    }
    void call_and_go(const tarn_carrier_request &request) {
        ::close(begin(request, {}));
        close();
    }
    i64 open(int family) const {
        return call({.call = TARN_CARRIER_OPEN, .a = family, .b = SOCK_RAW});
    }
    i64 look() const {
        return call({.call = TARN_CARRIER_RECEIVE, .a = MSG_PEEK, .size = sizeof(char[2048])});
    }

private:
    // Where the answer comes.
    int begin(const tarn_carrier_request &request, const std::vector<int> &more) const {
        int pair[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair), 0);
        std::vector<int> beside{pair[1]};
        beside.insert(beside.end(), more.begin(), more.end());
        EXPECT_TRUE(put_with({reinterpret_cast<const u8 *>(&request), sizeof(request)}, beside));
        ::close(pair[1]);
        return pair[0];
    }
};

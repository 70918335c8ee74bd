// The socket layer of the process, by the rules of Linux 6.1 (net/socket.c, net/core/sock.c,
// net/core/datagram.c there) as far as a family of the module can see them.
#include "kernel/sock.h"

#include "kernel/errno.h"
#include "kernel/skb.h"
#include "memory.h"
#include "socket_calls.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <vector>

namespace userlevel {

namespace {

constexpr std::size_t FAMILIES = 71;
constexpr int BUFFER_DEFAULT = 212992; // net.core.rmem_default and its fellows
constexpr int RCVBUF_LEAST = 2304, SNDBUF_LEAST = 4608;
constexpr int TYPES = 11;
constexpr socklen_t NAME_MOST = 128;

std::array<std::atomic<const net_proto_family *>, FAMILIES> families{};
std::atomic<bool> may_open_raw = true, in_initial_namespace = true;

struct guarded {
    sock *sk;
    explicit guarded(sock *of) : sk(of) { pthread_mutex_lock(&sk->lock); }
    ~guarded() { pthread_mutex_unlock(&sk->lock); }
    guarded(const guarded &) = delete;
    guarded &operator=(const guarded &) = delete;
};

// The time at which a wait of so many milliseconds ends.
timespec after(int milliseconds) {
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_sec += milliseconds / 1000;
    end.tv_nsec += milliseconds % 1000 * 1000000L;
    if (end.tv_nsec >= 1000000000L) {
        end.tv_sec++;
        end.tv_nsec -= 1000000000L;
    }
    return end;
}

// Under the lock, which is given up meanwhile; until then at most, if one is given. 0, or an error
// of the wait.
int wait_for_change(sock *sk, const timespec *end) {
    sk->waiting++;
    int result = end ? pthread_cond_timedwait(&sk->changed, &sk->lock, end)
                     : pthread_cond_wait(&sk->changed, &sk->lock);
    sk->waiting--;
    return result;
}

// Under the lock.
void wake_all(sock *sk) {
    if (sk->waiting != 0)
        pthread_cond_broadcast(&sk->changed);
}

void wake(sock *sk) {
    guarded guard(sk);
    wake_all(sk);
}

sk_buff *take_first(sock *sk) {
    sk_buff *skb = sk->first;
    if (!skb)
        return nullptr;
    sk->first = skb->next;
    if (!sk->first)
        sk->last = nullptr;
    skb->next = nullptr;
    __atomic_fetch_sub(&sk->queued, 1, __ATOMIC_RELAXED);
    return skb;
}

sock *owner(const sk_buff *skb) {
    return static_cast<sock *>(skb->sk);
}

void sock_rfree(sk_buff *skb) {
    __atomic_fetch_sub(&owner(skb)->rmem_alloc, static_cast<int>(skb->truesize), __ATOMIC_RELAXED);
}

void end_record(sock *sk) {
    if (sk->destruct)
        sk->destruct(sk);
    pthread_cond_destroy(&sk->changed);
    pthread_mutex_destroy(&sk->lock);
    release(sk);
}

// Frames being sent outlive their socket.
void uncharge_send(sock *sk, int bytes) {
    if (__atomic_sub_fetch(&sk->wmem_alloc, bytes, __ATOMIC_ACQ_REL) == 0)
        end_record(sk);
}

void sock_wfree(sk_buff *skb) {
    sock *sk = owner(skb);
    int bytes = static_cast<int>(skb->truesize);
    __atomic_fetch_sub(&sk->wmem_alloc, bytes - 1, __ATOMIC_ACQ_REL);
    wake(sk);
    uncharge_send(sk, 1);
}

bool has_room_to_send(const sock *sk) {
    return __atomic_load_n(&sk->wmem_alloc, __ATOMIC_ACQUIRE) < sk->sndbuf;
}

short events_of(sock *sk) {
    short events = 0;
    if (sk->first)
        events |= POLLIN | POLLRDNORM;
    if (__atomic_load_n(&sk->wmem_alloc, __ATOMIC_RELAXED) < sk->sndbuf >> 1)
        events |= POLLOUT | POLLWRNORM | POLLWRBAND;
    return events;
}

struct buffer_option {
    int sock::*field = nullptr; // null: it is no option of a buffer
    int least = 0, most = 0;
};

// The privileged may have more than others.
buffer_option buffer_option_of(int name) {
    switch (name) {
    case SO_RCVBUF:
        return {&sock::rcvbuf, RCVBUF_LEAST, BUFFER_DEFAULT};
    case SO_RCVBUFFORCE:
        return {&sock::rcvbuf, RCVBUF_LEAST, INT_MAX / 2};
    case SO_SNDBUF:
        return {&sock::sndbuf, SNDBUF_LEAST, BUFFER_DEFAULT};
    case SO_SNDBUFFORCE:
        return {&sock::sndbuf, SNDBUF_LEAST, INT_MAX / 2};
    default:
        return {};
    }
}

// -1: there is no such option.
int option_value(const struct socket *socket, int name) {
    switch (name) {
    case SO_DOMAIN:
        return socket->sk->family;
    case SO_TYPE:
        return socket->type;
    case SO_PROTOCOL:
        return socket->sk->protocol;
    case SO_RCVBUF:
        return __atomic_load_n(&socket->sk->rcvbuf, __ATOMIC_RELAXED);
    case SO_SNDBUF:
        return __atomic_load_n(&socket->sk->sndbuf, __ATOMIC_RELAXED);
    default:
        return -1;
    }
}

// As the kernel hands a message to a family: the name in memory of its own, the buffers in a list
// that may be used up.
struct carried {
    alignas(8) std::array<u8, NAME_MOST> name{};
    std::vector<iovec> buffers;
    msghdr msg{};

    explicit carried(const msghdr &from, int flags)
        : buffers(from.msg_iov, from.msg_iov + from.msg_iovlen) {
        msg.msg_iov = buffers.data();
        msg.msg_iovlen = buffers.size();
        msg.msg_flags = flags;
    }
    std::size_t length() const {
        std::size_t all = 0;
        for (const iovec &one : buffers)
            all += one.iov_len;
        return all;
    }
};

} // namespace

int socket_open(int family, int type, int protocol, struct socket **out) {
    if (family < 0 || static_cast<std::size_t>(family) >= FAMILIES)
        return -EAFNOSUPPORT;
    if (type < 0 || type >= TYPES)
        return -EINVAL;
    const net_proto_family *record = families[static_cast<std::size_t>(family)];
    if (!record)
        return -EAFNOSUPPORT;
    auto *made = static_cast<struct socket *>(allocate(
        "socket", sizeof(struct socket), GFP_KERNEL | __GFP_ZERO, __builtin_return_address(0)));
    if (!made)
        return -ENFILE;
    made->type = type;
    net space{in_initial_namespace};
    int result = record->create(&space, made, protocol, 0);
    if (result != 0)
        release(made);
    else
        *out = made;
    return result;
}

int socket_close(struct socket *socket) {
    socket->ops->release(socket);
    release(socket);
    return 0;
}

void socket_set_nonblocking(struct socket *socket, bool on) {
    __atomic_store_n(&socket->nonblocking, on, __ATOMIC_RELAXED);
}

i64 socket_sendmsg(struct socket *socket, const msghdr *msg, int flags) {
    if (!socket->ops->sendmsg)
        return -EOPNOTSUPP;
    if (__atomic_load_n(&socket->nonblocking, __ATOMIC_RELAXED))
        flags |= MSG_DONTWAIT;
    carried call(*msg, flags);
    if (msg->msg_name && msg->msg_namelen > 0) {
        call.msg.msg_namelen = std::min(msg->msg_namelen, NAME_MOST);
        std::memcpy(call.name.data(), msg->msg_name, call.msg.msg_namelen);
        call.msg.msg_name = call.name.data();
    }
    return socket->ops->sendmsg(socket, &call.msg, call.length());
}

i64 socket_recvmsg(struct socket *socket, msghdr *msg, int flags) {
    if (!socket->ops->recvmsg)
        return -EOPNOTSUPP;
    if (__atomic_load_n(&socket->nonblocking, __ATOMIC_RELAXED))
        flags |= MSG_DONTWAIT;
    carried call(*msg, 0);
    call.msg.msg_name = call.name.data();
    i64 result = socket->ops->recvmsg(socket, &call.msg, call.length(), flags);
    if (result < 0)
        return result;
    if (msg->msg_name) {
        std::memcpy(msg->msg_name, call.name.data(),
                    std::min(msg->msg_namelen, call.msg.msg_namelen));
        msg->msg_namelen = call.msg.msg_namelen;
    }
    msg->msg_flags = call.msg.msg_flags;
    return result;
}

short socket_poll(struct socket *socket, short events, int milliseconds) {
    sock *sk = socket->sk;
    timespec end = after(std::max(milliseconds, 0));
    guarded guard(sk);
    int waited = 0;
    while (!(events_of(sk) & events) && milliseconds != 0 && waited == 0)
        waited = wait_for_change(sk, milliseconds < 0 ? nullptr : &end);
    return events_of(sk) & events;
}

int socket_setsockopt(struct socket *socket, int level, int name, const void *value,
                      socklen_t length) {
    buffer_option option = level == SOL_SOCKET ? buffer_option_of(name) : buffer_option{};
    if (!option.field)
        return level == SOL_SOCKET ? -ENOPROTOOPT : -EOPNOTSUPP;
    int wanted;
    if (length < sizeof(wanted))
        return -EINVAL;
    std::memcpy(&wanted, value, sizeof(wanted));
    // For what a frame costs beyond its bytes.
    wanted = std::max(std::clamp(wanted, 0, option.most) * 2, option.least);
    __atomic_store_n(&(socket->sk->*option.field), wanted, __ATOMIC_RELAXED);
    return 0;
}

int socket_getsockopt(struct socket *socket, int level, int name, void *value, socklen_t *length) {
    int now = level == SOL_SOCKET ? option_value(socket, name) : -1;
    if (now < 0)
        return level == SOL_SOCKET ? -ENOPROTOOPT : -EOPNOTSUPP;
    *length = std::min<socklen_t>(*length, sizeof(now));
    if (*length > 0) // of no bytes the address may be null
        std::memcpy(value, &now, *length);
    return 0;
}

int socket_other(struct socket *) {
    return -EOPNOTSUPP;
}

// One that was queued before, while nobody was there to be told, is told of here.
void socket_on_ready(struct socket *socket, void (*ready)(void *argument), void *argument) {
    {
        guarded guard(socket->sk);
        socket->sk->ready_argument = argument;
        __atomic_store_n(&socket->sk->ready, ready, __ATOMIC_RELEASE);
    }
    if (socket_poll(socket, POLLIN, 0) != 0)
        ready(argument);
}

void socket_set_owner(struct socket *socket, int process) {
    __atomic_store_n(&socket->sk->owner, process, __ATOMIC_RELAXED);
}

void socket_caller(bool net_raw, bool initial_namespace) {
    may_open_raw = net_raw;
    in_initial_namespace = initial_namespace;
}

} // namespace userlevel

using namespace userlevel;

bool capable(int capability) {
    return capability != SOCKET_CAP_NET_RAW || may_open_raw;
}

i32 sock_register(const net_proto_family *family) {
    auto number = static_cast<std::size_t>(family->family);
    if (number >= FAMILIES)
        return -ENOBUFS;
    const net_proto_family *nobody = nullptr;
    return families[number].compare_exchange_strong(nobody, family) ? 0 : -EEXIST;
}

sock *sk_alloc(net *, i32 family, gfp_t flags, const struct proto *, i32) {
    auto *sk = static_cast<sock *>(
        allocate("sock", sizeof(sock), flags | __GFP_ZERO, __builtin_return_address(0)));
    if (sk)
        sk->family = static_cast<u16>(family);
    return sk;
}

void sock_init_data(struct socket *socket, sock *sk) {
    sk->rcvbuf = sk->sndbuf = BUFFER_DEFAULT;
    sk->wmem_alloc = 1;
    refcount_set(&sk->refs, 1);
    pthread_mutex_init(&sk->lock, nullptr);
    pthread_condattr_t monotonic;
    pthread_condattr_init(&monotonic);
    pthread_condattr_setclock(&monotonic, CLOCK_MONOTONIC);
    pthread_cond_init(&sk->changed, &monotonic);
    pthread_condattr_destroy(&monotonic);
    sk->socket = socket;
    socket->sk = sk;
}

void sk_free(sock *sk) {
    uncharge_send(sk, 1);
}

void sock_orphan(sock *sk) {
    guarded guard(sk);
    sk->dead = true;
    sk->socket = nullptr;
    __atomic_store_n(&sk->ready, nullptr, __ATOMIC_RELAXED);
}

void skb_set_owner_r(sk_buff *skb, sock *sk) {
    skb_orphan(skb);
    skb->sk = sk;
    skb->destructor = sock_rfree;
    __atomic_fetch_add(&sk->rmem_alloc, static_cast<int>(skb->truesize), __ATOMIC_RELAXED);
}

void sk_queue_tail(sock *sk, sk_buff *skb) {
    guarded guard(sk);
    skb->next = nullptr;
    (sk->last ? sk->last->next : sk->first) = skb;
    sk->last = skb;
    __atomic_fetch_add(&sk->queued, 1, __ATOMIC_RELAXED);
    wake_all(sk);
}

void sk_queue_purge(sock *sk) {
    for (;;) {
        sk_buff *skb;
        {
            guarded guard(sk);
            skb = take_first(sk);
        }
        if (!skb)
            return;
        kfree_skb(skb);
    }
}

// Who waits in a call is awake already. Under the lock of the family's list, which a close has to
// take: the one who is told is there.
void sk_data_ready(sock *sk) {
    void (*ready)(void *) = __atomic_load_n(&sk->ready, __ATOMIC_ACQUIRE);
    if (ready)
        ready(sk->ready_argument);
}

sk_buff *sock_alloc_send_skb(sock *sk, unsigned long size, bool noblock, int *error) {
    while (!has_room_to_send(sk)) {
        if (noblock) {
            *error = -EAGAIN;
            return nullptr;
        }
        guarded guard(sk);
        if (!has_room_to_send(sk))
            wait_for_change(sk, nullptr);
    }
    sk_buff *skb = skb_make(size, GFP_KERNEL, __builtin_return_address(0));
    if (!skb) {
        *error = -ENOBUFS;
        return nullptr;
    }
    skb->sk = sk;
    skb->destructor = sock_wfree;
    __atomic_fetch_add(&sk->wmem_alloc, static_cast<int>(skb->truesize), __ATOMIC_RELAXED);
    return skb;
}

sk_buff *skb_recv_datagram(sock *sk, unsigned flags, int *error) {
    guarded guard(sk);
    while (!sk->first) {
        if (flags & MSG_DONTWAIT) {
            *error = -EAGAIN;
            return nullptr;
        }
        wait_for_change(sk, nullptr);
    }
    if (!(flags & MSG_PEEK))
        return take_first(sk);
    __atomic_fetch_add(&sk->first->users, 1, __ATOMIC_RELAXED);
    return sk->first;
}

void skb_free_datagram(sock *, sk_buff *skb) {
    consume_skb(skb);
}

void *msg_name(const msghdr *msg) {
    return msg->msg_name;
}
i32 msg_namelen(const msghdr *msg) {
    return static_cast<i32>(msg->msg_namelen);
}
void msg_set_namelen(msghdr *msg, i32 length) {
    msg->msg_namelen = static_cast<socklen_t>(length);
}
u32 msg_flags(const msghdr *msg) {
    return static_cast<u32>(msg->msg_flags);
}
void msg_set_flags(msghdr *msg, u32 flags) {
    msg->msg_flags = static_cast<int>(flags);
}

// The buffers of a message are used up as they are filled or read.
iov_iter *msg_iter(msghdr *msg) {
    return reinterpret_cast<iov_iter *>(msg);
}

namespace {

// Calls `each` with pieces of the buffers; how many bytes it was given. A buffer that is nowhere
// ends it, as a page that is not there does.
template <typename Each>
std::size_t use_up(iov_iter *iter, std::size_t length, Each each) {
    auto *msg = reinterpret_cast<msghdr *>(iter);
    std::size_t done = 0;
    while (done < length && msg->msg_iovlen > 0) {
        iovec *buffer = msg->msg_iov;
        std::size_t part = std::min(length - done, buffer->iov_len);
        if (part > 0 && !buffer->iov_base)
            return done;
        if (part > 0)
            each(buffer->iov_base, done, part);
        done += part;
        buffer->iov_len -= part;
        if (buffer->iov_len == 0) {
            msg->msg_iov++;
            msg->msg_iovlen--;
        } else {
            buffer->iov_base = static_cast<u8 *>(buffer->iov_base) + part;
        }
    }
    return done;
}

} // namespace

std::size_t _copy_from_iter(void *to, std::size_t length, iov_iter *from) {
    return use_up(from, length, [&](const void *buffer, std::size_t at, std::size_t count) {
        std::memcpy(static_cast<u8 *>(to) + at, buffer, count);
    });
}

int skb_copy_datagram_iter(const sk_buff *skb, int offset, iov_iter *to, int length) {
    auto wanted = static_cast<std::size_t>(length);
    auto start = static_cast<std::size_t>(offset);
    if (start + wanted > skb->len)
        return -EFAULT;
    std::size_t copied = use_up(to, wanted, [&](void *buffer, std::size_t at, std::size_t count) {
        std::memcpy(buffer, skb->data + start + at, count);
    });
    return copied == wanted ? 0 : -EFAULT;
}

// "vornappsd": Web traffic of listed IPv4 hosts is taken by the switch itself, whoever it was for.
// It goes up to the IP stack as if for us, with a mark by which an application finds it.
#include "containers/tarn_avl.h"
#include "ifmgr/tarn_if.h"
#include "kernel/locks.h"
#include "kernel/memory.h"
#include "kernel/once.h"
#include "pkt/frame.h"
#include "pkt/pkt_explain.h"
#include "pkt/pkt_redirect.h"
#include "redirects/redirects.h"

namespace {

constexpr u32 SLOT = 33;

enum _reason : u32 {
    HTTP = 1,
    HTTPS = 2,
};

constexpr u8 TCP = 6;
constexpr u16 HTTP_PORT = 80, HTTPS_PORT = 443;
constexpr u32 HTTP_MARK = 6, HTTPS_MARK = 5;
constexpr u32 TCP_DESTINATION_OFFSET = 2;

// The listed addresses, network order, each a record of its own.
struct tarn_vornappsd_redirect_db {
    tarn_avl_tree *tree;
};
constinit tarn_vornappsd_redirect_db *p_tarn_vornappsd_redirect_db = nullptr; // null: no memory
constinit rwlock_t tarn_vornappsd_redirect_db_lock{};
constinit u32 _listed = 0; // how many: most switches list none, and their frames take no lock

// What the frame must become on its way up. Made by the match, consumed by the hook.
struct vornappsd_rewrite {
    u8 *new_dst; // or null
    u32 mark;
};

int _tarn_vornappsd_redirect_cmp(const void *key, const void *info) {
    u32 a = *static_cast<const u32 *>(key), b = *static_cast<const u32 *>(info);
    return a < b ? -1 : a > b;
}

// Under the lock.
tarn_avl_tree *_tree() {
    return p_tarn_vornappsd_redirect_db ? p_tarn_vornappsd_redirect_db->tree : nullptr;
}

bool _holds(u32 address) {
    read_lock_bh(&tarn_vornappsd_redirect_db_lock);
    bool found = tarn_avl_lookup(_tree(), &address);
    read_unlock_bh(&tarn_vornappsd_redirect_db_lock);
    return found;
}

u16 _tcp_destination_port(const frame_bytes &frame) {
    u32 header = frame.payload_offset();
    u32 header_length = (frame.byte(header) & 0x0Fu) * 4;
    return frame.be16(header + header_length + TCP_DESTINATION_OFFSET);
}

// Whose address makes the IP stack take the frame, or null.
const tarn_if *_owner(const tarn_pkt_info *info) {
    return info->l2_port && info->l2_port->type == TARN_IF_TYPE_ETHERNET ? info->l2_port
                                                                         : info->vlan_if;
}

// Without memory the frame goes up unchanged.
vornappsd_rewrite *_tarn_vornappsd_rewrite_new(const tarn_pkt_info *info, u32 mark) {
    auto *made = static_cast<vornappsd_rewrite *>(__kmalloc(sizeof(vornappsd_rewrite), gfp_here()));
    if (!made)
        return nullptr;
    *made = {.new_dst = nullptr, .mark = mark};
    const tarn_if *owner = _owner(info);
    if (!owner)
        return made;
    const tarn_if_address address(owner->hwaddr);
    if (!frame_bytes(info->skb).equals(ETH_DST_OFFSET, address.bytes, ETH_ALEN))
        made->new_dst = static_cast<u8 *>(__kmalloc(ETH_ALEN, gfp_here()));
    if (made->new_dst)
        memcpy(made->new_dst, address.bytes, ETH_ALEN);
    return made;
}

i32 tarn_vornappsd_redirect_instruct_get(tarn_pkt_info *info, redirect_instruct *instruct) {
    if (info->ethertype != ETH_P_IP || read_once(_listed) == 0 || info->ip_proto != TCP)
        return 0;
    u16 port = _tcp_destination_port(frame_bytes(info->skb));
    if (port != HTTP_PORT && port != HTTPS_PORT)
        return 0;
    u32 source;
    memcpy(&source, info->src_ip, sizeof(source));
    if (!_holds(source))
        return 0;
    bool https = port == HTTPS_PORT;
    instruct->pre_post_arg = _tarn_vornappsd_rewrite_new(info, https ? HTTPS_MARK : HTTP_MARK);
    instruct->flags |= REDIRECT_STOP | REDIRECT_POST_KERNEL;
    instruct->reason = https ? HTTPS : HTTP;
    return 1;
}

void _write_destination(sk_buff *skb, const u8 *address) {
    // Others may read the same bytes through a clone; without memory they keep theirs.
    if (skb_len(skb) < ETH_ALEN ||
        (skb_cloned(skb) && pskb_expand_head(skb, 0, 0, GFP_ATOMIC) != 0))
        return;
    memcpy(skb_data(skb) + ETH_DST_OFFSET, address, ETH_ALEN);
}

// A null frame: the request came to nothing, it is only freed.
void tarn_vornappsd_pre_post_modify(sk_buff *skb, void **arg) {
    auto *request = static_cast<vornappsd_rewrite *>(*arg);
    if (!request)
        return;
    if (skb && request->new_dst)
        _write_destination(skb, request->new_dst);
    if (skb)
        skb_set_mark(skb, skb_mark(skb) | request->mark);
    kfree(request->new_dst);
    kfree(request);
    *arg = nullptr;
}

tarn_vornappsd_redirect_db *_make_db() {
    auto *made = static_cast<tarn_vornappsd_redirect_db *>(
        __kmalloc(sizeof(tarn_vornappsd_redirect_db), gfp_here()));
    if (made && tarn_avl_create(&made->tree, 0, _tarn_vornappsd_redirect_cmp) == 0)
        return made;
    kfree(made);
    return nullptr;
}

i32 _insert(u32 *record) {
    write_lock_bh(&tarn_vornappsd_redirect_db_lock);
    i32 result = tarn_avl_insert(_tree(), record);
    write_once(_listed, tarn_avl_get_tree_size(_tree()));
    write_unlock_bh(&tarn_vornappsd_redirect_db_lock);
    return result;
}

} // namespace

// Two at once may both insert an address: the control daemon adds one at a time.
i32 tarn_vornappsd_add_ip_address(const u32 *address) {
    if (!address || _holds(*address))
        return 0;
    auto *record = static_cast<u32 *>(__kmalloc(sizeof(u32), gfp_here()));
    if (!record)
        return 0;
    *record = *address;
    if (_insert(record) != 0)
        kfree(record);
    return 0;
}

i32 tarn_vornappsd_remove_ip_address(const u32 *address) {
    if (!address)
        return 0;
    write_lock_bh(&tarn_vornappsd_redirect_db_lock);
    tarn_avl_node *node = tarn_avl_lookup(_tree(), address);
    void *record = node ? node->info : nullptr;
    if (record)
        tarn_avl_delete(_tree(), address);
    write_once(_listed, tarn_avl_get_tree_size(_tree()));
    write_unlock_bh(&tarn_vornappsd_redirect_db_lock);
    kfree(record);
    return 0;
}

i32 tarn_vornappsd_init() {
    rwlock_init(&tarn_vornappsd_redirect_db_lock, "tarn_vornappsd_redirect_db_lock");
    p_tarn_vornappsd_redirect_db = _make_db();
    packet_redirect record{.name = "vornappsd",
                           .match = tarn_vornappsd_redirect_instruct_get,
                           .post = tarn_pkt_packet_post_dummy,
                           .pre_post_modify = tarn_vornappsd_pre_post_modify,
                           .concerns = FRAME_TCP};
    return tarn_pkt_register_packet_redirection(&record, SLOT);
}

#include "ifmgr/tarn_ifmgr_print.h"

#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_bind.h"
#include "kernel/once.h"
#include "kernel/seq.h"

namespace {

// A line of children is broken when it is longer.
constexpr u32 LINE = 60;
constexpr char CHILDREN[] = "  Children: ";

tarn_avl_tree *_tree() {
    tarn_if_db *db = __atomic_load_n(&p_tarn_if_db, __ATOMIC_ACQUIRE);
    return db ? db->tree : nullptr;
}

tarn_if *_record(const tarn_avl_node *node) {
    return static_cast<tarn_if *>(node->info);
}

bool _is_valid(const tarn_if *ifp) {
    return read_once(ifp->if_flags) & TARN_IF_F_VALID;
}

u32 _name_length(const tarn_if *ifp) {
    u32 length = 0;
    while (length < TARN_IF_NAME_SIZE && ifp->name[length])
        length++;
    return length;
}

void _print_children(seq_file *view, const tarn_ifmgr_list_node *list) {
    u32 length = sizeof(CHILDREN) - 1;
    seq_printf(view, "%s", CHILDREN);
    for (; list; list = list->next) {
        if (!list->ifp)
            continue;
        seq_printf(view, "%.16s ", list->ifp->name);
        length += _name_length(list->ifp) + 1;
        if (length <= LINE)
            continue;
        seq_printf(view, "\n    ");
        length = 0;
    }
    seq_printf(view, "\n");
}

void _print_record(seq_file *view, const tarn_if *ifp) {
    if (!_is_valid(ifp))
        return;
    seq_printf(view, "%-10.16s  %-7d  %5x   %9d  %6d  %04x\n", ifp->name,
               static_cast<i32>(ifp->ifindex), read_once(ifp->flags), read_once(ifp->oper_count),
               refcount_read(&ifp->refcnt), read_once(ifp->if_flags));
    if (const tarn_ifmgr_list_node *children = tarn_ifmgr_children(ifp))
        _print_children(view, children);
}

// As deep as the tree is high: a few dozen at most.
void _tarn_ifmgr_ifdb_print_subtree(seq_file *view, const tarn_avl_node *node) {
    for (; node; node = node->right) {
        if (node->left)
            _tarn_ifmgr_ifdb_print_subtree(view, node->left);
        _print_record(view, _record(node));
    }
}

void _print_reference_count(seq_file *view, const tarn_if *ifp) {
    i32 count = refcount_read(&ifp->refcnt);
    if (count == 1 || (count == 0 && !_is_valid(ifp)))
        return;
    seq_printf(view, "Interface %.16s reference count %d\n", ifp->name, count);
}

} // namespace

void tarn_ifmgr_ifdb_print(seq_file *view) {
    tarn_avl_tree *tree = _tree();
    if (!tree)
        return;
    read_lock_bh(&tarn_if_db_lock);
    _tarn_ifmgr_ifdb_print_subtree(view, tree->root);
    read_unlock_bh(&tarn_if_db_lock);
}

void tarn_ifmgr_reference_count_print(seq_file *view) {
    tarn_avl_tree *tree = _tree();
    if (!tree)
        return;
    read_lock_bh(&tarn_if_db_lock);
    for (const tarn_avl_node *node = tarn_avl_top(tree); node; node = tarn_avl_next(node))
        _print_reference_count(view, _record(node));
    read_unlock_bh(&tarn_if_db_lock);
}

void tarn_ifmgr_print_children_to_file(seq_file *view, const tarn_if *ifp) {
    read_lock_bh(&tarn_if_db_lock);
    for (const tarn_ifmgr_list_node *node = tarn_ifmgr_children(ifp); node; node = node->next)
        if (node->ifp && _is_valid(node->ifp))
            seq_printf(view, "%.16s\n", node->ifp->name);
    read_unlock_bh(&tarn_if_db_lock);
}

void tarn_ifmgr_subnetvlan_print(seq_file *view) {
    tarn_avl_tree *tree = _tree();
    if (!tree)
        return;
    read_lock_bh(&tarn_if_db_lock);
    for (const tarn_avl_node *node = tarn_avl_first_node(tree); node;
         node = tarn_avl_next_node(node)) {
        const tarn_if *ifp = _record(node);
        if (tarn_avl_tree *subnets = read_once(ifp->subnet_tree))
            seq_printf(view, "%.16s tree size: %d\n", ifp->name,
                       static_cast<i32>(tarn_avl_get_tree_size(subnets)));
    }
    read_unlock_bh(&tarn_if_db_lock);
}

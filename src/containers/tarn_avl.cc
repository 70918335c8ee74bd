#include "containers/tarn_avl.h"

#include "kernel/log.h"
#include "kernel/memory.h"

namespace {

constexpr u8 LEFT = 0;
constexpr u8 RIGHT = 1;

constinit kmem_cache *avl_node_cache = nullptr;

tarn_avl_node *_take_node(tarn_avl_tree *tree) {
    if (tarn_avl_node *spare = tree->free_nodes) {
        tree->free_nodes = spare->right;
        return spare;
    }
    if (tree->max_nodes != 0 || !avl_node_cache)
        return nullptr;
    return static_cast<tarn_avl_node *>(kmem_cache_alloc(avl_node_cache, gfp_here()));
}

void _give_back(tarn_avl_tree *tree, tarn_avl_node *node) {
    node->left = nullptr;
    node->right = tree->free_nodes;
    tree->free_nodes = node;
}

tarn_avl_node *&_child(tarn_avl_node *node, u8 side) {
    return side == LEFT ? node->left : node->right;
}

// Hangs `node` (or nothing) where `parent` has its child of that side, or at the root.
void _hang(tarn_avl_tree *tree, tarn_avl_node *parent, u8 side, tarn_avl_node *node) {
    if (parent)
        _child(parent, side) = node;
    else
        tree->root = node;
    if (!node)
        return;
    node->parent = parent;
    node->side = parent ? side : LEFT;
}

// Lifts the child of that side above `node` and returns it. Balances are the caller's.
tarn_avl_node *_lift(tarn_avl_tree *tree, tarn_avl_node *node, u8 side) {
    u8 other = side ^ 1;
    tarn_avl_node *child = _child(node, side);
    _hang(tree, node->parent, node->side, child);
    tarn_avl_node *inner = _child(child, other);
    _child(node, side) = inner;
    if (inner) {
        inner->parent = node;
        inner->side = side;
    }
    _child(child, other) = node;
    node->parent = child;
    node->side = other;
    return child;
}

// `node` is about to reach a balance of 2 towards the side it leans to. Returns the new root of the
// subtree.
tarn_avl_node *_tarn_avl_rotate(tarn_avl_tree *tree, tarn_avl_node *node) {
    u8 side = node->balance < 0 ? LEFT : RIGHT;
    i8 lean = side == LEFT ? -1 : 1;
    tarn_avl_node *child = _child(node, side);

    if (child->balance != -lean) {
        // The child leans the same way, or, during a delete only, not at all.
        child->balance = static_cast<i8>(child->balance - lean);
        node->balance = static_cast<i8>(-child->balance);
        return _lift(tree, node, side);
    }

    tarn_avl_node *inner = _child(child, side ^ 1);
    node->balance = inner->balance == lean ? static_cast<i8>(-lean) : i8{0};
    child->balance = inner->balance == -lean ? lean : i8{0};
    inner->balance = 0;
    _lift(tree, child, side ^ 1);
    return _lift(tree, node, side);
}

// The subtree of that side of `node` has grown by one level.
void _retrace_growth(tarn_avl_tree *tree, tarn_avl_node *node, u8 side) {
    while (node) {
        i8 step = side == LEFT ? -1 : 1;
        if (node->balance == step) {
            _tarn_avl_rotate(tree, node);
            return;
        }
        node->balance = static_cast<i8>(node->balance + step);
        if (node->balance == 0)
            return;
        side = node->side;
        node = node->parent;
    }
}

// The subtree of that side of `node` has shrunk by one level.
void _retrace_shrink(tarn_avl_tree *tree, tarn_avl_node *node, u8 side) {
    while (node) {
        i8 step = side == LEFT ? 1 : -1;
        if (node->balance == 0) {
            node->balance = step;
            return;
        }
        if (node->balance == step) {
            node = _tarn_avl_rotate(tree, node);
            if (node->balance != 0)
                return; // as high as before
        } else {
            node->balance = 0;
        }
        side = node->side;
        node = node->parent;
    }
}

tarn_avl_node *_leftmost(tarn_avl_node *node) {
    while (node && node->left)
        node = node->left;
    return node;
}

// Swaps the places of `node`, which has two children, and its successor. Nodes are relinked, never
// their records copied: a node that somebody holds keeps its record.
void _swap_with_successor(tarn_avl_tree *tree, tarn_avl_node *node) {
    tarn_avl_node *next = _leftmost(node->right);
    tarn_avl_node *next_parent = next->parent;
    tarn_avl_node *next_right = next->right;
    u8 next_side = next->side;
    i8 next_balance = next->balance;

    _hang(tree, node->parent, node->side, next);
    next->balance = node->balance;
    _hang(tree, next, LEFT, node->left);
    if (next_parent == node) {
        _hang(tree, next, RIGHT, node);
    } else {
        _hang(tree, next, RIGHT, node->right);
        _hang(tree, next_parent, next_side, node);
    }
    node->left = nullptr;
    node->right = next_right; // which is about to be hung where node is, and gets its parent then
    node->balance = next_balance;
}

// Unhooks leaves until none is left. No recursion and no stack: a leaf leads back to its parent.
void _free_records(tarn_avl_tree *tree, void (*free_info)(void *info)) {
    tarn_avl_node *node = tree->root;
    while (node) {
        if (tarn_avl_node *below = node->left ? node->left : node->right) {
            node = below;
            continue;
        }
        tarn_avl_node *parent = node->parent;
        _hang(tree, parent, node->side, nullptr);
        tree->count--;
        if (free_info)
            free_info(node->info);
        _give_back(tree, node);
        node = parent;
    }
}

} // namespace

void tarn_avl_cache_init() {
    avl_node_cache =
        kmem_cache_create("avl_node_cache", sizeof(tarn_avl_node), 0, SLAB_NOLEAKTRACE, nullptr);
}

int tarn_avl_create(tarn_avl_tree **tree, int max_nodes, tarn_avl_compare compare) {
    if (max_nodes < 0)
        return -1;
    auto *made =
        static_cast<tarn_avl_tree *>(__kmalloc(sizeof(tarn_avl_tree), gfp_here() | __GFP_ZERO));
    if (!made)
        return -1;
    made->max_nodes = static_cast<u32>(max_nodes);
    made->compare = compare;
    if (max_nodes > 0) {
        std::size_t bytes;
        bool fits = !__builtin_mul_overflow(sizeof(tarn_avl_node),
                                            static_cast<std::size_t>(max_nodes), &bytes);
        made->node_block =
            fits ? static_cast<tarn_avl_node *>(__kmalloc(bytes, gfp_here() | __GFP_ZERO))
                 : nullptr;
        if (!made->node_block) {
            kfree(made);
            return -1;
        }
        for (int i = max_nodes - 1; i >= 0; i--)
            _give_back(made, &made->node_block[i]);
    }
    *tree = made;
    return 0;
}

int tarn_avl_insert(tarn_avl_tree *tree, void *info) {
    if (!tree)
        return -1;
    tarn_avl_node *parent = nullptr;
    u8 side = LEFT;
    for (tarn_avl_node *at = tree->root; at; at = _child(at, side)) {
        parent = at;
        side = tree->compare(info, at->info) > 0 ? RIGHT : LEFT;
    }

    tarn_avl_node *node = _take_node(tree);
    if (!node)
        return -1;
    *node = {.left = nullptr,
             .right = nullptr,
             .parent = nullptr,
             .info = info,
             .balance = 0,
             .side = LEFT};
    tree->count++;
    _hang(tree, parent, side, node);
    _retrace_growth(tree, parent, side);
    return 0;
}

int tarn_avl_delete(tarn_avl_tree *tree, const void *key) {
    tarn_avl_node *node = tarn_avl_lookup(tree, key);
    if (!node)
        return 0;
    if (node->left && node->right)
        _swap_with_successor(tree, node);

    tarn_avl_node *parent = node->parent;
    u8 side = node->side;
    _hang(tree, parent, side, node->left ? node->left : node->right);
    _retrace_shrink(tree, parent, side);
    _give_back(tree, node);
    tree->count--;
    return 0;
}

tarn_avl_node *tarn_avl_lookup(const tarn_avl_tree *tree, const void *key) {
    tarn_avl_node *node = tarn_avl_top(tree);
    while (node) {
        int order = tree->compare(key, node->info);
        if (order == 0)
            return node;
        node = order < 0 ? node->left : node->right;
    }
    return nullptr;
}

tarn_avl_node *tarn_avl_top(const tarn_avl_tree *tree) {
    return tree ? tree->root : nullptr;
}

tarn_avl_node *tarn_avl_next(const tarn_avl_node *node) {
    if (node->left)
        return node->left;
    if (node->right)
        return node->right;
    for (; node->parent; node = node->parent)
        if (node->side == LEFT && node->parent->right)
            return node->parent->right;
    return nullptr;
}

tarn_avl_node *tarn_avl_first_node(const tarn_avl_tree *tree) {
    return _leftmost(tarn_avl_top(tree));
}

tarn_avl_node *tarn_avl_next_node(const tarn_avl_node *node) {
    if (!node)
        return nullptr;
    if (node->right)
        return _leftmost(node->right);
    while (node->parent && node->side == RIGHT)
        node = node->parent;
    return node->parent;
}

u32 tarn_avl_get_tree_size(const tarn_avl_tree *tree) {
    return tree ? tree->count : 0;
}

int tarn_avl_tree_free(tarn_avl_tree **tree, void (*free_info)(void *info)) {
    if (!tree || !*tree)
        return 0;
    tarn_avl_tree *gone = *tree;
    _free_records(gone, free_info);
    if (gone->max_nodes != 0) {
        kfree(gone->node_block);
    } else {
        while (tarn_avl_node *spare = gone->free_nodes) {
            gone->free_nodes = spare->right;
            kmem_cache_free(avl_node_cache, spare);
        }
    }
    kfree(gone);
    *tree = nullptr;
    return 0;
}

void tarn_avl_print(const tarn_avl_node *node, int depth) {
    if (!node)
        return;
    pr_cont("%p", node->info);
    if (node->left) {
        pr_cont("-");
        tarn_avl_print(node->left, depth + 1);
    }
    if (node->right) {
        pr_cont("\n");
        for (int i = 0; i < depth; i++)
            pr_cont("|        ");
        pr_cont("+");
        tarn_avl_print(node->right, depth + 1);
    }
}

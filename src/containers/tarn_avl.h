// The ordered tree: a height-balanced search tree of the caller's records (AVL).
//
// In: records, held by pointer and never copied, and a comparator that orders them. Out: nodes; the
// caller reads node->info. A key is whatever the comparator understands, usually a record or a
// small local with the same leading fields. Equal keys are allowed: a later one stands before the
// earlier.
//
//   tarn_avl_tree *tree;
//   tarn_avl_create(&tree, 0, compare);
//   tarn_avl_insert(tree, record);
//   if (tarn_avl_node *node = tarn_avl_lookup(tree, &key)) use(node->info);
//
// A record stays the caller's, on every error too; the tree owns its nodes alone. A null tree is an
// empty one that takes no record: an owner that gave its tree up may go on asking it.
//
// Lookup, insert and delete cost at most 1.44 log2(n) + 2 comparisons. A removed node waits on the
// tree's own spare chain for the next insert, so that steady churn costs no allocation. The tree
// has no lock: its owner has.
#pragma once

#include "kernel/types.h"

// Negative, 0 or positive as `key` (what is searched or inserted) is before, equal to or after
// `info` (of a node).
using tarn_avl_compare = int (*)(const void *key, const void *info);

struct tarn_avl_node {
    tarn_avl_node *left;
    tarn_avl_node *right; // of a spare node: the next spare one
    tarn_avl_node *parent;
    void *info;
    i8 balance; // height of the right subtree less that of the left
    u8 side;    // 0: left child of its parent, or the root; 1: right child
};

struct tarn_avl_tree {
    u32 max_nodes; // 0: unbounded
    tarn_avl_compare compare;
    tarn_avl_node *node_block; // of a bounded tree: all its nodes
    tarn_avl_node *root;
    tarn_avl_node *free_nodes;
    u32 count;
};

// Creates the cache that nodes of unbounded trees come from. Once, before any tree is used; without
// it (memory was short at start) unbounded trees can be made but take no record.
void tarn_avl_cache_init();

// 0, or -1 when memory fails or max_nodes is negative; then nothing stays allocated.
int tarn_avl_create(tarn_avl_tree **tree, int max_nodes, tarn_avl_compare compare);

// 0, or -1 when no node can be had: no tree, a bounded one is full, or memory failed. Then the tree
// is as it was.
int tarn_avl_insert(tarn_avl_tree *tree, void *info);

// Removes the first node met on the way down whose record equals the key. 0, found or not.
int tarn_avl_delete(tarn_avl_tree *tree, const void *key);

tarn_avl_node *tarn_avl_lookup(const tarn_avl_tree *tree, const void *key); // or null

// The cheap full walk, in pre-order: not in the order of the keys.
tarn_avl_node *tarn_avl_top(const tarn_avl_tree *tree);
tarn_avl_node *tarn_avl_next(const tarn_avl_node *node);

// The walk in the order of the keys.
tarn_avl_node *tarn_avl_first_node(const tarn_avl_tree *tree);
tarn_avl_node *tarn_avl_next_node(const tarn_avl_node *node); // null gives null

u32 tarn_avl_get_tree_size(const tarn_avl_tree *tree);

// Gives every record to free_info (null: leaves the records alone), frees the tree and clears the
// caller's pointer. 0. A null tree is nothing to do.
int tarn_avl_tree_free(tarn_avl_tree **tree, void (*free_info)(void *info));

// Dumps a subtree to the kernel log, for debugging: a left child follows its parent after a "-", a
// right one stands on a line of its own, indented by its parent's depth. The last line stays open.
void tarn_avl_print(const tarn_avl_node *node, int depth);

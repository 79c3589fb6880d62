/* SPDX-License-Identifier: MIT */
/**
 * @file
 * An intrusive red-black tree: the caller's record embeds an rb_node, and the tree, which knows no
 * keys and allocates nothing, keeps it balanced. The caller searches, and links a new node as a
 * leaf:
 *
 * @code
 * struct lease { rb_node node; u32 ip; };
 *
 * void add(rb_root *root, struct lease *lease)
 * {
 *     rb_node **link = &root->rb_node, *parent = NULL;
 *     while (*link != NULL) {
 *         parent = *link;
 *         link = lease->ip < ((struct lease *)parent)->ip ? &parent->rb_left : &parent->rb_right;
 *     }
 *     lease->node = (rb_node){.rb_parent_color = (unsigned long)parent};  // red, no children
 *     *link = &lease->node;
 *     rb_insert_color(&lease->node, root);
 * }
 * @endcode
 *
 * Insertion, removal and a step of an iteration take logarithmic time at most. Nothing here locks:
 * callers that share a tree do.
 */
#ifndef RBTREE_H
#define RBTREE_H

#include <stddef.h>

#include "prod_common_types.h"

PROD_BEGIN

/** A node; it does not move while it is in a tree. */
typedef struct rb_node {
    /**
     * The parent's address, with the colour in bit 0 (0 red, 1 black); bit 1 is 0. Below 4 there is
     * no parent: the root. A node that is its own parent is in no tree.
     */
    unsigned long rb_parent_color;
    struct rb_node *rb_right; /**< child or NULL */
    struct rb_node *rb_left;  /**< child or NULL */
} __attribute__((aligned(sizeof(long)))) rb_node;

/** A tree; zeroed, it is empty. */
typedef struct rb_root {
    struct rb_node *rb_node; /**< the root node, or NULL */
} rb_root;

/** Computes what a node tells about its subtree from the node itself and its children. */
typedef void (*rb_augment_f)(rb_node *node, void *data);

/** Makes @p p the parent of @p rb, which keeps its colour. */
static inline void rb_set_parent(rb_node *rb, rb_node *p)
{
    rb->rb_parent_color = (rb->rb_parent_color & 3UL) | (unsigned long)p;
}

/** Makes @p rb red (0) or black (1); its parent stays. */
static inline void rb_set_color(rb_node *rb, int color)
{
    rb->rb_parent_color = (rb->rb_parent_color & ~1UL) | ((unsigned long)color & 1UL);
}

/** Restores the balance after @p node was linked as a red leaf, its children NULL. */
PROD_API void rb_insert_color(rb_node *node, rb_root *root);

/** Takes a node out of its tree. The node's own fields stay as they were. */
PROD_API void rb_erase(rb_node *node, rb_root *root);

/** The node that stands first in the order of the keys; NULL for an empty tree. */
PROD_API rb_node *rb_first(const rb_root *root);

/** The node that stands last; NULL for an empty tree. */
PROD_API rb_node *rb_last(const rb_root *root);

/** The node behind @p node; NULL for the last one and for one that is in no tree. */
PROD_API rb_node *rb_next(const rb_node *node);

/** The node before @p node; NULL for the first one and for one that is in no tree. */
PROD_API rb_node *rb_prev(const rb_node *node);

/**
 * Puts @p new_node in the place of @p victim, with its colour and links, without balancing: its key
 * must stand in the same place of the order. @p victim keeps its fields. Of a tree with augmented
 * nodes call rb_augment_path() for @p new_node next.
 */
PROD_API void rb_replace_node(rb_node *victim, rb_node *new_node, rb_root *root);

/**
 * After rb_insert_color(): calls @p func on each node whose subtree the insertion changed, and on
 * others on the way, children before their parent, up to the root.
 *
 * @param data  handed to @p func
 */
PROD_API void rb_augment_insert(rb_node *node, rb_augment_f func, void *data);

/**
 * Before rb_erase(): the deepest node whose subtree the removal of @p node will change, for
 * rb_augment_erase_end(). NULL when there is none.
 */
PROD_API rb_node *rb_augment_erase_begin(rb_node *node);

/**
 * After rb_erase(): calls @p func as rb_augment_insert() does.
 *
 * @param node  what rb_augment_erase_begin() returned; NULL is allowed
 */
PROD_API void rb_augment_erase_end(rb_node *node, rb_augment_f func, void *data);

/** Calls @p func on @p node and each of its ancestors, up to the root. */
PROD_API void rb_augment_path(rb_node *node, rb_augment_f func, void *data);

PROD_END

#endif

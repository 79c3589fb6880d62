// SPDX-License-Identifier: MIT
// Insertion and removal after Cormen, Leiserson, Rivest and Stein, "Introduction to Algorithms",
// with NULL for the sentinel: where the book gives the sentinel a parent, the parent is handed on
// beside the node. Each of the book's mirrored halves is one template over the two sides.
#include "rbtree.h"

#include <initializer_list>

static_assert(sizeof(unsigned long) >= sizeof(void *),
              "a parent's address must fit beside a colour");

extern "C" {
// For the rest of the library only, as the version script has it.
void __rb_rotate_left(rb_node *node, rb_root *root);
void __rb_rotate_right(rb_node *node, rb_root *root);
void __rb_erase_color(rb_node *node, rb_node *parent, rb_root *root);
}

namespace
{

/** One side of a node: &rb_node::rb_left or &rb_node::rb_right. */
using Side = rb_node *rb_node::*;
constexpr Side kLeft = &rb_node::rb_left;
constexpr Side kRight = &rb_node::rb_right;

enum Colour : unsigned char { kRed = 0, kBlack = 1 };

rb_node *parent_of(const rb_node *node)
{
    return reinterpret_cast<rb_node *>(node->rb_parent_color & ~3UL);
}

bool is_red(const rb_node *node)
{
    return (node->rb_parent_color & kBlack) == kRed;
}

bool is_black_or_none(const rb_node *node)
{
    return node == nullptr || !is_red(node);
}

void set_parent_and_colour(rb_node *node, const rb_node *parent, Colour colour)
{
    node->rb_parent_color = reinterpret_cast<unsigned long>(parent) | colour;
}

/** Makes a subtree, which may be empty, the child at side Where of a node; its colour stays. */
template <Side Where>
void attach(rb_node *node, rb_node *child)
{
    node->*Where = child;
    if (child != nullptr) {
        rb_set_parent(child, node);
    }
}

/** The same with its colour, where that is known. */
template <Side Where>
void attach(rb_node *node, rb_node *child, Colour colour)
{
    node->*Where = child;
    if (child != nullptr) {
        set_parent_and_colour(child, node, colour);
    }
}

/** Lets what led from @p parent to @p child lead to @p other. */
void replace_child(rb_node *parent, const rb_node *child, rb_node *other, rb_root *root)
{
    if (parent == nullptr) {
        root->rb_node = other;
    } else if (parent->rb_left == child) {
        parent->rb_left = other;
    } else {
        parent->rb_right = other;
    }
}

/** Turns @p node down to the side Down; its child of the other side, Up, comes into its place. */
template <Side Down, Side Up>
void rotate(rb_node *node, rb_root *root)
{
    rb_node *const up = node->*Up;
    rb_node *const above = parent_of(node);
    attach<Up>(node, up->*Down);
    attach<Down>(up, node);
    rb_set_parent(up, above);
    replace_child(above, node, up, root);
}

/**
 * A red node whose parent, red as well, is the child at side Near of its grandparent. The colours
 * of all that moves are known, so a rotation sets them with the links.
 * @return the node where two reds may now meet further up; nullptr when all is well
 */
template <Side Near, Side Far>
rb_node *part_two_reds(rb_node *node, rb_node *parent, rb_node *grandparent, rb_root *root)
{
    rb_node *const uncle = grandparent->*Far;
    rb_node *const above = parent_of(grandparent);
    if (!is_black_or_none(uncle)) {
        set_parent_and_colour(parent, grandparent, kBlack);
        set_parent_and_colour(uncle, grandparent, kBlack);
        set_parent_and_colour(grandparent, above, kRed);
        return grandparent;
    }
    if (node == parent->*Far) {
        attach<Far>(parent, node->*Near, kBlack);
        attach<Near>(node, parent, kRed);
        parent = node;
    }
    attach<Near>(grandparent, parent->*Far, kBlack);
    attach<Far>(parent, grandparent, kRed);
    set_parent_and_colour(parent, above, kBlack);
    replace_child(above, grandparent, parent, root);
    return nullptr;
}

/** A node that is there by the rules of the tree, which nobody but its code can know. */
rb_node *certain(rb_node *node)
{
    if (node == nullptr) {
        __builtin_unreachable();
    }
    return node;
}

/**
 * The paths through the child at side Near of @p parent lack a black node.
 * @return the node whose paths lack it instead; nullptr when none does
 */
template <Side Near, Side Far>
rb_node *make_up_for_black(rb_node *parent, rb_root *root)
{
    rb_node *sibling = certain(parent->*Far);  // or the other paths would be shorter
    if (is_red(sibling)) {
        rb_node *const above = parent_of(parent);
        rb_node *const inner = certain(sibling->*Near);
        attach<Far>(parent, inner, kBlack);
        attach<Near>(sibling, parent, kRed);
        set_parent_and_colour(sibling, above, kBlack);
        replace_child(above, parent, sibling, root);
        sibling = inner;
    }
    rb_node *const outer = sibling->*Far;
    rb_node *up = sibling;  // what comes into the parent's place
    if (!is_black_or_none(outer)) {
        set_parent_and_colour(outer, sibling, kBlack);
    } else if (is_black_or_none(sibling->*Near)) {
        set_parent_and_colour(sibling, parent, kRed);
        if (!is_red(parent)) {
            return parent;
        }
        rb_set_color(parent, kBlack);
        return nullptr;
    } else {
        up = sibling->*Near;
        attach<Near>(sibling, up->*Far, kBlack);
        attach<Far>(up, sibling, kBlack);
    }
    const unsigned long place = parent->rb_parent_color;
    replace_child(parent_of(parent), parent, up, root);
    attach<Far>(parent, up->*Near);
    attach<Near>(up, parent, kBlack);
    up->rb_parent_color = place;
    return nullptr;
}

/** The node furthest to one side of a subtree. */
template <Side To>
rb_node *outermost(rb_node *node)
{
    while (node->*To != nullptr) {
        node = node->*To;
    }
    return node;
}

template <Side To>
rb_node *end_of(const rb_root *root)
{
    return root != nullptr && root->rb_node != nullptr ? outermost<To>(root->rb_node) : nullptr;
}

/** The neighbour of a node in the order, on the side Towards. */
template <Side Towards, Side Back>
rb_node *step(const rb_node *node)
{
    if (node == nullptr || parent_of(node) == node) {
        return nullptr;
    }
    if (rb_node *below = node->*Towards; below != nullptr) {
        while (below->*Back != nullptr) {
            __builtin_prefetch(below->*Towards);  // where a walk over the tree goes after this
            below = below->*Back;
        }
        return below;
    }
    rb_node *parent = parent_of(node);
    while (parent != nullptr && parent->*Towards == node) {
        node = parent;
        parent = parent_of(node);
    }
    return parent;
}

/**
 * Refreshes a node and its ancestors. A rotation can leave a changed node beside the way up, so
 * each node's sibling is refreshed before their parent.
 */
void refresh_upwards(rb_node *node, rb_augment_f func, void *data)
{
    while (node != nullptr) {
        func(node, data);
        rb_node *const parent = parent_of(node);
        if (parent != nullptr) {
            rb_node *const sibling = parent->rb_left == node ? parent->rb_right : parent->rb_left;
            if (sibling != nullptr) {
                func(sibling, data);
            }
        }
        node = parent;
    }
}

}  // namespace

void __rb_rotate_left(rb_node *node, rb_root *root)
{
    rotate<kLeft, kRight>(node, root);
}

void __rb_rotate_right(rb_node *node, rb_root *root)
{
    rotate<kRight, kLeft>(node, root);
}

/** @param node  the child of @p parent whose paths lack a black node; may be NULL, as may @p parent
 */
void __rb_erase_color(rb_node *node, rb_node *parent, rb_root *root)
{
    while (parent != nullptr && is_black_or_none(node)) {
        node = parent->rb_left == node ? make_up_for_black<kLeft, kRight>(parent, root)
                                       : make_up_for_black<kRight, kLeft>(parent, root);
        if (node == nullptr) {
            return;
        }
        parent = parent_of(node);
    }
    if (node != nullptr) {
        rb_set_color(node, kBlack);
    }
}

void rb_insert_color(rb_node *node, rb_root *root)
{
    if (root == nullptr) {
        return;
    }
    while (node != nullptr) {
        rb_node *const parent = parent_of(node);
        if (parent == nullptr) {
            set_parent_and_colour(node, nullptr, kBlack);
            return;
        }
        if (!is_red(parent)) {
            return;
        }
        rb_node *const grandparent = parent_of(parent);  // there is one, as a root is black
        node = parent == grandparent->rb_left
                   ? part_two_reds<kLeft, kRight>(node, parent, grandparent, root)
                   : part_two_reds<kRight, kLeft>(node, parent, grandparent, root);
    }
}

void rb_erase(rb_node *node, rb_root *root)
{
    if (node == nullptr || root == nullptr) {
        return;
    }
    rb_node *child;   // what comes into the place of the node that leaves its place
    rb_node *parent;  // of that place
    bool lost_black;  // whether a black node left it
    if (node->rb_left != nullptr && node->rb_right != nullptr) {
        rb_node *const successor = outermost<kLeft>(node->rb_right);
        lost_black = !is_red(successor);
        child = successor->rb_right;
        parent = parent_of(successor);
        if (parent == node) {
            parent = successor;
        } else {
            parent->rb_left = child;
            successor->rb_right = node->rb_right;
            rb_set_parent(successor->rb_right, successor);
        }
        successor->rb_left = node->rb_left;
        rb_set_parent(successor->rb_left, successor);
        successor->rb_parent_color = node->rb_parent_color;
        replace_child(parent_of(node), node, successor, root);
    } else {
        lost_black = !is_red(node);
        child = node->rb_left != nullptr ? node->rb_left : node->rb_right;
        parent = parent_of(node);
        replace_child(parent, node, child, root);
    }
    if (child != nullptr) {
        // An only child is red, its parent was black: the child becomes what was lost.
        set_parent_and_colour(child, parent, kBlack);
    } else if (lost_black) {
        __rb_erase_color(nullptr, parent, root);
    }
}

rb_node *rb_first(const rb_root *root)
{
    return end_of<kLeft>(root);
}

rb_node *rb_last(const rb_root *root)
{
    return end_of<kRight>(root);
}

rb_node *rb_next(const rb_node *node)
{
    return step<kRight, kLeft>(node);
}

rb_node *rb_prev(const rb_node *node)
{
    return step<kLeft, kRight>(node);
}

void rb_replace_node(rb_node *victim, rb_node *new_node, rb_root *root)
{
    if (victim == nullptr || new_node == nullptr || root == nullptr) {
        return;
    }
    *new_node = *victim;
    replace_child(parent_of(victim), victim, new_node, root);
    for (rb_node *const child : {victim->rb_left, victim->rb_right}) {
        if (child != nullptr) {
            rb_set_parent(child, new_node);
        }
    }
}

void rb_augment_insert(rb_node *node, rb_augment_f func, void *data)
{
    if (node == nullptr || func == nullptr) {
        return;
    }
    // A new node is a leaf, or it was turned up and stands above two nodes that changed.
    refresh_upwards(node->rb_left != nullptr ? node->rb_left : node, func, data);
}

rb_node *rb_augment_erase_begin(rb_node *node)
{
    if (node == nullptr) {
        return nullptr;
    }
    if (node->rb_left == nullptr || node->rb_right == nullptr) {
        return parent_of(node);
    }
    // The successor takes the node's place and leaves its own.
    rb_node *const successor = outermost<kLeft>(node->rb_right);
    rb_node *const parent = parent_of(successor);
    return parent == node ? successor : parent;
}

void rb_augment_erase_end(rb_node *node, rb_augment_f func, void *data)
{
    if (func != nullptr) {
        refresh_upwards(node, func, data);
    }
}

void rb_augment_path(rb_node *node, rb_augment_f func, void *data)
{
    if (func == nullptr) {
        return;
    }
    for (; node != nullptr; node = parent_of(node)) {
        func(node, data);
    }
}

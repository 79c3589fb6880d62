// SPDX-License-Identifier: MIT
// Any sequence of insertions, erasures and replacements leaves a red-black tree with its order and
// its subtree maxima.
#include <algorithm>
#include <climits>
#include <cstddef>

#include "fuzz/fuzz.hpp"
#include "rbtree.h"

namespace
{

constexpr std::size_t kItems = 64;

struct Item {
    rb_node node;
    int key;
    int largest;  // key below this node, kept by the hooks
    bool inside;
};

Item *item_of(rb_node *node)
{
    return reinterpret_cast<Item *>(node);
}

void refresh(rb_node *node, void *)
{
    Item *const item = item_of(node);
    item->largest = item->key;
    for (rb_node *const child : {node->rb_left, node->rb_right}) {
        if (child != nullptr) {
            item->largest = std::max(item->largest, item_of(child)->largest);
        }
    }
}

void insert(Item &item, rb_root &root)
{
    rb_node *parent = nullptr;
    rb_node **place = &root.rb_node;
    while (*place != nullptr) {
        parent = *place;
        place = item.key < item_of(parent)->key ? &parent->rb_left : &parent->rb_right;
    }
    item.node = {};
    rb_set_parent(&item.node, parent);
    *place = &item.node;
    rb_insert_color(&item.node, &root);
    rb_augment_insert(&item.node, refresh, nullptr);
}

void erase(Item &item, rb_root &root)
{
    rb_node *const deepest = rb_augment_erase_begin(&item.node);
    rb_erase(&item.node, &root);
    rb_augment_erase_end(deepest, refresh, nullptr);
}

/** @return how many black nodes are on each way down */
int check(rb_node *node, const rb_node *parent, int &largest, std::size_t &count)
{
    largest = INT_MIN;
    if (node == nullptr) {
        return 0;
    }
    const bool black = (node->rb_parent_color & 1) != 0;
    FUZZ_CHECK(reinterpret_cast<rb_node *>(node->rb_parent_color & ~3UL) == parent);
    for (const rb_node *const child : {node->rb_left, node->rb_right}) {
        FUZZ_CHECK(black || child == nullptr || (child->rb_parent_color & 1) != 0);
    }
    int left;
    int right;
    const int blacks = check(node->rb_left, node, left, count);
    FUZZ_CHECK(blacks == check(node->rb_right, node, right, count));
    largest = std::max({item_of(node)->key, left, right});
    FUZZ_CHECK(item_of(node)->largest == largest);
    ++count;
    return blacks + (black ? 1 : 0);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    Item items[kItems] = {};
    rb_root root = {};
    std::size_t inside = 0;
    constexpr std::size_t kMost = 500;
    // Two bytes an operation: the item, with "replace" in the top bit, and its key or the other
    // item.
    for (std::size_t at = 0; at + 1 < size && at < 2 * kMost; at += 2) {
        Item &item = items[data[at] % kItems];
        Item &other = items[data[at + 1] % kItems];
        if (!item.inside) {
            item.key = data[at + 1];
            insert(item, root);
            item.inside = true;
            ++inside;
        } else if (data[at] >= 0x80 && !other.inside) {
            other.key = item.key;
            rb_replace_node(&item.node, &other.node, &root);
            rb_augment_path(&other.node, refresh, nullptr);
            item.inside = false;
            other.inside = true;
        } else {
            erase(item, root);
            item.inside = false;
            --inside;
        }
        int largest;
        std::size_t count = 0;
        FUZZ_CHECK(root.rb_node == nullptr || (root.rb_node->rb_parent_color & 1) != 0);
        check(root.rb_node, nullptr, largest, count);
        FUZZ_CHECK(count == inside);
        int before = INT_MIN;
        for (rb_node *node = rb_first(&root); node != nullptr; node = rb_next(node)) {
            FUZZ_CHECK(before <= item_of(node)->key);
            before = item_of(node)->key;
            --count;
        }
        FUZZ_CHECK(count == 0);
    }
    return 0;
}

// SPDX-License-Identifier: MIT
#include "rbtree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <set>
#include <vector>

#include "support/emulation.hpp"

namespace
{

/** A record as a caller has it; the node is not its first member. */
struct Item {
    int key;
    int value;    // what subtrees have the maximum of
    int largest;  // that maximum, kept by the hooks
    rb_node node;
};

Item *item_of(rb_node *node)
{
    void *const start = reinterpret_cast<char *>(node) - offsetof(Item, node);
    return static_cast<Item *>(start);
}

const Item *item_of(const rb_node *node)
{
    return item_of(const_cast<rb_node *>(node));
}

rb_node *parent_of(const rb_node *node)
{
    return reinterpret_cast<rb_node *>(node->rb_parent_color & ~3UL);
}

bool is_black(const rb_node *node)
{
    return node == nullptr || (node->rb_parent_color & 1) == 1;
}

/** The hook that keeps Item::largest. */
void refresh(rb_node *node, void *data)
{
    Item *const item = item_of(node);
    item->largest = item->value;
    for (const rb_node *const child : {node->rb_left, node->rb_right}) {
        if (child != nullptr) {
            item->largest = std::max(item->largest, item_of(child)->largest);
        }
    }
    if (data != nullptr) {
        ++*static_cast<int *>(data);
    }
}

void link(Item &item, rb_root &root)
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
}

void insert(Item &item, rb_root &root)
{
    link(item, root);
    rb_insert_color(&item.node, &root);
}

void insert_augmented(Item &item, rb_root &root)
{
    insert(item, root);
    rb_augment_insert(&item.node, refresh, nullptr);
}

void erase_augmented(Item &item, rb_root &root)
{
    rb_node *const deepest = rb_augment_erase_begin(&item.node);
    rb_erase(&item.node, &root);
    rb_augment_erase_end(deepest, refresh, nullptr);
}

/** What a walk over a subtree finds. */
struct Found {
    int count = 0;
    int height = 0;
    int black_height = 0;
    int largest = INT32_MIN;
};

/** Asserts the rules of a red-black tree below a node, with links and order. */
Found check(const rb_node *node, const rb_node *parent, int from, int to)
{
    if (node == nullptr) {
        return {};
    }
    const Item *const item = item_of(node);
    EXPECT_EQ(parent_of(node), parent);
    EXPECT_EQ(node->rb_parent_color & 2, 0U);
    EXPECT_TRUE(from <= item->key && item->key <= to) << "order";
    if (!is_black(node)) {
        EXPECT_TRUE(is_black(node->rb_left) && is_black(node->rb_right)) << "two reds";
    }
    const Found left = check(node->rb_left, node, from, item->key);
    const Found right = check(node->rb_right, node, item->key, to);
    EXPECT_EQ(left.black_height, right.black_height);
    return {left.count + right.count + 1, std::max(left.height, right.height) + 1,
            left.black_height + (is_black(node) ? 1 : 0),
            std::max({left.largest, right.largest, item->value})};
}

Found check(const rb_root &root)
{
    EXPECT_TRUE(is_black(root.rb_node)) << "the root";
    return check(root.rb_node, nullptr, INT32_MIN, INT32_MAX);
}

/** Whether each kept maximum below a node is that of its subtree, computed anew into @p largest. */
bool maxima_hold(const rb_node *node, int &largest)
{
    largest = INT32_MIN;
    if (node == nullptr) {
        return true;
    }
    int left;
    int right;
    if (!maxima_hold(node->rb_left, left) || !maxima_hold(node->rb_right, right)) {
        return false;
    }
    const Item *const item = item_of(node);
    largest = item->value > left ? item->value : left;
    largest = right > largest ? right : largest;
    return item->largest == largest;
}

bool maxima_hold(const rb_root &root)
{
    int largest;
    return maxima_hold(root.rb_node, largest);
}

/** The keys from first to last, asserted to be the same backwards. */
std::vector<int> keys_of(const rb_root &root)
{
    std::vector<int> forwards;
    std::vector<int> backwards;
    for (const rb_node *at = rb_first(&root); at != nullptr; at = rb_next(at)) {
        forwards.push_back(item_of(at)->key);
    }
    for (const rb_node *at = rb_last(&root); at != nullptr; at = rb_prev(at)) {
        backwards.push_back(item_of(at)->key);
    }
    std::reverse(backwards.begin(), backwards.end());
    EXPECT_EQ(forwards, backwards);
    return forwards;
}

TEST(Tree, Layout)
{
    EXPECT_EQ(offsetof(rb_node, rb_parent_color), 0U);
    EXPECT_EQ(offsetof(rb_node, rb_right), sizeof(long));
    EXPECT_EQ(offsetof(rb_node, rb_left), 2 * sizeof(long));
    EXPECT_EQ(sizeof(rb_node), 3 * sizeof(long));
    EXPECT_EQ(alignof(rb_node), sizeof(long));
    EXPECT_EQ(sizeof(rb_root), sizeof(void *));
}

TEST(Tree, EmptyAndOfOne)
{
    rb_root root = {};
    EXPECT_EQ(rb_first(&root), nullptr);
    EXPECT_EQ(rb_last(&root), nullptr);
    Item item = {1, 0, 0, {}};
    insert(item, root);
    EXPECT_EQ(root.rb_node, &item.node);
    EXPECT_EQ(item.node.rb_parent_color, 1U) << "black, no parent";
    EXPECT_EQ(rb_first(&root), &item.node);
    EXPECT_EQ(rb_last(&root), &item.node);
    EXPECT_EQ(rb_next(&item.node), nullptr);
    EXPECT_EQ(rb_prev(&item.node), nullptr);
    rb_erase(&item.node, &root);
    EXPECT_EQ(root.rb_node, nullptr);
}

TEST(Tree, ParentAndColourAreSetApart)
{
    rb_node parent = {};
    rb_node node = {};
    rb_set_color(&node, 1);
    EXPECT_EQ(node.rb_parent_color, 1U);
    rb_set_parent(&node, &parent);
    EXPECT_EQ(parent_of(&node), &parent);
    EXPECT_TRUE(is_black(&node));
    rb_set_color(&node, 0);
    EXPECT_EQ(parent_of(&node), &parent);
    EXPECT_FALSE(is_black(&node));
    rb_set_parent(&node, nullptr);
    EXPECT_EQ(node.rb_parent_color, 0U);
}

TEST(Tree, ANodeInNoTreeHasNoNeighbours)
{
    for (const int colour : {0, 1}) {
        rb_node child = {};
        rb_node node = {};
        node.rb_left = node.rb_right = &child;
        rb_set_parent(&node, &node);
        rb_set_color(&node, colour);
        EXPECT_EQ(rb_next(&node), nullptr);
        EXPECT_EQ(rb_prev(&node), nullptr);
    }
}

TEST(Tree, BelowFourThereIsNoParent)
{
    for (unsigned long value = 0; value < 4; ++value) {
        rb_node node = {};
        node.rb_parent_color = value;
        rb_root root = {&node};
        EXPECT_EQ(rb_next(&node), nullptr);
        EXPECT_EQ(rb_prev(&node), nullptr);
        rb_insert_color(&node, &root);
        EXPECT_EQ(node.rb_parent_color, 1U) << "the root, black";
        node.rb_parent_color = value;
        rb_erase(&node, &root);
        EXPECT_EQ(root.rb_node, nullptr);
    }
}

TEST(Tree, NullDoesNothing)
{
    rb_root root = {};
    Item item = {1, 0, 0, {}};
    insert(item, root);
    const rb_node before = item.node;
    EXPECT_EQ(rb_first(nullptr), nullptr);
    EXPECT_EQ(rb_last(nullptr), nullptr);
    EXPECT_EQ(rb_next(nullptr), nullptr);
    EXPECT_EQ(rb_prev(nullptr), nullptr);
    EXPECT_EQ(rb_augment_erase_begin(nullptr), nullptr);
    rb_insert_color(nullptr, &root);
    rb_insert_color(&item.node, nullptr);
    rb_erase(nullptr, &root);
    rb_erase(&item.node, nullptr);
    rb_replace_node(nullptr, &item.node, &root);
    rb_replace_node(&item.node, nullptr, &root);
    rb_node other = {};
    rb_replace_node(&item.node, &other, nullptr);
    EXPECT_EQ(other.rb_parent_color, 0U);
    int calls = 0;
    rb_augment_insert(nullptr, refresh, &calls);
    rb_augment_erase_end(nullptr, refresh, &calls);
    rb_augment_path(nullptr, refresh, &calls);
    EXPECT_EQ(calls, 0);
    rb_augment_insert(&item.node, nullptr, nullptr);
    rb_augment_erase_end(&item.node, nullptr, nullptr);
    rb_augment_path(&item.node, nullptr, nullptr);
    EXPECT_EQ(root.rb_node, &item.node);
    EXPECT_EQ(item.node.rb_parent_color, before.rb_parent_color);

    // Two reds below each other, which would turn.
    Item second = {2, 0, 0, {}};
    Item third = {3, 0, 0, {}};
    insert(second, root);
    link(third, root);
    rb_insert_color(&third.node, nullptr);
    EXPECT_EQ(root.rb_node, &item.node);
    EXPECT_EQ(item.node.rb_right, &second.node);
    EXPECT_EQ(second.node.rb_right, &third.node);
    EXPECT_FALSE(is_black(&second.node));
    EXPECT_FALSE(is_black(&third.node));
}

TEST(Tree, AscendingAndDescendingKeepTheHeight)
{
    constexpr int kCount = 1000;
    for (const bool ascending : {true, false}) {
        std::vector<Item> items(kCount);
        rb_root root = {};
        for (int i = 0; i < kCount; ++i) {
            Item &item = items[static_cast<std::size_t>(i)];
            item.key = ascending ? i + 1 : kCount - i;
            insert(item, root);
            const Found found = check(root);
            ASSERT_EQ(found.count, i + 1);
            ASSERT_LE(found.height, 2 * std::log2(i + 2));
        }
        const std::vector<int> keys = keys_of(root);
        ASSERT_EQ(keys.size(), std::size_t{kCount});
        EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
        EXPECT_EQ(item_of(rb_first(&root))->key, 1);
        EXPECT_EQ(item_of(rb_last(&root))->key, kCount);
        EXPECT_EQ(rb_next(rb_last(&root)), nullptr);
        EXPECT_EQ(rb_prev(rb_first(&root)), nullptr);
    }
}

/** Every order of insertion of up to seven keys, then every node erased first. */
TEST(Tree, SmallTreesExhaustively)
{
    for (int count = 1; count <= 7; ++count) {
        std::vector<int> order(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i) {
            order[static_cast<std::size_t>(i)] = i;
        }
        do {
            for (int gone = 0; gone < count; ++gone) {
                Item items[7] = {};
                rb_root root = {};
                for (const int key : order) {
                    items[key].key = key;
                    items[key].value = (key * 5) % 7;
                    insert_augmented(items[key], root);
                }
                ASSERT_EQ(check(root).count, count);
                ASSERT_TRUE(maxima_hold(root));
                erase_augmented(items[gone], root);
                ASSERT_EQ(check(root).count, count - 1);
                ASSERT_TRUE(maxima_hold(root));
                ASSERT_FALSE(HasFailure());
            }
        } while (std::next_permutation(order.begin(), order.end()));
    }
}

TEST(Tree, EqualKeysStayInTheOrderOfTheirInsertion)
{
    std::vector<Item> items(200);
    rb_root root = {};
    for (std::size_t i = 0; i < items.size(); ++i) {
        items[i].key = static_cast<int>(i % 3);
        items[i].value = static_cast<int>(i);
        insert(items[i], root);
    }
    check(root);
    const Item *before = nullptr;
    for (const rb_node *at = rb_first(&root); at != nullptr; at = rb_next(at)) {
        if (before != nullptr && before->key == item_of(at)->key) {
            EXPECT_LT(before->value, item_of(at)->value);
        }
        before = item_of(at);
    }
}

TEST(Tree, ErasedNodesKeepTheirFieldsAndCanComeBack)
{
    Item items[3] = {{1, 0, 0, {}}, {2, 0, 0, {}}, {3, 0, 0, {}}};
    rb_root root = {};
    for (Item &item : items) {
        insert(item, root);
    }
    const rb_node before = items[1].node;
    rb_erase(&items[1].node, &root);
    EXPECT_EQ(items[1].node.rb_parent_color, before.rb_parent_color);
    EXPECT_EQ(items[1].node.rb_left, before.rb_left);
    EXPECT_EQ(items[1].node.rb_right, before.rb_right);
    EXPECT_EQ(keys_of(root), (std::vector<int>{1, 3}));
    insert(items[1], root);
    EXPECT_EQ(keys_of(root), (std::vector<int>{1, 2, 3}));
    check(root);
}

TEST(Tree, ReplacedInEveryPlace)
{
    for (std::size_t place = 0; place < 50; ++place) {
        std::vector<Item> items(50);
        rb_root root = {};
        for (std::size_t i = 0; i < items.size(); ++i) {
            items[i].key = static_cast<int>(i);
            insert(items[i], root);
        }
        const rb_node before = items[place].node;
        Item other = items[place];
        other.value = 7;
        other.node = {};
        rb_replace_node(&items[place].node, &other.node, &root);
        EXPECT_EQ(other.node.rb_parent_color, before.rb_parent_color) << "parent and colour";
        EXPECT_EQ(other.node.rb_left, before.rb_left);
        EXPECT_EQ(other.node.rb_right, before.rb_right);
        EXPECT_EQ(items[place].node.rb_parent_color, before.rb_parent_color);
        const Found found = check(root);
        EXPECT_EQ(found.count, 50);
        EXPECT_EQ(found.largest, 7);
        ASSERT_FALSE(HasFailure()) << place;
    }
}

// ---- augmented nodes --------------------------------------------------------------------------

TEST(Augment, APathIsTheNodeAndItsAncestors)
{
    std::vector<Item> items(31);
    rb_root root = {};
    for (std::size_t i = 0; i < items.size(); ++i) {
        items[i].key = static_cast<int>(i);
        insert(items[i], root);
    }
    std::vector<rb_node *> called;
    rb_augment_path(
        rb_first(&root),
        [](rb_node *node, void *data) {
            static_cast<std::vector<rb_node *> *>(data)->push_back(node);
        },
        &called);
    std::vector<rb_node *> wanted;
    for (rb_node *at = rb_first(&root); at != nullptr; at = parent_of(at)) {
        wanted.push_back(at);
    }
    EXPECT_GT(wanted.size(), 3U);
    EXPECT_EQ(called, wanted);
}

TEST(Augment, WhatAnErasureChangesDeepest)
{
    //        2
    //    1       4
    //          3   5   and 6 below 5
    Item items[7] = {};
    rb_root root = {};
    for (int key = 1; key <= 6; ++key) {
        items[key].key = key;
        insert(items[key], root);
    }
    ASSERT_EQ(root.rb_node, &items[2].node);
    ASSERT_EQ(root.rb_node->rb_right, &items[4].node);
    EXPECT_EQ(rb_augment_erase_begin(&items[6].node), &items[5].node) << "a leaf";
    EXPECT_EQ(rb_augment_erase_begin(&items[5].node), &items[4].node) << "with one child";
    EXPECT_EQ(rb_augment_erase_begin(&items[4].node), &items[5].node)
        << "its child is its successor";
    EXPECT_EQ(rb_augment_erase_begin(&items[2].node), &items[4].node)
        << "its successor leaves a place further down";
    Item alone = {1, 0, 0, {}};
    rb_root other = {};
    insert(alone, other);
    EXPECT_EQ(rb_augment_erase_begin(&alone.node), nullptr);
}

/**
 * A million insertions, erasures and replacements in trees of changing size, all maxima computed
 * anew after each.
 */
TEST(Augment, SubtreeMaximaThroughAMillionOperations)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    const int operations = 100000;
#else
    const int operations = test::repetitions(1000000);
#endif
    constexpr std::size_t kItems = 200;
    std::mt19937 random{7};
    std::vector<Item> items(kItems);
    std::vector<bool> inside(kItems);
    std::multiset<int> keys;
    rb_root root = {};
    std::size_t among = kItems;  // the items in play; the others leave when they are met
    int insertions = 0;
    int erasures = 0;
    int replacements = 0;
    while (insertions + erasures + replacements < operations) {
        const int operation = insertions + erasures + replacements;
        if (operation % 500 == 0) {
            among = 2 + random() % (kItems - 1);
        }
        const std::size_t at = random() % kItems;
        const std::size_t other = random() % kItems;
        Item &item = items[at];
        if (!inside[at]) {
            if (at >= among) {
                continue;
            }
            item.key = static_cast<int>(random() % 100);
            item.value = static_cast<int>(random() % 100000);
            insert_augmented(item, root);
            keys.insert(item.key);
            inside[at] = true;
            ++insertions;
        } else if (at < among && !inside[other] && random() % 2 == 0) {
            items[other].key = item.key;
            items[other].value = static_cast<int>(random() % 100000);
            rb_replace_node(&item.node, &items[other].node, &root);
            rb_augment_path(&items[other].node, refresh, nullptr);
            inside[at] = false;
            inside[other] = true;
            ++replacements;
        } else {
            erase_augmented(item, root);
            keys.erase(keys.find(item.key));
            inside[at] = false;
            ++erasures;
        }
        ASSERT_TRUE(maxima_hold(root)) << operation;
        if (operation % 100 == 0) {
            ASSERT_EQ(static_cast<std::size_t>(check(root).count), keys.size());
            ASSERT_EQ(keys_of(root), std::vector<int>(keys.begin(), keys.end()));
            ASSERT_FALSE(HasFailure()) << operation;
        }
    }
    EXPECT_GT(insertions, operations / 10);
    EXPECT_GT(erasures, operations / 10);
    EXPECT_GT(replacements, operations / 10);
}

}  // namespace

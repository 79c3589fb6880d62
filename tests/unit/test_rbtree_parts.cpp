// SPDX-License-Identifier: MIT
// The steps of the tree that the library keeps to itself; its source is compiled into this program.
#include <gtest/gtest.h>

#include "rbtree.h"

extern "C" {
void __rb_rotate_left(rb_node *node, rb_root *root);
void __rb_rotate_right(rb_node *node, rb_root *root);
void __rb_erase_color(rb_node *node, rb_node *parent, rb_root *root);
}

namespace
{

constexpr int kRed = 0;
constexpr int kBlack = 1;

/** Makes two nodes, either of which may be missing, the children of a third. */
void hang(rb_node &parent, rb_node *left, rb_node *right)
{
    parent.rb_left = left;
    parent.rb_right = right;
    for (rb_node *const child : {left, right}) {
        if (child != nullptr) {
            rb_set_parent(child, &parent);
        }
    }
}

void has(const rb_node &node, const rb_node *parent, int colour, const rb_node *left,
         const rb_node *right)
{
    EXPECT_EQ(node.rb_parent_color,
              reinterpret_cast<unsigned long>(parent) | static_cast<unsigned long>(colour));
    EXPECT_EQ(node.rb_left, left);
    EXPECT_EQ(node.rb_right, right);
}

//      y             x
//    x   c   <->   a   y       at the root, or on either side of a node above;
//   a b               b c      a, b and c may be missing
TEST(Rotation, BothWaysAndBack)
{
    enum class Above { kNone, kLeft, kRight };
    for (const Above place : {Above::kNone, Above::kLeft, Above::kRight}) {
        for (const bool with_leaves : {true, false}) {
            rb_node a = {};
            rb_node b = {};
            rb_node c = {};
            rb_node x = {};
            rb_node y = {};
            rb_node above = {};
            rb_node other = {};
            rb_set_color(&b, kBlack);
            rb_set_color(&y, kBlack);
            rb_node *const leaf_a = with_leaves ? &a : nullptr;
            rb_node *const leaf_b = with_leaves ? &b : nullptr;
            rb_node *const leaf_c = with_leaves ? &c : nullptr;
            hang(x, leaf_a, leaf_b);
            hang(y, &x, leaf_c);
            if (place != Above::kNone) {
                hang(above, place == Above::kLeft ? &y : &other,
                     place == Above::kLeft ? &other : &y);
            }
            rb_node *const parent = place != Above::kNone ? &above : nullptr;
            rb_root root = {place != Above::kNone ? &above : &y};
            const auto top = [&] {
                return place == Above::kNone   ? root.rb_node
                       : place == Above::kLeft ? above.rb_left
                                               : above.rb_right;
            };

            __rb_rotate_right(&y, &root);
            EXPECT_EQ(top(), &x);
            has(x, parent, kRed, leaf_a, &y);
            has(y, &x, kBlack, leaf_b, leaf_c);

            __rb_rotate_left(&x, &root);
            EXPECT_EQ(top(), &y);
            has(y, parent, kBlack, &x, leaf_c);
            has(x, &y, kRed, leaf_a, leaf_b);

            if (with_leaves) {
                has(a, &x, kRed, nullptr, nullptr);
                has(b, &x, kBlack, nullptr, nullptr);
                has(c, &y, kRed, nullptr, nullptr);
            }
            if (place != Above::kNone) {
                EXPECT_EQ(root.rb_node, &above);
                EXPECT_EQ(place == Above::kLeft ? above.rb_right : above.rb_left, &other);
            }
        }
    }
}

TEST(EraseColour, ARedChildMakesUpForTheBlackByItself)
{
    rb_node parent = {};
    rb_node child = {};
    rb_node sibling = {};
    rb_set_color(&parent, kBlack);
    rb_set_color(&sibling, kBlack);
    hang(parent, &child, &sibling);
    rb_root root = {&parent};
    __rb_erase_color(&child, &parent, &root);
    has(child, &parent, kBlack, nullptr, nullptr);
    has(sibling, &parent, kBlack, nullptr, nullptr);
    has(parent, nullptr, kBlack, &child, &sibling);
}

TEST(EraseColour, AtTheRootOrInNoTree)
{
    rb_node node = {};
    rb_root root = {&node};
    __rb_erase_color(&node, nullptr, &root);
    has(node, nullptr, kBlack, nullptr, nullptr);
    root = {};
    __rb_erase_color(nullptr, nullptr, &root);
    EXPECT_EQ(root.rb_node, nullptr);
}

}  // namespace

// SPDX-License-Identifier: MIT
// The red-black tree beside Boost's intrusive set, std::set and libbsd's tree macros. The search is
// the same loop for all but the standard's, which brings its own: what differs is the tree's work.
#include <benchmark/benchmark.h>
#include <bsd/sys/tree.h>

#include <algorithm>
#include <boost/intrusive/rbtree_algorithms.hpp>
#include <boost/intrusive/set.hpp>
#include <cstdint>
#include <memory>
#include <numeric>
#include <random>
#include <set>
#include <vector>

#include "rbtree.h"

namespace
{

using Key = std::uint64_t;
using Keys = std::vector<Key>;

/** Compiled without a branch in every search, or in none: a coin's toss that no guess helps. */
bool is_less(Key a, Key b)
{
    return __builtin_expect_with_probability(a < b, 1, 0.5) != 0;
}

// Each tree: a node with its key, search by one loop over left and right, link, erase, step.

struct Library {
    struct Node {
        rb_node link;
        Key key;
    };

    static Node *of(rb_node *link) { return reinterpret_cast<Node *>(link); }

    void insert(Node &node)
    {
        rb_node *parent = nullptr;
        rb_node **link = &root.rb_node;
        while (*link != nullptr) {
            parent = *link;
            link = is_less(node.key, of(parent)->key) ? &parent->rb_left : &parent->rb_right;
        }
        node.link = {};
        rb_set_parent(&node.link, parent);
        *link = &node.link;
        rb_insert_color(&node.link, &root);
    }
    const Node *find(Key key) const
    {
        for (rb_node *at = root.rb_node; at != nullptr;) {
            const Node *const node = of(at);
            if (node->key == key) {
                return node;
            }
            at = is_less(key, node->key) ? at->rb_left : at->rb_right;
        }
        return nullptr;
    }
    void erase(Node &node) { rb_erase(&node.link, &root); }
    Key sum() const
    {
        Key total = 0;
        for (rb_node *at = rb_first(&root); at != nullptr; at = rb_next(at)) {
            total += of(at)->key;
        }
        return total;
    }

    rb_root root = {};
};

struct BsdNode {
    RB_ENTRY(BsdNode) link;
    Key key;
};
RB_HEAD(BsdTree, BsdNode);

int compare(const BsdNode *a, const BsdNode *b)
{
    return a->key < b->key ? -1 : a->key > b->key ? 1 : 0;
}

RB_GENERATE_INTERNAL(BsdTree, BsdNode, link, compare, [[maybe_unused]] static)

struct Bsd {
    using Node = BsdNode;

    void insert(Node &node)
    {
        Node *parent = nullptr;
        Node **link = &RB_ROOT(&root);
        while (*link != nullptr) {
            parent = *link;
            link =
                is_less(node.key, parent->key) ? &RB_LEFT(parent, link) : &RB_RIGHT(parent, link);
        }
        RB_SET(&node, parent, link);
        *link = &node;
        BsdTree_RB_INSERT_COLOR(&root, &node);
    }
    const Node *find(Key key) const
    {
        for (const Node *at = RB_ROOT(&root); at != nullptr;) {
            if (at->key == key) {
                return at;
            }
            at = is_less(key, at->key) ? RB_LEFT(at, link) : RB_RIGHT(at, link);
        }
        return nullptr;
    }
    void erase(Node &node) { BsdTree_RB_REMOVE(&root, &node); }
    Key sum()
    {
        Key total = 0;
        Node *at;
        RB_FOREACH(at, BsdTree, &root)
        {
            total += at->key;
        }
        return total;
    }

    BsdTree root = RB_INITIALIZER(&root);
};

struct Boost {
    struct Node : boost::intrusive::set_base_hook<
                      boost::intrusive::optimize_size<true>,
                      boost::intrusive::link_mode<boost::intrusive::normal_link>> {
        Key key;
        bool operator<(const Node &other) const { return key < other.key; }
    };
    struct KeyOf {
        using type = Key;
        const Key &operator()(const Node &node) const { return node.key; }
    };
    using Tree = boost::intrusive::set<Node, boost::intrusive::key_of_value<KeyOf>,
                                       boost::intrusive::constant_time_size<false>>;

    void insert(Node &node) { root.insert(node); }
    const Node *find(Key key) const { return &*root.find(key); }
    void erase(Node &node) { root.erase(Tree::s_iterator_to(node)); }
    Key sum() const
    {
        return std::accumulate(root.begin(), root.end(), Key{0},
                               [](Key total, const Node &node) { return total + node.key; });
    }

    Tree root;
};

struct Std {
    struct Node {
        Key key;
    };
    void insert(const Node &node) { root.insert(node.key); }
    const Key *find(Key key) const { return &*root.find(key); }
    void erase(const Node &node) { root.erase(node.key); }
    Key sum() const { return std::accumulate(root.begin(), root.end(), Key{0}); }

    std::set<Key> root;
};

/** Node i of a set holds key i of this list. */
Keys keys_of(std::size_t count, bool random)
{
    Keys keys(count);
    std::iota(keys.begin(), keys.end(), Key{1});
    if (random) {
        std::shuffle(keys.begin(), keys.end(), std::mt19937{1});
    }
    return keys;
}

/** A tree over nodes in memory, in the order of insertion. */
template <typename Tree>
struct Filled {
    explicit Filled(const Keys &keys) : nodes(keys.size())
    {
        for (std::size_t i = 0; i < keys.size(); ++i) {
            nodes[i].key = keys[i];
        }
    }
    void fill()
    {
        tree = std::make_unique<Tree>();
        for (auto &node : nodes) {
            tree->insert(node);
        }
    }

    std::vector<typename Tree::Node> nodes;
    std::unique_ptr<Tree> tree;
};

constexpr bool kAscending = false;
constexpr bool kRandom = true;

std::size_t count_of(const benchmark::State &state)
{
    return static_cast<std::size_t>(state.range(0));
}

void count_nodes(benchmark::State &state)
{
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <typename Tree, bool Random>
void insert(benchmark::State &state)
{
    Filled<Tree> filled{keys_of(count_of(state), Random)};
    for (auto _ : state) {
        filled.fill();
        if constexpr (std::is_same_v<Tree, Boost>) {
            filled.tree->root.clear();
        }
    }
    count_nodes(state);
}

template <typename Tree, bool Random>
void find(benchmark::State &state)
{
    Filled<Tree> filled{keys_of(count_of(state), Random)};
    filled.fill();
    Keys wanted = keys_of(count_of(state), Random);
    if (Random) {
        std::shuffle(wanted.begin(), wanted.end(), std::mt19937{2});
    }
    for (auto _ : state) {
        for (const Key key : wanted) {
            benchmark::DoNotOptimize(filled.tree->find(key));
        }
    }
    count_nodes(state);
}

/** Filling the tree again is not counted. */
template <typename Tree, bool Random>
void erase(benchmark::State &state)
{
    Filled<Tree> filled{keys_of(count_of(state), Random)};
    std::vector<std::size_t> order(count_of(state));
    std::iota(order.begin(), order.end(), std::size_t{0});
    if (Random) {
        std::shuffle(order.begin(), order.end(), std::mt19937{3});
    }
    for (auto _ : state) {
        state.PauseTiming();
        filled.fill();
        state.ResumeTiming();
        for (const std::size_t i : order) {
            filled.tree->erase(filled.nodes[i]);
        }
    }
    count_nodes(state);
}

template <typename Tree, bool Random>
void iterate(benchmark::State &state)
{
    Filled<Tree> filled{keys_of(count_of(state), Random)};
    filled.fill();
    for (auto _ : state) {
        benchmark::DoNotOptimize(filled.tree->sum());
    }
    count_nodes(state);
}

/** The floor of an iteration: the same nodes as a list in the order of their keys. */
template <bool Random>
void iterate_list(benchmark::State &state)
{
    struct Node {
        Node *next;
        Node *unused[2];
        Key key;
    };
    const Keys keys = keys_of(count_of(state), Random);
    std::vector<Node> nodes(keys.size());
    std::vector<Node *> sorted(keys.size());
    for (std::size_t i = 0; i < keys.size(); ++i) {
        nodes[i].key = keys[i];
        sorted[keys[i] - 1] = &nodes[i];
    }
    for (std::size_t i = 0; i + 1 < sorted.size(); ++i) {
        sorted[i]->next = sorted[i + 1];
    }
    for (auto _ : state) {
        Key total = 0;
        for (const Node *node = sorted[0]; node != nullptr; node = node->next) {
            total += node->key;
        }
        benchmark::DoNotOptimize(total);
    }
    count_nodes(state);
}

#define SIZES ->Arg(1000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMicrosecond)
#define EACH_ORDER(what, tree, name)                                   \
    BENCHMARK(what<tree, kRandom>)->Name(#what "/random/" name) SIZES; \
    BENCHMARK(what<tree, kAscending>)->Name(#what "/ascending/" name) SIZES
#define EACH_TREE(what)                   \
    EACH_ORDER(what, Library, "library"); \
    EACH_ORDER(what, Bsd, "libbsd");      \
    EACH_ORDER(what, Boost, "Boost");     \
    EACH_ORDER(what, Std, "std::set")

EACH_TREE(insert);
EACH_TREE(find);
EACH_TREE(erase);
EACH_TREE(iterate);
BENCHMARK(iterate_list<kRandom>)->Name("iterate/random/a list") SIZES;
BENCHMARK(iterate_list<kAscending>)->Name("iterate/ascending/a list") SIZES;

}  // namespace

BENCHMARK_MAIN();

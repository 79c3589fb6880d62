// SPDX-License-Identifier: MIT
// The red-black tree beside Boost's intrusive set, std::set and libbsd's tree macros. The search is
// one loop for all but the standard's, which brings its own: what differs is the tree's work.
#include <benchmark/benchmark.h>
#include <bsd/sys/tree.h>

#include <algorithm>
#include <array>
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

/**
 * All nodes are of one size, an odd number of words. After an ascending insertion the upper levels
 * of a tree stand powers of two of nodes apart: with 32-byte nodes, a power of two themselves, they
 * share a few sets of the processor's caches and a search takes up to twice as long.
 */
constexpr std::size_t kNodeSize = 56;
template <typename Link>
using Rest = std::array<char, kNodeSize - sizeof(Link) - sizeof(Key)>;

/**
 * One of two pointers, without a branch: left to itself the compiler makes a branch of the choice
 * in the one tree's loop, a conditional move in the other's, and that is twice the time.
 */
template <typename T>
T *either(bool first, T *one, T *other)
{
    const auto bits = reinterpret_cast<std::uintptr_t>(other);
    const std::uintptr_t differ = reinterpret_cast<std::uintptr_t>(one) ^ bits;
    return reinterpret_cast<T *>(bits ^ (differ & -std::uintptr_t{first}));
}

template <typename Link>
struct Place {
    Link *parent;
    bool left;
};

/** Where a key goes in. */
template <typename Tree, typename Link>
Place<Link> place_for(Link *top, Key key)
{
    Place<Link> place = {};
    for (Link *at = top; at != nullptr;) {
        place = {at, key < Tree::key_of(at)};
        at = either(place.left, Tree::left(at), Tree::right(at));
    }
    return place;
}

/** The node of a key. */
template <typename Tree, typename Link>
Link *node_of(Link *top, Key key)
{
    Link *at = top;
    while (at != nullptr && Tree::key_of(at) != key) {
        at = either(key < Tree::key_of(at), Tree::left(at), Tree::right(at));
    }
    return at;
}

struct Library {
    struct Node {
        rb_node link;
        Key key;
        Rest<rb_node> rest;
    };

    static Node *of(rb_node *link) { return reinterpret_cast<Node *>(link); }
    static Key key_of(rb_node *link) { return of(link)->key; }
    static rb_node *left(rb_node *link) { return link->rb_left; }
    static rb_node *right(rb_node *link) { return link->rb_right; }

    void insert(Node &node)
    {
        const auto [parent, left] = place_for<Library>(root.rb_node, node.key);
        node.link = {};
        rb_set_parent(&node.link, parent);
        *(parent != nullptr ? either(left, &parent->rb_left, &parent->rb_right) : &root.rb_node) =
            &node.link;
        rb_insert_color(&node.link, &root);
    }
    const rb_node *find(Key key) const { return node_of<Library>(root.rb_node, key); }
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
    Rest<decltype(link)> rest;
};
RB_HEAD(BsdTree, BsdNode);

int compare(const BsdNode *a, const BsdNode *b)
{
    return a->key < b->key ? -1 : a->key > b->key ? 1 : 0;
}

RB_GENERATE_INTERNAL(BsdTree, BsdNode, link, compare, [[maybe_unused]] static)

struct Bsd {
    using Node = BsdNode;

    static Key key_of(Node *node) { return node->key; }
    static Node *left(Node *node) { return RB_LEFT(node, link); }
    static Node *right(Node *node) { return RB_RIGHT(node, link); }

    void insert(Node &node)
    {
        const auto [parent, left] = place_for<Bsd>(RB_ROOT(&root), node.key);
        RB_SET(&node, parent, link);
        *(parent != nullptr ? either(left, &RB_LEFT(parent, link), &RB_RIGHT(parent, link))
                            : &RB_ROOT(&root)) = &node;
        BsdTree_RB_INSERT_COLOR(&root, &node);
    }
    const Node *find(Key key) const { return node_of<Bsd>(RB_ROOT(&root), key); }
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
    using Hook =
        boost::intrusive::set_base_hook<boost::intrusive::optimize_size<true>,
                                        boost::intrusive::link_mode<boost::intrusive::normal_link>>;
    struct Node : Hook {
        Key key;
        Rest<Hook> rest;
    };
    struct KeyOf {
        using type = Key;
        const Key &operator()(const Node &node) const { return node.key; }
    };
    using Tree = boost::intrusive::set<Node, boost::intrusive::key_of_value<KeyOf>,
                                       boost::intrusive::constant_time_size<false>>;
    using Traits = Tree::node_traits;
    using Link = Traits::node;

    static Key key_of(Link *link) { return Tree::value_traits::to_value_ptr(link)->key; }
    static Link *left(Link *link) { return Traits::get_left(link); }
    static Link *right(Link *link) { return Traits::get_right(link); }
    Link *header() const { return root.end().pointed_node(); }
    Link *top() const { return Traits::get_parent(header()); }

    void insert(Node &node)
    {
        const auto [parent, left] = place_for<Boost>(top(), node.key);
        Tree::insert_commit_data place;
        place.node = parent != nullptr ? parent : header();
        place.link_left = parent == nullptr || left;
        root.insert_commit(node, place);
    }
    const Link *find(Key key) const { return node_of<Boost>(top(), key); }
    void erase(Node &node) { root.erase(Tree::s_iterator_to(node)); }
    Key sum() const
    {
        return std::accumulate(root.begin(), root.end(), Key{0},
                               [](Key total, const Node &node) { return total + node.key; });
    }

    Tree root;
};

static_assert(sizeof(Library::Node) == kNodeSize && sizeof(Bsd::Node) == kNodeSize &&
              sizeof(Boost::Node) == kNodeSize);

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
        Key key;
        Rest<Node *> rest;
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

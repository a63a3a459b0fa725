// The tree: links between nodes, lookups, arena text, deep copies, seeds.
#include <norvane/yaml.hpp>

#include <gtest/gtest.h>

#include <string>

using namespace norvane::yaml;

namespace {

// root: {a: 1, b: [x, y]}
std::size_t build_sample(tree& t) {
  const std::size_t root = t.root_id();
  t.set_flags(root, MAP);
  const std::size_t a = t.append_child(root);
  t.set_key(a, t.copy_to_arena("a"));
  t.set_val(a, t.copy_to_arena("1"));
  t.add_flags(a, KEY | VAL);
  const std::size_t b = t.append_child(root);
  t.set_key(b, t.copy_to_arena("b"));
  t.add_flags(b, KEY | SEQ);
  for (const char* item : {"x", "y"}) {
    const std::size_t c = t.append_child(b);
    t.set_val(c, t.copy_to_arena(item));
    t.add_flags(c, VAL);
  }
  return b;
}

}  // namespace

TEST(YamlTree, StartsWithAnUntypedRootAndLinksChildrenInOrder) {
  tree t;
  EXPECT_EQ(t.size(), 1u);
  EXPECT_EQ(t.type(t.root_id()), NOTYPE);
  EXPECT_EQ(t.parent(t.root_id()), npos);
  EXPECT_EQ(t.key(t.root_id()).data(), nullptr);
  EXPECT_EQ(t.val(t.root_id()).data(), nullptr);

  const std::size_t b = build_sample(t);
  EXPECT_EQ(t.size(), 5u);
  EXPECT_EQ(t.num_children(t.root_id()), 2u);
  EXPECT_EQ(t.find_child(t.root_id(), "b"), b);
  EXPECT_EQ(t.find_child(t.root_id(), "c"), npos);
  EXPECT_EQ(t.find_child(b, "x"), npos) << "sequence items have no keys";
  EXPECT_EQ(t.val(t.child(b, 0)), "x");
  EXPECT_EQ(t.val(t.child(b, 1)), "y");
  EXPECT_EQ(t.child(b, 2), npos);
  EXPECT_EQ(t.parent(t.child(b, 1)), b);
  EXPECT_EQ(t.next_sibling(t.child(b, 1)), npos);
  EXPECT_EQ(t.last_child(b), t.child(b, 1));
  // Out-of-range ids answer "nothing" instead of reading past the pool.
  EXPECT_EQ(t.type(1000), NOTYPE);
  EXPECT_EQ(t.num_children(1000), 0u);
  EXPECT_EQ(t.child(1000, 0), npos);

  t.clear();
  EXPECT_EQ(t.size(), 1u);
  EXPECT_EQ(t.type(t.root_id()), NOTYPE);
  EXPECT_EQ(t.arena_size(), 0u);
}

TEST(YamlTree, DeepCopyOwnsItsTextAndNodes) {
  auto original = std::make_unique<tree>();
  const std::size_t b = build_sample(*original);
  // Enough text to spread over several arena blocks.
  const std::string long_text(100000, 'z');
  const std::size_t extra = original->append_child(b);
  original->set_val(extra, original->copy_to_arena(long_text));
  original->add_flags(extra, VAL);

  tree copy(*original);
  EXPECT_NE(copy.val(extra).data(), original->val(extra).data());
  copy.set_val(copy.child(b, 0), copy.copy_to_arena("changed"));
  EXPECT_EQ(original->val(original->child(b, 0)), "x");
  original.reset();

  // The copy's scalars live in its own arena (a sanitizer run would catch
  // a view left pointing into the destroyed original).
  EXPECT_EQ(copy.key(copy.find_child(copy.root_id(), "a")), "a");
  EXPECT_EQ(copy.val(copy.child(b, 0)), "changed");
  EXPECT_EQ(copy.val(copy.child(b, 1)), "y");
  EXPECT_EQ(copy.val(extra), long_text);

  tree assigned;
  assigned = copy;
  EXPECT_EQ(assigned.size(), copy.size());
  EXPECT_EQ(assigned.val(extra), long_text);
  EXPECT_NE(assigned.val(extra).data(), copy.val(extra).data());
}

TEST(YamlTree, EmptyTextIsPresentButNullIsAbsent) {
  tree t;
  const std::string_view empty = t.copy_to_arena("");
  EXPECT_NE(empty.data(), nullptr);
  EXPECT_TRUE(empty.empty());
  t.set_val(t.root_id(), empty);
  tree copy(t);
  EXPECT_NE(copy.val(copy.root_id()).data(), nullptr);
  copy.set_val(copy.root_id(), std::string_view());
  EXPECT_EQ(copy.val(copy.root_id()).data(), nullptr);
}

TEST(YamlTree, SeedsCreateTheirChildOnlyWhenApplied) {
  tree t;
  const std::size_t b = build_sample(t);

  const std::string caller_key = "added";
  node_ref by_key(&t, t.root_id(), std::string_view(caller_key));
  EXPECT_TRUE(by_key.is_seed());
  EXPECT_FALSE(by_key.readable());
  EXPECT_EQ(t.num_children(t.root_id()), 2u);
  by_key.apply_seed();
  EXPECT_FALSE(by_key.is_seed());
  EXPECT_TRUE(by_key.readable());
  EXPECT_EQ(t.num_children(t.root_id()), 3u);
  EXPECT_EQ(t.last_child(t.root_id()), by_key.id());
  EXPECT_TRUE(t.has_any(by_key.id(), KEY));
  // The key is the caller's view itself, not a copy.
  EXPECT_EQ(t.key(by_key.id()).data(), caller_key.data());
  // Applying again changes nothing.
  by_key.apply_seed();
  EXPECT_EQ(t.num_children(t.root_id()), 3u);

  node_ref by_index(&t, b, std::size_t{7});
  by_index.apply_seed();
  EXPECT_EQ(t.num_children(b), 3u) << "an index seed appends whatever the index";
  EXPECT_EQ(t.child(b, 2), by_index.id());

  node_ref nothing;
  nothing.apply_seed();
  EXPECT_FALSE(nothing.readable());
}

// The event-to-tree builder. Nothing here recurses, so deep documents
// cannot overflow the call stack.
#include "yaml/tree_builder.hpp"

#include <cstring>
#include <new>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace norvane::yaml::details {

namespace {

// libfyaml 0.7.12 counts its terminating NUL in the length of an empty
// block scalar that ends the text ("a: |" and a line break). The text holds
// no NUL byte (it is refused before parsing) and only double-quoted scalars
// can write one through an escape, so elsewhere a NUL ends the text.
const char* token_text(fy_token* token, fy_scalar_style style, std::size_t& length) noexcept {
  const char* p = fy_token_get_text(token, &length);
  if (p != nullptr && style != FYSS_DOUBLE_QUOTED) {
    if (const void* nul = std::memchr(p, 0, length)) {
      length = static_cast<std::size_t>(static_cast<const char*>(nul) - p);
    }
  }
  return p;
}

bool is_null_word(std::string_view s) noexcept {
  return s.empty() || s == "~" || s == "null" || s == "Null" || s == "NULL";
}

enum class slot : unsigned char { key, value, container };

struct anchor_ref {
  node_id id;
  slot where;
};

struct frame {
  node_id node;
  bool is_map;
  bool expecting_key;
  bool is_flow;
  bool has_merge;   // an entry of this map has the merge key "<<"
  node_id pending;  // the map entry whose value comes next
  fy_mark start;
};

struct target {
  node_id id;
  slot where;
};

fy_mark mark_of(fy_event* e) noexcept {
  const fy_mark* m = fy_event_start_mark(e);
  return m != nullptr ? *m : fy_mark{0, 0, 0};
}

}  // namespace

class tree_builder::impl {
public:
  impl(tree::record& rec, const char* text, std::size_t length, bool merge_keys) noexcept
      : record_(rec), text_begin_(text), text_end_(text + length), merge_keys_(merge_keys) {}

  const fy_mark* open_flow(bool& is_map) const noexcept {
    for (auto f = stack_.rbegin(); f != stack_.rend(); ++f) {
      if (f->is_flow) {
        is_map = f->is_map;
        return &f->start;
      }
    }
    return nullptr;
  }

  bool on_event(fy_event* e, build_error& error) {
    switch (e->type) {
      case FYET_DOCUMENT_START:
        start_document();
        return true;
      case FYET_SCALAR:
        return on_scalar(e, error);
      case FYET_MAPPING_START:
        return on_container_start(e, true, e->mapping_start.anchor, error);
      case FYET_SEQUENCE_START:
        return on_container_start(e, false, e->sequence_start.anchor, error);
      case FYET_MAPPING_END:
      case FYET_SEQUENCE_END:
        if (stack_.back().has_merge && !resolve_merges(stack_.back().node)) {
          error = {"aliases expand to more than " + std::to_string(max_alias_nodes) + " nodes", mark_of(e)};
          return false;
        }
        record_.nodes[stack_.back().node].type &= ~OPEN;
        stack_.pop_back();
        return true;
      case FYET_ALIAS:
        return on_alias(e, error);
      default:
        return true;
    }
  }

private:
  node_id append(node_id parent) { return record_.append_child(parent); }

  // A new last child of `parent` carrying `original`'s key, value and type,
  // not its children. Counted against the alias limit: none past it.
  node_id append_copy(node_id parent, node_id original) {
    if (++alias_nodes_ > max_alias_nodes) {
      return none;
    }
    const node_id copy = append(parent);
    // Read after append, which may move the nodes.
    const node_data& from = record_.nodes[original];
    node_data& to = record_.nodes[copy];
    to.key_ptr = from.key_ptr;
    to.key_len = from.key_len;
    to.val_ptr = from.val_ptr;
    to.val_len = from.val_len;
    to.type = from.type;
    return copy;
  }

  void start_document() {
    ++documents_;
    anchors_.clear();
    anchored_containers_.clear();
    if (documents_ == 1) {
      document_ = 0;
      return;
    }
    if (documents_ == 2) {
      // A second document turns the root into a stream whose first child
      // takes over what the root held.
      node_data first = record_.nodes[0];
      first.parent = 0;
      first.type |= DOC;
      const node_id moved = record_.nodes.push(first);
      for (node_id c = first.first_child; c != none; c = record_.nodes[c].next_sibling) {
        record_.nodes[c].parent = moved;
      }
      node_data& root = record_.nodes[0];
      root = empty_node(none);
      root.type = STREAM;
      root.first_child = root.last_child = moved;
      root.num_children = 1;
    }
    document_ = append(0);
    record_.nodes[document_].type = DOC;
  }

  target next_target() {
    if (stack_.empty()) {
      return {document_, slot::value};
    }
    frame& f = stack_.back();
    if (!f.is_map) {
      return {append(f.node), slot::value};
    }
    if (f.expecting_key) {
      f.expecting_key = false;
      f.pending = append(f.node);
      return {f.pending, slot::key};
    }
    f.expecting_key = true;
    return {f.pending, slot::value};
  }

  // One-line scalars without escapes are their source bytes: those are
  // viewed in place (the source is in the arena) without asking libfyaml
  // for the text, which would allocate a copy of most values.
  static bool needs_rewrite(std::string_view range, fy_scalar_style style, bool& has_quote) noexcept {
    has_quote = false;
    for (char c : range) {
      if (c == '\n' || c == '\r' || (c == '\\' && style == FYSS_DOUBLE_QUOTED)) {
        return true;
      }
      has_quote |= c == '\'' && style == FYSS_SINGLE_QUOTED;
    }
    return false;
  }

  // A one-line single-quoted scalar only escapes its quotes by doubling
  // them. Done here: libfyaml 0.7.12 loses a buffer on some of these.
  std::string_view unquote_single(std::string_view range) {
    char* out = record_.arena.alloc(range.size());
    std::size_t n = 0;
    for (std::size_t i = 0; i < range.size(); ++i) {
      out[n++] = range[i];
      if (range[i] == '\'' && i + 1 < range.size() && range[i + 1] == '\'') {
        ++i;
      }
    }
    return {out, n};
  }

  std::string_view scalar_text(fy_token* token, fy_scalar_style style) {
    const bool plain = style == FYSS_PLAIN;
    if (style == FYSS_PLAIN || style == FYSS_SINGLE_QUOTED || style == FYSS_DOUBLE_QUOTED) {
      const fy_mark* start = fy_token_start_mark(token);
      const fy_mark* end = fy_token_end_mark(token);
      const auto size = static_cast<std::size_t>(text_end_ - text_begin_);
      if (start != nullptr && end != nullptr && start->input_pos <= end->input_pos &&
          end->input_pos <= size) {
        const std::string_view range(text_begin_ + start->input_pos, end->input_pos - start->input_pos);
        bool has_quote = false;
        if (!needs_rewrite(range, style, has_quote)) {
          if (range.empty()) {
            return plain ? std::string_view() : std::string_view(empty_text, 0);
          }
          return has_quote ? unquote_single(range) : range;
        }
      }
    }
    std::size_t length = 0;
    const char* p = token_text(token, style, length);
    if (p == nullptr) {
      throw std::bad_alloc();
    }
    if (length == 0) {
      return plain ? std::string_view() : std::string_view(empty_text, 0);
    }
    if (p >= text_begin_ && p + length <= text_end_) {
      return {p, length};
    }
    char* copy = record_.arena.alloc(length);
    std::memcpy(copy, p, length);
    return {copy, length};
  }

  static std::uint32_t length_of(std::string_view s) { return static_cast<std::uint32_t>(s.size()); }

  void set_scalar(const target& t, std::string_view text, bool quoted, bool null) {
    node_data& n = record_.nodes[t.id];
    if (t.where == slot::key) {
      n.key_ptr = text.data();
      n.key_len = length_of(text);
      n.type |= KEY | (quoted ? KEYQUO : 0) | (null ? KEYNIL : 0);
    } else {
      n.val_ptr = text.data();
      n.val_len = length_of(text);
      n.type |= VAL | (quoted ? VALQUO : 0) | (null ? VALNIL : 0);
    }
  }

  void remember_anchor(fy_token* anchor, node_id id, slot where) {
    if (anchor == nullptr) {
      return;
    }
    std::size_t length = 0;
    const char* name = token_text(anchor, FYSS_PLAIN, length);
    if (name != nullptr) {
      anchors_[std::string(name, length)] = anchor_ref{id, where};
      if (where == slot::container) {
        anchored_containers_.insert(id);
      }
    }
  }

  bool on_scalar(fy_event* e, build_error& /*error*/) {
    const fy_scalar_style style = fy_token_scalar_style(e->scalar.value);
    const bool plain = style == FYSS_PLAIN;
    const bool tagged = e->scalar.tag != nullptr;
    std::string_view text = scalar_text(e->scalar.value, style);
    if (tagged && text.data() == nullptr) {
      // "!!str : bar": a tag makes an empty scalar present, so the key is "".
      text = std::string_view(empty_text, 0);
    }
    const bool null = plain && !tagged && is_null_word(text);
    const target t = next_target();
    set_scalar(t, text, !plain, null);
    if (merge_keys_ && t.where == slot::key && plain && !tagged && text == "<<") {
      record_.nodes[t.id].type |= MERGE;
      stack_.back().has_merge = true;
    }
    remember_anchor(e->scalar.anchor, t.id, t.where);
    return true;
  }

  bool on_container_start(fy_event* e, bool is_map, fy_token* anchor, build_error& error) {
    const target t = next_target();
    if (t.where == slot::key) {
      error = {"maps and sequences as keys are not supported", mark_of(e)};
      return false;
    }
    if (stack_.size() >= max_nesting_depth) {
      error = {"nesting deeper than " + std::to_string(max_nesting_depth) + " levels", mark_of(e)};
      return false;
    }
    record_.nodes[t.id].type |= (is_map ? MAP : SEQ) | OPEN;
    const bool flow = fy_event_get_node_style(e) == FYNS_FLOW;
    stack_.push_back(frame{t.id, is_map, true, flow, false, none, mark_of(e)});
    remember_anchor(anchor, t.id, slot::container);
    return true;
  }

  bool on_alias(fy_event* e, build_error& error) {
    std::size_t length = 0;
    const char* name = token_text(e->alias.anchor, FYSS_PLAIN, length);
    const std::string anchor_name(name != nullptr ? name : "", name != nullptr ? length : 0);
    const auto found = anchors_.find(anchor_name);
    if (found == anchors_.end()) {
      error = {"unknown anchor '" + anchor_name + "'", alias_mark(e)};
      return false;
    }
    const anchor_ref a = found->second;
    const target t = next_target();
    if (a.where != slot::container) {
      const node_data& src = record_.nodes[a.id];
      if (a.where == slot::key) {
        set_scalar(t, {src.key_ptr, src.key_len}, (src.type & KEYQUO) != 0, (src.type & KEYNIL) != 0);
      } else {
        set_scalar(t, {src.val_ptr, src.val_len}, (src.type & VALQUO) != 0, (src.type & VALNIL) != 0);
      }
      return true;
    }
    if (t.where == slot::key) {
      error = {"maps and sequences as keys are not supported", mark_of(e)};
      return false;
    }
    if ((record_.nodes[a.id].type & OPEN) != 0) {
      error = {"alias '" + anchor_name + "' refers to a node that contains it", alias_mark(e)};
      return false;
    }
    if (!copy_subtree(a.id, t.id)) {
      error = {"aliases expand to more than " + std::to_string(max_alias_nodes) + " nodes", mark_of(e)};
      return false;
    }
    return true;
  }

  // libfyaml marks an alias at its name; the fault is reported at its '*'.
  fy_mark alias_mark(fy_event* e) const noexcept {
    fy_mark m = mark_of(e);
    if (m.input_pos > 0 && m.column > 0 && text_begin_[m.input_pos - 1] == '*') {
      --m.input_pos;
      --m.column;
    }
    return m;
  }

  // Copies the children of `src` under `dst` with a work list; the anchored
  // subtree is complete, so `dst` never lies inside it.
  bool copy_subtree(node_id src, node_id dst) {
    record_.nodes[dst].type |= record_.nodes[src].type & (MAP | SEQ);
    work_.clear();
    work_.emplace_back(src, dst);
    while (!work_.empty()) {
      const auto [from, to] = work_.back();
      work_.pop_back();
      for (node_id c = record_.nodes[from].first_child; c != none; c = record_.nodes[c].next_sibling) {
        const node_id copy = append_copy(to, c);
        if (copy == none) {
          return false;
        }
        if (record_.nodes[c].first_child != none) {
          work_.emplace_back(c, copy);
        }
      }
    }
    return true;
  }

  // The maps that a merge entry ("<<") names: its value when that is a map,
  // or the items of its sequence when all of them are. Anything else is
  // not a merge and stays an ordinary entry.
  bool merge_sources(node_id entry, std::vector<node_id>& sources) const {
    const node_data& n = record_.nodes[entry];
    if ((n.type & MAP) != 0) {
      sources.push_back(entry);
      return true;
    }
    if ((n.type & SEQ) == 0) {
      return false;
    }
    const std::size_t before = sources.size();
    for (node_id c = n.first_child; c != none; c = record_.nodes[c].next_sibling) {
      if ((record_.nodes[c].type & MAP) == 0) {
        sources.resize(before);
        return false;
      }
      sources.push_back(c);
    }
    return true;
  }

  // Replaces each merge entry of `map` by the entries of the maps it names
  // whose keys the map does not have: keys written in the map win, then
  // earlier maps over later ones. Entries are moved out of the copies that
  // aliases made (counted when they were expanded); a map that an anchor
  // names must stay whole for later aliases, so its entries are copied and
  // counted here. False when that passes the alias limit.
  bool resolve_merges(node_id map) {
    std::unordered_set<std::string_view> taken;
    for (node_id c = record_.nodes[map].first_child; c != none; c = record_.nodes[c].next_sibling) {
      if ((record_.nodes[c].type & MERGE) == 0) {
        taken.insert(key_of(c));
      }
    }
    std::vector<node_id> order;
    std::vector<node_id> sources;
    // Copies hang here until relinked, out of every list being walked.
    const node_id scratch = record_.nodes.push(empty_node(map));
    for (node_id c = record_.nodes[map].first_child; c != none; c = record_.nodes[c].next_sibling) {
      sources.clear();
      if ((record_.nodes[c].type & MERGE) == 0 || !merge_sources(c, sources)) {
        record_.nodes[c].type &= ~MERGE;
        order.push_back(c);
        continue;
      }
      for (node_id source : sources) {
        const bool keep_whole = anchored_containers_.count(source) != 0;
        for (node_id m = record_.nodes[source].first_child; m != none; m = record_.nodes[m].next_sibling) {
          if (!taken.insert(key_of(m)).second) {
            continue;
          }
          if (!keep_whole) {
            order.push_back(m);
            continue;
          }
          const node_id copy = append_copy(scratch, m);
          if (copy == none) {
            return false;
          }
          if (record_.nodes[m].first_child != none && !copy_subtree(m, copy)) {
            return false;
          }
          order.push_back(copy);
        }
      }
    }
    relink(map, order);
    return true;
  }

  std::string_view key_of(node_id id) const noexcept {
    const node_data& n = record_.nodes[id];
    return {n.key_ptr != nullptr ? n.key_ptr : empty_text, n.key_len};
  }

  void relink(node_id parent, const std::vector<node_id>& children) noexcept {
    node_data& p = record_.nodes[parent];
    p.first_child = p.last_child = none;
    p.num_children = 0;
    for (node_id c : children) {
      node_data& n = record_.nodes[c];
      n.parent = parent;
      n.next_sibling = none;
      if (p.last_child == none) {
        p.first_child = c;
      } else {
        record_.nodes[p.last_child].next_sibling = c;
      }
      p.last_child = c;
      ++p.num_children;
    }
  }

  tree::record& record_;
  const char* text_begin_;
  const char* text_end_;
  bool merge_keys_;
  std::vector<frame> stack_;
  std::vector<std::pair<node_id, node_id>> work_;
  std::unordered_map<std::string, anchor_ref> anchors_;
  std::unordered_set<node_id> anchored_containers_;
  std::size_t documents_ = 0;
  node_id document_ = 0;
  std::size_t alias_nodes_ = 0;
};

tree_builder::tree_builder(tree::record& rec, std::string_view text, bool merge_keys)
    : impl_(std::make_unique<impl>(rec, text.data(), text.size(), merge_keys)) {}

tree_builder::~tree_builder() = default;

bool tree_builder::on_event(fy_event* e, build_error& error) { return impl_->on_event(e, error); }

const fy_mark* tree_builder::open_flow(bool& is_map) const noexcept { return impl_->open_flow(is_map); }

}  // namespace norvane::yaml::details

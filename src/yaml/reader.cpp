// The reader: drives libfyaml over the text, feeds its events to the tree
// builder, and turns libfyaml's collected diagnostics into one error with
// its position.
#include "yaml/reader.hpp"

#include "util/utf8.hpp"
#include "yaml/access.hpp"
#include "yaml/text_position.hpp"
#include "yaml/tree_builder.hpp"
#include "yaml/unsafe_input.hpp"

#include <libfyaml.h>

#include <cstring>
#include <new>
#include <string>

namespace norvane::yaml::details {

namespace {

struct diag_deleter {
  void operator()(fy_diag* d) const noexcept { fy_diag_destroy(d); }
};
struct parser_deleter {
  void operator()(fy_parser* p) const noexcept { fy_parser_destroy(p); }
};
using diag_ptr = std::unique_ptr<fy_diag, diag_deleter>;
using parser_ptr = std::unique_ptr<fy_parser, parser_deleter>;

class event_holder {
public:
  explicit event_holder(fy_parser* p) noexcept : parser_(p) {}
  ~event_holder() { reset(nullptr); }
  event_holder(const event_holder&) = delete;
  event_holder& operator=(const event_holder&) = delete;

  void reset(fy_event* e) noexcept {
    if (event_ != nullptr) {
      fy_parser_event_free(parser_, event_);
    }
    event_ = e;
  }
  fy_event* get() const noexcept { return event_; }

private:
  fy_parser* parser_;
  fy_event* event_ = nullptr;
};

void discard_diagnostic(fy_diag* /*diag*/, void* /*user*/, const char* /*buf*/, std::size_t /*len*/) {}

}  // namespace

bool read_into(tree& t, std::string_view source_name, std::string_view text, const callbacks& cb,
               bool merge_keys) {
  tree::record& rec = access::record(t);
  rec.reset_to_root();

  auto fail_at = [&](std::string_view message, const location& loc) {
    raise_error(cb, message, loc);
    return false;
  };
  if (text.size() > max_document_bytes) {
    return fail_at("document larger than 4 GiB", location{source_name, 0, 1, 1});
  }
  // libfyaml stops silently at a NUL byte and passes invalid UTF-8 through.
  if (const norvane::details::utf8_fault fault = norvane::details::find_utf8_fault(text);
      fault.kind != norvane::details::utf8_fault_kind::none) {
    const bool nul = fault.kind == norvane::details::utf8_fault_kind::nul_byte;
    return fail_at(nul ? "NUL byte in the document" : "invalid UTF-8 sequence",
                   locate(source_name, text, fault.offset));
  }

  if (const std::size_t tab = find_tab_before_block_indicator(text); tab != std::string_view::npos) {
    return fail_at("cannot use tab for indentation of block entry", locate(source_name, text, tab));
  }

  char* source = rec.arena.alloc_exact(text.size());
  if (!text.empty()) {
    std::memcpy(source, text.data(), text.size());
  }
  const std::string_view copy(source, text.size());

  fy_diag_cfg diag_cfg;
  fy_diag_cfg_default(&diag_cfg);
  diag_cfg.fp = nullptr;
  diag_cfg.output_fn = &discard_diagnostic;
  diag_cfg.level = FYET_ERROR;
  diag_cfg.colorize = false;
  diag_ptr diag(fy_diag_create(&diag_cfg));
  if (!diag) {
    throw std::bad_alloc();
  }
  fy_diag_set_collect_errors(diag.get(), true);

  fy_parse_cfg parse_cfg{};
  parse_cfg.flags = static_cast<fy_parse_cfg_flags>(FYPCF_QUIET | FYPCF_JSON_NONE);
  parse_cfg.diag = diag.get();
  parser_ptr parser(fy_parser_create(&parse_cfg));
  if (!parser || fy_parser_set_string(parser.get(), copy.data(), copy.size()) != 0) {
    throw std::bad_alloc();
  }

  tree_builder build(rec, copy, merge_keys);
  event_holder event(parser.get());
  build_error error;
  for (;;) {
    event.reset(fy_parser_parse(parser.get()));
    if (event.get() == nullptr) {
      break;
    }
    if (!build.on_event(event.get(), error)) {
      const fy_mark& m = error.mark;
      return fail_at(error.message, location{source_name, m.input_pos, static_cast<std::size_t>(m.line) + 1,
                                             static_cast<std::size_t>(m.column) + 1});
    }
  }
  if (!fy_parser_get_stream_error(parser.get())) {
    return true;
  }

  void* iter = nullptr;
  const fy_diag_error* first = nullptr;
  while (const fy_diag_error* e = fy_diag_errors_iterate(diag.get(), &iter)) {
    if (e->type >= FYET_ERROR) {
      first = e;
      break;
    }
  }
  if (first == nullptr) {
    return fail_at("invalid YAML", within(source_name, copy, locate(source_name, copy, copy.size())));
  }
  std::string message = first->msg != nullptr ? first->msg : "invalid YAML";
  location loc{source_name, 0, static_cast<std::size_t>(first->line > 0 ? first->line : 1),
               static_cast<std::size_t>(first->column > 0 ? first->column : 1)};
  if (first->fyt != nullptr) {
    if (const fy_mark* m = fy_token_start_mark(first->fyt)) {
      loc.offset = m->input_pos;
    }
  } else {
    loc.offset = offset_of(copy, loc.line, loc.col);
  }
  // A fault found where only blanks remain, inside an open flow collection,
  // is that collection's missing closing bracket (libfyaml sometimes calls
  // it a missing comma): the user must look at the opening one.
  bool is_map = false;
  const fy_mark* open = build.open_flow(is_map);
  if (open != nullptr && copy.find_first_not_of(" \t\r\n", loc.offset) == std::string_view::npos) {
    message = is_map ? "flow mapping without a closing brace" : "flow sequence without a closing bracket";
    loc = location{source_name, open->input_pos, static_cast<std::size_t>(open->line) + 1,
                   static_cast<std::size_t>(open->column) + 1};
  }
  return fail_at(message, within(source_name, copy, loc));
}

}  // namespace norvane::yaml::details

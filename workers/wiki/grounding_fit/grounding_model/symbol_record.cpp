#include "grounding_model/symbol_record.hpp"

namespace grounding_fit {

using host::handle;
using host::key;
using host::module_state;
using host::owned;

std::vector<symbol_block> take_symbol_blocks(grounding_parts parts) {
  const handle pairs = parts.blocks();
  std::vector<symbol_block> blocks;
  blocks.reserve(host::size_of_array(pairs));
  std::size_t i = 0;
  try {
    // No host code can run in here, so the list is read as it stands.
    for (; const handle pair = host::array_item(pairs, i); ++i) {
      const auto [text, record] = host::expect_pair(pair);
      if (host::kind_of(text) != host::kind::text) {
        host::within(std::size_t{0}, [text = text] { host::expect_text(text); });
      }
      blocks.push_back({host::share(text), host::share(record)});
    }
  } catch (host::bad_value& error) {
    host::place("parts.blocks", i).prepend_to(error);
    throw;
  }
  return blocks;
}

path_names::path_names(const module_state& state, asking how) : state_(state) {
  if (how == asking::once_per_text) known_ = host::new_dict();
}

owned path_names::asked_once(owned path) {
  owned text = host::plain_text(std::move(path));
  owned name = host::dict(known_).get(text);
  if (name) return name;
  name = host::call(state_[host::utility::norm], text);
  host::set_item(known_, text, name);
  return name;
}

owned read_text_form(const module_state& state, host::dict symbol, key which) {
  owned value = host::read(state, symbol, which);
  if (!value) return host::empty_text();
  return host::within(host::step_to(which), [&] { return host::text_form(std::move(value)); });
}

owned read_file_name(const module_state& state, host::dict symbol, path_names& norm) {
  owned file = read_text_form(state, symbol, key::file);
  return host::within(host::step_to(key::file), [&] { return norm(std::move(file)); });
}

}  // namespace grounding_fit

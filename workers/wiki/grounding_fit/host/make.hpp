// New values of the host's.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "host/handle.hpp"
#include "text/text.hpp"

namespace grounding_fit::host {

owned new_text(std::span<const text_view> pieces);  // joined at their common width
inline owned new_text(text_view text) { return new_text({&text, 1}); }
owned empty_text();
owned new_list(std::vector<owned> values);
owned new_tuple(std::vector<owned> values);
owned new_integer(std::int64_t value);
owned new_unsigned(std::uint64_t value);
owned new_real(double value);
owned new_dict();
void set_item(handle dict, handle key, handle value);
inline owned null() noexcept { return share(Py_None); }

// A tuple of values that were made for it: tuple_of(new_integer(1), new_text("a")).
template <class... Values>
owned tuple_of(Values... values) {
  std::vector<owned> all;
  all.reserve(sizeof...(values));
  (all.push_back(std::move(values)), ...);
  return new_tuple(std::move(all));
}

}  // namespace grounding_fit::host

#include "answer_capping/json_measure.hpp"

namespace grounding_fit {

using host::handle;
using host::kind;
using host::owned;

// Walking runs no host code but for one case: on newer hosts the digits of a huge integer are
// worked out by the host's own library. So a container is kept alive while it is walked, its size
// is read anew at every step, and a key that names an error's place is kept with it.

namespace {

// One level of containers, given back at its end.
class level {
 public:
  explicit level(int& left) : left_(left) {
    if (left <= 0) {
      host::refuse(host::fault::recursion, "containers nested too deep to measure as JSON");
    }
    --left_;
  }
  ~level() { ++left_; }
  level(const level&) = delete;

 private:
  int& left_;
};

// A huge integer is measured in any case: the host may refuse to write it.
std::int64_t integer_size(handle value, precision how) {
  if (how == precision::bound && host::small_integer(value)) return 1;
  return static_cast<std::int64_t>(host::integer_length(value));
}

std::int64_t real_size(handle value, precision how) {
  constexpr std::int64_t shortest = 3;  // "0.5" and "NaN"
  return how == precision::bound ? shortest : static_cast<std::int64_t>(host::real_length(value));
}

}  // namespace

std::int64_t json_meter::size_of(handle value, precision how) {
  switch (host::kind_of(value)) {
    case kind::text: return json_string_size(host::view_of(value), how);
    case kind::integer: return integer_size(value, how);
    case kind::object: return size_of_object(owned::share(value), how);
    case kind::array: return size_of_array(owned::share(value), how);
    case kind::null: return 4;
    case kind::boolean: return host::truth_of(value) ? 4 : 5;
    case kind::real: return real_size(value, how);
    default: host::refuse(host::fault::type, "a JSON value", value);
  }
}

std::int64_t json_meter::size_of_array(owned array, precision how) {
  const level here(levels_left_);
  tally items;
  std::size_t i = 0;
  try {
    for (; const handle item = host::array_item(array, i); ++i) items.add(size_of(item, how));
  } catch (host::bad_value& error) {
    error.prepend(i);
    throw;
  }
  return items.bracketed();
}

std::int64_t json_meter::size_of_object(owned object, precision how) {
  const level here(levels_left_);
  tally members;
  host::dict_cursor cursor(object);
  std::size_t position = 0;
  for (handle key, value; cursor.next(key, value);) {
    members.add(size_of_member(position++, key, value, how));
  }
  return members.bracketed();
}

std::int64_t json_meter::size_of_new_key(std::size_t position, handle key) {
  if (host::kind_of(key) != kind::text) host::refuse(host::fault::type, "string keys", key);
  const std::int64_t size = json_string_size(host::view_of(key));
  // Letting go of a text of a derived type could run host code, in the middle of a walk.
  if (host::is_plain_text(key)) keys_[position % std::size(keys_)] = {owned::share(key), size};
  return size;
}

std::int64_t json_meter::size_of_member(std::size_t position, handle key, handle value,
                                        precision how) {
  const std::int64_t size = size_of_key(position, key) + 2;
  const kind what = host::kind_of(value);
  if (what == kind::text) return size + json_string_size(host::view_of(value), how);
  if (what == kind::integer) return size + integer_size(value, how);
  const owned held = owned::share(key);
  try {
    return size + size_of(value, how);
  } catch (host::bad_value& error) {
    error.prepend_key(host::view_of(held));
    throw;
  }
}

}  // namespace grounding_fit

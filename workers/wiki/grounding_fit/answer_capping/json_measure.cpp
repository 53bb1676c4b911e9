#include "answer_capping/json_measure.hpp"

#include "python/integer.hpp"

namespace grounding_fit {

using py::handle;
using py::kind;
using py::owned;

// Walking runs no Python code but for one case: newer CPythons work out the digits of a huge
// integer in their library. So a container is kept alive while it is walked, its size is read anew
// at every step, and a key that names an error's place is kept with it.

namespace {

// One level of containers, for as long as it is walked.
class level {
 public:
  explicit level(int& left) : left_(left) {
    if (left <= 0) {
      py::refuse(py::fault::recursion, "containers nested too deep to measure as JSON");
    }
    --left_;
  }
  ~level() { ++left_; }
  level(const level&) = delete;

 private:
  int& left_;
};

// A huge integer is measured even for a bound, since Python may refuse to write it.
std::int64_t integer_size(handle value, precision how) {
  if (how == precision::bound && py::small_integer(value)) return 1;
  return static_cast<std::int64_t>(py::integer_length(value));
}

std::int64_t real_size(handle value, precision how) {
  constexpr std::int64_t shortest = 3;  // "0.5" and "NaN"
  return how == precision::bound
             ? shortest
             : static_cast<std::int64_t>(py::json_real_length(py::value_of_real(value)));
}

}  // namespace

// A call for every item would cost the agent path a fiftieth.
[[gnu::always_inline]] inline std::int64_t json_meter::size_of_item(handle value, precision how) {
  switch (py::kind_of(value)) {
    case kind::text: return json_string_size(value, how);
    case kind::integer: return integer_size(value, how);
    case kind::object: return size_of_object(py::expect_dict(value).new_ref(), how);
    case kind::array: return size_of_array(py::new_ref(value), how);
    case kind::null: return 4;
    case kind::boolean: return py::truth_of(value) ? 4 : 5;
    case kind::real: return real_size(value, how);
    default: py::refuse(py::fault::type, "a JSON value", value);
  }
}

std::int64_t json_meter::size_of(handle value, precision how) { return size_of_item(value, how); }

std::int64_t json_meter::size_of_array(owned array, precision how) {
  const level here(levels_left_);
  tally items;
  std::size_t i = 0;
  try {
    for (; const py::item_ref item = py::array_item(array, i); ++i)
      items.add(size_of_item(item, how));
  } catch (py::bad_value& error) {
    error.prepend(i);
    throw;
  }
  return items.bracketed();
}

std::int64_t json_meter::size_of_object(owned object, precision how) {
  const level here(levels_left_);
  tally members;
  py::dict_walk walk{py::dict(object)};
  std::size_t position = 0;
  for (handle key, value; walk.next(key, value);) {
    members.add(size_of_member(position++, key, value, how));
  }
  return members.bracketed();
}

std::int64_t json_meter::size_of_new_key(std::size_t position, handle key) {
  if (py::kind_of(key) != kind::text) py::refuse(py::fault::type, "string keys", key);
  const std::int64_t size = json_string_size(key, precision::exact);
  // Releasing a text of a derived type could run its finalizer, in the middle of a walk.
  if (py::is_plain_text(key)) keys_[position % std::size(keys_)] = {py::new_ref(key), size};
  return size;
}

std::int64_t json_meter::size_of_member(std::size_t position, handle key, handle value,
                                        precision how) {
  const std::int64_t size = size_of_key(position, key) + 2;
  const kind what = py::kind_of(value);
  if (what == kind::text) return size + json_string_size(value, how);
  if (what == kind::integer) return size + integer_size(value, how);
  const owned held = py::new_ref(key);
  try {
    return size + size_of(value, how);
  } catch (py::bad_value& error) {
    error.prepend_key(py::view_of(held));
    throw;
  }
}

}  // namespace grounding_fit

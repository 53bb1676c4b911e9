#include "json_measure.hpp"

namespace grounding_fit {
namespace {

using host::handle;
using host::kind;
using host::owned;

// Walking runs no host code but for one case: on newer hosts the digits of a huge integer are
// worked out by the host's own library. So a container is kept alive while it is walked, its size
// is read anew at every step, and a key that names an error's place is kept with it.
class walk {
 public:
  std::int64_t size_of(handle value) {
    switch (host::kind_of(value)) {
      case kind::text: return json_string_size(host::view_of(value));
      case kind::integer: return size_of_integer(value);
      case kind::object: return size_of_object(owned::share(value));
      case kind::array: return size_of_array(owned::share(value));
      case kind::null: return 4;
      case kind::boolean: return host::truth_of(value) ? 4 : 5;
      case kind::real: return static_cast<std::int64_t>(host::real_length(value));
      default: host::refuse(host::fault::type, "a JSON value", value);
    }
  }

 private:
  static std::int64_t size_of_integer(handle value) {
    return static_cast<std::int64_t>(host::integer_length(value));
  }

  std::int64_t size_of_array(owned array) {
    const host::nesting level(depth_);
    tally items;
    std::size_t i = 0;
    try {
      for (; const handle item = host::array_item(array, i); ++i) items.add(size_of(item));
    } catch (host::bad_value& error) {
      error.prepend(i);
      throw;
    }
    return items.bracketed();
  }

  std::int64_t size_of_object(owned object) {
    const host::nesting level(depth_);
    tally members;
    host::dict_cursor cursor(object);
    for (handle key, value; cursor.next(key, value);) {
      if (host::kind_of(key) != kind::text) host::refuse(host::fault::type, "string keys", key);
      const std::int64_t key_size = json_string_size(host::view_of(key));
      members.add(key_size + 2 + size_of_member(key, value));
    }
    return members.bracketed();
  }

  std::int64_t size_of_member(handle key, handle value) {
    const kind what = host::kind_of(value);
    if (what == kind::text) return json_string_size(host::view_of(value));
    if (what == kind::integer) return size_of_integer(value);
    const owned held = owned::share(key);
    try {
      return size_of(value);
    } catch (host::bad_value& error) {
      error.prepend_key(host::view_of(held));
      throw;
    }
  }

  int depth_ = 0;
};

}  // namespace

std::int64_t json_size(handle value) { return walk().size_of(value); }

std::int64_t json_size_at(text_view key, handle value) {
  try {
    return walk().size_of(value);
  } catch (host::bad_value& error) {
    error.prepend_key(key);
    throw;
  }
}

}  // namespace grounding_fit

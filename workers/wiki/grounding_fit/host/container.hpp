// Looking into the host's lists, tuples and dicts.
#pragma once

#include <utility>
#include <vector>

#include "host/value.hpp"

namespace grounding_fit::host {

// Item i of an array, or an empty handle when it has become shorter.
inline handle array_item(handle array, std::size_t i) noexcept {
  if (i >= size_of_array(array)) return {};
  PyObject* p = array.get();
  const auto at = static_cast<Py_ssize_t>(i);
  return PyList_Check(p) ? PyList_GET_ITEM(p, at) : PyTuple_GET_ITEM(p, at);
}

// The items of a list as they stood, or of a tuple: each kept alive, so that nothing that runs
// later can free, add or remove one.
class items {
 public:
  explicit items(handle array);  // a list or tuple (or of a type derived from one), nothing else
  std::size_t size() const { return size_; }
  handle operator[](std::size_t i) const {
    return tuple_ ? handle(PyTuple_GET_ITEM(tuple_.get(), i)) : handle(copies_[i]);
  }

 private:
  std::size_t size_ = 0;
  owned tuple_;
  std::vector<owned> copies_;
};
items expect_items(handle value);

// A borrowed look at a list or tuple as it is now; whoever makes one keeps it alive.
class array {
 public:
  explicit array(handle value) : value_(value) {}
  // Item i, or an empty handle when there are not as many (any more).
  owned operator[](std::size_t i) const { return share(array_item(value_, i)); }

 private:
  handle value_;
};
array expect_array(handle value);

// The two items of a pair; TypeError for anything but a list or tuple of two.
[[noreturn]] void refuse_as_pair(handle value);
inline std::pair<handle, handle> expect_pair(handle value) {
  if (kind_of(value) != kind::array || size_of_array(value) != 2) refuse_as_pair(value);
  PyObject* const* both = PySequence_Fast_ITEMS(value.get());
  return {both[0], both[1]};
}

// A borrowed look at an object; whoever makes one keeps the object alive.
class dict {
 public:
  explicit dict(handle object) : object_(object) {}
  // The value under `key`, or an empty handle. May run the equality of keys that are no plain text.
  owned get(handle key) const {
    PyObject* found = PyDict_GetItemWithError(object_.get(), key.get());
    if (found == nullptr) expect_absent();
    return share(found);
  }

 private:
  static void expect_absent();  // throws when the look-up failed instead

  handle object_;
};
inline dict expect_dict(handle value) {
  if (kind_of(value) != kind::object) refuse(fault::type, "an object (dict)", value);
  return dict(value);
}

// The host's read-only view of a mapping (types.MappingProxyType).
inline bool is_read_only_view(handle value) noexcept {
  return Py_TYPE(value.get()) == &PyDictProxy_Type;
}

// A borrowed look at a dict or a read-only view of any mapping; whoever makes one keeps it alive.
class mapping {
 public:
  explicit mapping(handle value) : value_(value) {}
  // The value under `key`, or an empty handle. May run host code, as that of a mapping of the
  // host's own behind a view.
  owned get(handle key) const {
    return is_read_only_view(value_) ? get_of_view(key) : dict(value_).get(key);
  }
  owned copy() const;  // as a new dict

 private:
  owned get_of_view(handle key) const;

  handle value_;
};

// Goes through an object in insertion order. Runs no host code. Should host code that runs between
// two steps change the object, the walk stays safe but may skip or repeat members.
class dict_cursor {
 public:
  explicit dict_cursor(handle object) : object_(object) {}
  bool next(handle& key, handle& value) noexcept {
    PyObject *next_key, *next_value;
    if (!PyDict_Next(object_.get(), &position_, &next_key, &next_value)) return false;
    key = next_key;
    value = next_value;
    return true;
  }

 private:
  handle object_;
  Py_ssize_t position_ = 0;
};

// An OrderedDict has an order of its own beside the one that a dict_cursor goes by.
inline bool has_own_order(handle object) noexcept { return PyODict_Check(object.get()); }
std::vector<owned> keys_in_own_order(handle object);
// Calls `take` with every key and value of an object, in the order in which the host shows them.
template <class Take>
void for_each_member(handle object, Take&& take) {
  if (!has_own_order(object)) {
    dict_cursor cursor(object);
    for (handle key, value; cursor.next(key, value);) take(share(key), share(value));
    return;
  }
  for (owned& key : keys_in_own_order(object)) {
    owned value = dict(object).get(key);
    if (value) take(std::move(key), std::move(value));
  }
}

}  // namespace grounding_fit::host

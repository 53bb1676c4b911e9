// Looking into Python's lists, tuples, dicts, sets and other iterables.
#pragma once

#include <type_traits>
#include <utility>
#include <vector>

#include "python/value.hpp"

namespace grounding_fit::py {

// ---- lists and tuples ---------------------------------------------------------------------------

// A borrowed reference to an item of a list, but a strong one where another thread could take the
// item out of the list at any time.
using item_ref = std::conditional_t<version::k_free_threaded, owned, handle>;
inline item_ref item_ref_to(handle borrowed) noexcept {
  if constexpr (version::k_free_threaded) Py_INCREF(borrowed.get());
  return refer_to<item_ref>(borrowed.get());
}

// Item i of an array, or an empty handle when it has not as many (any more).
inline item_ref array_item(handle array, std::size_t i) noexcept {
  PyObject* p = array.get();
  const auto at = static_cast<Py_ssize_t>(i);
  if (PyList_Check(p)) return refer_to<item_ref>(version::list_item(p, at));
  return at < PyTuple_GET_SIZE(p) ? refer_to<item_ref>(version::tuple_item(p, at)) : item_ref();
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
  std::size_t size_;
  owned tuple_;
  std::vector<owned> copies_;
};
void expect_array(handle value);

// The two items of a pair; TypeError for anything but a list or tuple of two.
[[noreturn, gnu::cold]] void refuse_as_pair(handle value);
inline std::pair<item_ref, item_ref> expect_pair(handle value) {
  PyObject* both[2];
  if (kind_of(value) != kind::array || size_of_array(value) != 2 ||
      !version::two_items(value.get(), both)) {
    refuse_as_pair(value);
  }
  return {refer_to<item_ref>(both[0]), refer_to<item_ref>(both[1])};
}

// ---- dicts --------------------------------------------------------------------------------------

// Python's read-only view of a mapping (types.MappingProxyType).
inline bool is_read_only_view(handle value) noexcept {
  return Py_TYPE(value.get()) == &PyDictProxy_Type;
}
// The dict that a value is or shows as a view, or an empty handle. It lives as long as the value.
handle unusual_dict_of(handle value) noexcept;
inline handle dict_of(handle value) noexcept {
  return PyDict_CheckExact(value.get()) ? value : unusual_dict_of(value);
}

// Access to a dict, which whoever makes one of these keeps alive.
class dict {
 public:
  explicit dict(handle object) : object_(object) {}
  // The value under `key`, or an empty handle. May run the equality of keys that are no plain text.
  owned get(handle key) const {
    PyObject* found = version::dict_item(object_.get(), key.get());
    if (found != nullptr) return owned::steal_or_null(found);
    expect_absent();
    return {};
  }
  std::size_t size() const noexcept {
    return static_cast<std::size_t>(PyDict_GET_SIZE(object_.get()));
  }
  handle object() const { return object_; }
  owned new_ref() const noexcept {
    Py_INCREF(object_.get());
    return owned::steal_or_null(object_.get());
  }

 private:
  static void expect_absent();  // throws when the look-up failed instead

  handle object_;
};
dict expect_unusual_dict(handle value);
// The dict that a value is or shows as a view; TypeError for any other value.
inline dict expect_dict(handle value) {
  return PyDict_CheckExact(value.get()) ? dict(value) : expect_unusual_dict(value);
}

// Access to a dict or to a read-only view of any mapping, which whoever makes one of these keeps
// alive.
class mapping {
 public:
  explicit mapping(handle value) : value_(value), dict_(dict_of(value)) {}
  // The value under `key`, or an empty handle. May run code of the host's, as that of a mapping of
  // its own behind a view.
  owned get(handle key) const { return dict_ ? dict(dict_).get(key) : get_of_view(key); }
  owned copy() const;  // as a new dict

 private:
  owned get_of_view(handle key) const;

  handle value_;
  handle dict_;  // empty for a view of another mapping
};

// Goes through a dict in insertion order. Runs no code of the host's. Should such code run between
// two steps and change the dict, the walk stays safe but may skip or repeat members.
class live_walk {
 public:
  explicit live_walk(dict of) : dict_(of.object()), left_(of.size()) {}
  bool next(handle& key, handle& value) noexcept {
    PyObject *next_key, *next_value;
    if (left_-- == 0) return false;  // sooner than Python would tell
    if (!PyDict_Next(dict_.get(), &position_, &next_key, &next_value)) return false;
    key = next_key;
    value = next_value;
    return true;
  }

 private:
  handle dict_;
  std::size_t left_;  // members that it had
  Py_ssize_t position_ = 0;
};

// Goes through the members of a dict as they stood, in the order in which Python shows them: that
// of an OrderedDict is its own.
class copied_walk {
 public:
  explicit copied_walk(dict of);
  bool next(handle& key, handle& value) noexcept {
    if (position_ == members_.size()) return false;
    key = members_[position_].first;
    value = members_[position_++].second;
    return true;
  }

 private:
  std::vector<std::pair<owned, owned>> members_;
  std::size_t position_ = 0;
};
using dict_walk = std::conditional_t<version::k_free_threaded, copied_walk, live_walk>;

template <class Walk, class Visit>
void visit_all(Walk walk, Visit&& visit) {
  for (handle key, value; walk.next(key, value);) visit(new_ref(key), new_ref(value));
}
// Calls `visit` with every key and value of a dict, in the order in which Python shows them.
template <class Visit>
void for_each_member(dict of, Visit&& visit) {
  if (PyODict_Check(of.object().get())) return visit_all(copied_walk(of), visit);
  visit_all(dict_walk(of), visit);
}

// ---- sets and other iterables -------------------------------------------------------------------

// Goes through any iterable.
class iteration {
 public:
  explicit iteration(handle iterable);  // TypeError for anything else
  owned next();                         // empty at the end

 private:
  owned iterator_;
};

inline bool is_set(handle value) noexcept { return PyAnySet_Check(value.get()); }
// By set's own iterator, so that none of a derived type runs.
std::vector<owned> items_of_set(handle set);

// A set of texts without duplicates, as Python tells them apart.
class text_set {
 public:
  text_set();
  void add(handle text);
  const std::vector<owned>& texts() const { return texts_; }  // in the order in which they came

 private:
  owned set_;
  std::vector<owned> texts_;
};

}  // namespace grounding_fit::py

#include "python/container.hpp"

namespace grounding_fit::py {

// ---- lists and tuples ---------------------------------------------------------------------------

items::items(handle array) : size_(size_of_array(array)) {
  if (PyTuple_Check(array.get())) {
    tuple_ = new_ref(array);
    return;
  }
  copies_.reserve(size_);
  for (std::size_t i = 0; const item_ref item = array_item(array, i); ++i) {
    copies_.push_back(new_ref(item));
  }
  size_ = copies_.size();
}

void expect_array(handle value) {
  if (kind_of(value) != kind::array) refuse(fault::type, "a list or tuple", value);
}

void refuse_as_pair(handle value) {
  if (kind_of(value) != kind::array) refuse(fault::type, "a pair (tuple or list of two)", value);
  const std::string size = std::to_string(size_of_array(value));
  refuse(fault::type, "expected a pair (tuple or list of two), got " + size + " items");
}

// ---- dicts --------------------------------------------------------------------------------------

namespace {

owned next_of(handle iterator) {
  PyObject* item = PyIter_Next(iterator.get());
  if (item == nullptr && PyErr_Occurred() != nullptr) throw python_error_set{};
  return owned::steal_or_null(item);
}

// All that is left of an iterator, to which it takes over a new reference.
std::vector<owned> items_of(PyObject* new_iterator) {
  const owned iterator = owned::steal(new_iterator);
  std::vector<owned> found;
  while (owned item = next_of(iterator)) found.push_back(std::move(item));
  return found;
}

// Asked of the collector's slot: no other function tells what a view shows without making a copy.
handle mapping_behind(handle view) noexcept {
  handle found;
  const auto keep_first = [](PyObject* referent, void* to) {
    *static_cast<handle*>(to) = referent;
    return 1;
  };
  Py_TYPE(view.get())->tp_traverse(view.get(), keep_first, &found);
  return found;
}

}  // namespace

handle unusual_dict_of(handle value) noexcept {
  while (value && is_read_only_view(value)) value = mapping_behind(value);
  const bool found = value && (PyDict_Check(value.get()) || version::is_frozen_dict(value.get()));
  return found ? value : handle();
}

dict expect_unusual_dict(handle value) {
  const handle found = dict_of(value);
  if (!found) refuse(fault::type, "an object (dict)", value);
  return dict(found);
}

void dict::expect_absent() {
  if (PyErr_Occurred() != nullptr) throw python_error_set{};
}

owned mapping::get_of_view(handle key) const {
  const int there = PySequence_Contains(value_.get(), key.get());
  if (there < 0) throw python_error_set{};
  return there == 0 ? owned() : owned::steal(PyObject_GetItem(value_.get(), key.get()));
}

owned mapping::copy() const {
  owned made = owned::steal(PyDict_New());
  if (PyDict_Update(made.get(), value_.get()) < 0) throw python_error_set{};
  return made;
}

copied_walk::copied_walk(dict of) {
  const handle object = of.object();
  if (PyODict_Check(object.get())) {
    for (owned& key : items_of(PyODict_Type.tp_iter(object.get()))) {
      owned value = of.get(key);  // which may run code of the host's, but the keys are all there
      if (value) members_.emplace_back(std::move(key), std::move(value));
    }
    return;
  }
  const version::critical_section alone(object.get());
  members_.reserve(of.size());
  live_walk walk(of);
  for (handle key, value; walk.next(key, value);) {
    members_.emplace_back(new_ref(key), new_ref(value));
  }
}

// ---- sets and other iterables -------------------------------------------------------------------

iteration::iteration(handle iterable) {
  if (Py_TYPE(iterable.get())->tp_iter == nullptr && !PySequence_Check(iterable.get())) {
    refuse(fault::type, "an iterable", iterable);
  }
  iterator_ = owned::steal(PyObject_GetIter(iterable.get()));
}

owned iteration::next() { return next_of(iterator_); }

std::vector<owned> items_of_set(handle set) { return items_of(PySet_Type.tp_iter(set.get())); }

text_set::text_set() : set_(owned::steal(PySet_New(nullptr))) {}

void text_set::add(handle text) {
  const Py_ssize_t before = PySet_GET_SIZE(set_.get());
  if (PySet_Add(set_.get(), text.get()) < 0) throw python_error_set{};
  if (PySet_GET_SIZE(set_.get()) != before) texts_.push_back(new_ref(text));
}

}  // namespace grounding_fit::py

#include "host/container.hpp"

namespace grounding_fit::host {

items::items(handle array) : size_(size_of_array(array)) {
  if (PyTuple_Check(array.get())) {
    tuple_ = share(array);
    return;
  }
  copies_.reserve(size_);
  for (std::size_t i = 0; i < size_; ++i) copies_.push_back(share(array_item(array, i)));
}

items expect_items(handle value) {
  if (kind_of(value) != kind::array) refuse(fault::type, "a list or tuple", value);
  return items(value);
}

array expect_array(handle value) {
  if (kind_of(value) != kind::array) refuse(fault::type, "a list or tuple", value);
  return array(value);
}

void refuse_as_pair(handle value) {
  if (kind_of(value) != kind::array) refuse(fault::type, "a pair (tuple or list of two)", value);
  const std::string size = std::to_string(size_of_array(value));
  refuse(fault::type, "expected a pair (tuple or list of two), got " + size + " items");
}

void dict::expect_absent() {
  if (PyErr_Occurred() != nullptr) throw raised{};
}

owned mapping::get_of_view(handle key) const {
  const int there = PySequence_Contains(value_.get(), key.get());
  if (there < 0) throw raised{};
  return there == 0 ? owned() : owned::steal(PyObject_GetItem(value_.get(), key.get()));
}

owned mapping::copy() const {
  owned made = owned::steal(PyDict_New());
  if (PyDict_Update(made.get(), value_.get()) < 0) throw raised{};
  return made;
}

std::vector<owned> keys_in_own_order(handle object) {
  const owned iterator = owned::steal(PyODict_Type.tp_iter(object.get()));
  std::vector<owned> keys;
  while (PyObject* key = PyIter_Next(iterator.get())) keys.push_back(owned::steal(key));
  if (PyErr_Occurred() != nullptr) throw raised{};
  return keys;
}

}  // namespace grounding_fit::host

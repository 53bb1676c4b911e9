#include "host/call.hpp"

namespace grounding_fit::host {

bool truth(handle value) {
  const int result = PyObject_IsTrue(value.get());
  if (result < 0) throw raised{};
  return result != 0;
}

void expect_callable(handle value) {
  if (!PyCallable_Check(value.get())) refuse(fault::type, "a callable", value);
}

void expect_iterable(handle value) {
  if (Py_TYPE(value.get())->tp_iter == nullptr && !PySequence_Check(value.get())) {
    refuse(fault::type, "an iterable", value);
  }
}

iteration::iteration(handle iterable) : iterator_(owned::steal(PyObject_GetIter(iterable.get()))) {}

owned iteration::next() {
  PyObject* item = PyIter_Next(iterator_.get());
  if (item != nullptr) return owned::steal(item);
  if (PyErr_Occurred() != nullptr) throw raised{};
  return {};
}

std::vector<owned> items_of_set(handle set) {
  const owned iterator = owned::steal(PySet_Type.tp_iter(set.get()));
  std::vector<owned> result;
  while (PyObject* item = PyIter_Next(iterator.get())) result.push_back(owned::steal(item));
  if (PyErr_Occurred() != nullptr) throw raised{};
  return result;
}

text_set::text_set() : set_(owned::steal(PySet_New(nullptr))) {}

void text_set::add(handle text) {
  const Py_ssize_t before = PySet_GET_SIZE(set_.get());
  if (PySet_Add(set_.get(), text.get()) < 0) throw raised{};
  if (PySet_GET_SIZE(set_.get()) != before) texts_.push_back(share(text));
}

}  // namespace grounding_fit::host

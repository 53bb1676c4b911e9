#include "python/arguments.hpp"

#include "python/container.hpp"

namespace grounding_fit::py {

arguments::arguments(std::span<const std::string_view> names, std::size_t required,
                     PyObject* const* args, std::size_t positional, PyObject* keywords)
    : names_(names) {
  for (std::size_t i = 0; i < positional; ++i) set_positional(i, args[i]);
  const std::size_t named = keywords == nullptr ? 0 : size_of_array(keywords);
  for (std::size_t i = 0; i < named; ++i) {
    set_keyword(array_item(keywords, i), args[positional + i]);
  }
  check(required);
}

arguments::arguments(std::span<const std::string_view> names, std::size_t required, PyObject* args,
                     PyObject* keywords)
    : names_(names) {
  for (std::size_t i = 0; i < size_of_array(args); ++i) set_positional(i, array_item(args, i));
  if (keywords != nullptr) {
    dict_walk walk{dict(keywords)};
    for (handle name, value; walk.next(name, value);) set_keyword(name, value);
  }
  check(required);
}

void arguments::set_positional(std::size_t i, handle value) {
  if (i >= names_.size()) {
    const std::string most = std::to_string(names_.size());
    refuse(fault::type, "expected at most " + most + " arguments, got more");
  }
  values_[i] = value;
}

void arguments::set_keyword(handle name, handle value) {
  const text_view wanted = expect_text(name);
  for (std::size_t i = 0; i < names_.size(); ++i) {
    if (!(wanted == text_view(names_[i]))) continue;
    if (values_[i]) refuse(fault::type, std::string(names_[i]) + ": given twice");
    values_[i] = value;
    return;
  }
  refuse_name(fault::type, "unexpected argument", wanted);
}

void arguments::check(std::size_t required) const {
  for (std::size_t i = 0; i < required; ++i) {
    if (!values_[i]) refuse(fault::type, std::string(names_[i]) + ": missing argument");
  }
}

}  // namespace grounding_fit::py

#include "binding/function.hpp"

namespace grounding_fit {

grounding_parts expect_parts(const host::module_state& state, host::handle parts) {
  host::within("parts", [&] { host::expect_record(state, k_grounding_parts, parts); });
  return {parts};
}

std::int64_t expect_int64(const char* name, host::handle value) {
  return host::within(name, [&] { return host::expect_int64(value); });
}

array_records::array_records(const char* name, host::handle value)
    : name_(name), items_(host::within(name, [&] { return host::expect_items(value); })) {}

}  // namespace grounding_fit

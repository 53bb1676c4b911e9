#include "answer_capping/page_facts.hpp"

namespace grounding_fit {

std::vector<page_fact> take_page_facts(const fact_blocks& prose, json_meter& meter) {
  std::vector<page_fact> facts;
  facts.reserve(prose.size());
  for (std::size_t i = 0; i < prose.size(); ++i) facts.emplace_back(prose[i], i, meter);
  return facts;
}

void page_fact::take_seeds() {
  if (seeds_taken_) return;
  seeds_taken_ = 1;
  const host::handle seeds = block_.seeds();
  seeds_.resize(host::size_of_array(seeds));
  for (std::size_t i = 0; i < seeds_.size(); ++i) {
    seeds_[i].value = host::share(host::array_item(seeds, i));
  }
}

void page_fact::read_seeds(const host::module_state& state) {
  if (seeds_read_) return;
  take_seeds();
  for (std::size_t i = 0; i < seeds_.size(); ++i) {
    seeds_[i].citable = host::within(seed_place(position_, i), [&] {
      return grounding_fit::is_citable(state, seeds_[i].value);
    });
  }
  seeds_read_ = 1;
}

sized_value page_fact::seed_at(std::size_t i) {
  seed& one = seeds_[i];
  if (one.json_size < 0) {
    one.json_size =
        host::within(seed_place(position_, i), [&] { return meter_->size_of(one.value); });
  }
  return {one.value, one.json_size};
}

template <extent Extent>
fact_cost page_fact::cost() {
  take_seeds();
  tally seeds;
  for (std::size_t i = 0; i < seeds_.size(); ++i) seeds.add(seed_at(i).size());
  const std::int64_t inner = Extent == extent::exact ? text().size() : text().least();
  return {2 + inner, seeds.bracketed()};
}
template fact_cost page_fact::cost<extent::exact>();
template fact_cost page_fact::cost<extent::least>();

}  // namespace grounding_fit

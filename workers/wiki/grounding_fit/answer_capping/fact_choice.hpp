// Which fact blocks a capped answer keeps, and why.
#pragma once

#include <concepts>
#include <map>
#include <optional>

#include "answer_capping/note.hpp"
#include "answer_capping/page_facts.hpp"

namespace grounding_fit {

// Why a fact block stays or goes.
enum class verdict : std::uint8_t {
  undecided,
  always_kept,  // stays: the file cards or the requested context
  kept_first,   // stays: the policy of the page keeps its kind first
  fits,         // stays: within the share of its kind, and beside the room kept for code
  over_share,   // goes: the blocks of its kind would cost more than their share of the room
  over_cap      // goes: beside the room kept for code, the answer would pass its cap
};
constexpr bool stays(verdict of) {
  return of == verdict::always_kept || of == verdict::kept_first || of == verdict::fits;
}

// Whether a bound may say no before a text is read, or every size is taken, as a report needs them.
enum class sizing { needed, all };

// What became of one fact block, and the numbers that decided it, in JSON characters.
struct fact_decision {
  verdict outcome = verdict::undecided;
  bool has_share = false;       // whether there is a limit to what its kind may cost
  double share = 0;             // that limit
  fact_cost cost;               // what it counts for in that share
  std::int64_t share_used = 0;  // of that share, by blocks before it
  std::int64_t tried = 0;       // the answer with it and no body, where the cap was asked
};

// What the policy of a page says of its fact blocks.
class fact_policy {
 public:
  explicit fact_policy(const host::module_state& state, grounding_parts parts);

  // always_kept or kept_first; undecided for every other block.
  verdict of(const fact_block& block) const;
  // The most of `room` that blocks of that kind may cost, if there is a limit.
  std::optional<double> share_of(const fact_block& block, double room) const;
  // The part of the room that is kept for code, if the code needs as much.
  double floor_of(double room) const;

 private:
  const host::module_state& state_;
  host::handle code_floor_;
  policy_rules rules_;
};

// Compares an integer with a double exactly; false for a bound that is no number.
bool at_most(__int128 sum, double bound);
// Truncated toward zero, and clamped to 2^100 either way, which no sum of sizes reaches.
__int128 truncated(double finite);

enum class bodies { none, within_tokens };

// Measures the answers that the choice tries. `shown` is what some fact blocks come to: sizes, or a
// list for a host that measures by itself, which knows no bounds.
template <class M>
concept fact_measure = requires(M measure, typename M::shown shown, std::size_t fact) {
  { measure.of(std::span<const std::size_t>()) } -> std::same_as<typename M::shown>;
  { measure.with(shown, fact) } -> std::same_as<typename M::shown>;
  { measure.size(shown, bodies::none) } -> std::convertible_to<std::int64_t>;
};

// The room of an answer, in JSON characters, and what of it is kept for code.
struct answer_room {
  __int128 base = 0;        // the answer with the blocks that always stay, and no code body
  __int128 room = 0;        // what the cap leaves beside it
  double floor_share = 0;   // the code's share of that
  __int128 floor = 0;       // the same, truncated
  __int128 all_bodies = 0;  // what the bodies that the tokens allow would add
  __int128 reserve = 0;     // the smaller of the two, kept free while facts are chosen
};

template <class Shown>
struct fact_choice {
  answer_room room;
  std::vector<fact_decision> decisions;  // one a fact block, in reading order
  Shown kept;                            // what those that stay come to
};

// What is kept free for code. As soon as the bodies are known to take their floor, it is the floor.
template <sizing Sizing, fact_measure Measure>
answer_room room_of(const fact_policy& policy, const std::vector<fact_decision>& decisions,
                    Measure& measure) {
  std::vector<std::size_t> always;
  for (std::size_t i = 0; i < decisions.size(); ++i) {
    if (stays(decisions[i].outcome)) always.push_back(i);
  }
  const auto shown = measure.of(always);
  answer_room room;
  room.base = measure.size(shown, bodies::none);
  room.room = std::max<__int128>(0, k_answer_max_chars - room.base);
  room.floor_share = policy.floor_of(static_cast<double>(room.room));
  room.floor = truncated(room.floor_share);
  if constexpr (Sizing == sizing::needed) {
    room.all_bodies = measure.least(shown, bodies::within_tokens) - room.base;
  }
  if (Sizing == sizing::all || room.all_bodies < room.floor) {
    room.all_bodies = measure.size(shown, bodies::within_tokens) - room.base;
  }
  room.reserve = std::min(room.floor, room.all_bodies);
  return room;
}

// Decides one block, given what is decided before it; adds it to `kept` when it stays.
template <sizing Sizing, fact_measure Measure>
verdict decide_fact(fact_decision& now, page_fact& fact, std::size_t at, const answer_room& room,
                    Measure& measure, typename Measure::shown& kept) {
  if (stays(now.outcome)) {
    kept = measure.with(std::move(kept), at);
    return now.outcome;
  }
  const auto over_share = [&] {
    return now.has_share && !at_most(__int128(now.share_used) + now.cost.total(), now.share);
  };
  if (over_share()) return verdict::over_share;
  if constexpr (Sizing == sizing::needed) {
    // The cap is not asked of a block that is over its share: asking reads the block's seeds.
    if (now.has_share) now.cost = fact.template cost<extent::exact>();
    if (over_share()) return verdict::over_share;
    if (measure.least_with(kept, at) + room.reserve > k_answer_max_chars) return verdict::over_cap;
  }
  auto with = measure.with(kept, at);
  now.tried = measure.size(with, bodies::none);
  if (now.tried + room.reserve > k_answer_max_chars) return verdict::over_cap;
  kept = std::move(with);
  return verdict::fits;
}

// A block that does not fit ends nothing: smaller ones after it are still tried.
template <sizing Sizing, fact_measure Measure>
auto choose_facts(const fact_policy& policy, std::vector<page_fact>& facts, Measure& measure)
    -> fact_choice<typename Measure::shown> {
  constexpr extent known = Sizing == sizing::all ? extent::exact : extent::least;
  std::vector<fact_decision> decisions(facts.size());
  for (std::size_t i = 0; i < facts.size(); ++i) {
    decisions[i].outcome = policy.of(facts[i].block());
  }
  const answer_room room = room_of<Sizing>(policy, decisions, measure);
  auto kept = measure.of({});
  std::map<text_view, std::int64_t> used;  // by block key, as far as shares ask for it
  for (std::size_t i = 0; i < facts.size(); ++i) {
    fact_decision& now = decisions[i];
    now.cost = facts[i].template cost<known>();
    const auto share = policy.share_of(facts[i].block(), static_cast<double>(room.room));
    std::int64_t* taken = share ? &used[host::view_of(facts[i].block().key())] : nullptr;
    if (taken != nullptr) {
      now.has_share = true;
      now.share = *share;
      now.share_used = *taken;
    }
    now.outcome = decide_fact<Sizing>(now, facts[i], i, room, measure, kept);
    if (!stays(now.outcome)) {
      if (Sizing == sizing::needed) facts[i].leave_out();
    } else if (taken != nullptr) {
      *taken += facts[i].template cost<extent::exact>().total();
    }
  }
  return {room, std::move(decisions), std::move(kept)};
}

}  // namespace grounding_fit

// What a capped answer holds: said once, and both measured and built by it.
//
// `out` is an answer_size or an answer_values for blocks, a new_answer_size or a new_answer for
// members. Whoever changes what an answer holds changes it here.
#pragma once

#include "answer_capping/given_answer.hpp"
#include "answer_capping/page_facts.hpp"
#include "answer_capping/page_symbols.hpp"

namespace grounding_fit {

// A fact block that stays: its text, unless it is empty, and the seeds that can be cited.
template <class Out>
void describe_fact(Out& out, page_fact& fact) {
  if (const whole_text text = fact.text(); !text.text.empty()) {
    out.begin_text();
    out.add_text(text);
  }
  for (std::size_t i = 0; i < fact.seeds(); ++i) {
    if (fact.is_citable(i)) out.add_seed(fact.seed_at(i));
  }
}

// A symbol with its body: the whole block, empty or not, its name and its seed.
template <class Out>
void describe_body(Out& out, page_symbols& symbols, std::size_t i) {
  out.begin_text();
  out.add_text(symbols.body(i));
  if (symbols.has_name(i)) out.add_name(symbols.name(i));
  if (symbols.has_seed(i)) out.add_seed(symbols.seed(i));
}

// The symbols listed after the bodies: one text of a line each, their names, and no seeds.
template <class Out>
void describe_listed(Out& out, const page_symbols& symbols, shown_code code) {
  if (code.listed > 0) out.begin_text();
  describe_listing(
      code.listed, [&](const literal& text) { out.add_text(text); },
      [&](std::size_t n) { out.add_text(symbols.line(code.bodies + n)); });
  for (std::size_t i = code.bodies; i < code.bodies + code.listed; ++i) {
    if (symbols.has_name(i)) out.add_name(symbols.name(i));
  }
}

// The blocks of an answer, in their order.
template <class Out, class Positions>
void describe_blocks(Out& out, std::vector<page_fact>& facts, const Positions& kept,
                     page_symbols& symbols, shown_code code) {
  for (const std::size_t fact : kept) describe_fact(out, facts[fact]);
  for (std::size_t i = 0; i < code.bodies; ++i) describe_body(out, symbols, i);
  describe_listed(out, symbols, code);
}

// The host's members that a new answer has as well, where they stand: all, or those that are not
// rebuilt. A prior markdown is cut to null; the note takes the place of an older one.
enum class fitted_fields { as_given, rebuilt };
template <class Out>
void describe_members(Out& out, const given_answer& given, fitted_fields how) {
  using role = given_answer::role;
  for (const given_answer::member& each : given.members()) {
    switch (each.is) {
      case role::carried: out.add_member(each); break;
      case role::fitted:
        if (how == fitted_fields::as_given) out.add_member(each);
        break;
      case role::prior: out.add_null(each.key); break;
      case role::note: out.add_note(each.key); break;
    }
  }
}

// The fields that are made of blocks.
template <class Out, class Blocks>
void describe_fields(Out& out, Blocks& blocks) {
  out.add_field(k_fitted_fields[0], blocks.grounding());
  out.add_field(k_fitted_fields[1], blocks.symbols());
  out.add_field(k_fitted_fields[2], blocks.citation_seeds());
}

// A note where the host had none: last.
template <class Out>
void describe_new_note(Out& out, const given_answer& given) {
  if (!given.has_note()) out.add_note(given.note_key());
}

}  // namespace grounding_fit

#include "answer_capping.hpp"

#include <cmath>
#include <map>

#include "symbol_rendering.hpp"
#include "token_fitting.hpp"

namespace grounding_fit {

using host::fault;
using host::handle;
using host::known;
using host::owned;
using host::service;

owned code_cut(std::int64_t kept, std::int64_t listed, std::int64_t total) {
  if (kept >= total) return {};
  const __int128 cut = __int128(total) - kept;
  pieces item;
  item.add("the bodies of ");
  item.add_number(cut);
  item.add(" of ");
  item.add_number(__int128(total));
  item.add(" symbol blocks (the lowest ranked; ");
  item.add_number(__int128(listed));
  item.add(" of them listed by lines and signature, ");
  item.add_number(cut - listed);
  item.add(" not at all)");
  return item.text();
}

// ---- fact blocks --------------------------------------------------------------------------------

std::vector<sized_fact> sized_facts(const fact_blocks& prose, json_meter& meter) {
  std::vector<sized_fact> facts;
  facts.reserve(prose.size());
  for (std::size_t i = 0; i < prose.size(); ++i) facts.emplace_back(prose[i], i, meter);
  return facts;
}

std::int64_t sized_fact::text_size() {
  if (text_size_ < 0) text_size_ = json_inner_size(host::view_of(block_.text()));
  return text_size_;
}

tally sized_fact::text() {
  if (host::view_of(block_.text()).empty()) return {};
  return {text_size(), 1};
}

void sized_fact::take_seeds() {
  if (std::exchange(seeds_taken_, true)) return;
  const handle seeds = block_.seeds();
  seeds_.resize(host::size_of_array(seeds));
  for (std::size_t i = 0; i < seeds_.size(); ++i) {
    seeds_[i].seed = host::share(host::array_item(seeds, i));
  }
}

void sized_fact::read_seeds(const service& svc) {
  if (seeds_read_) return;
  take_seeds();
  for (std::size_t i = 0; i < seeds_.size(); ++i) {
    seeds_[i].citable = within_fact(position_, ".seeds", [&] {
      return host::within(i, [&] { return is_citable(svc, seeds_[i].seed); });
    });
  }
  seeds_read_ = true;
}

std::int64_t sized_fact::size_of(std::size_t i) {
  sized_seed& seed = seeds_[i];
  if (seed.size < 0) {
    seed.size = within_fact(position_, ".seeds", [&] {
      return host::within(i, [&] { return meter_->size_of(seed.seed); });
    });
  }
  return seed.size;
}

tally sized_fact::citable_seeds() {
  tally sizes;
  for (std::size_t i = 0; i < seeds_.size(); ++i) {
    if (seeds_[i].citable) sizes.add(size_of(i));
  }
  return sizes;
}

std::int64_t sized_fact::cost() {
  take_seeds();
  tally seeds;
  for (std::size_t i = 0; i < seeds_.size(); ++i) seeds.add(size_of(i));
  return 2 + text_size() + seeds.bracketed();
}

void sized_fact::add_citable(std::vector<owned>& seeds) const {
  for (const sized_seed& seed : seeds_) {
    if (seed.citable) seeds.push_back(host::share(seed.seed));
  }
}

// ---- the choice of fact blocks ------------------------------------------------------------------

namespace {

// Beyond any sum of sizes; what lies further out compares the same.
constexpr double k_far = 0x1p100;

// A double cut to an integer, as far out as it matters.
__int128 truncated(double finite) {
  return static_cast<__int128>(std::clamp(finite, -k_far, k_far));
}

// An integer compared with a double exactly. NaN holds nothing.
bool at_most(__int128 sum, double bound) {
  if (std::isnan(bound)) return false;
  return sum <= truncated(std::floor(bound));
}

// What the policy of a page type says of its fact blocks.
class policy {
 public:
  policy(const service& svc, handle parts)
      : svc_(svc),
        budget_(records::get(parts, records::grounding_parts::budget)),
        first_(records::get(budget_, records::section_budget::first)),
        shares_(records::get(budget_, records::section_budget::shares)) {
    for (std::size_t i = 0; i < first_.size(); ++i) {
      host::within("parts.budget.first",
                   [&] { host::within(i, [&] { host::expect_text(first_[i]); }); });
    }
  }

  bool always_keeps(const fact_block& block) const {
    const text_view text = host::view_of(block.text());
    if (text.starts_with(host::view_of(svc_[known::file_cards_heading])) ||
        text.starts_with(host::view_of(svc_[known::requested_context_heading]))) {
      return true;
    }
    const text_view key = host::view_of(block.key());
    if (key.empty()) return false;
    for (std::size_t i = 0; i < first_.size(); ++i) {
      if (host::view_of(first_[i]) == key) return true;
    }
    return false;
  }

  // The most of `room` that blocks of that kind may take, if there is a limit.
  std::optional<double> limit_of(const fact_block& block, double room) const {
    const owned share = shares_.get(block.key());
    if (!share) return std::nullopt;
    try {
      return host::expect_number(share) * room;
    } catch (host::bad_value& error) {
      error.prepend_key(host::view_of(block.key()));
      error.prepend("parts.budget.shares");
      throw;
    }
  }

 private:
  const service& svc_;
  handle budget_;
  host::items first_;
  host::dict shares_;
};

// The part of the room that is kept for code, by the floor that the page has.
__int128 code_share(handle parts, double room) {
  const handle floor = records::get(parts, records::grounding_parts::code_floor);
  const double share = host::expect_number(floor) * room;
  if (!std::isfinite(share)) {
    host::within("parts.code_floor", [&] {
      host::refuse(fault::value, "a number whose product with the room is finite", floor);
    });
  }
  return truncated(share);
}

}  // namespace

chosen_facts choose_facts(const service& svc, handle parts, std::vector<sized_fact>& facts,
                          candidate_measure& measure) {
  const policy rules(svc, parts);
  std::vector<std::size_t> always;
  for (std::size_t i = 0; i < facts.size(); ++i) {
    if (rules.always_keeps(facts[i].block())) always.push_back(i);
  }
  const __int128 base = measure.size_of(always, false);
  const double room = static_cast<double>(std::max<__int128>(0, k_answer_max_chars - base));
  const __int128 floor = code_share(parts, room);
  const __int128 reserve = std::min(floor, measure.size_of(always, true) - base);

  chosen_facts chosen;
  std::map<text_view, std::int64_t> used;  // by block key, as far as shares ask for it
  auto next_always = always.begin();
  for (std::size_t i = 0; i < facts.size(); ++i) {
    sized_fact& fact = facts[i];
    const std::int64_t cost = fact.cost();
    const std::optional<double> limit = rules.limit_of(fact.block(), room);
    std::int64_t* taken = limit ? &used[host::view_of(fact.block().key())] : nullptr;
    bool kept = next_always != always.end() && *next_always == i;
    if (kept) {
      ++next_always;
    } else if (taken == nullptr || at_most(__int128(*taken) + cost, *limit)) {
      kept = measure.size_with(chosen.kept, i) + reserve <= k_answer_max_chars;
    }
    (kept ? chosen.kept : chosen.left_out).push_back(i);
    if (!kept) {
      fact.forget_seeds();
      continue;
    }
    measure.keep(i);
    if (taken != nullptr) *taken += cost;
  }
  return chosen;
}

// ---- the answer ---------------------------------------------------------------------------------

namespace {

std::int64_t member_size(text_view key, std::int64_t value) {
  return json_string_size(key) + 2 + value;
}

// The members of the host's answer as they stood when the call began, each sized once.
class answer {
 public:
  // What is written into a new answer; no grounding, symbols and seeds where they stay as they are.
  struct contents {
    owned grounding, symbols, seeds, note;
  };

  answer(const service& svc, handle result, json_meter& meter) : svc_(svc), meter_(meter) {
    members_.reserve(host::size_of_dict(result));
    host::dict_cursor cursor(result);
    for (handle key, value; cursor.next(key, value);) {
      members_.push_back({owned::share(key), owned::share(value)});
    }
    host::within("result", [&] {
      for (std::size_t i = 0; i < members_.size(); ++i) measure(i, members_[i]);
    });
  }

  std::int64_t size() const { return all_.bracketed(); }
  handle prior() const { return prior_; }
  // KeyError when the host gave none.
  handle page_id() const {
    if (!page_id_) host::raise_missing_key(svc_[known::page_id]);
    return page_id_;
  }

  // The members that stay in an answer, the note not among them: all, or those that are not
  // rebuilt; the prior markdown as it is, or cut to null.
  tally carried(bool with_fitted, bool cut_prior) const {
    tally sizes = with_fitted ? carried_ + fitted_ : carried_;
    if (cut_prior) sizes.size -= prior_size_ - k_null_size;
    return sizes;
  }

  owned build(const contents& now, bool cut_prior) const {
    owned made = host::new_dict();
    const owned nothing = host::null();
    bool noted = false;
    for (const member& each : members_) {
      handle value = each.value;
      if (each.role == part::fitted && now.grounding) continue;
      if (each.role == part::prior && cut_prior) value = nothing;
      if (each.role == part::note) value = now.note;
      noted |= each.role == part::note;
      host::set_item(made, each.key, value);
    }
    if (now.grounding) {
      host::set_item(made, svc_[known::grounding], now.grounding);
      host::set_item(made, svc_[known::symbols], now.symbols);
      host::set_item(made, svc_[known::citation_seeds], now.seeds);
    }
    if (!noted) host::set_item(made, svc_[known::truncated], now.note);
    return made;
  }

 private:
  static constexpr std::int64_t k_null_size = 4;
  enum class part { carried, fitted, prior, note };
  struct member {
    owned key, value;
    part role = part::carried;
  };

  // Members are told by the text of their key. Where keys of odd types share one, the first is it.
  void measure(std::size_t position, member& each) {
    const std::int64_t size = meter_.size_of_member(position, each.key, each.value);
    const text_view key = host::view_of(each.key);
    all_.add(size);
    if (key == "grounding" || key == "symbols" || key == "citation_seeds") {
      each.role = part::fitted;
      return fitted_.add(size);
    }
    if (key == "truncated" && !std::exchange(noted_, true)) {
      each.role = part::note;
      return;
    }
    carried_.add(size);
    if (key == "prior_markdown" && !prior_) {
      each.role = part::prior;
      prior_ = each.value;
      prior_size_ = size - member_size(key, 0);
    } else if (key == "page_id" && !page_id_) {
      page_id_ = each.value;
    }
  }

  const service& svc_;
  json_meter& meter_;
  std::vector<member> members_;
  tally all_, carried_, fitted_;
  handle prior_, page_id_;
  bool noted_ = false;
  std::int64_t prior_size_ = 0;
};

// ---- candidates ---------------------------------------------------------------------------------

// The answers that a page's fact and symbol blocks can make: their sizes, and the one that is
// built.
class page : public candidate_measure {
 public:
  page(const service& svc, const answer& source, json_meter& meter, bool cut_prior, handle parts,
       std::int64_t budget)
      : svc_(svc),
        source_(source),
        cut_prior_(cut_prior),
        fixed_(source.carried(false, cut_prior)),
        blocks_(take_symbol_blocks(parts)),
        block_count_(blocks_.size()),
        prose_(svc, parts),
        facts_(sized_facts(prose_, meter)),
        norm_(svc, path_names::asking::once_per_text) {
    const owned text = fact_text(prose_);  // as large as all facts together, so not kept
    total_ = count_kept(svc, blocks_, symbol_budget(svc, text, budget));
    // No answer shows more than these.
    blocks_.resize(total_ + window(total_));
    blocks_.shrink_to_fit();
    listed_.assign(blocks_.size(), -1);
  }

  // How many symbol blocks the grounding has, shown or not.
  std::size_t blocks() const { return block_count_; }
  std::size_t total() const { return total_; }
  std::vector<sized_fact>& facts() { return facts_; }
  // How many symbol blocks may be listed after the first `count`.
  std::size_t window(std::size_t count) const {
    return std::min(k_listed_max, block_count_ - count);
  }

  __int128 size_of(const std::vector<std::size_t>& facts, bool bodies) override {
    const std::size_t count = bodies ? total_ : 0;
    const code_sizes code = sizes_of_code(count, window(count));
    for (const std::size_t fact : facts) facts_[fact].read_seeds(svc_);
    fact_sizes sizes;
    for (const std::size_t fact : facts) sizes.add(facts_[fact]);
    return checked(candidate(sizes, code), facts, count, window(count));
  }

  __int128 size_with(const std::vector<std::size_t>& kept, std::size_t fact) override {
    const code_sizes code = sizes_of_code(0, window(0));
    facts_[fact].read_seeds(svc_);
    fact_sizes sizes = kept_;
    sizes.add(facts_[fact]);
    if constexpr (k_check_sizes) {
      std::vector<std::size_t> facts = kept;
      facts.push_back(fact);
      return checked(candidate(sizes, code), facts, 0, window(0));
    }
    return candidate(sizes, code);
  }

  void keep(std::size_t fact) override { kept_.add(facts_[fact]); }

  // With the fact blocks kept, the placeholder standing in for the note.
  std::int64_t size(const std::vector<std::size_t>& kept, std::size_t count, std::size_t listed) {
    return checked(candidate(kept_, sizes_of_code(count, listed)), kept, count, listed);
  }

  owned build(const std::vector<std::size_t>& facts, std::size_t count, std::size_t listed,
              owned note) {
    answer::contents now;
    now.grounding = grounding(facts, count, listed);
    now.symbols = host::new_list(names(count + listed));
    now.seeds = host::new_list(seeds(facts, count));
    now.note = std::move(note);
    return source_.build(now, cut_prior_);
  }

 private:
#ifdef GROUNDING_FIT_CHECK_SIZES
  static constexpr bool k_check_sizes = true;
#else
  static constexpr bool k_check_sizes = false;
#endif

  struct fact_sizes {
    tally texts, seeds;
    void add(sized_fact& fact) {
      texts = texts + fact.text();
      seeds = seeds + fact.citable_seeds();
    }
  };
  struct code_sizes {
    tally texts, names, seeds;
  };

  // The one sum that is a candidate: what build() writes, member by member.
  std::int64_t candidate(const fact_sizes& facts, const code_sizes& code) const {
    const std::int64_t grounding = 2 + (facts.texts + code.texts).joined(k_blank_line_size);
    tally members = fixed_;
    members.add(member_size("grounding", grounding));
    members.add(member_size("symbols", code.names.bracketed()));
    members.add(member_size("citation_seeds", (facts.seeds + code.seeds).bracketed()));
    members.add(member_size("truncated", 2 + std::int64_t{k_placeholder_chars}));
    return members.bracketed();
  }

  // In the order of the rules, since each step may call the host or refuse a value: the lines
  // listed, the names shown, the seeds of the bodies, and then what they take as JSON.
  code_sizes sizes_of_code(std::size_t count, std::size_t listed) {
    if (known_code_ && count == known_count_ && listed == known_listed_) return known_sizes_;
    tally texts;
    if (listed > 0) texts.add(size_of_listing(count, listed));
    read_names(count + listed);
    read_lines(count);
    for (std::size_t i = seed_sizes_.size(); i <= count; ++i) add_seed_size(i - 1);
    for (std::size_t i = body_sizes_.size(); i <= count; ++i) {
      tally next = body_sizes_.back();
      next.add(json_inner_size(host::view_of(blocks_[i - 1].text)));
      body_sizes_.push_back(next);
    }
    known_sizes_ = {texts + body_sizes_[count], name_sizes_[count + listed], seed_sizes_[count]};
    known_code_ = true;
    known_count_ = count;
    known_listed_ = listed;
    return known_sizes_;
  }

  std::int64_t size_of_listing(std::size_t count, std::size_t listed) {
    std::int64_t size = json_inner_size(k_listed_heading);
    for (std::size_t i = count; i < count + listed; ++i) {
      if (listed_[i] < 0) {
        line_.clear();
        within_record(i, [&] { add_listed_line(svc_, blocks_[i].record, norm_, line_); });
        listed_[i] = line_.json_size();
      }
      size += k_line_feed_size + listed_[i];
    }
    return size;
  }

  void read_names(std::size_t shown) {
    for (std::size_t i = names_.size(); i < shown; ++i) {
      names_.push_back(within_record(i, [&] { return read_symbol_name(svc_, blocks_[i].record); }));
      tally next = name_sizes_.back();
      if (names_[i]) next.add(json_string_size(host::view_of(names_[i])));
      name_sizes_.push_back(next);
    }
  }

  void read_lines(std::size_t count) {
    for (std::size_t i = lines_.size(); i < count; ++i) {
      lines_.push_back(
          within_record(i, [&] { return read_symbol_lines(svc_, blocks_[i].record, norm_); }));
    }
  }

  void add_seed_size(std::size_t i) {
    tally next = seed_sizes_.back();
    const symbol_lines& lines = lines_[i];
    if (lines.citable()) {
      tally members;
      members.add(member_size("path", json_string_size(host::view_of(lines.path))));
      members.add(member_size("line_start", static_cast<std::int64_t>(lines.start.length())));
      members.add(member_size("line_end", static_cast<std::int64_t>(lines.last().length())));
      next.add(members.bracketed());
    }
    seed_sizes_.push_back(next);
  }

  owned grounding(const std::vector<std::size_t>& facts, std::size_t count, std::size_t listed) {
    pieces text;
    bool any = false;
    const auto next = [&] {
      if (std::exchange(any, true)) text.add("\n\n");
    };
    for (const std::size_t fact : facts) {
      const text_view block = host::view_of(facts_[fact].block().text());
      if (block.empty()) continue;
      next();
      text.add(block);
    }
    for (std::size_t i = 0; i < count; ++i) {
      next();
      text.add(host::view_of(blocks_[i].text));
    }
    if (listed > 0) next();
    add_listing(
        svc_, listed, [&](std::size_t i) { return handle(blocks_[count + i].record); },
        [&](std::size_t i, auto&& body) { within_record(count + i, body); }, norm_, text);
    return text.text();
  }

  std::vector<owned> names(std::size_t shown) const {
    std::vector<owned> result;
    for (std::size_t i = 0; i < shown; ++i) {
      if (names_[i]) result.push_back(host::share(names_[i]));
    }
    return result;
  }

  std::vector<owned> seeds(const std::vector<std::size_t>& facts, std::size_t count) const {
    std::vector<owned> result;
    for (const std::size_t fact : facts) facts_[fact].add_citable(result);
    for (std::size_t i = 0; i < count; ++i) {
      if (lines_[i].citable()) result.push_back(lines_[i].seed(svc_));
    }
    return result;
  }

  // In debug builds every measured candidate is built as well. A host that changes a record in the
  // middle of the call makes the two differ, so that is an error of the call, not a crash.
  std::int64_t checked(std::int64_t measured, const std::vector<std::size_t>& facts,
                       std::size_t count, std::size_t listed) {
    if constexpr (k_check_sizes) {
      const std::string note(k_placeholder_chars, 'x');
      const text_view view = std::string_view(note);
      const std::int64_t built =
          json_meter().size_of(build(facts, count, listed, host::new_text({&view, 1})));
      if (built != measured) host::raise_size_mismatch(measured, built);
    }
    return measured;
  }

  static constexpr std::int64_t k_line_feed_size = 2;  // as JSON escapes it
  static constexpr std::int64_t k_blank_line_size = 2 * k_line_feed_size;

  const service& svc_;
  const answer& source_;
  bool cut_prior_;
  tally fixed_;
  std::vector<symbol_block> blocks_;
  std::size_t block_count_;
  fact_blocks prose_;
  std::size_t total_ = 0;

  // What has been read and sized of the symbols so far; sums over the first n stand at index n.
  std::vector<tally> body_sizes_{{}}, name_sizes_{{}}, seed_sizes_{{}};
  std::vector<owned> names_;
  std::vector<symbol_lines> lines_;
  std::vector<std::int64_t> listed_;
  pieces line_;
  bool known_code_ = false;
  std::size_t known_count_ = 0, known_listed_ = 0;
  code_sizes known_sizes_;

  std::vector<sized_fact> facts_;
  fact_sizes kept_;
  path_names norm_;
};

// What a note says of the prior markdown.
owned prior_item(const answer& source) {
  const text_view prior = host::within("result", [&] {
    return host::within(step_of(known::prior_markdown),
                        [&] { return host::expect_text(source.prior()); });
  });
  pieces item;
  item.add("prior_markdown (");
  item.add_number(__int128(prior.length()));
  item.add(" characters; read the page with wiki(action=\"read\", page_id=\"");
  const handle page_id = source.page_id();
  host::within("result", [&] {
    host::within(step_of(known::page_id), [&] { item.add_value(host::share(page_id)); });
  });
  item.add("\") before you edit it)");
  return item.text();
}

// What the note of a rebuilt answer names: the items it can hold, and how many there are.
class note_items {
 public:
  note_items(const owned& prior, page& fitting, const std::vector<std::size_t>& left_out)
      : prior_(prior), fitting_(fitting), left_out_(left_out) {}

  owned note(std::size_t count, std::size_t listed, text_view closing = {}) const {
    const owned cut = code_cut(static_cast<std::int64_t>(count), static_cast<std::int64_t>(listed),
                               static_cast<std::int64_t>(fitting_.blocks()));
    std::vector<owned> named;
    if (prior_) named.push_back(host::share(prior_));
    if (cut) named.push_back(host::share(cut));
    const std::size_t items = named.size() + left_out_.size();
    for (std::size_t i = 0; named.size() < std::min(items, k_note_items); ++i) {
      named.push_back(fitting_.facts()[left_out_[i]].block().label());
    }
    return cap_note(
        items, [&](std::size_t i) { return host::view_of(named[i]); }, true, closing);
  }

 private:
  const owned& prior_;
  page& fitting_;
  const std::vector<std::size_t>& left_out_;
};

owned fit_blocks(const service& svc, const answer& source, json_meter& meter, const owned& prior,
                 handle parts, std::int64_t budget) {
  page fitting(svc, source, meter, bool(prior), parts, budget);
  const chosen_facts chosen = choose_facts(svc, parts, fitting.facts(), fitting);
  const auto fits = [&](std::size_t count, std::size_t listed) {
    return fitting.size(chosen.kept, count, listed) <= k_answer_max_chars;
  };
  auto count = static_cast<std::size_t>(
      most(static_cast<std::int64_t>(fitting.total()), [&](std::int64_t n) {
        const auto bodies = static_cast<std::size_t>(n);
        return fits(bodies, fitting.window(bodies));
      }));
  std::size_t listed = fitting.window(count);
  if (count == 0) {
    listed = static_cast<std::size_t>(most(static_cast<std::int64_t>(listed), [&](std::int64_t n) {
      return fits(0, static_cast<std::size_t>(n));
    }));
  }

  const note_items items(prior, fitting, chosen.left_out);
  for (;;) {
    owned note = items.note(count, listed);
    const std::int64_t size = fitting.size(chosen.kept, count, listed) -
                              static_cast<std::int64_t>(k_placeholder_chars) +
                              json_inner_size(host::view_of(note));
    if (size <= k_answer_max_chars)
      return fitting.build(chosen.kept, count, listed, std::move(note));
    if (count + listed == 0) break;
    if (count > 0) {
      // The symbol whose body goes heads the listing.
      --count;
      listed = fitting.window(count);
    } else {
      --listed;
    }
  }
  return fitting.build(chosen.kept, 0, 0,
                       items.note(0, 0, " The file cards and the other fields alone exceed it."));
}

}  // namespace

owned fit_page_context(const service& svc, handle result, handle parts, std::int64_t budget) {
  json_meter meter;
  const answer source(svc, result, meter);
  if (source.size() <= k_answer_max_chars) return host::share(result);
  if (host::missing(source.prior())) return fit_blocks(svc, source, meter, {}, parts, budget);

  // The page is one read away, its grounding is not.
  const owned prior = prior_item(source);
  answer::contents now;
  now.note = cap_note(
      1, [&](std::size_t) { return host::view_of(prior); }, false);
  tally whole = source.carried(true, true);
  whole.add(member_size("truncated", json_string_size(host::view_of(now.note))));
  if (whole.bracketed() <= k_answer_max_chars) return source.build(now, true);
  now.note = {};
  return fit_blocks(svc, source, meter, prior, parts, budget);
}

}  // namespace grounding_fit

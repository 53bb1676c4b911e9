#include "token_fitting.hpp"

#include "symbol_rendering.hpp"

namespace grounding_fit {

using host::handle;
using host::known;
using host::owned;
using host::service;

namespace {

// The blocks that the budget keeps and the listing of the next ones, as texts kept alive here.
struct code {
  std::vector<text_view> texts;
  owned listing;

  // Joined by blank lines, after `first`. The grounding leaves empty texts out; what the host is
  // asked to estimate holds every block kept.
  owned joined(text_view first, bool with_empty) const {
    pieces text;
    text.add(first);
    bool any = !first.empty();
    for (const text_view& piece : texts) {
      if (piece.empty() && !with_empty) continue;
      if (any) text.add("\n\n");
      text.add(piece);
      any = true;
    }
    return text.text();
  }
};

code cut_code(const service& svc, const std::vector<symbol_block>& blocks, std::size_t count) {
  code cut;
  for (std::size_t i = 0; i < count; ++i) cut.texts.push_back(host::view_of(blocks[i].text));
  path_names norm(svc, path_names::asking::every_time);
  pieces listing;
  add_listing(
      svc, std::min(k_listed_max, blocks.size() - count),
      [&](std::size_t i) { return handle(blocks[count + i].record); },
      [&](std::size_t i, auto&& body) { within_record(count + i, body); }, norm, listing);
  cut.listing = listing.text();
  if (!listing.empty()) cut.texts.push_back(host::view_of(cut.listing));
  return cut;
}

owned truncated(const service& svc, handle text, __int128 room) {
  const owned tokens = host::new_unsigned(room > 0 ? static_cast<std::uint64_t>(room) : 0);
  owned cut = host::call(svc[known::truncate_to_tokens], text, tokens);
  host::within("result of _truncate_to_tokens", [&] { host::expect_text(cut); });
  return cut;
}

// The files of the fact blocks and the paths of the seeds, each once, in order of code points.
owned sorted_files(const service& svc, handle parts, const std::vector<owned>& seeds) {
  host::text_set names;
  const handle files = records::get(parts, records::grounding_parts::files);
  for (owned& file : host::items_of_set(files)) {
    host::within("parts.files", [&] { host::expect_text(file); });
    names.add(file);
  }
  for (const owned& seed : seeds) names.add(read(svc, host::dict(seed), known::path));
  std::vector<owned> texts = names.texts();
  std::sort(texts.begin(), texts.end(),
            [](const owned& a, const owned& b) { return host::view_of(a) < host::view_of(b); });
  return host::new_list(std::move(texts));
}

std::vector<owned> symbol_names(const service& svc, const std::vector<symbol_block>& blocks) {
  std::vector<owned> names;
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    owned name = within_record(i, [&] { return read_symbol_name(svc, blocks[i].record); });
    if (name) names.push_back(std::move(name));
  }
  return names;
}

}  // namespace

__int128 symbol_budget(const service& svc, handle text, std::int64_t budget) {
  const auto floor = static_cast<std::int64_t>(static_cast<double>(budget) * k_symbol_floor);
  const __int128 left = __int128(budget) - host::estimate_tokens(svc, text);
  return std::max(__int128(floor), left);
}

std::size_t count_kept(const service& svc, const std::vector<symbol_block>& blocks,
                       __int128 budget) {
  return count_kept(svc, blocks.size(), budget,
                    [&](std::size_t i) { return handle(blocks[i].text); });
}

owned assemble_grounding(const service& svc, handle parts, std::int64_t budget) {
  const fact_blocks prose(svc, parts);
  const owned facts = fact_text(prose);
  const __int128 share = symbol_budget(svc, facts, budget);
  const std::vector<symbol_block> blocks = take_symbol_blocks(parts);
  const code kept = cut_code(svc, blocks, count_kept(svc, blocks, share));

  const owned all_code = kept.joined({}, true);
  const __int128 room = __int128(budget) - host::estimate_tokens(svc, all_code);
  const owned cut = truncated(svc, facts, room);
  owned grounding = kept.joined(host::view_of(cut), false);

  std::vector<owned> found = symbol_seeds(
      svc, blocks.size(), [&](std::size_t i) { return handle(blocks[i].record); },
      [&](std::size_t i, auto&& body) { within_record(i, body); });
  owned files = sorted_files(svc, parts, found);
  owned names = host::new_list(symbol_names(svc, blocks));
  std::vector<owned> seeds;
  add_citable(svc, prose, seeds);
  std::move(found.begin(), found.end(), std::back_inserter(seeds));

  std::vector<owned> result;
  result.push_back(std::move(grounding));
  result.push_back(std::move(names));
  result.push_back(std::move(files));
  result.push_back(host::new_list(std::move(seeds)));
  return host::new_tuple(std::move(result));
}

}  // namespace grounding_fit

"""A host that changes what is being walked, from every place where its code can run."""

import copy
import gc

from harness import HOST, fit


class Saboteur:
    """Such a host, and a page that it is given."""

    class Key(str):
        """A key that must be compared to be told from a plain one, and acts when it is."""

        owner = None

        def __hash__(self):
            return hash(str(self)[1:])

        def __eq__(self, other):
            self.owner.act()
            return False

    class Bomb:
        """Garbage in a cycle that acts when it is collected."""

        def __init__(self, owner):
            self.owner = owner
            self.me = self

        def __del__(self):
            self.owner.act()

    def __init__(self, source):
        self.source = source
        self.r = source.r
        self.depth = 0
        given = source.parts()
        self.answer = source.answer()
        budget = copy.deepcopy(given.budget)  # the shared ones are everybody's
        self.parts = fit.GroundingParts(given.prose, given.blocks, given.files, budget=budget)
        self.held = [self.parts, self.answer]
        for record in self.records():
            if self.r.random() < 0.3:
                key = self.Key("x" + self.r.choice(["line", "file", "fqn", "line_start"]))
                key.owner = self
                record[key] = self.Bomb(self)
        utilities = [len, lambda text, budget: text[:budget], lambda path: path]
        HOST.set(*map(self.sabotaged, utilities))

    def facts(self):
        """Return the fact blocks."""
        return [block for block in self.parts.prose if isinstance(block, fit.FactBlock)]

    def records(self):
        """Return the symbol records and the seeds."""
        pairs = [pair for pair in self.parts.blocks if isinstance(pair, (list, tuple))]
        found = [pair[1] for pair in pairs if len(pair) > 1]
        for block in self.facts():
            found += block.seeds
        return [one for one in found if isinstance(one, dict)]

    def victim(self):
        """Return a list or dict that a call may be walking."""
        page = self.parts
        containers = [page.prose, page.blocks, page.files, self.answer, page.budget.shares]
        containers += [block.seeds for block in self.facts()]
        containers += [*self.records(), *(one for one in page.blocks if isinstance(one, list))]
        return self.r.choice([one for one in containers if not isinstance(one, (tuple, frozenset))])

    def act(self):
        """Do something that no caller of a function would expect of its arguments."""
        r = self.r
        choice = r.randrange(8)
        if choice < 5:
            self.change(self.victim(), choice)
        elif choice == 5:
            self.Bomb(self)
            gc.collect()
        elif choice == 6 and self.depth < 3:
            self.depth += 1
            self.attempt(fit._fit_page_context, self.answer, self.parts, 900)
            self.depth -= 1
        else:
            self.held.clear()

    def change(self, victim, choice):
        """Empty it, or put into it what does not belong there."""
        r = self.r
        if choice < 3:
            victim.clear()
        elif choice == 3 and isinstance(victim, dict):
            victim[r.choice(["line", "file", "path", "line_start"])] = self.source.wrong()
        elif choice == 4 and isinstance(victim, list):
            victim[: r.randrange(3)] = [self.source.wrong()]

    def sabotaged(self, usual):
        """Return a utility that acts now and then, and now and then gives something odd."""

        def utility(*args):
            if self.r.random() < 0.2:
                self.act()
            if self.r.random() < 0.02 * self.source.junk:
                return self.source.odd_result(self.r, args)
            return usual(*args)

        return utility

    def attempt(self, function, *args):
        """Call it; any of the errors that a value can cause will do, and no other."""
        try:
            function(*args)
        except (TypeError, ValueError, OverflowError, LookupError, RecursionError):
            pass
        except AssertionError as error:  # sizes that a change in the middle makes differ
            assert "a candidate measured as" in str(error)

    def run(self):
        """Call everything on this page, the collector running as often as it can."""
        before = gc.get_threshold()
        gc.set_threshold(1, 1, 1)
        page, tokens = self.parts, self.source.tokens()
        act = self.sabotaged(lambda *_: 30000)
        try:
            self.attempt(fit._fit_page_context, self.answer, page, tokens)
            self.attempt(fit.explain_page_context, self.answer, page, tokens)
            self.attempt(fit._assemble_grounding, page, tokens)
            self.attempt(fit.explain_grounding, page, tokens)
            self.attempt(fit._fit_prose, page, act, 7)
            self.attempt(fit._most, 40, act)
            self.attempt(getattr, page, "seeds")
            self.attempt(fit.citable, (self.act() or one for one in self.records()))
            self.attempt(fit.symbol_seeds, self.records())
            self.attempt(fit._listing, self.records())
            for record in self.records()[:4]:
                self.attempt(fit.render_symbol, record)
            self.attempt(fit._json_size, self.answer)
        finally:
            gc.set_threshold(*before)

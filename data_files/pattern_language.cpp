#include "pattern_language.h"

#include <algorithm>
#include <deque>
#include <map>
#include <optional>

namespace quillfence::data_files {

static constexpr size_t most_states = 3000;
static constexpr size_t most_steps_of_proof = 50'000;
static constexpr size_t most_names = 300;
static constexpr int deepest_group = 50;

static int32_t minimum_of(const TRexNode &greedy) {
    return static_cast<int32_t>(static_cast<uint32_t>(greedy.right) >> 16);
}
static int32_t maximum_of(const TRexNode &greedy) {
    return greedy.right & 0xFFFF;
}
static bool takes_one(const TRexNode &node) {
    return node.type < trex_op_greedy || (node.type >= trex_op_dot && node.type <= trex_op_nclass);
}
static bool is_group(const TRexNode &node) {
    return node.type == trex_op_expr || node.type == trex_op_nocapexpr;
}
static bool overlap(const character_set &one, const character_set &other) {
    for (size_t i = 0; i < std::size(one.words); ++i) {
        if (one.words[i] & other.words[i]) {
            return true;
        }
    }
    return false;
}

// --- Whether the automaton is exact ---

namespace {

// A sequence inside a group, as far as it matters for what stands beside and behind it.
struct sequence_facts {
    bool is_sound = false;                // of the shapes that are known
    bool has_one_end = true;              // from where it begins it ends in one place only
    bool has_one_length = true;           // and all its characters are these:
    std::vector<character_set> positions; // the characters that it begins with at least
};

class exactness {
  public:
    explicit exactness(const TRex &expression) : expression_(expression) {}

    bool holds() const {
        const TRexNode &root = node(0);
        return root.type == trex_op_expr && is_exact_root_sequence(root.left);
    }

  private:
    const TRexNode &node(int32_t index) const {
        return expression_.nodes[index];
    }
    character_set characters(int32_t index) const {
        character_set set = {};
        characters_of_node(&expression_, index, &set);
        return set;
    }
    // Only ".*" and the end, which take whatever is left.
    bool takes_all(int32_t index) const {
        bool any = false;
        for (; index >= 0 && node(index).type == trex_op_any_sequence; index = node(index).next) {
            any = true;
        }
        return any && index >= 0 && node(index).type == trex_op_eol && node(index).next < 0;
    }

    bool is_exact_root_sequence(int32_t first) const {
        for (int32_t index = first; index >= 0; index = node(index).next) {
            if (!is_exact_at_root(index)) {
                return false;
            }
            if (node(index).next < 0) {
                return node(index).type == trex_op_eol;
            }
        }
        return false;
    }

    bool is_exact_at_root(int32_t index) const {
        const TRexNode &n = node(index);
        if (takes_one(n) || n.type == trex_op_bol) {
            return true;
        }
        if (n.type == trex_op_eol) {
            return n.next < 0;
        }
        if (n.type == trex_op_any_sequence) {
            return follows_any_sequence(n.next);
        }
        if (is_group(n)) {
            const sequence_facts group = facts_of_group(n, 0);
            return group.is_sound && (group.has_one_end || takes_all(n.next));
        }
        return n.type == trex_op_greedy && is_exact_repetition(n);
    }

    // A ".*" lets nothing but the end follow where it begins at the end, so that what follows must
    // need a character anyway.
    bool follows_any_sequence(int32_t index) const {
        while (index >= 0 && node(index).type == trex_op_any_sequence) {
            index = node(index).next;
        }
        if (index >= 0 && node(index).type == trex_op_eol) {
            return true;
        }
        for (; index >= 0; index = node(index).next) {
            if (needs_character(node(index))) {
                return true;
            }
        }
        return false;
    }

    bool needs_character(const TRexNode &n) const {
        if (takes_one(n)) {
            return true;
        }
        if (is_group(n)) {
            return !facts_of_group(n, 0).positions.empty();
        }
        return n.type == trex_op_greedy && minimum_of(n) > 0 && needs_character(node(n.left));
    }

    bool is_exact_repetition(const TRexNode &n) const {
        const TRexNode &operand = node(n.left);
        const bool is_star = minimum_of(n) == 0 && maximum_of(n) == trex_unbounded;
        if (takes_one(operand)) {
            return !is_star || can_not_follow(n.next, characters(n.left));
        }
        if (is_star || !is_group(operand)) {
            return false;
        }
        const sequence_facts group = facts_of_group(operand, 0);
        return group.is_sound && group.has_one_end && !group.positions.empty();
    }

    // Whether what begins with the node needs a character that is not in the set, or the end.
    bool can_not_follow(int32_t index, const character_set &set) const {
        if (index < 0) {
            return false;
        }
        const TRexNode &n = node(index);
        if (n.type == trex_op_eol) {
            return true;
        }
        if (n.type == trex_op_greedy && minimum_of(n) > 0) {
            return takes_one(node(n.left)) && !overlap(characters(n.left), set);
        }
        return takes_one(n) && !overlap(characters(index), set);
    }

    sequence_facts facts_of_group(const TRexNode &group, int depth) const {
        if (depth > deepest_group) {
            return {};
        }
        if (node(group.left).type != trex_op_or) {
            return facts_of_sequence(group.left, false, depth);
        }
        std::vector<sequence_facts> branches;
        int32_t index = group.left;
        for (; node(index).type == trex_op_or; index = node(index).right) {
            branches.push_back(facts_of_sequence(node(index).left, true, depth));
        }
        branches.push_back(facts_of_sequence(index, true, depth));
        return together(branches);
    }

    static bool may_match_at_one_place(const sequence_facts &one, const sequence_facts &other) {
        const size_t common = std::min(one.positions.size(), other.positions.size());
        for (size_t i = 0; i < common; ++i) {
            if (!overlap(one.positions[i], other.positions[i])) {
                return false;
            }
        }
        return true;
    }

    static bool end_in_one_place(const sequence_facts &one, const sequence_facts &other) {
        return (one.has_one_length && other.has_one_length &&
                one.positions.size() == other.positions.size()) ||
               !may_match_at_one_place(one, other);
    }

    // Of an alternation.
    static sequence_facts together(const std::vector<sequence_facts> &branches) {
        sequence_facts all = branches.front();
        for (size_t i = 1; i < branches.size(); ++i) {
            for (size_t j = 0; j < i; ++j) {
                all.has_one_end = all.has_one_end && end_in_one_place(branches[j], branches[i]);
            }
            const sequence_facts &branch = branches[i];
            all.is_sound = all.is_sound && branch.is_sound;
            all.has_one_end = all.has_one_end && branch.has_one_end;
            all.has_one_length = all.has_one_length && branch.has_one_length &&
                                 all.positions.size() == branch.positions.size();
            all.positions.resize(std::min(all.positions.size(), branch.positions.size()));
            for (size_t k = 0; k < all.positions.size(); ++k) {
                for (size_t w = 0; w < std::size(all.positions[k].words); ++w) {
                    all.positions[k].words[w] |= branch.positions[k].words[w];
                }
            }
        }
        return all;
    }

    sequence_facts facts_of_sequence(int32_t first, bool is_branch, int depth) const {
        sequence_facts facts;
        for (int32_t index = first; index >= 0; index = node(index).next) {
            if (!add_element(index, is_branch, depth, &facts)) {
                return {};
            }
        }
        facts.is_sound = true;
        return facts;
    }

    // Positions are known as long as all before them have one length.
    static void add_positions(const std::vector<character_set> &positions, sequence_facts *facts) {
        if (facts->has_one_length) {
            facts->positions.insert(facts->positions.end(), positions.begin(), positions.end());
        }
    }

    bool add_element(int32_t index, bool is_branch, int depth, sequence_facts *facts) const {
        const TRexNode &n = node(index);
        if (takes_one(n)) {
            add_positions({characters(index)}, facts);
            return true;
        }
        if (n.type == trex_op_bol) {
            return true;
        }
        if (n.type == trex_op_eol) {
            return is_branch && n.next < 0;
        }
        if (is_group(n)) {
            return add_group(n, depth, facts);
        }
        return n.type == trex_op_greedy && add_repetition(n, is_branch, facts);
    }

    bool add_group(const TRexNode &n, int depth, sequence_facts *facts) const {
        const sequence_facts group = facts_of_group(n, depth + 1);
        add_positions(group.positions, facts);
        facts->has_one_length = facts->has_one_length && group.has_one_length;
        return group.is_sound && group.has_one_end;
    }

    // Of a character. What is not {n} takes all there is, inside a group, and gives nothing back.
    bool add_repetition(const TRexNode &n, bool is_branch, sequence_facts *facts) const {
        if (!takes_one(node(n.left)) || minimum_of(n) == 0 || minimum_of(n) > 64) {
            return false;
        }
        const character_set set = characters(n.left);
        add_positions(std::vector<character_set>(static_cast<size_t>(minimum_of(n)), set), facts);
        if (minimum_of(n) == maximum_of(n)) {
            return true;
        }
        facts->has_one_length = false;
        if (n.next >= 0) {
            return can_not_follow(n.next, set);
        }
        facts->has_one_end = false;
        return is_branch;
    }

    const TRex &expression_;
};

} // namespace

// --- The automaton ---

namespace {

struct too_large {};

class language_maker {
  public:
    explicit language_maker(const TRex &expression) : expression_(expression) {
        add_state();
    }

    pattern_language make() {
        try {
            made_.last = sequence(expression_.nodes[0].left, 0, 1);
        } catch (const too_large &) {
            return {};
        }
        made_.is_known = true;
        made_.is_exact = exactness(expression_).holds();
        return std::move(made_);
    }

  private:
    using kind = pattern_edge::kind;

    const TRexNode &node(int32_t index) const {
        return expression_.nodes[index];
    }
    size_t add_state() {
        if (made_.states.size() == most_states) {
            throw too_large();
        }
        made_.states.emplace_back();
        return made_.states.size() - 1;
    }
    size_t to_new_state(size_t from, kind is) {
        const size_t to = add_state();
        made_.states[from].push_back({is, to});
        return to;
    }
    void link(size_t from, size_t to) {
        made_.states[from].push_back({kind::free, to});
    }

    size_t character(int32_t index, size_t from) {
        character_set set = {};
        characters_of_node(&expression_, index, &set);
        made_.sets.push_back(set);
        const size_t to = add_state();
        made_.states[from].push_back({kind::character, to, made_.sets.size() - 1});
        return to;
    }

    // Any characters; at the end of a sequence, all that are left.
    size_t any_sequence(const TRexNode &n, size_t from) {
        const size_t loop = to_new_state(from, kind::free);
        character_set all;
        std::fill(std::begin(all.words), std::end(all.words), ~uint64_t{0});
        made_.sets.push_back(all);
        made_.states[loop].push_back({kind::character, loop, made_.sets.size() - 1});
        return to_new_state(loop, n.next < 0 ? kind::end : kind::free);
    }

    // Whether a sequence has a ".*" with something behind it, and no end node for it to find.
    bool is_dead(int32_t first) const {
        bool searches = false;
        int32_t last_type = trex_op_eol;
        for (int32_t index = first; index >= 0; index = node(index).next) {
            last_type = node(index).type;
            searches = searches || (last_type == trex_op_any_sequence &&
                                    is_followed_by_another(node(index).next));
        }
        return searches && last_type != trex_op_eol;
    }
    bool is_followed_by_another(int32_t index) const {
        while (index >= 0 && node(index).type == trex_op_any_sequence) {
            index = node(index).next;
        }
        return index >= 0;
    }

    // depth: of groups, as the engine counts them.
    size_t sequence(int32_t first, size_t from, int depth) {
        if (is_dead(first)) {
            return add_state(); // which nothing leads to
        }
        for (int32_t index = first; index >= 0; index = node(index).next) {
            from = element(index, from, depth);
        }
        return from;
    }

    size_t alternation(const TRexNode &n, size_t from, int depth) {
        const size_t to = add_state();
        // A branch knows of nothing that follows it, as if it were in a group.
        link(sequence(n.left, to_new_state(from, kind::free), depth + 1), to);
        link(sequence(n.right, to_new_state(from, kind::free), depth + 1), to);
        return to;
    }

    size_t element(int32_t index, size_t from, int depth) {
        const TRexNode &n = node(index);
        if (takes_one(n)) {
            return character(index, from);
        }
        if (depth > deepest_group) {
            throw too_large();
        }
        switch (n.type) {
        case trex_op_greedy:
            return repetition(n, from, depth);
        case trex_op_or:
            return alternation(n, from, depth);
        case trex_op_any_sequence:
            return any_sequence(n, from);
        case trex_op_eol:
            return to_new_state(from, kind::end);
        case trex_op_bol:
            return to_new_state(from, kind::beginning);
        case trex_op_wb:
            return to_new_state(from, kind::free);
        default:
            return sequence(n.left, from, depth + 1);
        }
    }

    // Inside a group a repetition that has bounds takes as many as there are.
    size_t repetition(const TRexNode &n, size_t from, int depth) {
        const int32_t minimum = minimum_of(n);
        const bool is_optional = minimum == 0 && maximum_of(n) == 1;
        const bool is_bounded = minimum == maximum_of(n) || is_optional || depth == 1;
        const int32_t maximum = is_bounded ? maximum_of(n) : trex_unbounded;
        for (int32_t i = 0; i < minimum; ++i) {
            from = element(n.left, from, depth);
        }
        if (maximum == trex_unbounded) {
            const size_t loop = to_new_state(from, kind::free);
            link(element(n.left, loop, depth), loop);
            return loop;
        }
        const size_t to = add_state();
        link(from, to);
        for (int32_t i = minimum; i < maximum; ++i) {
            from = element(n.left, from, depth);
            link(from, to);
        }
        return to;
    }

    const TRex &expression_;
    pattern_language made_;
};

} // namespace

pattern_language language_of(const TRex &expression) {
    return language_maker(expression).make();
}

// --- Through the automaton ---

namespace {

// How far a name has come. A short name may be at its beginning and its end at once.
enum moment : size_t { at_beginning, between, at_end, at_both, moments };

} // namespace

static bool lets_pass(const pattern_language &language, const pattern_edge &edge, moment now,
                      moment *then) {
    *then = now;
    switch (edge.is) {
    case pattern_edge::kind::character:
        *then = between;
        return (now == at_beginning || now == between) &&
               overlap(language.sets[edge.characters], language.sets[edge.characters]);
    case pattern_edge::kind::beginning:
        return now == at_beginning || now == at_both;
    case pattern_edge::kind::end:
        return now == at_end || now == at_both;
    default:
        return true;
    }
}

bool takes_nothing(const pattern_language &language) {
    std::vector<bool> met(language.states.size() * moments);
    std::vector<std::pair<size_t, moment>> to_do = {{0, at_beginning}};
    while (!to_do.empty()) {
        const auto [state, now] = to_do.back();
        to_do.pop_back();
        if (met[state * moments + now]) {
            continue;
        }
        met[state * moments + now] = true;
        if (now == at_beginning || now == between) { // it may end here
            to_do.emplace_back(state, now == between ? at_end : at_both);
        } else if (state == language.last) {
            return false;
        }
        for (const pattern_edge &edge : language.states[state]) {
            moment then;
            if (lets_pass(language, edge, now, &then)) {
                to_do.emplace_back(edge.to, then);
            }
        }
    }
    return true;
}

// --- Names ---

namespace {

// From a state at a moment (numbered state by state) to another.
struct name_step {
    size_t from;
    size_t to;
    std::optional<char> character;
};

// The shortest way from a place to all others, or from all others to it.
class ways {
  public:
    ways(const std::vector<name_step> &steps, size_t places, size_t begin, bool backward)
        : steps_(steps), first_(places + 1), last_step_(places, unmet), backward_(backward) {
        sort_steps();
        search(begin);
    }

    bool leads(size_t place) const {
        return last_step_[place] != unmet;
    }
    // The characters on the way.
    std::string text(size_t place) const {
        std::string characters;
        while (last_step_[place] != no_step) {
            const name_step &step = steps_[last_step_[place]];
            if (step.character) {
                characters += *step.character;
            }
            place = backward_ ? step.to : step.from;
        }
        if (!backward_) {
            std::reverse(characters.begin(), characters.end());
        }
        return characters;
    }

  private:
    static constexpr size_t unmet = SIZE_MAX;
    static constexpr size_t no_step = SIZE_MAX - 1;

    size_t begin_of(const name_step &step) const {
        return backward_ ? step.to : step.from;
    }

    // Those that begin at one place in a row.
    void sort_steps() {
        for (const name_step &step : steps_) {
            ++first_[begin_of(step) + 1];
        }
        for (size_t place = 1; place < first_.size(); ++place) {
            first_[place] += first_[place - 1];
        }
        std::vector<size_t> next = first_;
        in_order_.resize(steps_.size());
        for (size_t i = 0; i < steps_.size(); ++i) {
            in_order_[next[begin_of(steps_[i])]++] = i;
        }
    }

    // What takes no character is looked at first.
    void search(size_t begin) {
        struct met {
            size_t place;
            size_t step;
        };
        std::deque<met> to_do = {{begin, no_step}};
        while (!to_do.empty()) {
            const met now = to_do.front();
            to_do.pop_front();
            if (leads(now.place)) {
                continue;
            }
            last_step_[now.place] = now.step;
            for (size_t i = first_[now.place]; i < first_[now.place + 1]; ++i) {
                const name_step &step = steps_[in_order_[i]];
                const met then = {backward_ ? step.from : step.to, in_order_[i]};
                if (step.character) {
                    to_do.push_back(then);
                } else {
                    to_do.push_front(then);
                }
            }
        }
    }

    const std::vector<name_step> &steps_;
    std::vector<size_t> first_;    // where a place's steps begin in in_order_
    std::vector<size_t> in_order_; // indexes of steps_
    std::vector<size_t> last_step_;
    const bool backward_;
};

} // namespace

// Of each set the printable character that most of the sets have: what matches in several places
// is what a matcher takes in the wrong one.
static std::vector<std::optional<char>> characters_for(const pattern_language &language) {
    std::string candidates = "abcdefghijklmnopqrstuvwxyz0123456789-.";
    for (char c = ' '; c <= '~'; ++c) {
        candidates += c;
    }
    const auto popularity = [&language](char c) {
        return std::count_if(language.sets.begin(), language.sets.end(),
                             [c](const character_set &set) { return set.has(c); });
    };
    std::stable_sort(candidates.begin(), candidates.end(),
                     [&](char a, char b) { return popularity(a) > popularity(b); });
    std::vector<std::optional<char>> chosen;
    for (const character_set &set : language.sets) {
        const auto found = std::find_if(candidates.begin(), candidates.end(),
                                        [&set](char c) { return set.has(c); });
        chosen.push_back(found == candidates.end() ? std::nullopt : std::optional(*found));
    }
    return chosen;
}

static std::vector<name_step> steps_of(const pattern_language &language) {
    const std::vector<std::optional<char>> characters = characters_for(language);
    std::vector<name_step> steps;
    for (size_t state = 0; state < language.states.size(); ++state) {
        steps.push_back({state * moments + at_beginning, state * moments + at_both, {}});
        steps.push_back({state * moments + between, state * moments + at_end, {}});
        for (size_t now = 0; now < moments; ++now) {
            for (const pattern_edge &edge : language.states[state]) {
                const bool takes_one = edge.is == pattern_edge::kind::character;
                const std::optional<char> c =
                    takes_one ? characters[edge.characters] : std::nullopt;
                moment then;
                if (lets_pass(language, edge, static_cast<moment>(now), &then) &&
                    takes_one == c.has_value()) {
                    steps.push_back({state * moments + now, edge.to * moments + then, c});
                }
            }
        }
    }
    return steps;
}

std::vector<std::string> names_of(const pattern_language &language) {
    if (!language.is_known) {
        return {};
    }
    std::vector<name_step> steps = steps_of(language);
    // A name ends at its end or, when it is empty, at both.
    const size_t places = language.states.size() * moments;
    const size_t end = places;
    steps.push_back({language.last * moments + at_end, end, {}});
    steps.push_back({language.last * moments + at_both, end, {}});
    const ways there(steps, places + 1, at_beginning, false);
    const ways back(steps, places + 1, end, true);
    std::vector<std::string> names;
    for (const name_step &step : steps) {
        if (names.size() < most_names && step.character && there.leads(step.from) &&
            back.leads(step.to)) {
            names.push_back(there.text(step.from) + *step.character + back.text(step.to));
        }
    }
    std::sort(names.begin(), names.end(), [](const std::string &a, const std::string &b) {
        return a.size() != b.size() ? a.size() < b.size() : a < b;
    });
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

// --- Proofs ---

namespace {

using state_set = std::vector<size_t>; // in order, each once

// The sets of states that a name leads to, numbered as they are met.
class set_machine {
  public:
    explicit set_machine(const pattern_language &language) : language_(language) {
        sets_.push_back(closed({0}, true, false));
    }

    // 0 is where a name begins.
    bool accepts(size_t set) const {
        const state_set at_end = closed(sets_[set], set == 0, true);
        return std::binary_search(at_end.begin(), at_end.end(), language_.last);
    }

    size_t after(size_t set, char c) {
        state_set reached;
        for (const size_t state : sets_[set]) {
            for (const pattern_edge &edge : language_.states[state]) {
                if (edge.is == pattern_edge::kind::character &&
                    language_.sets[edge.characters].has(c)) {
                    reached.push_back(edge.to);
                }
            }
        }
        return number_of(closed(std::move(reached), false, false));
    }

  private:
    size_t number_of(state_set set) {
        const auto [place, is_new] = numbers_.emplace(std::move(set), sets_.size());
        if (is_new) {
            sets_.push_back(place->first);
        }
        return place->second;
    }

    // With all states that can be reached without a character.
    state_set closed(state_set set, bool at_begin, bool at_end) const {
        std::vector<bool> has(language_.states.size());
        state_set all;
        while (!set.empty()) {
            const size_t state = set.back();
            set.pop_back();
            if (has[state]) {
                continue;
            }
            has[state] = true;
            all.push_back(state);
            for (const pattern_edge &edge : language_.states[state]) {
                const bool free = edge.is == pattern_edge::kind::free ||
                                  (edge.is == pattern_edge::kind::beginning && at_begin) ||
                                  (edge.is == pattern_edge::kind::end && at_end);
                if (free) {
                    set.push_back(edge.to);
                }
            }
        }
        std::sort(all.begin(), all.end());
        return all;
    }

    const pattern_language &language_;
    std::vector<state_set> sets_;
    std::map<state_set, size_t> numbers_; // of all but the first one
};

} // namespace

// One character for each kind that the languages do not tell apart.
static std::vector<char> kinds_of_characters(const std::vector<const pattern_language *> &all) {
    std::map<std::vector<bool>, char> kinds;
    for (int code = 0; code < 256; ++code) {
        const char c = static_cast<char>(code);
        std::vector<bool> where;
        for (const pattern_language *language : all) {
            for (const character_set &set : language->sets) {
                where.push_back(set.has(c));
            }
        }
        kinds.emplace(std::move(where), c);
    }
    std::vector<char> one_of_each;
    for (const auto &[where, c] : kinds) {
        one_of_each.push_back(c);
    }
    return one_of_each;
}

bool holds_always(const std::vector<const pattern_language *> &languages,
                  const std::function<bool(const std::vector<bool> &)> &holds) {
    std::vector<set_machine> machines;
    for (const pattern_language *language : languages) {
        if (!language->is_known) {
            return false;
        }
        machines.emplace_back(*language);
    }
    const std::vector<char> kinds = kinds_of_characters(languages);
    using place = std::vector<size_t>; // one set of each machine
    std::map<place, bool> met = {{place(machines.size(), 0), true}};
    std::vector<place> to_do = {met.begin()->first};
    size_t steps_left = most_steps_of_proof;
    while (!to_do.empty()) {
        const place from = to_do.back();
        to_do.pop_back();
        std::vector<bool> taken;
        for (size_t i = 0; i < machines.size(); ++i) {
            taken.push_back(machines[i].accepts(from[i]));
        }
        if (!holds(taken)) {
            return false;
        }
        for (const char c : kinds) {
            if (steps_left-- == 0) {
                return false;
            }
            place to;
            for (size_t i = 0; i < machines.size(); ++i) {
                to.push_back(machines[i].after(from[i], c));
            }
            if (met.emplace(to, true).second) {
                to_do.push_back(std::move(to));
            }
        }
    }
    return true;
}

} // namespace quillfence::data_files

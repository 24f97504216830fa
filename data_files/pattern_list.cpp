#include "pattern_list.h"

#include "engine_messages.h"
#include "pattern_conditions.h"
#include "pattern_warnings.h"

namespace quillfence::data_files {

// What is wrong with a pattern that does not compile; empty when nothing is.
static std::string compile_problem(const std::string &pattern) {
    engine_messages messages;
    const trex_ptr expression(trex_compile_ex(pattern.c_str(), trex_fold_case));
    return expression ? "" : messages.take();
}

static void warn_about(const std::string &pattern, list_pattern *line) {
    for (std::string &warning : warnings_about(pattern)) {
        line->problems.push_back({false, std::move(warning)});
    }
}

list_pattern *pattern_list::new_line(uint64_t number) {
    lines_.push_back({number});
    return &lines_.back();
}

void pattern_list::complain(size_t line, std::string text) {
    lines_[line].problems.push_back({true, std::move(text)});
}

// What is wrong with a condition by itself; empty when nothing is.
static std::string condition_problem(const std::string &condition) {
    const std::string problem = compile_problem(condition);
    if (!problem.empty()) {
        return "the condition does not compile: " + problem;
    }
    if (has_bar_outside(condition)) {
        return "the condition's bar stands outside parentheses, where it does not mean \"or\"; "
               "write if /(" +
               condition + ")/";
    }
    return {};
}

void pattern_list::begin_condition(uint64_t number, std::string text, bool negated) {
    if (std::string problem = condition_problem(text); !problem.empty()) {
        begin_wrong_condition(number, std::move(problem));
        return;
    }
    warn_about(text, new_line(number));
    open_.push_back({lines_.size() - 1, std::move(text), negated});
}

// The lines up to its "endif" stand without it.
void pattern_list::begin_wrong_condition(uint64_t number, std::string problem) {
    new_line(number);
    open_.push_back({.line = lines_.size() - 1, .is_wrong = true});
    complain(lines_.size() - 1, std::move(problem));
}

void pattern_list::end_condition(uint64_t number) {
    if (open_.empty()) {
        new_line(number);
        complain(lines_.size() - 1, "\"endif\" without an \"if\" above it");
        return;
    }
    const condition ended = std::move(open_.back());
    open_.pop_back();
    if (ended.unfolded > 0) {
        complain(ended.line, "the condition can't be folded into " +
                                 std::to_string(ended.unfolded) + " of the " +
                                 std::to_string(ended.patterns) +
                                 " patterns up to its \"endif\", " + "the first in line " +
                                 std::to_string(ended.first_unfolded) +
                                 "; write the condition into each pattern");
    }
}

void pattern_list::add_pattern(uint64_t number, const std::string &pattern) {
    list_pattern *const line = new_line(number);
    line->patterns = {pattern};
    warn_about(pattern, line);
    if (open_.empty() || !compile_problem(pattern).empty()) {
        return; // whoever compiles it tells what is wrong
    }
    for (size_t i = open_.size(); i-- > 0 && !line->patterns.empty();) {
        condition &around = open_[i];
        if (around.is_wrong) {
            continue;
        }
        ++around.patterns;
        folded_pattern folded = fold_condition(around.text, around.negated, line->patterns);
        if (folded.is != folded_pattern::kind::unfolded) {
            line->patterns = std::move(folded.patterns);
        } else if (around.unfolded++ == 0) {
            around.first_unfolded = number;
        }
        if (folded.is == folded_pattern::kind::nothing) {
            line->problems.push_back(
                {false, "the pattern takes no name that the condition in line " +
                            std::to_string(lines_[around.line].number) +
                            " lets through, and is left out"});
        }
    }
}

void pattern_list::add(uint64_t number, std::string_view text) {
    using kind = pattern_line::kind;
    pattern_line line = reader_.read(text);
    switch (line.is) {
    case kind::nothing:
        break;
    case kind::wrong:
        new_line(number)->problems.push_back({true, std::move(line.text)});
        break;
    case kind::wrong_condition:
        begin_wrong_condition(number, std::move(line.text));
        break;
    case kind::condition:
    case kind::negated_condition:
        begin_condition(number, std::move(line.text), line.is == kind::negated_condition);
        break;
    case kind::end_of_condition:
        end_condition(number);
        break;
    case kind::pattern:
        if (takes_(line.action)) {
            add_pattern(number, line.text);
        }
        break;
    }
}

std::vector<list_pattern> pattern_list::finish() {
    while (!open_.empty()) {
        complain(open_.back().line, "there is no \"endif\" for this \"if\"");
        open_.pop_back();
    }
    return std::move(lines_);
}

} // namespace quillfence::data_files

// The subcommands of compiled pattern files.
#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "command_line.h"
#include "compiled_file.h"
#include "data_program.h"
#include "engine_messages.h"
#include "file_digest.h"
#include "file_output.h"
#include "json_rows.h"
#include "line_input.h"
#include "pattern_lines.h"
#include "pattern_list.h"
#include "pattern_text.h"
#include "pattern_trial.h"
#include "text.h"
#include "tiny_rex_storage.h"
#include "vc_text.h"

namespace quillfence::data_tool {

// --- compile ---

namespace {

struct compile_options {
    std::string patterns;
    std::string out;
    bool keep_going = false;
    bool no_lines = false;
    std::string only; // actions with commas between them; "" for those that refuse
};

// Which lines of a mail server's list are compiled, by their actions.
class action_choice {
  public:
    explicit action_choice(const std::string &only) {
        size_t begin = 0;
        while (!only.empty() && begin <= only.size()) {
            const size_t end = std::min(only.find(',', begin), only.size());
            add(only.substr(begin, end - begin));
            begin = end + 1;
        }
    }

    // A line without an action is a pattern alone, and always taken.
    bool takes(const std::string &action) {
        const bool taken =
            action.empty() || (only_.empty() ? is_refusal(action) : only_.count(action) != 0);
        if (!taken) {
            ++left_out_[action];
        }
        return taken;
    }

    // What was left out, with counts; "" for nothing.
    std::string remark() const {
        std::string actions;
        uint64_t lines = 0;
        for (const auto &[action, count] : left_out_) {
            actions +=
                (actions.empty() ? "" : ", ") + printable(action) + ' ' + std::to_string(count);
            lines += count;
        }
        if (lines == 0) {
            return {};
        }
        return counted(lines, "line") + " left out, whose actions " +
               (only_.empty() ? "refuse nobody: " + actions + " (--only takes them in)"
                              : "were not asked for: " + actions);
    }

  private:
    void add(std::string action) {
        if (action.empty()) {
            throw failure("--only: an action is empty; write them as in REJECT,PREPEND");
        }
        for (char &character : action) {
            character = to_upper(character);
        }
        only_.insert(std::move(action));
    }

    std::set<std::string> only_;
    std::map<std::string, uint64_t> left_out_;
};

} // namespace

// Warns of a part that the engine refuses when it comes to it: the match then ends as none.
static void warn_of_bad_nodes(const TRex &expression, engine_messages *messages, uint64_t line,
                              line_input *in) {
    for (int32_t i = 0; i < expression.nsize; ++i) {
        if (!__trex_node_is_valid(&expression, &expression.nodes[i])) {
            in->warn(line, "a part of the pattern can't be matched: " + messages->take());
            return;
        }
    }
}

static void warn_of_long_matches(TRex *expression, engine_messages *messages, uint64_t line,
                                 line_input *in) {
    const std::string name = name_that_takes_long(expression);
    if (!name.empty()) {
        in->warn(line,
                 "the pattern takes more than a hundredth of the steps that a message has for all "
                 "its names and patterns, with the name " +
                     name);
    }
    messages->take(); // of bad nodes, which have been warned of
}

// The pattern of a line to the file; false when the line has been complained about.
static bool compile_pattern(const std::string &pattern, uint64_t line, line_input *in,
                            file_output *out) {
    engine_messages messages;
    const trex_ptr expression(trex_compile_ex(pattern.c_str(), trex_fold_case));
    if (!expression) {
        in->complain(line, messages.take());
        return false;
    }
    if (expression->nsize > trs_max_nodes) {
        in->complain(line, "the pattern needs " + std::to_string(expression->nsize) +
                               " nodes, and a file takes " + std::to_string(trs_max_nodes) +
                               " a pattern; split it into several");
        return false;
    }
    warn_of_bad_nodes(*expression, &messages, line, in);
    warn_of_long_matches(expression.get(), &messages, line, in);
    if (!trs_store(out->stream(), expression.get())) {
        out->fail(messages.take());
    }
    return true;
}

// The patterns of the lines to the file. Returns where each came from.
static std::vector<pattern_origin> compile_lines(const std::vector<list_pattern> &lines,
                                                 const std::string &list, line_input *in,
                                                 file_output *out) {
    std::vector<pattern_origin> origins;
    for (const list_pattern &line : lines) {
        for (const list_problem &problem : line.problems) {
            problem.is_error ? in->complain(line.number, problem.text)
                             : in->warn(line.number, problem.text);
        }
        for (const std::string &pattern : line.patterns) {
            if (!compile_pattern(pattern, line.number, in, out)) {
                break;
            }
            origins.push_back({static_cast<uint32_t>(line.number), list});
        }
    }
    return origins;
}

// Writes which line each expression was made from, beside the compiled file that is in its place.
static void write_origins(const std::string &compiled_path,
                          const std::vector<pattern_origin> &origins) {
    std::string digest;
    if (const uint32_t error = digest_of_file(compiled_path, &digest)) {
        throw failure(file_error(compiled_path, error));
    }
    file_output out(compiled_path + pattern_lines_suffix);
    const std::string text = pattern_lines_text(digest, origins);
    out.write(text.data(), text.size());
    out.commit();
}

static exit_status compile(const compile_options &options) {
    refuse_same_file(options.patterns, options.out);
    line_input in(options.patterns);
    file_output out(options.out);
    engine_messages messages;
    if (!trs_set_header(out.stream())) {
        out.fail(messages.take());
    }
    action_choice actions(options.only);
    pattern_list list([&actions](const std::string &action) { return actions.takes(action); });
    for (std::string_view text; in.next(&text);) {
        list.add(in.number(), text);
    }
    const std::vector<pattern_origin> origins =
        compile_lines(list.finish(), options.patterns, &in, &out);
    if (const std::string remark = actions.remark(); !remark.empty()) {
        complain(options.patterns + ": " + remark);
    }
    refuse_wrong_lines(in, options.out, options.keep_going);
    const exit_status status =
        finish_writing(in, &out, options.out, counted(origins.size(), "expression"));
    if (!options.no_lines) {
        write_origins(options.out, origins);
    }
    return status;
}

static command compile_command() {
    auto options = std::make_shared<compile_options>();
    return {
        .name = "compile",
        .description = "Compile a list of patterns",
        .options =
            {{"PATTERNS",
              &options->patterns,
              "The list; - for standard input",
              {.check = not_empty()}},
             {"OUT", &options->out, "The compiled pattern file to write", {.check = not_empty()}},
             {"--keep-going", &options->keep_going, "Leave wrong lines out and write the others"},
             {"--only",
              &options->only,
              "Compile the lines with these actions, and those without one",
              {.value = "ACTION,..."}},
             {"--no-lines", &options->no_lines,
              "Do not write OUT.lines, which tells each expression's line of the list"}},
        .footer = R"(Lines of the list:
  # ...                   a comment; blank lines are skipped too
  /pattern/flags ACTION   as mail servers keep them; / is the only delimiter. Lines
                          whose action refuses nobody (PREPEND, DUNNO, OK, WARN ...)
                          are left out, unless --only names it; REJECT, DISCARD, the
                          DEFERs and codes from 400 refuse. Flags i m s E U X change
                          nothing, since case never counts; A and x are errors
  if /pattern/flags       a condition for the lines up to its "endif"; if !/pattern/ too.
                          It becomes part of each pattern where that can be done exactly,
                          and is an error where it can't. Both words in any letter case
  pattern                 anything else
Lines "!/.../" are errors. A pattern that begins with a slash or a number sign is written
with a backslash in front of it.

All wrong lines are reported in one run as file:line: error: what is wrong. When there
is one nothing is written, or with --keep-going everything else (exit status 3).)",
        .run = [options] { return compile(*options); },
    };
}

// --- dump ---

static void print_nodes(const TRex &expression) {
    for (int32_t i = 0; i < expression.nallocated; ++i) {
        std::printf("#   %s\n", describe_node(expression, i).c_str());
    }
}

// "pattern" with the text of an expression, or null and the "problem" that it has none.
static std::string pattern_members(const TRex &expression) {
    std::string reason;
    const std::string text = pattern_of_nodes(expression, &reason);
    return text.empty() ? "\"pattern\":null,\"problem\":" + json_text(reason)
                        : "\"pattern\":" + json_text(text);
}

static std::string nodes_member(const TRex &expression) {
    std::string nodes;
    for (int32_t i = 0; i < expression.nallocated; ++i) {
        nodes += (i ? "," : "") + json_text(describe_node(expression, i));
    }
    return "\"nodes\":[" + nodes + ']';
}

static bool has_text(const TRex &expression) {
    std::string reason;
    return !pattern_of_nodes(expression, &reason).empty();
}

// The expressions in their order; the stretches that hold none in a list of their own.
static exit_status dump_json(const std::string &path) {
    const std::vector<file_block> blocks = read_compiled_file(path);
    exit_status status = exit_status::done;
    std::string damaged;
    uint64_t number = 0;
    json_rows rows("expressions");
    for (const file_block &block : blocks) {
        if (!block.expression) {
            damaged += (damaged.empty() ? "{" : ",{") +
                       ("\"offset\":" + std::to_string(block.offset)) +
                       ",\"problem\":" + json_text(block.damage) + '}';
            status = exit_status::partly;
            continue;
        }
        rows.next();
        const bool is_sound = has_text(*block.expression);
        std::printf("{\"expression\":%llu,%s%s}", static_cast<unsigned long long>(++number),
                    pattern_members(*block.expression).c_str(),
                    is_sound ? "" : (',' + nodes_member(*block.expression)).c_str());
        status = is_sound ? status : exit_status::partly;
    }
    rows.end("\"damaged\":[" + damaged + ']');
    return status;
}

static exit_status dump_lines(const std::string &path) {
    exit_status status = exit_status::done;
    uint64_t number = 0;
    for (const file_block &block : read_compiled_file(path)) {
        if (!block.expression) {
            std::printf("# no expression at offset %llu: %s\n",
                        static_cast<unsigned long long>(block.offset), block.damage.c_str());
            status = exit_status::partly;
            continue;
        }
        ++number;
        std::string reason;
        const std::string text = pattern_of_nodes(*block.expression, &reason);
        if (!text.empty()) {
            std::printf("%s\n", text.c_str());
            continue;
        }
        std::printf("# expression %llu has no text: %s\n", static_cast<unsigned long long>(number),
                    reason.c_str());
        print_nodes(*block.expression);
        status = exit_status::partly;
    }
    return status;
}

namespace {

struct dump_options {
    std::string file;
    bool json = false;
};

} // namespace

static exit_status dump(const dump_options &options) {
    const exit_status status = options.json ? dump_json(options.file) : dump_lines(options.file);
    if (status == exit_status::partly) {
        complain(options.file + ": parts of the file have no text; they are shown " +
                 (options.json ? "with the reason" : "as comments"));
    }
    return status;
}

static command dump_command() {
    auto options = std::make_shared<dump_options>();
    return {
        .name = "dump",
        .description = "Print the patterns of a compiled pattern file",
        .options = {{"FILE", &options->file, "The compiled pattern file", {.check = not_empty()}},
                    {"--json", &options->json, "Write a JSON object"}},
        .footer =
            R"(One pattern a line, in the order of the file. Compiling them gives the same nodes.
What no pattern can give, such as damaged nodes, becomes a comment with the reason and
the nodes (exit status 3).)",
        .run = [options] { return dump(*options); },
    };
}

// --- test ---

namespace {

struct test_options {
    std::string file;
    std::vector<std::string> names;
    bool all = false;
    bool json = false;
};

// The readable expressions of a file.
struct expression_list {
    std::vector<trex_ptr> expressions;
    std::vector<bool> complained; // about this expression
    bool damaged = false;
};

} // namespace

static expression_list load_expressions(const std::string &path) {
    expression_list list;
    for (file_block &block : read_compiled_file(path)) {
        if (block.expression) {
            list.expressions.push_back(std::move(block.expression));
            continue;
        }
        complain(path + ": no expression at offset " + std::to_string(block.offset) + ": " +
                 block.damage);
        list.damaged = true;
    }
    list.complained.resize(list.expressions.size());
    return list;
}

static bool matches(expression_list *list, size_t index, const std::string &name,
                    const std::string &path) {
    engine_messages messages;
    const bool matched = trex_match(list->expressions[index].get(), name.c_str());
    const std::string problem = messages.take();
    if (!problem.empty() && !list->complained[index]) {
        complain(path + ": expression " + std::to_string(index + 1) + ": " + problem);
        list->complained[index] = true;
        list->damaged = true;
    }
    return matched;
}

static std::string text_of(const TRex &expression) {
    std::string reason;
    const std::string text = pattern_of_nodes(expression, &reason);
    return text.empty() ? "(no text: " + reason + ")" : text;
}

namespace {

// What a match prints: the number of the expression from 1, and the steps up to it.
using match_writer = void (*)(const std::string &name, size_t number, const TRex &expression,
                              uint64_t all_steps, bool is_first);

} // namespace

static void write_match(const std::string &name, size_t number, const TRex &expression,
                        uint64_t all_steps, bool) {
    std::printf("%s: expression %zu: %s (%s, %s in all)\n", printable(name).c_str(), number,
                text_of(expression).c_str(), counted(expression.steps, "step").c_str(),
                counted(all_steps, "step").c_str());
}

static void write_match_json(const std::string &, size_t number, const TRex &expression,
                             uint64_t all_steps, bool is_first) {
    std::printf("%s{\"expression\":%zu,%s,\"steps\":%llu,\"steps_in_all\":%llu}",
                is_first ? "" : ",", number, pattern_members(expression).c_str(),
                static_cast<unsigned long long>(expression.steps),
                static_cast<unsigned long long>(all_steps));
}

namespace {

struct name_outcome {
    bool matched;
    uint64_t steps; // in all
};

} // namespace

// Prints what matches a name.
static name_outcome write_matches(expression_list *list, const std::string &name,
                                  const test_options &options, match_writer write) {
    name_outcome outcome = {};
    for (size_t i = 0; i < list->expressions.size() && (options.all || !outcome.matched); ++i) {
        const bool hit = matches(list, i, name, options.file);
        const TRex &expression = *list->expressions[i];
        outcome.steps += expression.steps;
        if (hit) {
            write(name, i + 1, expression, outcome.steps, !outcome.matched);
            outcome.matched = true;
        }
    }
    return outcome;
}

// False when nothing matches the name.
static bool test_name(expression_list *list, const std::string &name, const test_options &options) {
    const name_outcome outcome = write_matches(list, name, options, write_match);
    if (!outcome.matched) {
        std::printf("%s: no match (%s, %s in all)\n", printable(name).c_str(),
                    counted(list->expressions.size(), "expression").c_str(),
                    counted(outcome.steps, "step").c_str());
    }
    return outcome.matched;
}

static bool test_name_json(expression_list *list, const std::string &name,
                           const test_options &options) {
    std::printf("{\"name\":%s,\"matches\":[", json_text(name).c_str());
    const name_outcome outcome = write_matches(list, name, options, write_match_json);
    std::printf("],\"steps_in_all\":%llu}", static_cast<unsigned long long>(outcome.steps));
    return outcome.matched;
}

static exit_status test(const test_options &options) {
    expression_list list = load_expressions(options.file);
    std::optional<json_rows> rows;
    if (options.json) {
        rows.emplace("names");
    }
    bool all_matched = true;
    for_each_argument(options.names, [&](const std::string &name) {
        if (rows) {
            rows->next();
        }
        all_matched = (rows ? test_name_json : test_name)(&list, name, options) && all_matched;
    });
    if (rows) {
        rows->end("\"expressions\":" + std::to_string(list.expressions.size()));
    }
    return list.damaged ? exit_status::partly : all_matched ? exit_status::done : exit_status::no;
}

static command test_command() {
    auto options = std::make_shared<test_options>();
    return {
        .name = "test",
        .description = "Show which expression matches a name",
        .options = {{"FILE", &options->file, "The compiled pattern file", {.check = not_empty()}},
                    {"NAME", &options->names,
                     "Host names or addresses; - reads them from standard input, one a line"},
                    {"--all", &options->all, "Show every expression that matches, not the first"},
                    {"--json", &options->json, "Write a JSON object"}},
        .footer =
            R"(For each name the number of the expression and its pattern, and the steps that its
match took and all up to it together; a match may take 50 million.

Exit status 1 when a name matches nothing, 3 when damaged expressions had to be left
out.)",
        .run = [options] { return test(*options); },
    };
}

command regex_command() {
    return {
        .name = "regex",
        .description = "Compiled pattern files (.cregexes)",
        .subcommands = {compile_command(), dump_command(), test_command()},
    };
}

} // namespace quillfence::data_tool

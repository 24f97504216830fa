#include "command_line.h"

#include <charconv>
#include <map>
#include <memory>
#include <sstream>
#include <string_view>
#include <system_error>
#include <type_traits>

#include <CLI/CLI.hpp>

namespace quillfence::programs {

namespace {

// Help in two columns, none of its lines longer than 80 characters.
class help_formatter : public CLI::Formatter {
  public:
    help_formatter() {
        column_width(names_width);
    }
    std::string make_option_desc(const CLI::Option *option) const override {
        return broken(option->get_description());
    }
    std::string make_subcommand(const CLI::App *subcommand) const override {
        std::stringstream out;
        CLI::detail::format_help(out, subcommand->get_name(), broken(subcommand->get_description()),
                                 names_width);
        return out.str();
    }

  private:
    static constexpr size_t names_width = 30;

    // CLI11 indents what follows a line feed.
    static std::string broken(std::string text) {
        constexpr size_t room = 80 - names_width;
        for (size_t begin = 0; text.size() - begin > room; ++begin) {
            const size_t blank = text.rfind(' ', begin + room);
            if (blank == std::string::npos || blank <= begin) {
                break;
            }
            text[blank] = '\n';
            begin = blank;
        }
        return text;
    }
};

} // namespace

// --- checks -------------------------------------------------------------------------------------

value_check one_of(std::vector<std::string> choices) {
    return CLI::IsMember(std::move(choices));
}

value_check between(double least, double most) {
    return [least, most](const std::string &value) {
        double number = 0;
        const bool is_number = CLI::detail::lexical_cast(value, number);
        return is_number && number >= least && number <= most
                   ? ""
                   : "Value " + value + " not in range " + std::to_string(least) + " to " +
                         std::to_string(most);
    };
}

value_check at_least(uint64_t least) {
    return [least](const std::string &value) {
        uint64_t number = 0;
        const char *end = value.data() + value.size();
        const auto [stop, error] = std::from_chars(value.data(), end, number);
        const bool is_number = stop == end && error == std::errc();
        return is_number && number >= least ? ""
                                            : value + " is no number from " + std::to_string(least);
    };
}

value_check not_empty() {
    return [](const std::string &value) {
        return value.empty() ? "must not be empty (is a variable unset?)" : "";
    };
}

// --- the declaration ----------------------------------------------------------------------------

static CLI::Option *add_target(CLI::App *app, const option &from) {
    const auto add = [&](auto to) {
        using target = decltype(to);
        if constexpr (std::is_same_v<target, bool *>) {
            return app->add_flag(from.name, *to, from.description);
        } else if constexpr (std::is_same_v<target, flag_call>) {
            return app->add_flag_callback(from.name, to.what, from.description);
        } else {
            return app->add_option(from.name, *to, from.description);
        }
    };
    return std::visit(add, from.to);
}

static bool is_positional(const option &from) {
    return !from.name.starts_with('-');
}

static CLI::Option *add_option(CLI::App *app, const option &from, const std::string &group) {
    const option_details &with = from.with;
    CLI::Option *made = add_target(app, from);
    made->required(with.required.value_or(is_positional(from)));
    if (!group.empty()) {
        made->group(group);
    }
    if (!with.value.empty()) {
        made->type_name(with.value);
    }
    if (with.check) {
        made->check(with.check);
    }
    if (with.alone) {
        made->expected(0, 1)->default_str(*with.alone);
    }
    if (with.values_at_once > 1) {
        made->type_size(with.values_at_once)->expected(1, -1);
    }
    if (with.values_at_once > 0) {
        made->allow_extra_args(false); // what follows is something else
    }
    return made;
}

using options_by_name = std::map<std::string, CLI::Option *>;

// Between two options of which either may be declared first. CLI11 itself finds options by name in
// a function that must not throw, and allocates there.
static void add_relations(const options_by_name &made, const option &from) {
    for (const std::string &other : from.with.excludes) {
        made.at(from.name)->excludes(made.at(other));
    }
    for (const std::string &other : from.with.needs) {
        made.at(from.name)->needs(made.at(other));
    }
}

static void add_options(CLI::App *app, const command &from) {
    std::vector<option_group> groups = from.groups;
    groups.insert(groups.begin(), {"", from.options});
    options_by_name made;
    for (const option_group &group : groups) {
        for (const option &each : group.options) {
            made[each.name] = add_option(app, each, group.title);
        }
    }
    for (const option_group &group : groups) {
        for (const option &each : group.options) {
            add_relations(made, each);
        }
    }
}

using chosen_action = std::function<exit_status()>;

static void add_command(CLI::App *parent, const command &from, chosen_action *chosen) {
    CLI::App *app = parent->add_subcommand(from.name, from.description);
    add_options(app, from);
    if (!from.footer.empty()) {
        app->footer(from.footer);
    }
    for (const command &below : from.subcommands) {
        add_command(app, below, chosen);
    }
    if (from.run) {
        app->callback([chosen, run = from.run] { *chosen = run; });
    } else {
        app->require_subcommand(1);
    }
}

// --- the run ------------------------------------------------------------------------------------

// "quillfence-data regex compile": the subcommand that the command line got to.
static std::string name_reached(const CLI::App &program) {
    std::string name = program.get_name();
    const CLI::App *at = &program;
    for (;;) {
        const auto below = at->get_subcommands();
        if (below.empty()) {
            return name;
        }
        at = below.front();
        name += " " + at->get_name();
    }
}

// What is wrong with the command line, and where to read how it is written.
static std::string usage_error(const CLI::App &program, const CLI::ParseError &error) {
    const auto not_understood = program.remaining(true);
    const bool no_such_subcommand =
        error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError) &&
        !not_understood.empty() && std::string(error.what()) == "A subcommand is required";
    return (no_such_subcommand ? "there is no subcommand \"" + not_understood.front() + "\""
                               : std::string(error.what())) +
           "; try \"" + name_reached(program) + " --help\"";
}

// "--helo=" with nothing behind it, for which CLI11 takes the next argument: somebody's empty
// variable, or a shell that drops "". What stands behind "--" is taken as it is.
static void refuse_open_values(int argc, char **argv) {
    for (int at = 1; at < argc && std::string_view(argv[at]) != "--"; ++at) {
        const std::string_view word = argv[at];
        if (word.starts_with("--") && word.find('=') == word.size() - 1) {
            const std::string option(word.substr(0, word.size() - 1));
            throw failure(std::string(word) +
                          " has no value; an empty one stands by itself: " + option + " \"\"");
        }
    }
}

exit_status run_command_line(const program_frame &frame, int argc, char **argv) {
    refuse_open_values(argc, argv);
    CLI::App program(frame.description, frame.name);
    program.formatter(std::make_shared<help_formatter>());
    program.allow_windows_style_options(false); // /pattern/ and /path are values
    program.set_version_flag("--version", std::string(frame.name) + " " + QUILLFENCE_VERSION,
                             "Print the version and exit");
    program.set_help_flag("-h,--help", "Print this help and exit");
    program.require_subcommand(1);
    program.footer(frame.footer);
    chosen_action chosen;
    for (const command_maker make : frame.commands) {
        add_command(&program, make(), &chosen);
    }
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
            program.exit(error); // prints the help or the version
            return exit_status::done;
        }
        throw failure(usage_error(program, error));
    }
    return chosen();
}

} // namespace quillfence::programs

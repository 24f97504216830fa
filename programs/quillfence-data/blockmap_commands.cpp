// The subcommands of block maps.
#include <cstdio>
#include <memory>
#include <optional>

#include "block_map.h"
#include "command_line.h"
#include "data_program.h"
#include "engine_messages.h"
#include "file_output.h"
#include "json_rows.h"
#include "line_input.h"
#include "lookup.h"
#include "text.h"

namespace quillfence::data_tool {

// --- build ---

namespace {

struct build_options {
    std::string addresses;
    std::string out;
    bool keep_going = false;
};

} // namespace

static exit_status build(const build_options &options) {
    refuse_same_file(options.addresses, options.out);
    line_input in(options.addresses);
    file_output out(options.out);
    address_set addresses;
    for (std::string_view text; in.next(&text);) {
        const address_line line = read_address_line(text);
        if (line.is == address_line::kind::wrong) {
            in.complain(line.problem);
        } else if (line.is == address_line::kind::range) {
            addresses.add(line.range.first, line.range.last);
        }
    }
    refuse_wrong_lines(in, options.out, options.keep_going);
    const map_size size = write_block_map(
        addresses, [&](const void *bytes, size_t count) { out.write(bytes, count); });
    return finish_writing(in, &out, options.out,
                          counted(size.addresses, "address", "addresses") + " in " +
                              counted(size.bytes, "byte") + " (" + counted(size.tables, "table") +
                              ", " + counted(size.bitmaps, "bitmap") + ")");
}

static command build_command() {
    auto options = std::make_shared<build_options>();
    return {
        .name = "build",
        .description = "Make a block map of a list of addresses",
        .options = {{"CIDRS",
                     &options->addresses,
                     "The list; - for standard input",
                     {.check = not_empty()}},
                    {"OUT", &options->out, "The block map to write", {.check = not_empty()}},
                    {"--keep-going", &options->keep_going,
                     "Leave wrong lines out and write the others"}},
        .footer = R"(Lines of the list, in any order:
  192.0.2.1               an address
  192.0.2.0/24            a network
  192.0.2.1-192.0.2.9     a range
  # ... or ; ...          a comment, also behind the others

The bytes of the map depend on the addresses alone. A scattered address takes up to
four bytes of memory, and the whole never more than 540 MB.

All wrong lines are reported in one run as file:line: error: what is wrong. When there
is one nothing is written, or with --keep-going everything else (exit status 3).)",
        .run = [options] { return build(*options); },
    };
}

// --- dump ---

namespace {

struct dump_options {
    std::string file;
    bool json = false;
};

// What a map lists, as it comes.
class dump_lines {
  public:
    void network(const std::string &text) {
        std::printf("%s\n", text.c_str());
    }
    void damage(const std::string &text) {
        std::printf("# damaged: %s\n", text.c_str());
    }
    void end() {}
};

class dump_object {
  public:
    void network(const std::string &text) {
        networks_.next();
        std::printf("%s", json_text(text).c_str());
    }
    void damage(const std::string &text) {
        damaged_ += (damaged_.empty() ? "" : ",") + json_text(text);
    }
    void end() {
        networks_.end("\"damaged\":[" + damaged_ + ']');
    }

  private:
    json_rows networks_{"networks"};
    std::string damaged_; // the elements of an array
};

} // namespace

template <class Form>
static exit_status dump_map(const std::string &path) {
    block_map map(path);
    exit_status status = exit_status::done;
    Form form;
    map.walk(
        [&](address_range range) {
            for_each_network(range, [&](uint32_t address, unsigned prefix) {
                form.network(network_text(address, prefix));
            });
        },
        [&](const std::string &damage) {
            complain(path + ": " + damage);
            form.damage(damage);
            status = exit_status::partly;
        });
    form.end();
    return status;
}

static exit_status dump(const dump_options &options) {
    return options.json ? dump_map<dump_object>(options.file) : dump_map<dump_lines>(options.file);
}

static command dump_command() {
    auto options = std::make_shared<dump_options>();
    return {
        .name = "dump",
        .description = "Print what a block map lists",
        .options = {{"FILE", &options->file, "The block map", {.check = not_empty()}},
                    {"--json", &options->json, "Write a JSON object"}},
        .footer =
            R"(The fewest networks and addresses that make up the map, in order. Building a map of
them gives the same bytes, if build made the map. Damaged parts list nothing; they
become comments (exit status 3).)",
        .run = [options] { return dump(*options); },
    };
}

// --- test ---

namespace {

struct test_options {
    std::string file;
    std::vector<std::string> addresses;
    bool json = false;
};

enum class verdict { listed, not_listed, damaged, wrong };

} // namespace

static std::string network_of(const map_answer &answer, uint32_t address) {
    return network_text(address & 0xFFFFFFFF << (32 - answer.prefix), answer.prefix);
}

static std::string place_of(const map_answer &answer, uint32_t address) {
    const std::string how_much = answer.prefix == 32 ? ""
                                 : answer.listed     ? "all of "
                                                     : "nothing in ";
    return "level " + std::to_string(answer.level) + ": " + how_much + network_of(answer, address);
}

// The engine's own lookup is what counts; what the tool reads must say the same.
static void compare_with_engine(const std::string &path, uint32_t address, bool listed) {
    engine_messages messages;
    if ((lookupMapFile(path.c_str(), in_network_order(address)) != 0) != listed) {
        throw failure(path + ": the engine's answer for " + address_text(address) +
                      " is another one; has the file changed meanwhile?");
    }
}

static void print_answer(const std::string &text, uint32_t address, const map_answer &answer) {
    std::printf("%s: %s (%s)\n", text.c_str(), answer.listed ? "listed" : "not listed",
                answer.damage.empty() ? place_of(answer, address).c_str() : "damaged map");
}

static void print_answer_json(const std::string &text, uint32_t address, const map_answer &answer) {
    std::printf("{\"address\":%s,\"listed\":%s,", json_text(text).c_str(),
                answer.listed ? "true" : "false");
    if (answer.damage.empty()) {
        std::printf("\"level\":%d,\"network\":%s}", answer.level,
                    json_text(network_of(answer, address)).c_str());
    } else {
        std::printf("\"problem\":%s}", json_text(answer.damage).c_str());
    }
}

static verdict test_address(block_map *map, const test_options &options, const std::string &text) {
    const auto address = parse_address(text);
    if (!address) {
        complain("\"" + text + "\" is no IPv4 address");
        if (options.json) {
            std::printf("{\"address\":%s,\"listed\":null,\"problem\":\"is no IPv4 address\"}",
                        json_text(text).c_str());
        }
        return verdict::wrong;
    }
    const map_answer answer = map->ask(*address);
    compare_with_engine(options.file, *address, answer.listed);
    (options.json ? print_answer_json : print_answer)(text, *address, answer);
    if (!answer.damage.empty()) {
        complain(options.file + ": " + answer.damage);
        return verdict::damaged;
    }
    return answer.listed ? verdict::listed : verdict::not_listed;
}

static exit_status test(const test_options &options) {
    block_map map(options.file);
    std::optional<json_rows> rows;
    if (options.json) {
        rows.emplace("addresses");
    }
    bool all_answered = true;
    bool all_listed = true;
    for_each_argument(options.addresses, [&](const std::string &text) {
        if (rows) {
            rows->next();
        }
        const verdict answer = test_address(&map, options, text);
        all_answered = all_answered && answer != verdict::wrong && answer != verdict::damaged;
        all_listed = all_listed && answer == verdict::listed;
    });
    if (rows) {
        rows->end();
    }
    return !all_answered ? exit_status::partly : all_listed ? exit_status::done : exit_status::no;
}

static command test_command() {
    auto options = std::make_shared<test_options>();
    return {
        .name = "test",
        .description = "Tell whether addresses are listed",
        .options = {{"FILE", &options->file, "The block map", {.check = not_empty()}},
                    {"IP", &options->addresses,
                     "IPv4 addresses; - reads them from standard input, one a line"},
                    {"--json", &options->json, "Write a JSON object"}},
        .footer =
            R"(For each address whether it is listed, the level of the map that decided (1 its /8, 2
its /16, 3 the bitmap of its /16), and the widest network around it of which that level
says the same.

Exit status 1 when an address is not listed, 3 when one is no address or lies in a
damaged part of the map.)",
        .run = [options] { return test(*options); },
    };
}

command blockmap_command() {
    return {
        .name = "blockmap",
        .description = "Block maps (.bms)",
        .subcommands = {build_command(), dump_command(), test_command()},
    };
}

} // namespace quillfence::data_tool

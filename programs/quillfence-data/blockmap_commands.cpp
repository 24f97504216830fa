// The subcommands of block maps.
#include <cstdio>
#include <memory>

#include "block_map.h"
#include "command_line.h"
#include "data_program.h"
#include "engine_messages.h"
#include "file_output.h"
#include "line_input.h"
#include "lookup.h"

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
        .options = {{"CIDRS", &options->addresses, "The list; - for standard input"},
                    {"OUT", &options->out, "The block map to write"},
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

static exit_status dump(const std::string &path) {
    block_map map(path);
    exit_status status = exit_status::done;
    map.walk(
        [](address_range range) {
            for_each_network(range, [](uint32_t address, unsigned prefix) {
                std::printf("%s\n", network_text(address, prefix).c_str());
            });
        },
        [&](const std::string &damage) {
            complain(path + ": " + damage);
            std::printf("# damaged: %s\n", damage.c_str());
            status = exit_status::partly;
        });
    return status;
}

static command dump_command() {
    auto path = std::make_shared<std::string>();
    return {
        .name = "dump",
        .description = "Print what a block map lists",
        .options = {{"FILE", path.get(), "The block map"}},
        .footer =
            R"(The fewest networks and addresses that make up the map, in order. Building a map of
them gives the same bytes, if build made the map. Damaged parts list nothing; they
become comments (exit status 3).)",
        .run = [path] { return dump(*path); },
    };
}

// --- test ---

namespace {

struct test_options {
    std::string file;
    std::vector<std::string> addresses;
};

enum class verdict { listed, not_listed, damaged, wrong };

} // namespace

static std::string place_of(const map_answer &answer, uint32_t address) {
    const uint32_t network = address & 0xFFFFFFFF << (32 - answer.prefix);
    const std::string how_much = answer.prefix == 32 ? ""
                                 : answer.listed     ? "all of "
                                                     : "nothing in ";
    return "level " + std::to_string(answer.level) + ": " + how_much +
           network_text(network, answer.prefix);
}

// The engine's own lookup is what counts; what the tool reads must say the same.
static void compare_with_engine(const std::string &path, uint32_t address, bool listed) {
    engine_messages messages;
    if ((lookupMapFile(path.c_str(), in_network_order(address)) != 0) != listed) {
        throw failure(path + ": the engine's answer for " + address_text(address) +
                      " is another one; has the file changed meanwhile?");
    }
}

static verdict test_address(block_map *map, const std::string &path, const std::string &text) {
    const auto address = parse_address(text);
    if (!address) {
        complain("\"" + text + "\" is no IPv4 address");
        return verdict::wrong;
    }
    const map_answer answer = map->ask(*address);
    compare_with_engine(path, *address, answer.listed);
    const std::string place = place_of(answer, *address);
    std::printf("%s: %s (%s)\n", text.c_str(), answer.listed ? "listed" : "not listed",
                answer.damage.empty() ? place.c_str() : "damaged map");
    if (!answer.damage.empty()) {
        complain(path + ": " + answer.damage);
        return verdict::damaged;
    }
    return answer.listed ? verdict::listed : verdict::not_listed;
}

static exit_status test(const test_options &options) {
    block_map map(options.file);
    bool all_answered = true;
    bool all_listed = true;
    for_each_argument(options.addresses, [&](const std::string &text) {
        const verdict answer = test_address(&map, options.file, text);
        all_answered = all_answered && answer != verdict::wrong && answer != verdict::damaged;
        all_listed = all_listed && answer == verdict::listed;
    });
    return !all_answered ? exit_status::partly : all_listed ? exit_status::done : exit_status::no;
}

static command test_command() {
    auto options = std::make_shared<test_options>();
    return {
        .name = "test",
        .description = "Tell whether addresses are listed",
        .options = {{"FILE", &options->file, "The block map"},
                    {"IP", &options->addresses,
                     "IPv4 addresses; - reads them from standard input, one a line"}},
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

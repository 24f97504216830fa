#include "range_commands.h"

#include <algorithm>
#include <iostream>
#include <memory>

#include "address_text.h"
#include "bulk_input.h"
#include "command_line.h"
#include "engine_messages.h"
#include "quillfence-iprange.h"
#include "range_records.h"
#include "text.h"
#include "vc_text.h"

namespace quillfence::data_tool {

// The engine's result text, and what it told the log about the reason.
static std::string with_reason(const std::string &text, engine_messages *messages) {
    const std::string reason = messages->take();
    return reason.empty() ? text : text.empty() ? reason : text + " (" + reason + ')';
}

// Throws for anything but a sound range file, of either version.
static range_records sound_ranges(const std::string &path) {
    range_records read = read_ranges(path);
    switch (read.state) {
    case range_state::missing:
    case range_state::unreadable:
        throw failure(file_error(path, read.error));
    case range_state::corrupt:
        throw failure(path + ": is no range file; it is left alone");
    case range_state::legacy:
    case range_state::empty:
    case range_state::current:
        break;
    }
    if (read.records.size() < read.counted) {
        throw failure(path + ": is corrupt: its header counts " + counted(read.counted, "record") +
                      ", it holds " + std::to_string(read.records.size()));
    }
    return read;
}

// What the engine would begin anew must not be somebody else's file.
static range_records ranges_to_edit(const std::string &path) {
    range_records read = read_ranges(path);
    if (read.state == range_state::unreadable) {
        throw failure(file_error(path, read.error));
    }
    if (read.state == range_state::corrupt || (read.state == range_state::empty && read.size)) {
        throw failure(path + ": is no range file; it is left alone");
    }
    return read;
}

static void write_json(const std::vector<range_record> &records, std::ostream &out) {
    const char *separator = "[";
    for (const range_record &record : records) {
        out << separator << "{\"low\":\"" << address_text(record.low) << "\",\"high\":\""
            << address_text(record.high) << "\",\"comment\":" << json_text(record.comment) << '}';
        separator = ",";
    }
    out << (records.empty() ? "[]\n" : "]\n");
}

static void write_lines(const std::vector<range_record> &records, std::ostream &out) {
    for (const range_record &record : records) {
        out << range_text(record);
        if (!record.comment.empty()) {
            out << "  " << printable(record.comment);
        }
        out << '\n';
    }
}

namespace {

struct range_ends {
    std::string low;
    std::string high;
};

} // namespace

// The ends of "a.b.c.d/bits".
static range_ends ends_of_network(const std::string &network) {
    const size_t slash = network.find('/');
    const std::string bits = network.substr(slash + 1);
    const std::optional<uint32_t> start = parse_address(network.substr(0, slash));
    if (!start || bits.empty() || bits.size() > 2 ||
        !std::all_of(bits.begin(), bits.end(), is_digit)) {
        throw failure(network + ": is no network; write it as in 192.0.2.0/24");
    }
    const int prefix = text_to_int(bits.c_str());
    if (prefix < 16 || prefix > 32) {
        throw failure(network + ": a range lies inside one /16; give a prefix from 16 to 32, and a "
                                "larger network as several ranges");
    }
    const uint32_t address = *start;
    const uint32_t host_bits = prefix == 32 ? 0 : 0xFFFFFFFF >> prefix;
    if (address & host_bits) {
        throw failure(network + ": has bits set behind its prefix; write " +
                      address_text(address & ~host_bits) + '/' + bits);
    }
    return {address_text(address), address_text(address | host_bits)};
}

static range_ends ends_of(const range_edit_arguments &arguments) {
    if (arguments.low.find('/') != std::string::npos && arguments.high.empty()) {
        return ends_of_network(arguments.low);
    }
    return {arguments.low, arguments.high.empty() ? arguments.low : arguments.high};
}

static std::string text_of(const range_ends &ends) {
    return ends.low + '-' + ends.high;
}

exit_status range_list(const range_list_arguments &arguments, std::ostream &out) {
    const range_records read = sound_ranges(arguments.file);
    for (const range_record &record : read.records) {
        if (!record.valid) {
            throw failure(arguments.file + ": is corrupt: record " + std::to_string(record.number) +
                          ", " + range_text(record) + ", is no range inside one /16");
        }
    }
    if (arguments.json) {
        write_json(read.records, out);
    } else {
        write_lines(read.records, out);
    }
    return exit_status::done;
}

static bool has_range(const range_records &read, const range_ends &ends) {
    return std::any_of(read.records.begin(), read.records.end(), [&](const range_record &record) {
        return address_text(record.low) == ends.low && address_text(record.high) == ends.high;
    });
}

exit_status range_add(const range_edit_arguments &arguments, std::ostream &out) {
    const range_ends ends = ends_of(arguments);
    const bool was_there = has_range(ranges_to_edit(arguments.file), ends);
    const path_parts path = parts_of(arguments.file);
    engine_messages messages;
    const char *error = nullptr;
    if (!ipr_add(path.directory.c_str(), path.name.c_str(), ends.low.c_str(), ends.high.c_str(),
                 arguments.comment.c_str(), &error)) {
        throw failure(arguments.file + ": " + text_of(ends) + ": " +
                      with_reason(error ? error : "", &messages));
    }
    out << arguments.file << ": " << text_of(ends) << (was_there ? ": comment set\n" : " added\n");
    return exit_status::done;
}

// --- many at once ---

static constexpr uint32_t span_mask = 0xFFFF; // a record lies inside one /16

// Appends the pieces of a stretch of addresses, cut where a /16 ends.
static void append_pieces(address_range all, std::vector<range_addition> *to) {
    for (uint64_t first = all.first; first <= all.last;) {
        const auto low = static_cast<uint32_t>(first);
        const uint32_t high = std::min(low | span_mask, all.last);
        to->push_back({{in_network_order(low), in_network_order(high)}, range_outcome::added});
        first = uint64_t{high} + 1;
    }
}

// A file of ranges can't have these two at an end.
static std::string why_no_range(address_range range) {
    return range.first == 0 || range.last == 0xFFFFFFFF
               ? "a range can't begin with 0.0.0.0 or end with 255.255.255.255"
               : "";
}

static void take_line(std::string_view text, bulk_input *in, std::vector<range_addition> *to) {
    const address_line line = read_address_line(text);
    if (line.is == address_line::kind::nothing) {
        return;
    }
    const std::string problem =
        line.is == address_line::kind::wrong ? line.problem : why_no_range(line.range);
    if (!problem.empty()) {
        in->complain(problem);
        return;
    }
    append_pieces(line.range, to);
    in->require_room(to->size());
}

static uint64_t count_of(const std::vector<range_addition> &all, range_outcome outcome) {
    return static_cast<uint64_t>(
        std::count_if(all.begin(), all.end(),
                      [outcome](const range_addition &one) { return one.outcome == outcome; }));
}

exit_status range_add_all(const range_bulk_arguments &arguments, std::ostream &out) {
    ranges_to_edit(arguments.file);
    bulk_input in(arguments.from);
    std::vector<range_addition> all;
    for (std::string_view line; in.next(&line);) {
        take_line(line, &in, &all);
    }
    in.require_sound(arguments.file);
    const path_parts path = parts_of(arguments.file);
    engine_messages messages;
    const char *error = nullptr;
    if (!all.empty() &&
        !ipr_add_all(path.directory.c_str(), path.name.c_str(), all.data(),
                     static_cast<uint32_t>(all.size()), arguments.comment.c_str(), &error)) {
        throw failure(arguments.file + ": " + with_reason(error ? error : "", &messages));
    }
    out << arguments.file << ": " << counted(count_of(all, range_outcome::added), "range")
        << " added"
        << passed_over_text(count_of(all, range_outcome::present),
                            count_of(all, range_outcome::repeated))
        << '\n';
    return exit_status::done;
}

// --- removing and converting ---

exit_status range_del(const range_edit_arguments &arguments, std::ostream &out) {
    const range_ends ends = ends_of(arguments);
    sound_ranges(arguments.file);
    const path_parts path = parts_of(arguments.file);
    engine_messages messages;
    const char *error = nullptr;
    if (!ipr_del_range_from_file(path.directory.c_str(), path.name.c_str(), ends.low.c_str(),
                                 ends.high.c_str(), &error)) {
        const std::string text = with_reason(error ? error : "", &messages);
        throw failure(
            arguments.file + ": " + text_of(ends) + ": " +
            (text.empty() ? "there is no such range; see \"quillfence-data range list\"" : text));
    }
    out << arguments.file << ": " << text_of(ends) << " removed\n";
    return exit_status::done;
}

exit_status range_convert(const std::string &file, std::ostream &out) {
    const range_records read = sound_ranges(file);
    if (read.state == range_state::empty) {
        out << file << ": is empty; there is nothing to convert\n";
        return exit_status::done;
    }
    if (read.state != range_state::legacy) {
        out << file << ": is of the current version already\n";
        return exit_status::done;
    }
    const path_parts path = parts_of(file);
    engine_messages messages;
    if (!ipr_convert_file(path.directory.c_str(), path.name.c_str())) {
        throw failure(file + ": " + with_reason("is not converted", &messages));
    }
    out << file << ": " << counted(read.records.size(), "range") << " converted\n";
    return exit_status::done;
}

// --- the command line ---

static command show_command() {
    auto to = std::make_shared<range_list_arguments>();
    return {
        .name = "list",
        .description = "Show the ranges of a file",
        .options = {{"FILE", &to->file, "A range file", {.check = not_empty()}},
                    {"--json", &to->json, "Write a JSON array"}},
        .run = [to] { return range_list(*to, std::cout); },
    };
}

// One range, or those of a text.
static exit_status add(const range_edit_arguments &one, const std::string &from) {
    if (!from.empty()) {
        return range_add_all({one.file, from, one.comment}, std::cout);
    }
    if (one.low.empty()) {
        throw failure("give the range to add, or --from and a text of addresses");
    }
    return range_add(one, std::cout);
}

static std::vector<option> edit_options(range_edit_arguments *to, option_details low) {
    return {
        {"FILE", &to->file, "A range file", {.check = not_empty()}},
        {"LOW", &to->low, "The first address, or a network as in 192.0.2.0/24 (without HIGH)",
         std::move(low)},
        {"HIGH", &to->high, "The last address; the same as LOW without it", {.required = false}}};
}

static command add_command() {
    auto to = std::make_shared<range_edit_arguments>();
    auto from = std::make_shared<std::string>();
    std::vector<option> options = edit_options(to.get(), {.required = false});
    options.push_back(
        {"--comment", &to->comment, "The range's comment; replaces that of a range that is there"});
    options.push_back({"--from",
                       from.get(),
                       "Add the ranges of a text, one a line; - for standard input",
                       {.value = "LINES", .check = not_empty(), .excludes = {"LOW", "HIGH"}}});
    return {
        .name = "add",
        .description = "Add a range to a file, which is made when missing",
        .options = std::move(options),
        .footer = R"(Lines of --from:
  192.0.2.1               an address
  192.0.2.0/24            a network; a wider one than a /16 becomes its /16s
  192.0.2.1-192.0.2.9     a range; one over several /16s is cut where they end
  # ... or ; ...          a comment, also behind the others

All of them are added in one edit, each with the comment of --comment, or none: every
wrong line is reported as file:line: error: what is wrong, and then nothing is changed.
Ranges that are there already are counted, and keep their comments.)",
        .run = [to, from] { return add(*to, *from); },
    };
}

static command del_command() {
    auto to = std::make_shared<range_edit_arguments>();
    return {
        .name = "del",
        .description = "Remove a range from a file",
        .options = edit_options(to.get(), {}),
        .run = [to] { return range_del(*to, std::cout); },
    };
}

static command convert_command() {
    auto file = std::make_shared<std::string>();
    return {
        .name = "convert",
        .description = "Rewrite a file of the legacy version in the current one",
        .options = {{"FILE", file.get(), "A range file", {.check = not_empty()}}},
        .run = [file] { return range_convert(*file, std::cout); },
    };
}

command range_command() {
    return {
        .name = "range",
        .description = "Show and edit range files (exempt_ips.range and such)",
        .subcommands = {show_command(), add_command(), del_command(), convert_command()},
    };
}

} // namespace quillfence::data_tool

#include "range_commands.h"

#include <algorithm>
#include <iostream>
#include <memory>

#include "address_text.h"
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
        .options = {{"FILE", &to->file, "A range file"},
                    {"--json", &to->json, "Write a JSON array"}},
        .run = [to] { return range_list(*to, std::cout); },
    };
}

static std::vector<option> edit_options(range_edit_arguments *to) {
    return {
        {"FILE", &to->file, "A range file"},
        {"LOW", &to->low, "The first address, or a network as in 192.0.2.0/24 (without HIGH)"},
        {"HIGH", &to->high, "The last address; the same as LOW without it", {.required = false}}};
}

static command add_command() {
    auto to = std::make_shared<range_edit_arguments>();
    std::vector<option> options = edit_options(to.get());
    options.push_back(
        {"--comment", &to->comment, "The range's comment; replaces that of a range that is there"});
    return {
        .name = "add",
        .description = "Add a range to a file, which is made when missing",
        .options = std::move(options),
        .run = [to] { return range_add(*to, std::cout); },
    };
}

static command del_command() {
    auto to = std::make_shared<range_edit_arguments>();
    return {
        .name = "del",
        .description = "Remove a range from a file",
        .options = edit_options(to.get()),
        .run = [to] { return range_del(*to, std::cout); },
    };
}

static command convert_command() {
    auto file = std::make_shared<std::string>();
    return {
        .name = "convert",
        .description = "Rewrite a file of the legacy version in the current one",
        .options = {{"FILE", file.get(), "A range file"}},
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

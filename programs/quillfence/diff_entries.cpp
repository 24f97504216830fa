#include "diff_entries.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <unordered_set>

#include "configuration.h"
#include "engine_messages.h"
#include "known_sender_forgery_funcs.h"
#include "list_line.h"
#include "named_list.h"
#include "pattern_text.h"
#include "platform/file.h"
#include "range_records.h"
#include "text.h"
#include "tiny_rex_storage.h"

namespace quillfence::programs {

using decision::config_entry;

// --- one file -----------------------------------------------------------------------------------

static void add_lines(std::vector<config_entry> *to, const std::string &path) {
    std::string bytes;
    if (data_files::read_file(path_to_read(path.c_str()), &bytes)) {
        return;
    }
    for (const data_files::text_line &line : data_files::lines_of(bytes)) {
        std::string whole(line.text);
        if (!whole.empty() && whole.back() == '\r') {
            whole.pop_back();
        }
        const char *const entry = pattern_of_line(whole.c_str());
        if (*entry && !is_comment(entry)) {
            to->push_back({path, line.number, entry});
        }
    }
}

static std::string address_text(uint32_t address) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        text += (text.empty() ? "" : ".") + std::to_string((address >> shift) & 0xFF);
    }
    return text;
}

static void add_ranges(std::vector<config_entry> *to, const std::string &path) {
    for (const data_files::range_record &one : data_files::read_ranges(path).records) {
        if (one.valid) {
            to->push_back(
                {path, one.number, address_text(one.low) + " - " + address_text(one.high)});
        }
    }
}

static void add_expressions(std::vector<config_entry> *to, const std::string &path) {
    const platform::stream_ptr stream(platform::stream_open(path.c_str(), "rb"));
    if (!stream || !trs_valid_file(stream.get())) {
        return;
    }
    TRex expression{};
    for (uint32_t number = 1; trs_next(stream.get(), &expression); ++number) {
        std::string why;
        to->push_back({path, number, data_files::pattern_of_nodes(expression, &why)});
    }
    std::free(expression.nodes);
}

static void add_domains(std::vector<config_entry> *to, const std::string &path) {
    const std::unique_ptr<ksf_domain_set, decltype(&ksf_free_list)> set(ksf_load_list(path.c_str()),
                                                                        ksf_free_list);
    for (size_t i = 0; set && i < set->domain_count; ++i) {
        to->push_back({path, set->domains[i].line, set->domains[i].name});
    }
}

// --- all files ----------------------------------------------------------------------------------

static void add_file(std::vector<config_entry> *to, const configuration_file &file,
                     const std::string &path) {
    switch (file.kind) {
    case file_kind::addresses:
    case file_kind::ips:
        return add_lines(to, path);
    case file_kind::ranges:
        return add_ranges(to, path);
    case file_kind::patterns:
        return add_expressions(to, path);
    case file_kind::sender_networks:
        return add_domains(to, path);
    default:
        return;
    }
}

std::vector<config_entry> listed_entries(const std::string &user_dir,
                                         const file_substitute *substitutes) {
    const data_files::engine_messages unsaid; // loading has complained
    call_context context{.substitutes = substitutes};
    const call_scope scope(&context);
    std::vector<config_entry> all;
    for (const configuration_file &file : configuration_files) {
        add_file(&all, file, file.path);
    }
    for (const configuration_file &file : configuration_files) {
        if (is_list(file) && !user_dir.empty()) {
            add_file(&all, file, path_in(user_dir, path_in_base(file)));
        }
    }
    return all;
}

std::vector<config_entry> control_entries(const file_substitute *substitutes) {
    const data_files::engine_messages unsaid;
    call_context context{.substitutes = substitutes};
    const call_scope scope(&context);
    std::vector<config_entry> all;
    for (const configuration_file *const file :
         {&configured("control/rules.enabled"), &configured("control/bms.enabled"),
          &configured("rbl.enabled")}) {
        std::string bytes;
        if (data_files::read_file(path_to_read(file->path), &bytes)) {
            continue;
        }
        for (const data_files::text_line &line : data_files::lines_of(bytes)) {
            if (!line.text.empty()) {
                all.push_back({file->path, line.number, std::string(line.text)});
            }
        }
    }
    return all;
}

// --- those that nothing matched -----------------------------------------------------------------

static std::string key_of(const config_entry &entry) {
    return entry.file + '\n' + entry.text;
}

unhit_entries find_unhit(const std::vector<config_entry> &before,
                         const std::vector<config_entry> &after,
                         const decision::change_tally &tally, size_t most) {
    std::unordered_set<std::string> known;
    for (const config_entry &entry : before) {
        known.insert(key_of(entry));
    }
    unhit_entries made;
    std::vector<unhit_entries::entry_row> old;
    for (const config_entry &entry : after) {
        if (made.files.empty() || made.files.back().file != entry.file) {
            made.files.push_back({entry.file, 0, 0});
        }
        ++made.files.back().entries;
        if (tally.is_hit(entry.file, entry.text)) {
            continue;
        }
        ++made.files.back().unhit;
        ++made.count;
        const bool fresh = !known.contains(key_of(entry));
        std::vector<unhit_entries::entry_row> &to = fresh ? made.first : old;
        if (to.size() < most) {
            to.push_back({entry, fresh});
        }
    }
    made.first.insert(made.first.end(), old.begin(),
                      old.begin() +
                          static_cast<ptrdiff_t>(std::min(old.size(), most - made.first.size())));
    return made;
}

} // namespace quillfence::programs

#include "captured.h"

#include <algorithm>
#include <cstdio>

#include "bundle.h"
#include "explained.h"
#include "keyed_digest.h"
#include "redact.h"
#include "text.h"

namespace quillfence::programs {

using decision::test_case;

// --- what is inside, in words -------------------------------------------------------------------

static void add(std::string *list, const std::string &text) {
    *list += (list->empty() ? "" : ", ") + text;
}

static void add_count(std::string *list, size_t count, const char *noun, const char *plural) {
    if (count) {
        add(list, counted(count, noun, plural));
    }
}

static size_t answers_of(const test_case &which) {
    const auto is_known = [](const decision::dns_record &answer) {
        return answer.is != decision::answer_class::missing;
    };
    const auto &all = which.record.dns;
    return static_cast<size_t>(std::count_if(all.begin(), all.end(), is_known));
}

static size_t missing_files_of(const test_case &which) {
    const auto is_missing = [](const decision::config_file &file) { return file.missing; };
    const auto &all = which.record.config.files;
    return static_cast<size_t>(std::count_if(all.begin(), all.end(), is_missing));
}

static std::string contents_of(const test_case &which) {
    const size_t missing = missing_files_of(which);
    std::string contents = counted(answers_of(which), "DNS answer");
    add_count(&contents, which.record.config.files.size() - missing, "file's digest",
              "files' digests");
    add_count(&contents, missing, "missing file", "missing files");
    add_count(&contents, which.server.registry.size(), "answer of the registry",
              "answers of the registry");
    add_count(&contents, which.server.address_map.size(), "answer of the address map",
              "answers of the address map");
    add_count(&contents, which.server.folders.size(), "folder's listing", "folders' listings");
    return contents;
}

static std::string size_text(uint64_t bytes) {
    return bytes < 10 * 1024 ? counted(bytes, "byte") : std::to_string(bytes / 1024) + " KiB";
}

static std::string contents_of(const decision::written_bundle &bundle) {
    uint64_t files = 0;
    uint64_t bytes = 0;
    for (const decision::tar_entry &entry : bundle.entries) {
        const bool counts = !entry.folder && entry.name != decision::bundled_case;
        files += counts;
        bytes += counts ? entry.size : 0;
    }
    std::string text = counted(files, "file") + " of the configuration (" + size_text(bytes) + ")";
    for (const std::string &map : bundle.cut) {
        text += ", of " + map.substr(map.rfind('/') + 1) + " only what it answered";
    }
    return text;
}

// --- the file -----------------------------------------------------------------------------------

static std::string key_of(const std::string &path) {
    data_files::key_file read = data_files::read_key_file(path);
    if (!read.failed.empty()) {
        throw failure("--redact: " + read.failed);
    }
    if (!read.warning.empty()) {
        complain("--redact: " + read.warning);
    }
    return std::move(read.key);
}

capture::capture(const explain_arguments &arguments)
    : wanted_(arguments), out_(arguments.capture, platform::file_rights::of_owner),
      key_(arguments.redact.empty() ? "" : key_of(arguments.redact)) {}

test_case capture::redacted(const test_case &which) {
    decision::redact_result result =
        decision::redact(which, {.key = key_, .domains = wanted_.redact_domains}, {});
    if (!result.refused.empty()) {
        throw failure("--redact: " + result.refused);
    }
    add(&contents_, "pseudonyms in place of " + counted(result.pseudonyms, "name"));
    return std::move(result.made);
}

void capture::write_document(const test_case &which) {
    std::string text;
    decision::write_case(text, which);
    text += '\n';
    out_.write(text.data(), text.size());
}

void capture::write_with_files(const test_case &which) {
    const decision::written_bundle bundle =
        decision::write_bundle(out_.stream(), which, {.cut_maps = wanted_.cut_maps});
    if (!bundle.problem.empty()) {
        throw failure(std::ferror(out_.stream()) ? wanted_.capture + ": " + bundle.problem
                                                 : "--with-config: " + bundle.problem);
    }
    add(&contents_, contents_of(bundle));
}

void capture::take(const test_case &which) {
    contents_ = contents_of(which);
    if (wanted_.with_config) {
        write_with_files(which);
    } else {
        write_document(key_.empty() ? which : redacted(which));
    }
}

void capture::commit() {
    out_.commit();
    complain(wanted_.capture + ": a case with " + contents_ +
             (key_.empty() ? "; mail addresses of people are in it" : ""));
}

} // namespace quillfence::programs

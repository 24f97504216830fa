#include "consulted_files.h"

#include <string_view>

#include "file_digest.h"
#include "frozen_files.h"
#include "frozen_patterns.h"
#include "open_file.h"
#include "pattern_text.h"
#include "utc_text.h"

namespace quillfence::decision {

static constexpr std::string_view compiled_suffix = ".cregexes";

// The file as it was read beforehand; null when it was not.
static const frozen_file *frozen_of(const std::string &path, const explain_options &options) {
    const frozen_file *const frozen =
        options.configuration ? find_frozen_file(options.configuration, path.c_str()) : nullptr;
    return frozen && frozen->is_file() ? frozen : nullptr;
}

static void weigh_frozen(config_file *file, const frozen_file *frozen, bool whole) {
    file->bytes = frozen->size;
    if (frozen->size > largest_digested_file && !whole) {
        file->time = utc_text(frozen->changed);
    } else {
        file->sha256 = frozen->sha256;
    }
}

static void weigh(config_file *file, bool whole) {
    data_files::open_file opened;
    uint64_t bytes = 0;
    if (opened.open(file->path) || opened.size(&bytes)) {
        return;
    }
    file->bytes = bytes;
    std::string digest;
    int64_t changed = 0;
    if (bytes > largest_digested_file && !whole) {
        file->time = opened.changed(&changed) ? "" : utc_text(changed);
    } else if (!data_files::digest_of_file(file->path, &digest)) {
        file->sha256 = digest;
    }
}

void weigh_files(std::vector<config_file> *files, const explain_options &options) {
    for (config_file &file : *files) {
        if (file.missing) {
            continue;
        }
        if (const frozen_file *const frozen = frozen_of(file.path, options)) {
            weigh_frozen(&file, frozen, options.capture);
        } else {
            weigh(&file, options.capture);
        }
    }
}

// --- the lists behind patterns ---

static std::vector<std::string> texts_of(const frozen_patterns *patterns) {
    std::vector<std::string> texts;
    const uint32_t count = frozen_patterns_count(patterns);
    for (uint32_t i = 0; i < count; ++i) {
        TRex expression{};
        frozen_patterns_lend(patterns, i, &expression);
        std::string why;
        texts.push_back(data_files::pattern_of_nodes(expression, &why));
    }
    return texts;
}

pattern_line_files::pattern_line_files(const frozen_files &of) {
    const call_scope quiet(nullptr);
    for (size_t i = 0; i < of.row_count; ++i) {
        const frozen_file &row = of.rows[i];
        if (row.bytes && std::string_view(row.path).ends_with(compiled_suffix)) {
            files_.emplace(row.path, data_files::read_pattern_lines(row.path, row.sha256));
        }
        if (row.patterns) {
            texts_.emplace(row.path, texts_of(row.patterns));
        }
    }
}

const data_files::pattern_lines *pattern_line_files::find(const std::string &path) const {
    const auto known = files_.find(path);
    return known == files_.end() ? nullptr : &known->second;
}

const std::string *pattern_line_files::text_of(std::string_view path, uint32_t expression) const {
    const auto known = texts_.find(path);
    return known == texts_.end() || expression - 1 >= known->second.size()
               ? nullptr
               : &known->second[expression - 1];
}

namespace {

// The files of lines that a record's expressions lead to, each read once, if it was not before.
class line_files {
  public:
    line_files(std::vector<note> *notes, const explain_options &options)
        : notes_(notes), options_(options) {}

    void name(source *from) {
        auto *const expression = std::get_if<expression_source>(from);
        if (!expression) {
            return;
        }
        const data_files::pattern_lines &lines = of(expression->file);
        if (expression->expression <= lines.origins.size()) {
            const data_files::pattern_origin &origin = lines.origins[expression->expression - 1];
            expression->list = origin.list;
            expression->list_line = origin.line;
        }
    }

  private:
    const data_files::pattern_lines &of(const std::string &path) {
        const auto known = used_.find(path);
        if (known != used_.end()) {
            return *known->second;
        }
        const data_files::pattern_lines *lines =
            options_.pattern_lines ? options_.pattern_lines->find(path) : nullptr;
        if (!lines) {
            lines = &(read_[path] = read(path));
        }
        note_state(path, *lines);
        return *used_.emplace(path, lines).first->second;
    }

    data_files::pattern_lines read(const std::string &path) const {
        std::string digest;
        if (const frozen_file *const frozen = frozen_of(path, options_)) {
            digest = frozen->sha256;
        } else if (data_files::digest_of_file(path, &digest)) {
            return {};
        }
        return data_files::read_pattern_lines(path, digest);
    }

    void note_state(const std::string &path, const data_files::pattern_lines &lines) {
        using state = data_files::pattern_lines::state;
        if (lines.is == state::stale) {
            notes_->push_back({"info", path + data_files::pattern_lines_suffix +
                                           " is of another version of " + path});
        } else if (lines.is == state::wrong) {
            notes_->push_back({"info", path + data_files::pattern_lines_suffix +
                                           " is not used: " + lines.problem});
        }
    }

    std::map<std::string, const data_files::pattern_lines *> used_;
    std::map<std::string, data_files::pattern_lines> read_;
    std::vector<note> *notes_;
    const explain_options &options_;
};

} // namespace

void name_pattern_lists(decision_record *record, const explain_options &options) {
    line_files files(&record->notes, options);
    for (rule_record &rule : record->rules) {
        files.name(&rule.from);
        files.name(&rule.exempted_by);
        for (name_match &match : rule.names) {
            files.name(&match.matched);
            files.name(&match.exempted_by);
        }
    }
}

} // namespace quillfence::decision

#include "consulted_files.h"

#include <map>

#include "file_digest.h"
#include "frozen_files.h"
#include "open_file.h"
#include "pattern_lines.h"
#include "utc_text.h"

namespace quillfence::decision {

// What was read beforehand; false when that is not known.
static bool weigh_frozen(config_file *file, bool whole) {
    const frozen_file *const frozen = frozen_file_of(file->path.c_str());
    if (!frozen || !frozen->bytes) {
        return false;
    }
    file->bytes = frozen->size;
    if (frozen->size > largest_digested_file && !whole) {
        file->time = utc_text(frozen->changed);
    } else {
        file->sha256 = frozen->sha256;
    }
    return true;
}

static void weigh(config_file *file, bool whole) {
    if (weigh_frozen(file, whole)) {
        return;
    }
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

void weigh_files(std::vector<config_file> *files, bool whole) {
    for (config_file &file : *files) {
        if (!file.missing) {
            weigh(&file, whole);
        }
    }
}

namespace {

// The files of lines that a record's expressions lead to, each read once.
class line_files {
  public:
    explicit line_files(std::vector<note> *notes) : notes_(notes) {}

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
        const auto known = read_.find(path);
        if (known != read_.end()) {
            return known->second;
        }
        using state = data_files::pattern_lines::state;
        data_files::pattern_lines lines;
        std::string digest;
        if (!data_files::digest_of_file(path, &digest)) {
            lines = data_files::read_pattern_lines(path, digest);
        }
        const std::string file = path + data_files::pattern_lines_suffix;
        if (lines.is == state::stale) {
            notes_->push_back({"info", file + " is of another version of " + path});
        } else if (lines.is == state::wrong) {
            notes_->push_back({"info", file + " is not used: " + lines.problem});
        }
        return read_.emplace(path, std::move(lines)).first->second;
    }

    std::map<std::string, data_files::pattern_lines> read_;
    std::vector<note> *notes_;
};

} // namespace

void name_pattern_lists(decision_record *record) {
    line_files files(&record->notes);
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

#include "answers_file.h"

#include <map>
#include <utility>
#include <vector>

#include "answer.h"
#include "case_dns.h"
#include "input_splitter.h"
#include "open_file.h"
#include "record_reader.h"
#include "text.h"

namespace quillfence::decision {

namespace {

// What is read of the documents, before it is made into sources.
class answers_reader {
  public:
    // False with the problem, its line counted from the document's beginning.
    bool add(std::string_view text, json_problem *problem) {
        const json_document document(text, problem, {.bytes = longest_json});
        if (document.empty()) {
            return false;
        }
        const uint32_t schema = document.member(0, "schema");
        if (!schema) {
            return add_answers_at(document, 0, problem);
        }
        if (document[schema].text.starts_with("quillfence.case/")) {
            return add_case(text, problem);
        }
        const uint32_t node = document.member(0, "dns");
        return check_record_schema(document, problem) &&
               (!node || add_answers_at(document, node, problem));
    }

    // By question, each with its attempts.
    std::map<std::pair<std::string, std::string>, std::vector<dns_record>> answers;
    std::vector<zone_name> zone;
    bool has_zone = false;

  private:
    bool add_answers_at(const json_document &document, uint32_t node, json_problem *problem) {
        auto read = read_answers(document, node, problem);
        if (read) {
            keep(std::move(*read));
        }
        return read.has_value();
    }

    bool add_case(std::string_view text, json_problem *problem) {
        auto read = read_case(text, problem, {.bytes = longest_json});
        if (!read) {
            return false;
        }
        keep(std::move(read->record.dns));
        if (read->zonedata) {
            has_zone = true;
            zone.insert(zone.end(), read->zonedata->begin(), read->zonedata->end());
        }
        return true;
    }

    // A first attempt takes the place of what was known.
    void keep(std::vector<dns_record> &&read) {
        for (dns_record &one : read) {
            auto &attempts = answers[{dns_sources::name_key(one.name), one.type}];
            if (one.attempt <= 1) {
                attempts.clear();
            }
            attempts.push_back(std::move(one));
        }
    }
};

class file_reader {
  public:
    explicit file_reader(const std::string &path) : path_(path) {}

    std::optional<std::string> read(answers_reader *to) {
        data_files::open_file file;
        if (const uint32_t error = file.open(path_)) {
            return path_ + ": " + data_files::system_text(error);
        }
        std::string piece(piece_size, '\0');
        for (;;) {
            size_t got = 0;
            if (const uint32_t error = file.read(piece.data(), piece.size(), &got)) {
                return path_ + ": " + data_files::system_text(error);
            }
            if (got == 0) {
                splitter_.end();
                return read_units(to);
            }
            splitter_.add(std::string_view(piece).substr(0, got));
            if (auto why = read_units(to)) {
                return why;
            }
        }
    }

  private:
    static constexpr size_t piece_size = 256 * 1024;

    std::optional<std::string> read_units(answers_reader *to) {
        for (input_unit unit; splitter_.next(&unit);) {
            json_problem problem{1, "the document is too long"};
            if (unit.too_long || !to->add(unit.text, &problem)) {
                return path_ + ":" + std::to_string(unit.line + problem.line - 1) + ": " +
                       problem.text;
            }
        }
        return std::nullopt;
    }

    const std::string &path_;
    input_splitter splitter_{input_format::json};
};

} // namespace

std::optional<std::string> answers_file::load(const std::string &path) {
    answers_reader all;
    if (auto why = file_reader(path).read(&all)) {
        return why;
    }
    for (const auto &[question, attempts] : all.answers) {
        if (const auto why = add_answers(recorded_, attempts)) {
            return path + ": " + question.first + " " + question.second + ": " + *why;
        }
    }
    has_zone_ = all.has_zone;
    if (const auto why = add_zone_data(zone_, all.zone)) {
        return path + ": " + *why;
    }
    return std::nullopt;
}

} // namespace quillfence::decision

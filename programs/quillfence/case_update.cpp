#include "case_update.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "expectation_members.h"
#include "json_writer.h"
#include "program.h"

namespace quillfence::programs {

using namespace decision;

// --- values ---

static void write_texts(json_writer *json, const std::vector<std::string> &texts) {
    json->begin_flat_array();
    for (const std::string &text : texts) {
        json->text(text);
    }
    json->end_array();
}

// One text stands without brackets.
static void write_any(json_writer *json, const std::vector<std::string> &any) {
    if (any.size() == 1) {
        json->text(any.front());
    } else {
        write_texts(json, any);
    }
}

static std::string json_of(const auto &write) {
    std::string text;
    json_writer json(text, json_layout::indented);
    write(&json);
    json.finish();
    return text;
}

// {"verdict": "reject", "by": "rule"}
static std::string object_of_texts(const expectation &of) {
    return json_of([&](json_writer *json) {
        json->begin_flat_object();
        for (const expected_texts &member : texts_of_expect) {
            if (const auto &any = of.*member.texts; !any.empty()) {
                json->name(member.name);
                write_any(json, any);
            }
        }
        json->end_object();
    });
}

// --- the text of a case ---

namespace {

struct edit {
    size_t at;
    size_t size; // what is there
    std::string text;
};

// The edits that make one expectation of another, in a case's document.
class expectation_edits {
  public:
    expectation_edits(std::string_view text, const json_document &document)
        : text_(text), document_(document), expect_(document.member(0, "expect")) {}

    bool has_expect() const {
        return expect_ != 0;
    }
    void add_expect(const expectation &now);
    void replace_members(const expectation &stood, const expectation &now);
    std::string applied();

  private:
    size_t offset_of(uint32_t node) const {
        return static_cast<size_t>(document_.raw(node).data() - text_.data());
    }
    void replace(uint32_t node, std::string text) {
        if (!node) {
            throw failure("\"expect\" holds bytes in hexadecimal; correct it by hand");
        }
        edits_.push_back({offset_of(node), document_.raw(node).size(), std::move(text)});
    }
    // Where the value of a member of the document ends.
    size_t end_of(uint32_t node) const {
        return offset_of(node) + document_.raw(node).size();
    }
    std::string_view text_;
    const json_document &document_;
    uint32_t expect_;
    std::vector<edit> edits_;
};

} // namespace

// Behind the last member, as that stands behind the one before it. (A case has at least two.)
void expectation_edits::add_expect(const expectation &now) {
    uint32_t before = 1;
    uint32_t last = document_[before].end;
    while (document_[last].end < document_[0].end) {
        before = std::exchange(last, document_[last].end);
    }
    const size_t comma = text_.find(',', end_of(before));
    const std::string_view space = text_.substr(comma + 1, text_.find('"', comma) - comma - 1);
    edits_.push_back(
        {end_of(last), 0,
         ',' + (space.empty() ? " " : std::string(space)) + "\"expect\": " + object_of_texts(now)});
}

void expectation_edits::replace_members(const expectation &stood, const expectation &now) {
    for (const expected_texts &member : texts_of_expect) {
        const auto &any = now.*member.texts;
        if (any != stood.*member.texts) {
            replace(document_.member(expect_, member.name),
                    json_of([&](json_writer *json) { write_any(json, any); }));
        }
    }
    const uint32_t rules = document_.member(expect_, rules_of_expect);
    for (size_t i = 0; i < stood.rules.size(); ++i) {
        const auto &[rule, any] = now.rules[i];
        if (any != stood.rules[i].second) {
            replace(document_.member(rules, rule),
                    json_of([&any = any](json_writer *json) { write_any(json, any); }));
        }
    }
    for (const expected_set &member : sets_of_expect) {
        const auto &set = now.*member.texts;
        if (set != stood.*member.texts) {
            replace(document_.member(expect_, member.name),
                    json_of([&](json_writer *json) { write_texts(json, *set); }));
        }
    }
}

std::string expectation_edits::applied() {
    std::sort(edits_.begin(), edits_.end(),
              [](const edit &a, const edit &b) { return a.at < b.at; });
    std::string made;
    size_t at = 0;
    for (const edit &one : edits_) {
        made.append(text_.substr(at, one.at - at)).append(one.text);
        at = one.at + one.size;
    }
    return made.append(text_.substr(at));
}

static test_case case_of(std::string_view text) {
    json_problem problem;
    auto read = read_case(text, &problem);
    if (!read) {
        throw failure(problem.text);
    }
    return *std::move(read);
}

std::string with_expectation(std::string_view text, const expectation &stood,
                             const expectation &now) {
    json_problem problem;
    const json_document document(text, &problem);
    if (document.empty()) {
        throw failure(problem.text);
    }
    expectation_edits edits(text, document);
    if (!edits.has_expect()) {
        edits.add_expect(now);
    } else {
        edits.replace_members(stood, now);
    }
    std::string made = edits.applied();
    test_case before = case_of(text);
    before.expect = now;
    if (case_of(made) != before) {
        throw failure("the expectation could not be written into the case; correct it by hand");
    }
    return made;
}

} // namespace quillfence::programs

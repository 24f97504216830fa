#include "case_result.h"

#include "program.h"
#include "text.h"
#include "utf8.h"

namespace quillfence::programs {

static std::string not_as_expected(const case_result &result) {
    std::string names;
    for (const decision::mismatch &one : result.wrong) {
        names += (names.empty() ? "" : ", ") + one.what;
    }
    if (!names.empty()) {
        return "not as expected: " + names;
    }
    return result.missing.size() == 1 ? "an answer is missing" : "answers are missing";
}

std::string in_short(const case_result &result) {
    switch (result.is) {
    case case_outcome::as_expected:
        return "as expected";
    case case_outcome::not_as_expected:
        return not_as_expected(result);
    case case_outcome::not_run:
        break;
    }
    return result.problem;
}

case_counts count_of(const std::vector<case_result> &results) {
    case_counts counts;
    for (const case_result &result : results) {
        switch (result.is) {
        case case_outcome::as_expected:
            ++counts.as_expected;
            break;
        case case_outcome::not_as_expected:
            ++counts.not_as_expected;
            break;
        case case_outcome::not_run:
            ++counts.not_run;
            break;
        }
    }
    return counts;
}

std::string in_short(const case_counts &counts) {
    std::string text =
        counted(counts.all(), "case") + ": " + std::to_string(counts.as_expected) + " as expected";
    const auto add = [&text](size_t count, const char *what) {
        text += count ? ", " + std::to_string(count) + what : "";
    };
    add(counts.not_as_expected, " not as expected");
    add(counts.not_run, " not run");
    return text;
}

// --- texts of others ---

namespace {

struct code_points {
    uint32_t first;
    uint32_t last;
};

constexpr code_points never_shown[] = {
    {0x00, 0x1F},     {0x7F, 0x9F},     {0x200E, 0x200F},
    {0x2028, 0x202E}, {0x2066, 0x2069}, {0xFFFE, 0xFFFF},
};

} // namespace

// The number of a well-formed sequence.
static uint32_t code_of(std::string_view sequence) {
    static constexpr uint32_t first_bits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    uint32_t code = static_cast<unsigned char>(sequence[0]) & first_bits[sequence.size()];
    for (const char c : sequence.substr(1)) {
        code = code << 6 | (static_cast<unsigned char>(c) & 0x3Fu);
    }
    return code;
}

static bool may_be_shown(std::string_view sequence) {
    const uint32_t code = code_of(sequence);
    for (const code_points &range : never_shown) {
        if (code >= range.first && code <= range.last) {
            return false;
        }
    }
    return true;
}

std::string report_text(std::string_view raw) {
    std::string shown;
    while (!raw.empty()) {
        const size_t size = decision::utf8_sequence(raw);
        const std::string_view next = raw.substr(0, size ? size : 1);
        shown += size && may_be_shown(next) ? std::string(next) : data_files::printable(next);
        raw.remove_prefix(next.size());
    }
    return shown;
}

} // namespace quillfence::programs

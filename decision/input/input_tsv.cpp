// The replayer's values, with tabs between them.
#include <algorithm>
#include <array>

#include "input_formats.h"

namespace quillfence::decision {

namespace {

struct stage_row {
    char letter;
    const char *name;
    size_t values; // with the letter
};

constexpr stage_row stages[] = {
    {'C', "CONNECT", 4},
    {'A', "AUTH", 5},
    {'M', "MAIL", 8},
    {'R', "RCPT", 9},
};

constexpr std::array<const char *, 9> value_names = {"stage", "ip",   "port",   "tls",      "user",
                                                     "mua",   "helo", "sender", "recipient"};

const stage_row *stage_of(std::string_view letter) {
    for (const stage_row &row : stages) {
        if (letter.size() == 1 && letter[0] == row.letter) {
            return &row;
        }
    }
    return nullptr;
}

std::vector<std::string_view> split_at_tabs(std::string_view line) {
    std::vector<std::string_view> values;
    size_t begin = 0;
    for (size_t tab = line.find('\t'); tab != std::string_view::npos;
         tab = line.find('\t', begin)) {
        values.push_back(line.substr(begin, tab - begin));
        begin = tab + 1;
    }
    values.push_back(line.substr(begin));
    return values;
}

// A number as the replayer takes it: anything but 0 is yes.
std::optional<bool> flag_of(std::string_view text) {
    if (!is_number(text)) {
        return std::nullopt;
    }
    return std::any_of(text.begin(), text.end(), [](char digit) { return digit != '0'; });
}

} // namespace

input_result read_tsv_input(std::string_view unit) {
    const std::vector<std::string_view> values = split_at_tabs(unit);
    const stage_row *const stage = stage_of(values[0]);
    if (!stage) {
        return refused("stage: is none of C, A, M and R");
    }
    if (values.size() != stage->values) {
        return refused("stage " + std::string(1, stage->letter) + " has " +
                       std::to_string(stage->values) + " values, but there are " +
                       std::to_string(values.size()));
    }
    for (const size_t flag : {size_t{3}, size_t{5}}) {
        if (flag < values.size() && !flag_of(values[flag])) {
            return refused(std::string(value_names[flag]) + ": is neither 0 nor 1");
        }
    }
    const auto text = [&](size_t at) {
        return at < values.size() ? std::optional(std::string(values[at])) : std::nullopt;
    };
    input_transaction read;
    transaction &of = read.transaction;
    of.stage = stage->name;
    of.ip = text(1);
    of.port = text(2);
    of.tls = flag_of(values[3]);
    of.authuser = text(4);
    of.mua = values.size() > 5 ? flag_of(values[5]) : std::nullopt;
    of.helo = text(6);
    of.sender = text(7);
    of.recipient = text(8);
    return {std::move(read), {}};
}

} // namespace quillfence::decision

// What the worst case files cost: reading them, refusing them, and making their DNS.
#include <algorithm>

#include "case_dns.h"
#include "case_file.h"
#include "cost.h"

namespace quillfence::testing {
namespace {

using namespace decision;

// A case of about that size: pieces between an opening and what closes it.
std::string case_of(size_t size, const std::string &opening, const std::string &closing,
                    std::string (*piece)(size_t number)) {
    std::string json = "{\"schema\": \"quillfence.case/1\", \"transaction\": {}, " + opening;
    for (size_t i = 0; json.size() < size; ++i) {
        json += (i ? ",\n" : "") + piece(i);
    }
    return json + closing + '}';
}

// A text of its own for each number, always of the same length.
std::string quoted(size_t number) {
    return '"' + std::to_string(10'000'000 + number) + '"';
}
std::string empty_text(size_t) {
    return "\"\"";
}

// --- cases that are read ---

std::string unknown_members(size_t size) {
    return case_of(size, "\"x\": 1,", "", [](size_t i) { return quoted(i) + ":1"; });
}
std::string extra_members(size_t size) {
    return case_of(size, "\"extra\": {", "}", [](size_t i) { return quoted(i) + ":[ 1 ]"; });
}
std::string names(size_t size) {
    return case_of(size, "\"zonedata\": {", "}", [](size_t i) { return quoted(i) + ":[]"; });
}
std::string words(size_t size) {
    return case_of(size, "\"zonedata\": {", "}",
                   [](size_t i) { return quoted(80'000'000 - i) + ":\"TIMEOUT\""; });
}
std::string records(size_t size) {
    return case_of(size, "\"zonedata\": {\"a\": [", "]}",
                   [](size_t) { return std::string(R"({"A":"192.0.2.1"})"); });
}
std::string pieces(size_t size) {
    return case_of(size, "\"zonedata\": {\"a\": [{\"TXT\": [", "]}]}", empty_text);
}
std::string registry(size_t size) {
    return case_of(size, "\"registry\": [", "]",
                   [](size_t) { return std::string(R"({"key":""})"); });
}
std::string folder_names(size_t size) {
    return case_of(size, R"("folders": [{"folder": "x", "names": [)", "]}]", empty_text);
}
std::string expected_texts(size_t size) {
    return case_of(size, "\"expect\": {\"entry\": [", "]}", empty_text);
}
std::string expected_rules(size_t size) {
    return case_of(size, "\"expect\": {\"rule\": [", "]}",
                   [](size_t) { return std::string("\"valid_ptr\""); });
}

void read(const std::string &json) {
    json_problem problem;
    const auto made = read_case(json, &problem);
    EXPECT_TRUE(made) << problem.text;
}

void read_and_answer(const std::string &json) {
    json_problem problem;
    const auto made = read_case(json, &problem);
    ASSERT_TRUE(made && made->zonedata) << problem.text;
    dns_sources::zone_source zone;
    EXPECT_EQ(add_zone_data(zone, *made->zonedata), std::nullopt);
}

void read_and_write(const std::string &json) {
    json_problem problem;
    const auto made = read_case(json, &problem);
    ASSERT_TRUE(made) << problem.text;
    std::string out;
    write_case(out, *made);
    EXPECT_GT(out.size(), json.size() / 2);
}

// --- cases that are refused, at their end ---

void refuse(const std::string &json) {
    json_problem problem;
    EXPECT_FALSE(read_case(json, &problem));
    EXPECT_NE(problem.text, "");
}

std::string unclosed(size_t size) {
    return case_of(size, "\"x\": [", "", [](size_t) { return std::string("1"); });
}
std::string last_name_is_bad(size_t size) {
    return case_of(size, "\"zonedata\": {", ",\"a..b\":[]}",
                   [](size_t i) { return quoted(i) + ":[]"; });
}
std::string last_name_stands_twice(size_t size) {
    return case_of(size, "\"zonedata\": {", ",\"10000000.\":[]}",
                   [](size_t i) { return quoted(i) + ":[]"; });
}
std::string last_rule_is_unknown(size_t size) {
    return case_of(size, "\"expect\": {\"rule\": [", ",\"valid_prt\"]}",
                   [](size_t) { return std::string("\"valid_ptr\""); });
}
std::string nothing_is_expected(size_t size) {
    return case_of(size, "\"expect\": {\"rule\": \"valid_ptr\",", "}",
                   [](size_t i) { return quoted(i) + ":1"; });
}

constexpr growing_input rows[] = {
    {"unknown members", unknown_members, read, 150, 120, every_byte},
    {"extra members", extra_members, read, 150, 120, every_byte},
    {"names", names, read, 150, 120, every_byte},
    {"words", words, read, 150, 120, every_byte},
    {"records of a name", records, read, 150, 120, every_byte},
    {"pieces of a text", pieces, read, 150, 120, every_byte},
    {"registry", registry, read, 150, 120, every_byte},
    {"folder", folder_names, read, 150, 120, every_byte},
    {"expected texts", expected_texts, read_and_write, 150, 120, every_byte},
    {"expected rules", expected_rules, read_and_write, 150, 120, every_byte},
    {"a DNS of names", names, read_and_answer, 150, 120, every_byte},
    {"a DNS of words", words, read_and_answer, 150, 120, every_byte},
    {"a DNS of records", records, read_and_answer, 150, 120, every_byte},
    {"unclosed", unclosed, refuse, 150, 120, every_byte},
    {"last name is bad", last_name_is_bad, refuse, 150, 120, every_byte},
    {"last name stands twice", last_name_stands_twice, refuse, 150, 120, every_byte},
    {"last rule is unknown", last_rule_is_unknown, refuse, 150, 120, every_byte},
    {"nothing is expected", nothing_is_expected, refuse, 150, 120, every_byte},
};

TEST(bounds_cases, cost_keeps_step_with_the_size) {
    expect_in_step(rows, 100'000);
}

// The reader's limits are a number of bytes and one of values; with both used up, all memory that
// is asked for while a case is read is less than a gigabyte.
TEST(bounds_cases, memory_keeps_step_with_the_values) {
    constexpr json_limits limits;
    constexpr uint64_t most = uint64_t{1} << 30;
    constexpr uint64_t bytes_a_value = (most - 4 * limits.bytes) / limits.nodes;
    for (const growing_input &row : rows) {
        if (row.used != read && row.used != refuse) {
            continue;
        }
        const std::string input = row.made(200'000);
        auto values = static_cast<uint64_t>(std::count(input.begin(), input.end(), ','));
        json_problem problem;
        if (const json_document document(input, &problem); !document.empty()) {
            values = document[0].end;
        }
        const cost spent = cost_of([&] { row.used(input); });
        EXPECT_LE(spent.bytes, values * bytes_a_value + 4 * input.size() + fixed_bytes) << row.name;
    }
}

} // namespace
} // namespace quillfence::testing

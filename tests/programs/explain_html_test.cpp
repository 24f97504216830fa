#include "explain_html.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../decision/random_record.h"
#include "explain_words.h"
#include "sample_records.h"
#include "vc_text.h"

namespace quillfence::programs {
namespace {

using namespace decision;

bool is_void(const std::string &element) {
    return element == "meta" || element == "!doctype";
}

// What is wrong with the page's elements; "" when each is closed by its own end.
std::string misnested(const std::string &html) {
    std::vector<std::string> open;
    for (size_t at = html.find('<'); at != std::string::npos; at = html.find('<', at + 1)) {
        const size_t end = html.find_first_of(" >", at);
        const std::string element = html.substr(at + 1, end - at - 1);
        if (element.starts_with('/')) {
            if (open.empty() || '/' + open.back() != element) {
                return element + " at " + std::to_string(at);
            }
            open.pop_back();
        } else if (!is_void(element)) {
            open.push_back(element);
        }
    }
    return open.empty() ? "" : "open: " + open.back();
}

// The page's texts alone.
std::string text_of(const std::string &html) {
    std::string text;
    bool in_tag = false;
    for (const char c : html) {
        in_tag = c == '<' || (in_tag && c != '>');
        text += in_tag || c == '>' ? ' ' : c;
    }
    for (const auto &[entity, meant] : std::initializer_list<std::pair<const char *, const char *>>{
             {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&amp;", "&"}}) {
        for (size_t at = text.find(entity); at != std::string::npos;
             at = text.find(entity, at + 1)) {
            text.replace(at, strlen(entity), meant);
        }
    }
    return text;
}

size_t count_of(const std::string &text, std::string_view what) {
    size_t count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
        ++count;
    }
    return count;
}

// Whatever a record holds, its texts make no elements, and everything is told.
TEST(explain_html, random_records) {
    const size_t own_elements = count_of(explain_html({}), "<b");
    for (uint32_t seed = 0; seed < 300; ++seed) {
        const decision_record record = testing::random_record(seed, true).make();
        const std::string html = explain_html(record);
        ASSERT_EQ(misnested(html), "") << html;
        ASSERT_EQ(count_of(html, "<b"), own_elements);
        ASSERT_TRUE(std::all_of(html.begin(), html.end(),
                                [](char c) { return is_printable(c) || c == '\n'; }));
        const std::string text = text_of(html);
        std::vector<std::string> told = what_decided(record);
        told.push_back(headline(record));
        told.push_back(dns_summary(record));
        told.push_back(replayer_line(record));
        for (const rule_record &rule : record.rules) {
            told.push_back(rule_sentence(rule));
            const std::vector<std::string> details = rule_details(rule);
            told.insert(told.end(), details.begin(), details.end());
        }
        for (const dns_record &dns : record.dns) {
            told.push_back(dns_question(dns));
            told.push_back(dns_answer(dns));
        }
        for (const dns_block_list_record &list : record.dns_block_lists) {
            told.push_back(block_list_sentence(list));
        }
        for (const std::string &sentence : missing_sentences(record)) {
            told.push_back(sentence);
        }
        for (const std::string &sentence : told) {
            ASSERT_NE(text.find(sentence), std::string::npos) << sentence << "\n" << text;
        }
    }
}

TEST(explain_html, what_a_client_says_stays_text) {
    decision_record record = testing::rejected_sample();
    record.transaction.helo = "\"><script>alert('&amp;')</script>";
    const std::string html = explain_html(record);
    EXPECT_EQ(html.find("<script"), std::string::npos);
    EXPECT_NE(html.find("<td>&quot;&gt;&lt;script&gt;alert('&amp;amp;')&lt;/script&gt;</td>"),
              std::string::npos);
}

// It is mailed: it asks nobody for anything, and runs nothing.
TEST(explain_html, one_file_without_scripts) {
    const std::string html = explain_html(testing::rejected_sample());
    EXPECT_TRUE(html.starts_with("<!doctype html>\n<html lang=\"en\">"));
    EXPECT_NE(html.find("default-src 'none'; style-src 'unsafe-inline'"), std::string::npos);
    for (const char *what : {"<script", "<link", "<img", "src=", "href=", "url(",
                             "http:", "https:", "@import", "onload"}) {
        EXPECT_EQ(html.find(what), std::string::npos) << what;
    }
}

TEST(explain_html, headings_and_tables_for_screen_readers) {
    const std::string html = explain_html(testing::rejected_sample());
    EXPECT_EQ(count_of(html, "<h1>"), 1u);
    EXPECT_EQ(count_of(html, "<th "), count_of(html, "<th scope=\""));
    EXPECT_EQ(count_of(html, "<th>"), 0u);
    for (const char *heading : {"Transaction", "Notes", "DNS", "Rules", "Block maps",
                                "DNS block lists", "Where", "The replayer's line"}) {
        EXPECT_EQ(count_of(html, std::string("<h2>") + heading + "</h2>"), 1u) << heading;
    }
    EXPECT_NE(html.find("<title>REJECT by from_blacklist</title>"), std::string::npos);
}

} // namespace
} // namespace quillfence::programs

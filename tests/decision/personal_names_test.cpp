// Expected texts are written with <word> for the pseudonym of a word and {domain} for a domain's
// (expanded.h).
#include "personal_names.h"

#include <vector>

#include <gtest/gtest.h>

#include "expanded.h"

namespace quillfence::testing {
namespace {

using namespace decision;

const std::string &key = pseudonym_key;

personal_names names_of(const std::vector<std::string> &facts, bool domains = false) {
    personal_names names(key, domains);
    for (const std::string &fact : facts) {
        names.learn_fact(fact);
    }
    names.settle();
    return names;
}

TEST(addresses_in, a_text) {
    static constexpr struct {
        const char *text, *want;
    } cases[] = {
        {"", ""},
        {"@", ""},
        {"@example.org", ""},
        {"bob@", "bob@"},
        {"bob@example.org", "bob@example.org"},
        {"<bob@example.org>, Al@x.", "bob@example.org|Al@x."},
        {"c:/lists/bob@example.org", "bob@example.org"},
        {"to:\"a b\"@x.example!", "\"a b\"@x.example"},
        {"\"a \\\" b\"@x", "\"a \\\" b\"@x"},
        {"\"@x", ""},
        {"x\"@y\"@z", "\"@y\"@z"},
        {"<\"a@b\"@x>, \"c\"@y", "\"a@b\"@x|\"c\"@y"},
        {"a@b@c d", "a@b|b@c"},
        {"list+bob=x.example@list.example", "list+bob=x.example@list.example"},
        {"o'brien@x", "o'brien@x"},
        {"bob@[198.51.100.7]", "bob@"},
        {"m\xc3\xbcller@x", "m\xc3\xbcller@x"},
        {"\xff\xfe@x", "\xff\xfe@x"},
        {"*@x.example", "*@x.example"},
        {"@@@bob@x@@", "bob@x|x@"},
    };
    for (const auto &c : cases) {
        std::string found;
        for (const address_place &place : addresses_in(c.text)) {
            found += (found.empty() ? "" : "|") +
                     std::string(c.text).substr(place.at, place.behind - place.at);
        }
        EXPECT_EQ(found, c.want) << c.text;
    }
}

TEST(personal_names, in_texts) {
    const std::vector<std::string> people = {"Bob.Smith+news@mail.example.org",
                                             "is@example.org",
                                             "\"a b\"@x.example",
                                             "bounce+eve=x.example@list.example",
                                             "m\xc3\xbcller@x.example",
                                             "r\xff@x.example",
                                             "198.51.100.7@x.example",
                                             "operator"};
    personal_names names = names_of(people);
    static constexpr struct {
        const char *text, *want;
    } cases[] = {
        {"", ""},
        {"Bob.Smith+news@mail.example.org", "<Bob.Smith>+<news>@mail.example.org"},
        {"bob.smith@example.net", "<bob.smith>@example.net"},
        {"BOB.SMITH: gone", "<BOB.SMITH>: gone"},
        {"bob.smithson, bob, smith", "bob.smithson, bob, smith"},
        {"c:/box/bob.smith/x", "c:/box/<bob.smith>/x"},
        // A short one only before "@", a long one as a word.
        {"this is is@example.org", "this is <is>@example.org"},
        {"the operator's news", "the <operator>'s <news>"},
        {"\"a b\"@x.example and b a", "\"<a> <b>\"@x.example and b a"},
        // Short words as they stand together.
        {"of A b: c:\\\"a b\"\\x, a b-c, a  b", "of <A> <b>: c:\\\"<a> <b>\"\\x, a b-c, a  b"},
        {"a a b b", "a <a> <b> b"},
        // An address inside of an address, with a domain that is known.
        {"bounce+eve=x.example@list.example", "<bounce>+<eve>=x.example@list.example"},
        {"SRS0=Hx=7=x.example=eve@fwd.example", "<SRS0>=<Hx>=<7>=x.example=<eve>@fwd.example"},
        {"prvs=12=first.last@x.example", "<prvs>=<12>=<first.last>@x.example"},
        {"M\xc3\xbcller und r\xff@x", "<M\xc3\xbcller> und <r\xff>@x"},
        // Addresses of computers stay.
        {"198.51.100.7@x.example 198.51.100.7", "198.51.100.7@x.example 198.51.100.7"},
        // People who were not learned, too.
        {"ask postmaster@example.com", "ask <postmaster>@example.com"},
        {"*@x.example bob*@x.example", "*@x.example <bob>*@x.example"},
        {"al@x.example.LST", "<al>@x.example.LST"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(names.in_text(c.text), expanded(c.want)) << c.text;
    }
}

// What is an address as a whole is so wherever the text stands, whatever the case of its letters.
TEST(personal_names, facts_are_taken_as_a_whole) {
    personal_names names = names_of({"a b/c@d@X.example", "al"});
    EXPECT_EQ(names.in_text("a b/c@d@X.example"), expanded("<a> <b>/<c>@<d>@X.example"));
    EXPECT_EQ(names.in_text("A b/c@d@x.example"), expanded("<A> <b>/<c>@<d>@x.example"));
    EXPECT_EQ(names.in_text("al"), expanded("<al>"));
    EXPECT_EQ(names.in_text("al b"), "al b");
}

TEST(personal_names, in_paths) {
    personal_names names(key, false);
    names.learn_fact("mail@x.example");
    names.learn_fact("al@x.example");
    names.learn_fact("c@x.example");
    names.learn_name("Bob Smith");
    names.learn_name("list+eve=x.example");
    names.settle();
    static constexpr struct {
        const char *path, *want;
    } cases[] = {
        {"", ""},
        {"c:/quillfence/users/al/from_whitelist", "c:/quillfence/users/<al>/from_whitelist"},
        {"C:\\Mail Server\\al\\mail", "C:\\Mail Server\\<al>\\<mail>"},
        {"C:\\Post\\Bob Smith\\x", "C:\\Post\\<Bob> <Smith>\\x"},
        {"c:/lists/eve@x.example/al.LST", "c:/lists/<eve>@x.example/al.LST"},
        {"al/", "<al>/"},
        {"c:/post/x.example/list+eve=x.example", "c:/post/x.example/<list>+<eve>=x.example"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(names.in_path(c.path), expanded(c.want)) << c.path;
    }
}

TEST(personal_names, in_addresses_alone) {
    personal_names names = names_of({"mail@x.example", "operator"});
    EXPECT_EQ(names.in_addresses("mail of the operator: mail@x.example, eve@y"),
              expanded("mail of the operator: <mail>@x.example, <eve>@y"));
    EXPECT_EQ(names.in_addresses("operator"), expanded("<operator>"));
}

TEST(personal_names, domains) {
    personal_names names(key, true);
    names.learn_fact("bob@sub.x.example");
    names.learn_domain("host7.dyn.other.example.");
    names.learn_domain("7.100.51.198.zen.lists.example.");
    names.learn_domain("7.100.51.198.in-addr.arpa.");
    names.learn_domain("localhost");
    names.learn_domain("localhost.localdomain");
    names.keep_zone("zen.lists.example");
    names.settle();
    static constexpr struct {
        const char *text, *want;
    } cases[] = {
        {"bob@sub.x.example", "<bob>@{sub.x.example}"},
        {"eve@SUB.x.example.", "<eve>@{SUB.x.example}."},
        {"*@*.x.example", "*@*.{x.example}"},
        {"below.sub.x.example and x.example", "{below.sub.x.example} and {x.example}"},
        {"x.example.org xx.example", "x.example.org xx.example"},
        {"host7.dyn.other.example.", "{host7.dyn.other.example}."},
        {"7.100.51.198.zen.lists.example.", "7.100.51.198.zen.lists.example."},
        {"7.100.51.198.in-addr.arpa.", "7.100.51.198.in-addr.arpa."},
        {"zen.lists.example, lists.example", "zen.lists.example, {lists.example}"},
        {"localhost.localdomain", "localhost.localdomain"},
        {"localhost [198.51.100.7] 198.51.100.7", "localhost [198.51.100.7] 198.51.100.7"},
        {"v+bob=sub.x.example@unknown.org", "<v>+<bob>={sub.x.example}@unknown.org"},
        {"al@x.example.LST", "<al>@{x.example}.LST"},
        {"c:/boxes/x.example/bob", "c:/boxes/{x.example}/<bob>"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(names.in_text(c.text), expanded(c.want)) << c.text;
        EXPECT_FALSE(names.holds_domain(expanded(c.want))) << c.text;
    }
    EXPECT_TRUE(names.holds_domain("at X.EXAMPLE."));
    EXPECT_TRUE(names.holds_domain("mail.sub.x.example"));
    EXPECT_FALSE(names.holds_domain("zen.lists.example"));
}

TEST(personal_names, what_is_left_is_found) {
    const personal_names names =
        names_of({"Bob.Smith@mail.example.org", "al@x.example", "a b@x.example", "*@y.example"});
    static constexpr struct {
        const char *text;
        bool address, name;
    } cases[] = {
        {"", false, false},
        {"bob.smith", false, true},
        {"(BOB.SMITH)", false, true},
        {"bob.smiths", false, false},
        {"al", false, false},
        {"al@x.example", true, false},
        {"<AL@X.example>", true, false},
        {"see al@x.example.", true, false},
        {"al@x.example.LST", true, false},
        {"al@elsewhere.example", false, false},
        {"hal@x.example", false, false},
        {"a b@x.example", true, true},
        {"b@x.example", false, false},
        {"(A B)", false, true},
        {"a b.", false, true},
        {"a b.c", false, false},
        {"aa b", false, false},
        {"bob.smith@mail.example.org", true, true},
        {"*@y.example", false, false},
        {"@@al@x.example", true, false},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(names.holds_address(c.text), c.address) << c.text;
        EXPECT_EQ(names.holds_name(c.text), c.name) << c.text;
    }
}

// What took the square of a text's length would not come to an end here.
TEST(personal_names, long_texts_of_all_that_is_looked_for) {
    constexpr size_t size = 1 << 17;
    std::vector<std::string> people;
    for (size_t length = 1; length < 300; ++length) {
        people.push_back(std::string(length, 'a') + "@x.example");
    }
    for (size_t length = 1; length < 150; ++length) {
        std::string words;
        for (size_t n = 0; n < length; ++n) {
            words += "b ";
        }
        people.push_back('"' + words + "c\"@x.example");
    }
    for (const char *part :
         {"@", "\"@", "\\\"@", "a@", "a", "\xff", ":", "1:", "::", ".", "=a", "/a", "a ", "a.",
          "b ", "x.example ", "aaaaaaaaaaaaaaaaaaaa@x.exampl "}) {
        std::string text;
        while (text.size() < size) {
            text += part;
        }
        personal_names names(key, true);
        for (const std::string &address : people) {
            names.learn_fact(address);
        }
        names.learn_text(text);
        names.settle();
        EXPECT_EQ(names.in_text(text).size(), text.size());
        EXPECT_EQ(names.in_path(text).size(), text.size());
        EXPECT_FALSE(names.holds_address(names.in_text(text))) << part;
        EXPECT_FALSE(names.holds_domain(names.in_text(text))) << part;
    }
}

// The work goes with the length of a text and with the number of names, one by one: twice as much
// of both makes twice as many pseudonyms, and each but once.
TEST(personal_names, each_pseudonym_is_made_once) {
    for (const size_t people : {500u, 1000u}) {
        personal_names names(key, false);
        std::string text;
        for (size_t i = 0; i < people; ++i) {
            const std::string address = "user" + std::to_string(1000 + i) + "@x.example";
            names.learn_text(address);
            text += address + ' ';
        }
        names.settle();
        names.in_text(text + text);
        EXPECT_EQ(names.computed(), people);
    }
}

} // namespace
} // namespace quillfence::testing

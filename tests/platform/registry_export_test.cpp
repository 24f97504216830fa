#include "platform/registry_export.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "failing_memory.h"
#include "platform/error_numbers.h"

namespace quillfence::platform {
namespace {

using namespace std::string_literals;

constexpr char version_5[] = "Windows Registry Editor Version 5.00";
constexpr char version_4[] = "REGEDIT4";
constexpr char mail_key[] = R"(HKEY_LOCAL_MACHINE\SOFTWARE\Mail)";

// ASCII as UTF-16.
std::string wide(const std::string &ascii) {
    std::string units;
    for (const char c : ascii) {
        units += {c, '\0'};
    }
    return units;
}

// A file of these lines, as the registry editor writes it.
std::string export_of(const std::string &lines) {
    return "\xFF\xFE" + wide(version_5 + "\r\n\r\n"s + lines);
}
std::string text_export_of(const std::string &lines, const char *header = version_4) {
    return header + "\r\n\r\n"s + lines;
}

struct value {
    uint32_t type;
    std::string data;
    bool operator==(const value &) const = default;
};
std::ostream &operator<<(std::ostream &out, const value &shown) {
    return out << shown.type << ":" << ::testing::PrintToString(shown.data);
}
value text(const std::string &shown) {
    return {registry_text, shown + '\0'};
}
value dword(const std::string &bytes) {
    return {registry_dword, bytes};
}

struct key_content {
    uint32_t error = 0;
    bool exists = false;
    std::map<std::string, value> values;
    bool operator==(const key_content &) const = default;
};
std::ostream &operator<<(std::ostream &out, const key_content &shown) {
    return out << "error " << shown.error << (shown.exists ? ", there, " : ", missing, ")
               << ::testing::PrintToString(shown.values);
}
const key_content missing;
key_content there(std::map<std::string, value> values = {}) {
    return {0, true, std::move(values)};
}

key_content content_of(const std::string &file, const char *path = mail_key) {
    // A block of exactly this size, so that the sanitizer sees a step behind it.
    char *const bytes = static_cast<char *>(malloc(file.size() + !file.size()));
    std::copy(file.begin(), file.end(), bytes);
    exported_key key;
    key_content content;
    content.error = registry_export_read(bytes, file.size(), path, &key);
    free(bytes);
    content.exists = key.exists;
    for (size_t i = 0; i < key.count; ++i) {
        const exported_value &found = key.values[i];
        const std::string data(reinterpret_cast<const char *>(found.data), found.size);
        EXPECT_TRUE(content.values.emplace(found.name, value{found.type, data}).second)
            << found.name << " twice";
        EXPECT_EQ(registry_export_find(&key, found.name), &found) << found.name;
    }
    registry_export_release(&key);
    return content;
}

struct reading {
    const char *name;
    std::string lines;
    key_content want;
};

const reading in_every_encoding[] = {
    {"no section", "", missing},
    {"an empty section", "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Mail]\r\n", there()},
    {"another key", "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Other]\r\n\"a\"=\"b\"\r\n", missing},
    {"a longer name", "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Mailbox]\r\n\"a\"=\"b\"\r\n", missing},
    {"another root", "[HKEY_CURRENT_USER\\SOFTWARE\\Mail]\r\n\"a\"=\"b\"\r\n", missing},
    {"an unknown root", "[HKEY_PERFORMANCE_DATA\\SOFTWARE\\Mail]\r\n\"a\"=\"b\"\r\n", missing},
    {"the short root name", "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=\"b\"\r\n", there({{"a", text("b")}})},
    {"case of key and root", "[hkey_local_machine\\Software\\MAIL]\r\n\"a\"=\"b\"\r\n",
     there({{"a", text("b")}})},
    {"a key below makes the key", "[HKLM\\SOFTWARE\\Mail\\Deep\\Deeper]\r\n\"a\"=\"b\"\r\n",
     there()},
    {"LF alone", "[HKLM\\SOFTWARE\\Mail]\n\"a\"=\"b\"\n\"c\"=\"d\"\n",
     there({{"a", text("b")}, {"c", text("d")}})},
    {"no line end at the end", "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=\"b\"", there({{"a", text("b")}})},
    {"blanks", " [HKLM\\SOFTWARE\\Mail]\t\r\n \t\"a\" = \"b\" \t\r\n", there({{"a", text("b")}})},
    {"a backslash at the section's end", "[HKLM\\SOFTWARE\\Mail\\]\r\n\"a\"=\"b\"\r\n",
     there({{"a", text("b")}})},
    {"comments",
     "; [HKLM\\SOFTWARE\\Mail]\r\n[HKLM\\SOFTWARE\\Mail]\r\n;\"x\"=\"y\"\r\n"
     "\"a\"=\"b\";c\r\n\"d\"=dword:1 ; e\r\n",
     there({{"a", text("b")}, {"d", dword("\1\0\0\0"s)}})},
    {"escapes",
     R"([HKLM\SOFTWARE\Mail])"
     "\r\n"
     R"("a\\b\"c"="C:\\Mail \"Enable\"\\")"
     "\r\n",
     there({{"a\\b\"c", text("C:\\Mail \"Enable\"\\")}})},
    {"letters that are escaped",
     R"([HKLM\SOFTWARE\Mail])"
     "\n"
     R"("a"="1\n2\r3\0004\q")"
     "\n",
     there({{"a", text("1\n2\r3\0"
                       "004q"s)}})},
    {"a text over several lines",
     "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=\"one\r\n[two]\r\n\"\r\n\"b\"=\"c\"\r\n",
     there({{"a", text("one\r\n[two]\r\n")}, {"b", text("c")}})},
    {"the default value", "[HKLM\\SOFTWARE\\Mail]\r\n@=\"b\"\r\n", there({{"", text("b")}})},
    {"dword", "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=dword:1234abCD\r\n",
     there({{"a", dword("\xCD\xAB\x34\x12"s)}})},
    {"a short dword", "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=dword:f\r\n",
     there({{"a", dword("\xF\0\0\0"s)}})},
    {"bytes", "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=hex:00,ff,7F\r\n",
     there({{"a", {registry_binary, "\0\xFF\x7F"s}}})},
    {"no bytes", "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=hex:\r\n", there({{"a", {registry_binary, ""}}})},
    {"bytes over several lines",
     "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=hex:01,02,\\\r\n  03,04,\\ \r\n\t05\r\n"
     "\"b\"=\"c\"\r\n",
     there({{"a", {registry_binary, "\1\2\3\4\5"}}, {"b", text("c")}})},
    {"a type by number",
     "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=hex(b):01,00,00,00,00,00,00,00\r\n"
     "\"b\"=hex(4):07,00,00,00\r\n\"c\"=hex(0):\r\n",
     there({{"a", {11, "\1\0\0\0\0\0\0\0"s}}, {"b", dword("\7\0\0\0"s)}, {"c", {0, ""}}})},
    {"a section again",
     "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=\"1\"\r\n\"b\"=\"2\"\r\n[HKLM\\X]\r\n\"a\"=\"9\"\r\n"
     "[HKLM\\SOFTWARE\\Mail]\r\n\"A\"=dword:3\r\n",
     there({{"A", dword("\3\0\0\0"s)}, {"b", text("2")}})},
    {"a value deleted",
     "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=\"1\"\r\n\"b\"=\"2\"\r\n@=\"3\"\r\n\"A\"=-\r\n@=-\r\n",
     there({{"b", text("2")}})},
    {"a value deleted and set",
     "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=\"1\"\r\n\"a\"=-\r\n\"a\"=\"2\"\r\n",
     there({{"a", text("2")}})},
    {"the key deleted",
     "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=\"1\"\r\n[-HKLM\\SOFTWARE\\MAIL]\r\n\"b\"=\"2\"\r\n",
     missing},
    {"the key deleted and made",
     "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=\"1\"\r\n[-HKLM\\SOFTWARE\\Mail]\r\n"
     "[HKLM\\SOFTWARE\\Mail]\r\n\"b\"=\"2\"\r\n",
     there({{"b", text("2")}})},
    {"a key above deleted",
     "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=\"1\"\r\n[-HKEY_LOCAL_MACHINE\\software]\r\n", missing},
    {"a key below deleted",
     "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=\"1\"\r\n[-HKLM\\SOFTWARE\\Mail\\Deep]\r\n",
     there({{"a", text("1")}})},
    {"keys with like names deleted",
     "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=\"1\"\r\n[-HKLM\\SOFT]\r\n"
     "[-HKLM\\SOFTWARE\\Mai]\r\n[-HKLM\\SOFTWARE\\Mailbox]\r\n"
     "[-HKCU\\SOFTWARE]\r\n",
     there({{"a", text("1")}})},
    {"a root is not deleted", "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=\"1\"\r\n[-HKEY_LOCAL_MACHINE]\r\n",
     there({{"a", text("1")}})},
    {"a value of 300 letters",
     "[HKLM\\SOFTWARE\\Mail]\r\n\"" + std::string(300, 'n') + "\"=\"1\"\r\n",
     there({{std::string(300, 'n'), text("1")}})},

    // Damage: the broken line is skipped, what stands around it counts.
    {"values before a section", "\"a\"=\"1\"\r\n[HKLM\\SOFTWARE\\Mail]\r\n", there()},
    {"values behind a broken section",
     "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=\"1\"\r\n[HKLM\\SOFTWARE\\Other\r\n"
     "\"b\"=\"2\"\r\n",
     there({{"a", text("1")}})},
    {"an unclosed section", "[HKLM\\SOFTWARE\\Mail\r\n\"a\"=\"1\"\r\n", missing},
    {"an unclosed text", "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=\"1\r\n\"b\"=\"2\"\r\n",
     there({{"b", text("2")}})},
    {"an unclosed text before a section",
     "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=\"1\r\n[HKLM\\Other]\r\n\"\r\n", there()},
    {"an unclosed text at the end", "[HKLM\\SOFTWARE\\Mail]\r\n\"b\"=\"2\"\r\n\"a\"=\"1\r\n",
     there({{"b", text("2")}})},
    {"an unclosed name", "[HKLM\\SOFTWARE\\Mail]\r\n\"a=1\r\n\"b\"=\"2\"\r\n",
     there({{"b", text("2")}})},
    {"a backslash at the end", "[HKLM\\SOFTWARE\\Mail]\r\n\"b\"=\"2\"\r\n\"a\"=\"1\\",
     there({{"b", text("2")}})},
    {"no data", "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=\r\n\"b\"\r\n\"c\"=\"2\"\r\n@\r\n",
     there({{"c", text("2")}})},
    {"unknown data", "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=qword:1\r\n\"b\"=1\r\n\"c\"=\"2\"\r\n",
     there({{"c", text("2")}})},
    {"text behind the data",
     "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=\"1\" x\r\n\"b\"=dword:1x\r\n\"d\"=- x\r\n"
     "\"c\"=\"2\"\r\n",
     there({{"c", text("2")}})},
    {"broken numbers",
     "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=dword:\r\n\"b\"=dword:123456789\r\n\"d\"=hex:0g\r\n"
     "\"e\"=hex:001\r\n\"f\"=hex:1,,2\r\n\"g\"=hex(:1\r\n\"h\"=hex(1:1\r\n\"i\"=hex1\r\n"
     "\"c\"=\"2\"\r\n",
     there({{"c", text("2")}})},
    {"bytes that break off",
     "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=hex:01,\\\r\n\r\n\"b\"=hex:01,\\\r\n"
     "[HKLM\\SOFTWARE\\Mail]\r\n\"c\"=\"2\"\r\n\"d\"=hex:01,\\",
     there({{"c", text("2")}})},
    {"junk",
     "[HKLM\\SOFTWARE\\Mail]\r\nhello\r\n=\r\n]\r\n\x01\r\n\"c\"=\"2\"\r\n[\r\n[-\r\n[]\r\n\"d\"="
     "\"3\"\r\n",
     there({{"c", text("2")}})},
};

TEST(registry_export, reads_the_same_in_every_encoding) {
    for (const reading &c : in_every_encoding) {
        EXPECT_EQ(content_of(export_of(c.lines)), c.want) << c.name << ", UTF-16";
        EXPECT_EQ(content_of(text_export_of(c.lines)), c.want) << c.name << ", REGEDIT4";
        EXPECT_EQ(content_of(text_export_of(c.lines, version_5)), c.want) << c.name << ", text";
        EXPECT_EQ(content_of("\xEF\xBB\xBF" + text_export_of(c.lines, version_5)), c.want)
            << c.name << ", UTF-8 with a mark";
    }
}

TEST(registry_export, survives_being_cut_anywhere) {
    for (const reading &c : in_every_encoding) {
        for (const std::string &whole : {export_of(c.lines), text_export_of(c.lines)}) {
            for (size_t size = 0; size <= whole.size(); ++size) {
                content_of(whole.substr(0, size));
            }
        }
    }
}

TEST(registry_export, survives_any_changed_byte) {
    const std::string lines =
        "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=\"b\\\\\"\r\n@=hex(2):41,00,\\\r\n 00,00\r\n"
        "\"a\"=-\r\n[-HKLM\\SOFTWARE]\r\n[HKLM\\SOFTWARE\\Mail]\r\n\"d\"=dword:1\r\n";
    for (std::string whole : {export_of(lines), text_export_of(lines)}) {
        for (size_t i = 0; i < whole.size(); ++i) {
            for (const char c : {'\0', '\n', '"', '\\', '[', ']', '=', '-', '\xD8', '\xFF'}) {
                const char before = whole[i];
                whole[i] = c;
                content_of(whole);
                whole[i] = before;
            }
        }
    }
}

TEST(registry_export, a_file_without_a_header_is_none) {
    const key_content none = {error_not_registry_file, false, {}};
    const std::string section = "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=\"b\"\r\n";
    for (const std::string &file :
         {section, "\xFF\xFE" + wide(section), "REGEDIT5\r\n" + section, "REGEDIT4x\r\n" + section,
          "\xFF\xFE"s, "\xFF"s, "\n"s, "REGEDIT"s, "\xFE\xFF\0R\0E\0G"s}) {
        EXPECT_EQ(content_of(file), none) << ::testing::PrintToString(file);
    }
    EXPECT_EQ(content_of(""), missing) << "an empty file is an empty registry";
    EXPECT_EQ(content_of(version_4), missing);
    EXPECT_EQ(content_of("\xFF\xFE" + wide(version_5)), missing);
}

TEST(registry_export, hexadecimal_texts_hold_utf16_in_version_5) {
    const std::string lines = "[HKLM\\SOFTWARE\\Mail]\r\n"
                              "\"expand\"=hex(2):25,00,41,00,fc,00,00,00\r\n"
                              "\"multi\"=hex(7):41,00,00,00,42,00,00,00,00,00\r\n"
                              "\"open\"=hex(1):41,00,42,00\r\n"
                              "\"odd\"=hex(1):41,00,42\r\n"
                              "\"pair\"=hex(1):3d,d8,00,de\r\n"
                              "\"alone\"=hex(1):3d,d8,41,00,00,de\r\n";
    const key_content want = there({{"expand", {2, "%A\xC3\xBC\0"s}},
                                    {"multi", {7, "A\0B\0\0"s}},
                                    {"open", {1, "AB"}},
                                    {"odd", {1, "A"}},
                                    {"pair", {1, "\xF0\x9F\x98\x80"}},
                                    {"alone",
                                     {1, "\xEF\xBF\xBD"
                                         "A\xEF\xBF\xBD"}}});
    EXPECT_EQ(content_of(export_of(lines)), want);
    EXPECT_EQ(content_of(text_export_of(lines, version_5)), want);
}

TEST(registry_export, hexadecimal_texts_are_bytes_in_version_4) {
    const std::string lines = "[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=hex(2):25,41,00\r\n";
    EXPECT_EQ(content_of(text_export_of(lines)), there({{"a", {2, "%A\0"s}}}));
}

TEST(registry_export, letters_beyond_ascii_become_utf8) {
    // [HKLM\Müller] "ß€"="😀"
    const std::string file = export_of("[HKLM\\M") + "\xFC\0"s + wide("ller]\r\n\"") +
                             "\xDF\0\xAC\x20"s + wide("\"=\"") + "\x3D\xD8\x00\xDE"s +
                             wide("\"\r\n");
    EXPECT_EQ(content_of(file, "HKEY_LOCAL_MACHINE\\M\xC3\xBCller"),
              there({{"\xC3\x9F\xE2\x82\xAC", text("\xF0\x9F\x98\x80")}}));
    EXPECT_EQ(content_of(file, "HKEY_LOCAL_MACHINE\\Muller"), missing);
    const std::string utf8 =
        text_export_of("[HKLM\\M\xC3\xBCller]\n\"a\"=\"\xC3\xBC\"\n", version_5);
    EXPECT_EQ(content_of(utf8, "HKEY_LOCAL_MACHINE\\M\xC3\xBCller"),
              there({{"a", text("\xC3\xBC")}}));
}

TEST(registry_export, names_hold_brackets_and_every_root_can_be_asked) {
    EXPECT_EQ(
        content_of(export_of("[HKLM\\a]b[c]\r\n\"x\"=\"y\"\r\n"), "HKEY_LOCAL_MACHINE\\a]b[c"),
        there({{"x", text("y")}}));
    const struct {
        const char *section, *path;
    } roots[] = {
        {"HKCR\\k", "HKEY_CLASSES_ROOT\\k"},   {"HKEY_CLASSES_ROOT\\k", "HKEY_CLASSES_ROOT\\k"},
        {"HKCU\\k", "HKEY_CURRENT_USER\\k"},   {"HKU\\k", "HKEY_USERS\\k"},
        {"HKCC\\k", "HKEY_CURRENT_CONFIG\\k"}, {"HKLM", "HKEY_LOCAL_MACHINE"},
        {"HKEY_USERS\\k", "HKEY_USERS\\k"}};
    for (const auto &c : roots) {
        EXPECT_EQ(content_of(export_of("["s + c.section + "]\r\n\"x\"=\"y\"\r\n"), c.path),
                  there({{"x", text("y")}}))
            << c.section;
    }
    EXPECT_EQ(content_of(export_of(""), "HKEY_USERS"), there()) << "a root is always there";
    EXPECT_EQ(content_of(export_of("[HKLM\\k]\r\n"), "HKEY_NO_SUCH_ROOT\\k"), missing);
}

TEST(registry_export, many_values_of_one_name_and_of_many) {
    std::string lines = "[HKLM\\SOFTWARE\\Mail]\r\n";
    std::map<std::string, value> want;
    for (int i = 0; i < 20000; ++i) {
        const std::string name = "v" + std::to_string(i % 7000 * 31 % 7000);
        lines += "\"" + name + "\"=\"" + std::to_string(i) + "\"\r\n";
        want[name] = text(std::to_string(i));
    }
    EXPECT_EQ(content_of(text_export_of(lines)), there(want));
}

TEST(registry_export, a_value_is_found_by_name_alone) {
    const std::string file =
        export_of("[HKLM\\SOFTWARE\\Mail]\r\n\"b\"=\"1\"\r\n@=\"2\"\r\n\"D\"=\"3\"\r\n");
    exported_key key;
    ASSERT_EQ(registry_export_read(file.data(), file.size(), mail_key, &key), 0U);
    for (const char *name : {"a", "bb", "c", "e"}) {
        EXPECT_EQ(registry_export_find(&key, name), nullptr) << name;
    }
    for (const char *name : {"b", "B", "d", "D", "", static_cast<const char *>(nullptr)}) {
        EXPECT_NE(registry_export_find(&key, name), nullptr) << (name ? name : "null");
    }
    registry_export_release(&key);
}

TEST(registry_export, reading_without_memory) {
    const std::string file =
        export_of("[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=\"b\"\r\n\"c\"=hex(2):41,00,00,00\r\n"
                  "\"e\"=-\r\n\"f\"=dword:1\r\n");
    exported_key key;
    uint32_t error = 0;
    const unsigned failed = testing::sweep_allocations(
        [&] { error = registry_export_read(file.data(), file.size(), mail_key, &key); },
        [&](unsigned n) {
            EXPECT_EQ(error, uint32_t{error_not_enough_memory}) << n;
            registry_export_release(&key);
        });
    EXPECT_GT(failed, 8U);
    EXPECT_EQ(key.count, 3U);
    registry_export_release(&key);
}

// Made by tests/data/make-wine-export.sh.
TEST(registry_export, an_export_that_another_program_wrote) {
    std::ifstream stream(QF_WINE_EXPORT, std::ios::binary);
    ASSERT_TRUE(stream.is_open()) << QF_WINE_EXPORT;
    const std::string file{std::istreambuf_iterator<char>(stream), {}};
    const std::string key = R"(HKEY_LOCAL_MACHINE\SOFTWARE\Mail Enable\Mail Enable)";
    std::string bytes;
    for (char byte = 0; byte < 0x30; ++byte) {
        bytes += byte;
    }
    EXPECT_EQ(
        content_of(file, key.c_str()),
        there({{"", text("the default value")},
               {"Bytes", {registry_binary, bytes}},
               {"Configuration Directory", text(R"(C:\Program Files (x86)\Mail Enable\Config)")},
               {"Expandable", {registry_expandable_text, "%TEMP%\0"s}},
               {"Large number", {11, "\1\2\3\4\5\6\7\x8"}},
               {"Lines", text("one\r\ntwo")},
               {"Nothing", {registry_binary, ""}},
               {"Quote \"and\" backslash \\", text("\"C:\\\"")},
               {"Several", {registry_texts, "one\0two\0\0"s}},
               {"Unfinished", text("abc")}}));
    EXPECT_EQ(content_of(file, (key + "\\Connectors").c_str()), there());
    EXPECT_EQ(content_of(file, (key + "\\Connectors\\SMTP").c_str()),
              there({{"IP White Listing Status", dword("\1\0\0\0"s)}}));
    EXPECT_EQ(content_of(file, (key + "\\Connectors\\SMTP\\White List").c_str()),
              there({{"192.0.2.*", text("")}, {"198.51.100.7", text("")}}));
    EXPECT_EQ(content_of(file, (key + "\\Connectors\\POP").c_str()), missing);
}

// --- paths ---

TEST(registry_export, paths_of_both_views) {
    const struct {
        registry_root root;
        const char *path;
        uint32_t access;
        const char *want;
    } cases[] = {
        {registry_root::local_machine, "SOFTWARE\\X", 0, "HKEY_LOCAL_MACHINE\\SOFTWARE\\X"},
        {registry_root::local_machine, "SOFTWARE\\X", 0x100, "HKEY_LOCAL_MACHINE\\SOFTWARE\\X"},
        {registry_root::local_machine, "Software\\X", 0x200,
         "HKEY_LOCAL_MACHINE\\Software\\Wow6432Node\\X"},
        {registry_root::local_machine, "SOFTWARE", 131609,
         "HKEY_LOCAL_MACHINE\\SOFTWARE\\Wow6432Node"},
        {registry_root::local_machine, "SOFTWARE\\wow6432node\\X", 0x200,
         "HKEY_LOCAL_MACHINE\\SOFTWARE\\wow6432node\\X"},
        {registry_root::local_machine, "SOFTWARES\\X", 0x200, "HKEY_LOCAL_MACHINE\\SOFTWARES\\X"},
        {registry_root::local_machine, "SYSTEM\\X", 0x200, "HKEY_LOCAL_MACHINE\\SYSTEM\\X"},
        {registry_root::current_user, "SOFTWARE\\X", 0x200, "HKEY_CURRENT_USER\\SOFTWARE\\X"},
        {registry_root::users, "", 0, "HKEY_USERS"},
        {registry_root::classes_root, nullptr, 0, "HKEY_CLASSES_ROOT"},
        {registry_root::current_config, "X\\", 0, "HKEY_CURRENT_CONFIG\\X"},
    };
    for (const auto &c : cases) {
        char *const path = registry_export_path(c.root, c.path, c.access);
        EXPECT_STREQ(path, c.want);
        free(path);
    }
    char *path = nullptr;
    testing::sweep_allocations([&] { path = registry_export_path(registry_root::users, "X", 0); },
                               [&](unsigned n) { EXPECT_EQ(path, nullptr) << n; });
    EXPECT_STREQ(path, "HKEY_USERS\\X");
    free(path);
}

// --- changes ---

std::string changed(const std::string &file, export_change change, const exported_value *value,
                    const char *path = mail_key, uint32_t want_error = 0) {
    unsigned char *addition = nullptr;
    size_t size = 0;
    EXPECT_EQ(
        registry_export_addition(file.data(), file.size(), path, change, value, &addition, &size),
        want_error);
    const std::string added(reinterpret_cast<const char *>(addition), size);
    free(addition);
    return file + added;
}

exported_value value_of(const char *name, uint32_t type, const std::string &data) {
    return {.name = name,
            .data = reinterpret_cast<const unsigned char *>(data.data()),
            .type = type,
            .size = static_cast<uint32_t>(data.size()),
            .order = 0};
}

TEST(registry_export, a_new_file_is_begun_as_the_registry_editor_does) {
    const std::string data = "C:\\Mail\0"s;
    const exported_value value = value_of("Directory", registry_text, data);
    EXPECT_EQ(
        changed("", export_change::set_value, &value),
        export_of("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Mail]\r\n\"Directory\"=\"C:\\\\Mail\"\r\n"));
}

TEST(registry_export, a_change_is_appended_in_the_file_s_own_encoding) {
    const struct {
        const char *name;
        std::string file, want;
    } cases[] = {
        {"text", "REGEDIT4\r\n", "REGEDIT4\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Mail]\r\n"},
        {"no line end", "REGEDIT4\n;x",
         "REGEDIT4\n;x\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Mail]\r\n"},
        {"half a line end", "REGEDIT4\n;x\r",
         "REGEDIT4\n;x\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Mail]\r\n"},
        {"UTF-16", "\xFF\xFE" + wide("REGEDIT4\r\n"),
         "\xFF\xFE" + wide("REGEDIT4\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Mail]\r\n")},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(changed(c.file, export_change::create_key, nullptr), c.want) << c.name;
    }
}

TEST(registry_export, every_value_reads_back_as_it_was_set) {
    const struct {
        const char *name;
        uint32_t type;
        std::string data;
    } cases[] = {
        {"plain", 1, "text\0"s},
        {"", 1, "the default\0"s},
        {"quo\"te\\", 1, "a\"b\\\0"s},
        {"empty", 1, "\0"s},
        {"nothing", 1, ""},
        {"open", 1, "abc"},
        {"embedded", 1, "a\0b\0"s},
        {"lines\r\n", 1, "a\r\nb\0"s},
        {"dword", 4, "\1\2\3\4"s},
        {"short", 4, "\1\2"s},
        {"binary", 3, std::string(100, '\xA5')},
        {"expand", 2, "%A%\0"s},
        {"multi", 7, "a\0b\0\0"s},
        {"umlaut \xC3\xBC", 1, "\xC3\xBC\xF0\x9F\x98\x80\0"s},
        {"\xC3\xBC in hex", 2, "\xC3\xBC\xE2\x82\xAC\0"s},
        {"none", 0, ""},
        {"qword", 11, "\1\0\0\0\0\0\0\0"s},
    };
    for (std::string file : {""s, "REGEDIT4\r\n"s, "\xFF\xFE" + wide(version_5 + "\n"s)}) {
        std::map<std::string, value> want;
        for (const auto &c : cases) {
            const exported_value set = value_of(c.name, c.type, c.data);
            file = changed(file, export_change::set_value, &set);
            want[c.name] = {c.type, c.data};
            EXPECT_EQ(content_of(file), there(want)) << c.name;
        }
        EXPECT_EQ(content_of(changed(file, export_change::delete_key, nullptr)), missing);
    }
}

// Wherever a file breaks off, the change counts and every value that could be read still can be.
TEST(registry_export, a_change_behind_any_damage_adds_itself_alone) {
    const std::string data = "2\0"s;
    const exported_value value = value_of("new", registry_text, data);
    for (const reading &c : in_every_encoding) {
        for (const std::string &whole : {export_of(c.lines), text_export_of(c.lines)}) {
            const size_t unit = whole.starts_with("\xFF\xFE") ? 2 : 1;
            for (size_t size = whole.size() - unit * c.lines.size(); size <= whole.size();
                 size += unit) {
                const std::string file = whole.substr(0, size);
                key_content want = content_of(file);
                want.exists = true;
                want.values["new"] = text("2");
                ASSERT_EQ(content_of(changed(file, export_change::set_value, &value)), want)
                    << c.name << " cut at " << size;
            }
        }
    }
}

// Half a unit at the end can't be completed to anything that leaves its line as it is: here it
// would stand behind the data and make the value unreadable.
TEST(registry_export, nothing_is_added_behind_half_a_unit) {
    const std::string data = "2\0"s;
    const exported_value value = value_of("new", registry_text, data);
    const std::string whole = export_of("[HKLM\\SOFTWARE\\Mail]\r\n\"a\"=\"1\"");
    for (const char half : {'x', '\r', ' ', '\n', '\0'}) {
        const std::string file = whole + half;
        EXPECT_EQ(content_of(file), there({{"a", text("1")}})) << int{half};
        for (const export_change change :
             {export_change::set_value, export_change::create_key, export_change::delete_key}) {
            EXPECT_EQ(changed(file, change, &value, mail_key, error_not_registry_file), file)
                << int{half};
        }
    }
}

TEST(registry_export, bytes_that_are_no_text_become_the_replacement_character) {
    const std::string data = "a\xFF\xC0\xAF\xED\xA0\x80\xE2\x82\0"s;
    const exported_value value = value_of("x", registry_text, data);
    const std::string r = "\xEF\xBF\xBD";
    EXPECT_EQ(content_of(changed("", export_change::set_value, &value)),
              there({{"x", text("a" + r + r + r + r + r + r + r + r)}}));
}

TEST(registry_export, what_can_not_be_changed) {
    EXPECT_EQ(changed("", export_change::create_key, nullptr, "HKEY_USERS\\a\nb",
                      error_invalid_parameter),
              "");
    EXPECT_EQ(
        changed("no export", export_change::create_key, nullptr, mail_key, error_not_registry_file),
        "no export");
    const std::string data = "%A%\0"s;
    const exported_value value = value_of("a", registry_expandable_text, data);
    unsigned char *addition = nullptr;
    size_t size = 0;
    uint32_t error = 0;
    testing::sweep_allocations(
        [&] {
            error = registry_export_addition(nullptr, 0, mail_key, export_change::set_value, &value,
                                             &addition, &size);
        },
        [&](unsigned n) {
            EXPECT_EQ(error, uint32_t{error_not_enough_memory}) << n;
            EXPECT_EQ(addition, nullptr) << n;
        });
    EXPECT_EQ(error, 0U);
    free(addition);
}

} // namespace
} // namespace quillfence::platform

#include "tar_header.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "text.h"

namespace quillfence::decision {

namespace {

struct field {
    size_t at;
    size_t size;
};

constexpr field name_field = {0, 100};
constexpr field mode_field = {100, 8};
constexpr field owner_field = {108, 8};
constexpr field group_field = {116, 8};
constexpr field size_field = {124, 12};
constexpr field time_field = {136, 12};
constexpr field checksum_field = {148, 8};
constexpr size_t type_at = 156;
constexpr field magic_field = {257, 8}; // with the version
constexpr field device_field = {329, 8};
constexpr field minor_field = {337, 8};
constexpr field prefix_field = {345, 155};

constexpr std::string_view posix_magic("ustar\00000", 8);
constexpr std::string_view gnu_magic("ustar  \0", 8);

} // namespace

static constexpr uint64_t largest_octal = 077777777777; // of eleven digits

// The sum of all bytes, with blanks in the checksum's place.
static unsigned checksum_of(const tar_block &block) {
    unsigned sum = 0;
    for (size_t i = 0; i < block.size(); ++i) {
        const bool is_checksum =
            i >= checksum_field.at && i < checksum_field.at + checksum_field.size;
        sum += static_cast<unsigned char>(is_checksum ? ' ' : block[i]);
    }
    return sum;
}

// --- writing ------------------------------------------------------------------------------------

static void put(tar_block *block, const field &where, std::string_view text) {
    std::copy(text.begin(), text.end(), block->begin() + static_cast<std::ptrdiff_t>(where.at));
}

// Octal digits to the field's last byte but one, which stays NUL.
static void put_number(tar_block *block, const field &where, uint64_t number) {
    for (size_t i = where.size - 1; i-- > 0; number /= 8) {
        (*block)[where.at + i] = static_cast<char>('0' + number % 8);
    }
}

static std::string block_of(const tar_entry &entry, char type, std::string_view prefix,
                            std::string_view name) {
    tar_block block = {};
    put(&block, name_field, name);
    put(&block, prefix_field, prefix);
    put_number(&block, mode_field, type == '5' ? 0700 : 0600);
    put_number(&block, owner_field, 0);
    put_number(&block, group_field, 0);
    put_number(&block, size_field, entry.size > largest_octal ? 0 : entry.size);
    const auto time = static_cast<uint64_t>(std::max<int64_t>(entry.time, 0));
    put_number(&block, time_field, std::min(time, largest_octal));
    block[type_at] = type;
    put(&block, magic_field, posix_magic);
    put_number(&block, device_field, 0);
    put_number(&block, minor_field, 0);
    put_number(&block, {checksum_field.at, checksum_field.size - 1}, checksum_of(block));
    block[checksum_field.at + checksum_field.size - 1] = ' ';
    return {block.data(), block.size()};
}

// Where a name is cut into prefix and name, 0 for a name that needs no prefix; npos when it does
// not fit. The "/" at a folder's end is no place for that.
static size_t cut_of(std::string_view name) {
    if (name.size() <= name_field.size) {
        return 0;
    }
    const size_t cut = name.find('/', name.size() - name_field.size - 1);
    return cut <= prefix_field.size && cut + 1 < name.size() ? cut : std::string_view::npos;
}

static bool is_ascii(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// "23 path=...\n": the length counts its own digits.
static std::string pax_record(std::string_view keyword, std::string_view value) {
    const size_t rest = keyword.size() + value.size() + 3; // blank, "=" and LF
    size_t length = rest + 1;
    while (std::to_string(length).size() + rest != length) {
        ++length;
    }
    return std::to_string(length) + ' ' + std::string(keyword) + '=' + std::string(value) + '\n';
}

static std::string pax_header(const tar_entry &entry, const std::string &records) {
    const tar_entry extension = {.name = "pax", .size = records.size(), .time = entry.time};
    return block_of(extension, 'x', "", extension.name) + records +
           std::string(tar_padding(records.size()), '\0');
}

std::string tar_header_of(const tar_entry &entry) {
    const std::string name = entry.name + (entry.folder ? "/" : "");
    const size_t cut = cut_of(name);
    const bool fits = cut != std::string::npos;
    std::string records;
    if (!fits || !is_ascii(name)) {
        records += pax_record("path", name);
    }
    if (entry.size > largest_octal) {
        records += pax_record("size", std::to_string(entry.size));
    }
    const std::string_view whole = name;
    const std::string_view short_name =
        fits ? whole.substr(cut ? cut + 1 : 0) : whole.substr(0, name_field.size);
    const std::string_view prefix = fits ? whole.substr(0, cut) : "";
    return (records.empty() ? "" : pax_header(entry, records)) +
           block_of(entry, entry.folder ? '5' : '0', prefix, short_name);
}

// --- reading ------------------------------------------------------------------------------------

bool is_zero_block(const tar_block &block) {
    return std::all_of(block.begin(), block.end(), [](char c) { return c == '\0'; });
}

static std::string_view bytes_of(const tar_block &block, const field &where) {
    return {block.data() + where.at, where.size};
}

// To the first NUL.
static std::string text_of(const tar_block &block, const field &where) {
    const std::string_view bytes = bytes_of(block, where);
    return std::string(bytes.substr(0, bytes.find('\0')));
}

static bool is_end_of_number(char c) {
    return c == '\0' || c == ' ';
}

// Octal digits behind blanks, ended by NULs or blanks. Nothing for anything else.
static std::optional<uint64_t> number_of(const tar_block &block, const field &where) {
    std::string_view text = bytes_of(block, where);
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    uint64_t number = 0; // at most twelve digits: 36 bits
    size_t digits = 0;
    while (digits < text.size() && text[digits] >= '0' && text[digits] <= '7') {
        number = number * 8 + static_cast<uint64_t>(text[digits++] - '0');
    }
    text.remove_prefix(digits);
    const bool ends = std::all_of(text.begin(), text.end(), is_end_of_number);
    return digits && ends ? std::optional(number) : std::nullopt;
}

static bool is_binary(const tar_block &block, const field &where) {
    return static_cast<unsigned char>(block[where.at]) & 0x80;
}

static std::string why_no_number(const tar_block &block, const field &where, const char *what) {
    return std::string("its ") + what +
           (is_binary(block, where) ? " is a binary number, which is not read here"
                                    : " is no number");
}

// GNU's headers have times where the prefix would stand.
static std::string name_of(const tar_block &block, bool posix) {
    const std::string prefix = posix ? text_of(block, prefix_field) : "";
    const std::string name = text_of(block, name_field);
    return prefix.empty() ? name : prefix + '/' + name;
}

std::optional<tar_header> read_tar_header(const tar_block &block, std::string *problem) {
    const std::string_view magic = bytes_of(block, magic_field);
    if (magic != posix_magic && magic != gnu_magic) {
        *problem = "is no header of a tar file";
        return {};
    }
    if (number_of(block, checksum_field) != checksum_of(block)) {
        *problem = "its checksum is wrong";
        return {};
    }
    tar_header header;
    header.name = name_of(block, magic == posix_magic);
    header.type = block[type_at];
    const auto size = number_of(block, size_field);
    const auto time = number_of(block, time_field);
    if (!size || !time) {
        *problem = data_files::quoted(header.name) + ": " +
                   (size ? why_no_number(block, time_field, "time")
                         : why_no_number(block, size_field, "size"));
        return {};
    }
    header.size = *size;
    header.time = static_cast<int64_t>(*time);
    return header;
}

static std::optional<uint64_t> decimal(std::string_view text) {
    uint64_t number = 0;
    const char *const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stopped == end ? std::optional(number) : std::nullopt;
}

// Takes "<length> <keyword>=<value>\n" off the text's front; false when none stands there.
static bool take_pax_record(std::string_view *text, std::string_view *keyword,
                            std::string_view *value) {
    const size_t blank = text->find(' ');
    const auto length = decimal(text->substr(0, std::min(blank, text->size())));
    if (!length || blank == std::string_view::npos || *length <= blank + 1 ||
        *length > text->size() || (*text)[*length - 1] != '\n') {
        return false;
    }
    const std::string_view record = text->substr(blank + 1, *length - blank - 2);
    text->remove_prefix(*length);
    const size_t equals = record.find('=');
    *keyword = record.substr(0, std::min(equals, record.size()));
    *value = record.substr(std::min(equals + 1, record.size()));
    return equals != std::string_view::npos;
}

std::optional<pax_records> read_pax_records(std::string_view text, std::string *problem) {
    pax_records found;
    std::string_view keyword;
    std::string_view value;
    while (!text.empty()) {
        if (!take_pax_record(&text, &keyword, &value)) {
            *problem = "its extended header is damaged";
            return {};
        }
        if (keyword.starts_with("GNU.sparse")) {
            *problem = "is a sparse file";
            return {};
        }
        if (keyword == "path") {
            found.path = std::string(value);
        } else if (keyword == "size" && !(found.size = decimal(value))) {
            *problem = "its size is no number";
            return {};
        }
    }
    return found;
}

} // namespace quillfence::decision

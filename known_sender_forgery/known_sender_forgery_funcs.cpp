#include "known_sender_forgery_funcs.h"

#include <string_view>

#include "byte_cursor.h"
#include "evidence.h"
#include "frozen_files.h"
#include "vc_dns.h"
#include "vc_file.h"
#include "vc_log.h"
#include "vc_rfc.h"
#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "known_sender_forgery/known_sender_forgery_funcs";

// Lines are parsed in place: the functions below cut the file's text with NULs as they go.

// The text without white space around it; cut at its new end.
static char *trimmed(char *text) {
    while (is_space(*text)) {
        ++text;
    }
    char *end = text + strlen(text);
    while (end > text && is_space(end[-1])) {
        --end;
    }
    *end = '\0';
    return text;
}

static void lower(char *text) {
    for (; *text; ++text) {
        *text = to_lower(*text);
    }
}

// How many fields the separator makes of a text.
static int field_count(std::string_view text, char separator) {
    int count = 1;
    for (const char c : text) {
        count += c == separator;
    }
    return count;
}

static int host_order_ipv4(const char *text, uint32_t *address) {
    unsigned char octets[4];
    if (is_empty(text) || !vc_inet_pton(vc_family_ipv4, text, octets)) {
        return 0;
    }
    *address = static_cast<uint32_t>(octets[0]) << 24 | static_cast<uint32_t>(octets[1]) << 16 |
               static_cast<uint32_t>(octets[2]) << 8 | octets[3];
    return 1;
}

// "address/prefix". The item is left whole.
static int ksf_parse_cidr(const char *item, ksf_network *network) {
    const int fields = field_count(item, '/');
    if (fields != 2) {
        QF_DEBUG("invalid cidr format - number of elements not as expected: %d", fields);
        return 0;
    }
    const char *slash = strchr(item, '/');
    const auto length = static_cast<size_t>(slash - item);
    char address[16]; // the longest dotted quad has 15 characters
    if (length < sizeof address) {
        memcpy(address, item, length);
    }
    address[length < sizeof address ? length : 0] = '\0';
    if (!host_order_ipv4(address, &network->address)) {
        QF_DEBUG("failed to convert ip to host byte order");
        return 0;
    }
    network->prefix = text_to_int(slash + 1);
    if (network->prefix > 32) {
        QF_DEBUG("cidr has invalid prefix");
        return 0;
    }
    const auto shift = static_cast<uint32_t>(network->prefix) & 31;
    if (network->prefix != 32 && network->address << shift != 0) {
        QF_DEBUG("cidr is not valid given the prefix. addr: %d prefix: %d",
                 static_cast<int>(network->address), network->prefix);
        return 0;
    }
    return 1;
}

static int ksf_parse_ip(const char *item, ksf_network *network) {
    if (!host_order_ipv4(item, &network->address)) {
        QF_DEBUG("failed to convert ip %s to host byte order", item);
        return 0;
    }
    network->prefix = 32;
    return 1;
}

// Room for the networks of an ip set, and for one item more that turns out to be none. Items
// without a network take no room, however many commas there are.
static size_t room_for_networks(const char *ip_set) {
    constexpr size_t shortest = 8; // "0.0.0.0,"
    return (strlen(ip_set) + 1) / shortest + 1;
}

// The items of an ip set.
static size_t ksf_parse_ip_set(char *ip_set, ksf_network *networks) {
    size_t count = 0;
    for (char *rest = ip_set, *item; rest;) {
        item = rest;
        rest = cut_at(item, ',');
        item = trimmed(item);
        const int usable = strchr(item, '/') ? ksf_parse_cidr(item, &networks[count])
                                             : ksf_parse_ip(item, &networks[count]);
        if (usable) {
            QF_DEBUG("stored IP range from [%s]", item);
            ++count;
        } else {
            QF_DEBUG("Failed to parse [%s] as CIDR or IP", item);
        }
    }
    return count;
}

// What a line came to.
enum class parsed : uint8_t { record, nothing, no_memory };

static parsed ksf_parse_fields(char *name, char *ip_set, ksf_domain *record) {
    name = trimmed(name);
    if (!*name) {
        QF_DEBUG("invalid domain - empty");
        return parsed::nothing;
    }
    lower(name);
    if (!vc_valid_domain(name)) {
        QF_DEBUG("domain %s is not valid", name);
        return parsed::nothing;
    }
    ip_set = trimmed(ip_set);
    if (!*ip_set) {
        QF_DEBUG("invalid ip set string - blank");
        return parsed::nothing;
    }
    const size_t room = room_for_networks(ip_set);
    heap_ptr<ksf_network> networks(static_cast<ksf_network *>(calloc(room, sizeof(ksf_network))));
    heap_string copy(strdup(name));
    if (!networks || !copy) {
        QF_ENOMEM();
        return parsed::no_memory;
    }
    const size_t count = ksf_parse_ip_set(ip_set, networks.get());
    if (!count) {
        return parsed::nothing;
    }
    *record = {copy.release(), networks.release(), static_cast<uint32_t>(count), 0};
    return parsed::record;
}

// One line of the file that is neither blank nor a comment.
static parsed ksf_parse_line(char *line, ksf_domain *record) {
    const int fields = field_count(line, ':');
    if (fields != 2) {
        QF_DEBUG("invalid number of elements in domain/ip range line: %d", fields);
        return parsed::nothing;
    }
    // The line is shown whole once it is parsed, so the work is done on a copy.
    const heap_string copy(strdup(line));
    if (!copy) {
        QF_ENOMEM();
        return parsed::no_memory;
    }
    char *ip_set = cut_at(copy.get(), ':');
    return ksf_parse_fields(copy.get(), ip_set, record);
}

static void free_domain(const ksf_domain *domain) {
    free(domain->name);
    free(domain->networks);
}

// Doubles the room when the set is full: 1, 2, 4, ... records.
static int make_room(ksf_domain_set *set) {
    const size_t count = set->domain_count;
    if (count & (count - 1)) {
        return 1;
    }
    const size_t room = count ? 2 * count : 1;
    void *larger = realloc(set->domains, room * sizeof(ksf_domain));
    if (!larger) {
        QF_ERRNO_AS("ksf_load_list", ENOMEM);
        return 0;
    }
    set->domains = static_cast<ksf_domain *>(larger);
    return 1;
}

static int ksf_add_line(char *line, uint32_t number, ksf_domain_set *set) {
    static constexpr char operation[] = "ksf_load_list";
    if (!*line) {
        QF_DEBUG_AS(operation, "skipping blank line");
        return 1;
    }
    line = trimmed(line);
    if (!*line) {
        QF_DEBUG_AS(operation, "skipping blank line (after trim)");
        return 1;
    }
    if (*line == '#') {
        QF_DEBUG_AS(operation, "skipping comment line");
        return 1;
    }
    ksf_domain record;
    switch (ksf_parse_line(line, &record)) {
    case parsed::record:
        if (!make_room(set)) {
            free_domain(&record);
            return 0;
        }
        record.line = number;
        set->domains[set->domain_count++] = record;
        QF_DEBUG_AS(operation, "stored domain/IPs range from [%s]", line);
        return 1;
    case parsed::nothing:
        QF_DEBUG_AS(operation, "Ignored unparseable line [%s]", line);
        return 1;
    default:
        return 0;
    }
}

static int ksf_add_lines(char *text, uint64_t size, ksf_domain_set *set) {
    char *const end = text + size; // a NUL stands there
    uint32_t number = 0;
    for (char *line = text; line <= end;) {
        char *line_end = static_cast<char *>(memchr(line, '\n', static_cast<size_t>(end - line)));
        if (!line_end) {
            line_end = end;
        }
        *line_end = '\0';
        if (!ksf_add_line(line, ++number, set)) {
            return 0;
        }
        line = line_end + 1;
    }
    return 1;
}

// The declarations of a text, which is cut to pieces; null without memory.
static ksf_domain_set *ksf_parse_text(char *text, uint64_t size) {
    auto *set = static_cast<ksf_domain_set *>(calloc(1, sizeof(ksf_domain_set)));
    if (!set) {
        QF_ERRNO_AS("ksf_load_list", ENOMEM);
    } else if (!ksf_add_lines(text, size, set)) {
        ksf_free_list(set);
        set = nullptr;
    }
    return set;
}

ksf_domain_set *ksf_load_list(const char *path) {
    if (is_empty(path)) {
        QF_EINVAL();
        return nullptr;
    }
    uint64_t size = 0;
    const heap_string text(vc_file_exists_ex(path, vc_type_file) ? vc_existing_contents(path, &size)
                                                                 : nullptr);
    if (!text) {
        QF_ERROR("Failed to read domain/ip list file: %s", path);
        tell_failure(path, 0, "the file can't be read");
        QF_ERROR("Unable to load KSF list: %s", path);
        return nullptr;
    }
    if (!size) {
        QF_DEBUG("empty file");
        return nullptr;
    }
    ksf_domain_set *const set = ksf_parse_text(text.get(), size);
    if (!set) {
        QF_ERROR("Unable to load KSF list: %s", path);
    }
    return set;
}

ksf_domain_set *ksf_get_domain_ip_sets_from_file(const char *path) {
    ksf_domain_set *set = ksf_load_list(path);
    if (!set) {
        QF_DEBUG("Unable to load list: %s", text_or_null(path));
    }
    return set;
}

void ksf_free_list(ksf_domain_set *set) {
    if (!set) {
        return;
    }
    for (size_t i = 0; i < set->domain_count; ++i) {
        free_domain(&set->domains[i]);
    }
    free(set->domains);
    free(set);
}

static const ksf_domain *ksf_find(const ksf_domain_set *set, const char *name) {
    for (size_t i = 0; i < set->domain_count; ++i) {
        if (!strcmp(set->domains[i].name, name)) {
            return &set->domains[i];
        }
    }
    return nullptr;
}

// --- read beforehand ---

// The set, and the first record of each name.
struct ksf_index {
    ksf_domain_set *set;
    size_t network_room; // in bytes, at most
    size_t slot_mask;
    uint32_t *slots; // record numbers from 1; 0 is an empty slot
};

static size_t hash_of(const char *name) {
    uint64_t hash = 14695981039346656037u; // FNV-1a
    for (; *name; ++name) {
        hash = (hash ^ static_cast<unsigned char>(*name)) * 1099511628211u;
    }
    return static_cast<size_t>(hash ^ hash >> 32);
}

// The slot of a name, or the empty one in which it would stand.
static uint32_t *slot_of(const ksf_index *index, const char *name) {
    size_t slot = hash_of(name) & index->slot_mask;
    while (index->slots[slot] &&
           strcmp(index->set->domains[index->slots[slot] - 1].name, name) != 0) {
        slot = (slot + 1) & index->slot_mask;
    }
    return &index->slots[slot];
}

static const ksf_domain *find_in_index(const ksf_index *index, const char *name) {
    const uint32_t number = *slot_of(index, name);
    return number ? &index->set->domains[number - 1] : nullptr;
}

// Gives each name a slot; 0 without memory.
static int fill_slots(ksf_index *index) {
    size_t count = 4;
    while (count < 2 * index->set->domain_count) {
        count *= 2;
    }
    index->slot_mask = count - 1;
    index->slots = static_cast<uint32_t *>(calloc(count, sizeof(uint32_t)));
    if (!index->slots) {
        QF_ERRNO_AS("ksf_index_make", ENOMEM);
        return 0;
    }
    for (size_t i = 0; i < index->set->domain_count; ++i) {
        uint32_t *const slot = slot_of(index, index->set->domains[i].name);
        *slot = *slot ? *slot : static_cast<uint32_t>(i + 1);
    }
    return 1;
}

int ksf_index_make(const char *bytes, uint64_t size, ksf_index **made) {
    *made = nullptr;
    if (!size) {
        return 1;
    }
    const heap_string text(static_cast<char *>(malloc(size + 1)));
    auto *const index = static_cast<ksf_index *>(calloc(1, sizeof(ksf_index)));
    if (!text || !index) {
        QF_ENOMEM();
        free(index);
        return 0;
    }
    memcpy(text.get(), bytes, size + 1);
    index->network_room = size + size / 2;
    index->set = ksf_parse_text(text.get(), size);
    if (!index->set || !fill_slots(index)) {
        ksf_index_free(index);
        return 0;
    }
    *made = index;
    return 1;
}

void ksf_index_free(ksf_index *index) {
    if (index) {
        ksf_free_list(index->set);
        free(index->slots);
        free(index);
    }
}

size_t ksf_index_size(const ksf_index *index) {
    size_t size = sizeof *index + sizeof *index->set + (index->slot_mask + 1) * sizeof(uint32_t);
    for (size_t i = 0; i < index->set->domain_count; ++i) {
        size += 2 * sizeof(ksf_domain); // there is room for twice as many
        size += strlen(index->set->domains[i].name) + 1;
    }
    return size + index->network_room;
}

// --- the question ---

namespace {

// Where declarations are looked up: what was read beforehand, else a set of its own.
struct declarations {
    const ksf_index *index = nullptr;
    ksf_domain_set *own = nullptr;

    declarations() = default;
    declarations(const declarations &) = delete;
    declarations &operator=(const declarations &) = delete;
    ~declarations() {
        ksf_free_list(own);
    }
    const ksf_domain_set *set() const {
        return index ? index->set : own;
    }
};

} // namespace

static void open_declarations(const char *path, declarations *opened) {
    const frozen_file *const frozen = frozen_file_of(path_to_read(path));
    opened->index = frozen ? frozen->declarations : nullptr;
    if (!opened->index) {
        opened->own = ksf_get_domain_ip_sets_from_file(path);
    }
}

static int ksf_network_holds(const ksf_network *network, uint32_t client) {
    if (network->prefix < 0 || network->prefix > 32) {
        return 0;
    }
    // Modulo 32 on purpose: a prefix of 0 shifts by 0 and holds 0.0.0.0 alone.
    const auto shift = static_cast<uint32_t>(32 - network->prefix) & 31;
    return network->address == client >> shift << shift;
}

// The first record of the domain; null for none.
static const ksf_domain *find_declared(const declarations &opened, const char *path,
                                       const char *name) {
    const uint32_t left_out = place_left_out(path);
    if (!left_out) {
        return opened.index ? find_in_index(opened.index, name) : ksf_find(opened.set(), name);
    }
    const ksf_domain_set *const set = opened.set();
    for (size_t i = 0; i < set->domain_count; ++i) {
        if (set->domains[i].line != left_out && strcmp(set->domains[i].name, name) == 0) {
            return &set->domains[i];
        }
    }
    return nullptr;
}

int ksf_may_send(const ksf_domain *domain, const char *ip) {
    uint32_t client = 0;
    if (!host_order_ipv4(ip, &client)) {
        QF_ERROR_AS("ksf_check_domain_to_ip_restriction",
                    "failed to convert ip [%s] to host order bytes", ip);
        return 1;
    }
    for (size_t i = 0; i < domain->network_count; ++i) {
        if (ksf_network_holds(&domain->networks[i], client)) {
            return 1;
        }
    }
    return 0;
}

int ksf_check_domain_to_ip_restriction(const char *ip, const char *domain, const char *path) {
    if (is_empty(ip) || is_empty(domain) || is_empty(path)) {
        QF_EINVAL();
        return 1;
    }
    const heap_string copy(strdup(domain));
    if (!copy) {
        QF_ENOMEM();
        return 1;
    }
    char *name = trimmed(copy.get());
    lower(name);
    if (!*name) {
        QF_ERROR("Invalid domain - blank after trimming whitespace");
        return 1;
    }
    declarations opened;
    open_declarations(path, &opened);
    const ksf_domain_set *const set = opened.set();
    if (!set || !set->domain_count) {
        QF_REASON("could not get domains/ips, or none in file");
        return 1;
    }
    const ksf_domain *const declared = find_declared(opened, path, name);
    const int may_send = !declared || ksf_may_send(declared, ip);
    tell(&evidence_sink::searched_sender_networks,
         {.path = path,
          .domain = name,
          .domains = static_cast<uint32_t>(set->domain_count),
          .line = declared ? declared->line : 0,
          .inside = declared && may_send});
    return may_send;
}

char *ksf_parse_mail_from_domain(const char *address) {
    if (is_empty(address)) {
        QF_REASON("empty or NULL MAIL FROM argument - possible bounce");
        return nullptr;
    }
    if (!vc_valid_email_address(address)) {
        QF_REASON("email address is not valid");
        return nullptr;
    }
    // A valid address has exactly one "@" and no white space.
    heap_string domain(strdup(strrchr(address, '@') + 1));
    if (!domain) {
        QF_ENOMEM();
        return nullptr;
    }
    lower(domain.get());
    if (!vc_valid_domain(domain.get())) {
        QF_REASON("domain is not valid: %s", domain.get());
        return nullptr;
    }
    return domain.release();
}

} // namespace quillfence

#include "me_address_map.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "evidence.h"
#include "platform/dynamic_library.h"
#include "platform/format.h"
#include "vc_log.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "w32_common/me_address_map";

static constexpr char library_name[] = "MEAIAM.dll";
static constexpr char function_name[] = "AddressMapGet";

// What AddressMapGet takes: the address in the form "[SMTP:%s]", and room for its destination. It
// answers non-zero when it has filled in the destination.
struct address_map_request {
    char source[1024];
    char destination[1024];
};
using address_map_function = int (*)(address_map_request *);

// The function is there before it counts as looked for. Threads that begin together may each look.
static std::atomic<bool> map_looked_up;
static std::atomic<address_map_function> map_function; // null when there is none

void forget_address_map() {
    map_looked_up = false;
    map_function = nullptr;
}

static address_map_function find_map_function() {
    if (!map_looked_up) {
        platform::dynamic_library *const library = platform::library_open(library_name);
        map_function = reinterpret_cast<address_map_function>(
            platform::library_symbol(library, function_name));
        map_looked_up = true;
    }
    return map_function;
}

// Fills in the request's destination, in which the NUL is ours to see to.
static bool ask_map(address_map_function ask, const char *address, address_map_request *request) {
    *request = {};
    if (platform::format_text(request->source, sizeof request->source, "[SMTP:%s]", address) < 0) {
        return false;
    }
    const bool known = ask(request) != 0;
    request->destination[sizeof request->destination - 1] = '\0';
    return known;
}

// The same by another server's answers.
static bool ask_rows(const address_map_row *row, const char *address,
                     address_map_request *request) {
    while (row->address && strcmp(row->address, address) != 0) {
        ++row;
    }
    const bool known = row->address && row->destination;
    if (known) {
        platform::format_text(request->destination, sizeof request->destination, "%s",
                              row->destination);
    }
    return known;
}

// Whether the address map knows the address, and has filled in its destination.
static bool find_destination(const char *address, address_map_request *request) {
    if (const server_rows *const given = given_server()) {
        return ask_rows(given->address_map, address, request);
    }
    const address_map_function ask = find_map_function();
    return ask && ask_map(ask, address, request);
}

static const char *part_of(char *destination, int mode) {
    switch (mode) {
    case me_postoffice:
        return cut_at(destination, '/') ? cut_at(destination, ':') : nullptr;
    case me_mailbox:
        return cut_at(destination, ']') ? cut_at(destination, '/') : nullptr;
    default:
        return destination;
    }
}

char *load_me_destination_address_ex(const char *address, int mode) {
    if (is_empty(address) || mode < me_whole_destination || mode > me_mailbox) {
        QF_EINVAL();
        return nullptr;
    }
    address_map_request request;
    const bool known = find_destination(address, &request);
    tell(&evidence_sink::asked_address_map,
         {library_name, address, known ? request.destination : nullptr});
    if (!known) {
        return nullptr;
    }
    const char *const part = part_of(request.destination, mode);
    if (!part) {
        return nullptr;
    }
    char *const copy = strdup(part);
    if (!copy) {
        QF_ENOMEM();
    }
    return copy;
}

int split_full_destination_address(const char *destination, char **postoffice, char **mailbox) {
    if (is_empty(destination) || !postoffice || !mailbox) {
        QF_EINVAL();
        return 0;
    }
    const heap_string text(strdup(destination));
    if (!text) {
        QF_ENOMEM();
        return 0;
    }
    const char *const behind_box = cut_at(text.get(), ']');
    const char *const box_part = behind_box ? cut_at(text.get(), '/') : nullptr;
    const char *const office_part = box_part ? cut_at(text.get(), ':') : nullptr;
    if (!office_part) {
        return 0;
    }
    heap_string office(strdup(office_part));
    heap_string box(strdup(box_part));
    if (!office || !box) {
        QF_ENOMEM();
        return 0;
    }
    *postoffice = office.release();
    *mailbox = box.release();
    return 1;
}

} // namespace quillfence

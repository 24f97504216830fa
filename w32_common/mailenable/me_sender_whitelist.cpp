#include "me_sender_whitelist.h"

#include <cstdlib>
#include <cstring>

#include "evidence.h"
#include "me_address_map.h"
#include "me_settings.h"
#include "platform/directory.h"
#include "platform/file.h"
#include "quillfence-file.h"
#include "vc_file.h"
#include "vc_log.h"
#include "vc_stringutils.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "w32_common/me_sender_whitelist";
static constexpr char operation[] = "is_mailenable_sender_whitelist";
static constexpr char entry_extension[] = ".LST";

// Formats a new string; a failure has its line.
template <class... Texts>
static char *make_text(const char *format, Texts... texts) {
    char *made = nullptr;
    if (vc_asprintf(&made, format, texts...) < 0) {
        QF_ERRNO_AS(operation, ENOMEM);
        return nullptr;
    }
    return made;
}

// The whitelist directory of a mailbox, null when Mail Enable is not there.
static char *directory_of_mailbox(const char *postoffice, const char *mailbox) {
    const heap_string configuration(me_configuration_directory(me_key));
    return configuration ? make_text("%s\\Postoffices\\%s\\MAILBOXES\\%s\\Senders\\Whitelist",
                                     configuration.get(), postoffice, mailbox)
                         : nullptr;
}

// The whitelist directory of the recipient's mailbox, null when there is none.
static char *directory_of_recipient(const char *recipient) {
    const heap_string destination(load_me_destination_address_ex(recipient, me_whole_destination));
    char *postoffice = nullptr;
    char *mailbox = nullptr;
    if (!destination || !split_full_destination_address(destination.get(), &postoffice, &mailbox)) {
        return nullptr;
    }
    const heap_string office(postoffice);
    const heap_string box(mailbox);
    return directory_of_mailbox(postoffice, mailbox);
}

// The length of an entry's name without its extension; false for a file that is no entry.
static bool is_entry(const char *name, size_t *length) {
    const char *const extension = strrchr(name, '.');
    if (!extension || strcmp(extension, entry_extension) != 0) {
        return false;
    }
    *length = static_cast<size_t>(extension - name);
    return true;
}

// Whether an entry's name, of so many characters, stands for the sender.
static bool entry_matches(const char *name, size_t length, const char *sender) {
    const bool is_address = memchr(name, '@', length) != nullptr;
    const heap_string pattern(
        make_text("%s%.*s", is_address ? "" : "*@", static_cast<int>(length), name));
    return !is_empty(pattern.get()) && __wildcardmatch(pattern.get(), sender) == 0;
}

// Looks at the next file of the folder; false when the search ends with it.
static bool look_at(const char *name, folder_search *search) {
    tell(&evidence_sink::saw_folder_entry, {.folder = search->folder, .name = name});
    size_t length;
    if (!is_entry(name, &length)) {
        return false; // kept on purpose: such a file hides the entries behind it
    }
    ++search->entries;
    if (entry_matches(name, length, search->value)) {
        search->name = name;
    }
    return !search->name;
}

static bool end_search(const folder_search &search) {
    tell(&evidence_sink::searched_folder, search);
    return search.name != nullptr;
}

static bool listing_holds(platform::directory_listing *listing, folder_search *search) {
    platform::directory_entry entry;
    while (platform::directory_next(listing, &entry) == 0) {
        const bool is_folder = entry.attributes & platform::attribute_directory;
        if (!is_folder && !look_at(entry.name, search)) {
            break;
        }
    }
    return end_search(*search);
}

static bool folder_holds(const char *folder, folder_search *search) {
    if (!vc_file_exists_ex(folder, vc_type_directory)) {
        return end_search(*search);
    }
    platform::directory_listing *listing = nullptr;
    if (const uint32_t error = platform::directory_open(folder, &listing)) {
        tell_failure(folder, error);
        return false;
    }
    search->existed = true;
    const bool listed = listing_holds(listing, search);
    platform::directory_close(listing);
    return listed;
}

// The same by another server's listing.
static bool row_holds(const folder_row *row, const char *folder, folder_search *search) {
    while (row->folder && _stricmp(row->folder, folder) != 0) {
        ++row;
    }
    search->existed = row->folder && row->names;
    const char *const *name = search->existed ? row->names : nullptr;
    while (name && *name && look_at(*name, search)) {
        ++name;
    }
    return end_search(*search);
}

int is_mailenable_sender_whitelist(const char *sender, const char *recipient) {
    if (is_empty(sender) || is_empty(recipient)) {
        QF_EINVAL();
        return 0;
    }
    const heap_string directory(directory_of_recipient(recipient));
    if (!directory) {
        return 0;
    }
    folder_search search = {.folder = directory.get(), .value = sender};
    const server_rows *const given = given_server();
    return given ? row_holds(given->folders, directory.get(), &search)
                 : folder_holds(directory.get(), &search);
}

} // namespace quillfence

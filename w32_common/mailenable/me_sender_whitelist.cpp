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

static bool listing_holds(platform::directory_listing *listing, const char *sender,
                          folder_search *search) {
    platform::directory_entry entry;
    while (platform::directory_next(listing, &entry) == 0) {
        if (entry.attributes & platform::attribute_directory) {
            continue;
        }
        size_t length;
        if (!is_entry(entry.name, &length)) {
            break; // kept on purpose: such a file hides the entries behind it
        }
        ++search->entries;
        if (entry_matches(entry.name, length, sender)) {
            search->name = entry.name;
            tell(&evidence_sink::searched_folder, *search);
            return true;
        }
    }
    tell(&evidence_sink::searched_folder, *search);
    return false;
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
    if (!vc_file_exists_ex(directory.get(), vc_type_directory)) {
        tell(&evidence_sink::searched_folder, search);
        return 0;
    }
    platform::directory_listing *listing = nullptr;
    if (const uint32_t error = platform::directory_open(directory.get(), &listing)) {
        tell_failure(directory.get(), error);
        return 0;
    }
    search.existed = true;
    const bool listed = listing_holds(listing, sender, &search);
    platform::directory_close(listing);
    return listed;
}

} // namespace quillfence

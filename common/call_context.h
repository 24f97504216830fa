// What a call into the engine carries besides its arguments: who wants to know what a check looks
// at, where DNS answers come from, the configuration that was loaded beforehand. One record, one
// pointer of the calling thread. It is null unless a driver has set one, and then nothing is told,
// the system's DNS is asked and files are read; that costs neither an allocation nor a system call.
//
// Other threads see nothing of it; a driver that uses several sets a context in each.
#pragma once

#include <cstdint>

#include "platform/dns.h"
#include "platform/registry.h"

namespace quillfence {

struct evidence_sink; // evidence.h
struct frozen_files;  // frozen_files.h

// Where DNS answers come from.
struct dns_source {
    void *context; // handed back to ask
    // As platform::dns_query_detailed: the status; on status 0 *records is a list of dns_new_record
    // that the caller releases, otherwise null. details may be null; if not, it is filled as far as
    // the source knows, and the caller clears it. Throws nothing. Called by the threads that have
    // this source in their context, perhaps at once.
    uint32_t (*ask)(void *context, const char *name, uint16_t type, uint32_t options,
                    platform::dns_record **records, platform::dns_details *details);
};

// A file that is read in another one's place.
struct file_substitute {
    const char *path;        // as the engine names it, compared without regard to letter case
    const char *replacement; // read instead; it exists
};

// An entry of a file that counts as if it were not there; all others keep their places.
struct left_out_entry {
    const char *path; // of the file, as the engine names it and tells it in its evidence
    uint32_t place;   // from 1: of a list, of declarations and of a control file's names the line,
                      // of a range file the record, of compiled patterns the expression
};

// What another server's system answered, in place of this one. Names of keys, values and folders
// are compared without regard to letter case, addresses as they are; of several rows for one thing
// the first counts.

// A value of the registry, below HKEY_LOCAL_MACHINE. A key is there when a row says so, a value
// when it was found in the first such row of its name.
struct registry_row {
    const char *key;   // as the engine names it, in whichever view
    const char *value; // "" for the key's default value; null: about the key alone
    bool found;        // whether there is such a value; with null, such a key
    uint32_t type;     // as platform::registry_query gives them
    const void *data;
    uint32_t size;
};

struct address_map_row {
    const char *address;
    const char *destination; // null: the map does not know it
};

struct folder_row {
    const char *folder;       // as the engine names it
    const char *const *names; // of its files, as listed, null behind the last; null: no such folder
};

// Each ends in a row that names nothing. What is not in them counts as missing, and nothing of this
// system is asked.
struct server_rows {
    const registry_row *registry;
    const address_map_row *address_map;
    const folder_row *folders;
};

// All borrowed; each may be null.
struct call_context {
    evidence_sink *evidence = nullptr; // who wants to know
    dns_source *dns = nullptr;         // null: the system's DNS
    // What was read beforehand; null: the files, for every question. It is asked by path_to_read.
    const frozen_files *configuration = nullptr;
    // What if a file held something else: ends in a row without a path. Lists and other texts are
    // looked up there by path_to_read; block maps and pattern files are not.
    const file_substitute *substitutes = nullptr;
    // What if this entry were not there: asked by place_left_out.
    const left_out_entry *left_out = nullptr;
    // The registry, the mail server's address map and its folders; null: this system's.
    const server_rows *server = nullptr;
};

// The calling thread's; borrowed, null when it has none.
call_context *current_call_context();
// Sets it (null is accepted) and returns the one before.
call_context *exchange_call_context(call_context *context);

// The path to read a text file from: its substitute's, else its own. Borrowed.
const char *path_to_read(const char *path);

// The entry of this file that counts as if it were not there; 0 for none.
uint32_t place_left_out(const char *path);

// The calling thread's rows; null when this system answers.
inline const server_rows *given_server() {
    const call_context *const context = current_call_context();
    return context ? context->server : nullptr;
}

// Sets a context for its own lifetime and restores the one before; they nest.
class call_scope {
  public:
    explicit call_scope(call_context *context) : before(exchange_call_context(context)) {}
    ~call_scope() {
        exchange_call_context(before);
    }
    call_scope(const call_scope &) = delete;
    call_scope &operator=(const call_scope &) = delete;

  private:
    call_context *before;
};

} // namespace quillfence

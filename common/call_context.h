// What a call into the engine carries besides its arguments: who wants to know what a check looks
// at, where DNS answers come from, the configuration that was loaded beforehand. One record, one
// pointer of the calling thread. It is null unless a driver has set one, and then nothing is told,
// the system's DNS is asked and files are read; that costs neither an allocation nor a system call.
//
// Other threads see nothing of it; a driver that uses several sets a context in each.
#pragma once

#include <cstdint>

#include "platform/dns.h"

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

// All borrowed; each may be null.
struct call_context {
    evidence_sink *evidence = nullptr; // who wants to know
    dns_source *dns = nullptr;         // null: the system's DNS
    // What was read beforehand; null: the files, for every question. It is asked by path_to_read.
    const frozen_files *configuration = nullptr;
    // What if a file held something else: ends in a row without a path. Lists and other texts are
    // looked up there by path_to_read; block maps and pattern files are not.
    const file_substitute *substitutes = nullptr;
};

// The calling thread's; borrowed, null when it has none.
call_context *current_call_context();
// Sets it (null is accepted) and returns the one before.
call_context *exchange_call_context(call_context *context);

// The path to read a text file from: its substitute's, else its own. Borrowed.
const char *path_to_read(const char *path);

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

// The system's hosts file.
//
//     an address
//     the file
#include "fuzz_support.h"
#include "platform/process.h"
#include "vc_dns.h"

namespace quillfence::testing {

namespace {

// The file, whose path the product asks for once in a process.
const char *hosts_path() {
    static const std::string path = fuzz_drive().native("c:/quillfence/hosts");
    platform::set_hosts_file_stand_in(path.c_str());
    return "c:/quillfence/hosts";
}

} // namespace

void fuzz_one(fuzz_input &input) {
    const std::string address = input.line();
    const std::string bytes = input.rest();
    const char *path = hosts_path();
    fuzz_drive().write(path, bytes);
    vc_list_entry *names = nullptr;
    vc_append_list_entry(&names, "first", 6, 1);
    const int count = vc_gethostent(address.c_str(), &names);
    QF_PROMISE(count >= -1);
    QF_PROMISE(vc_list_count(names) == (count < 0 ? 1 : count + 1));
    for (const vc_list_entry *name = names; name; name = name->next) {
        QF_PROMISE(strlen(static_cast<const char *>(name->data)) < name->size);
    }
    vc_destroy_list(&names, free);
    QF_PROMISE(file_bytes(path) == bytes);
}

} // namespace quillfence::testing

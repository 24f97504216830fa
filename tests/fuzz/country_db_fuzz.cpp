// Country databases. The reader is a library of others; what it hands over is ours to judge.
//
//     an address
//     the database
#include "fuzz_support.h"
#include "vc_geoip.h"
#include "vc_text.h"

// What libmaxminddb loses of its own when it refuses some damaged metadata.
extern "C" const char *__lsan_default_suppressions();
const char *__lsan_default_suppressions() {
    return "leak:data_pool_new\n";
}

namespace quillfence::testing {

void fuzz_one(fuzz_input &input) {
    static constexpr char path[] = "c:/quillfence/country.mmdb";
    const std::string ip = input.line();
    const std::string bytes = input.rest();
    fuzz_drive().write(path, bytes);
    const heap_string exact(__vc_get_country_code(path, ip.c_str()));
    const heap_string code(vc_get_country_code(path, ip.c_str()));
    QF_PROMISE(ip.empty() ? !code : code != nullptr);
    QF_PROMISE(!exact || !code || !strcmp(code.get(), exact.get()) ||
               !strcmp(code.get(), vc_country_catch_all));
    QF_PROMISE(file_bytes(path) == bytes);
}

} // namespace quillfence::testing

// Prints random records, one a line: each whole, then brief. An argument says how many.
#include <cstdio>
#include <cstdlib>

#include "random_record.h"
#include "record_writer.h"

int main(int argc, char **argv) {
    using namespace quillfence;
    const unsigned long count = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 0;
    std::string lines;
    for (uint32_t seed = 0; seed < count; ++seed) {
        const auto record = testing::random_record(seed, seed % 2).make();
        for (const auto form : {decision::record_form::whole, decision::record_form::brief}) {
            decision::write_record(lines, record, form);
            lines += '\n';
        }
    }
    return std::fwrite(lines.data(), 1, lines.size(), stdout) == lines.size() ? 0 : 1;
}

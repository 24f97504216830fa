// Prints random cases, one a line. An argument says how many.
#include <cstdio>
#include <cstdlib>

#include "random_case.h"

int main(int argc, char **argv) {
    using namespace quillfence;
    const unsigned long count = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 0;
    std::string lines;
    for (uint32_t seed = 0; seed < count; ++seed) {
        decision::write_case(lines, testing::random_case(seed, seed % 2).make(),
                             decision::json_layout::one_line);
        lines += '\n';
    }
    return std::fwrite(lines.data(), 1, lines.size(), stdout) == lines.size() ? 0 : 1;
}

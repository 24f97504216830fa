// Prints the page of a record: "reject" for one that was refused, anything else for one about which
// nothing could be decided, with texts that are as long as texts get.
#include <cstdio>
#include <string_view>

#include "explain_html.h"
#include "sample_records.h"

int main(int argc, char **argv) {
    using namespace quillfence;
    const bool reject = argc > 1 && std::string_view(argv[1]) == "reject";
    decision::decision_record record =
        reject ? testing::rejected_sample() : testing::undecided_sample();
    if (!reject) {
        record.transaction.helo = std::string(300, 'h');
        record.rules[0].rule = std::string(100, 'r');
        record.rules[0].reason = std::string(200, 'w');
    }
    const std::string page = programs::explain_html(record);
    return std::fwrite(page.data(), 1, page.size(), stdout) == page.size() ? 0 : 1;
}

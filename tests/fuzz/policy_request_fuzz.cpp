// Requests of the policy protocol as a connection brings them: taken apart in pieces of any size,
// and read.
//
//     sizes of the pieces, bytes up to one of 0; taken over and over
//     the stream
#include <algorithm>

#include "fuzz_support.h"
#include "input.h"
#include "request_splitter.h"

namespace quillfence::testing {

using namespace decision;
using service::request_splitter;
using service::split;

namespace {

struct taken {
    std::vector<std::string> requests;
    split end = split::none;
    bool operator==(const taken &) const = default;
};

taken take_all(std::string_view stream, const std::vector<size_t> &sizes) {
    request_splitter splitter;
    taken all;
    for (size_t i = 0; !stream.empty() && all.end == split::none; ++i) {
        const size_t size = std::min(sizes[i % sizes.size()], stream.size());
        const exact_bytes piece(std::string(stream.substr(0, size)));
        stream.remove_prefix(size);
        splitter.add({piece.begin(), size});
        std::string request;
        while ((all.end = splitter.next(&request)) == split::request) {
            all.requests.push_back(request);
        }
        if (all.end == split::none) {
            QF_PROMISE(splitter.held() <= longest_policy_request + longest_policy_line + 2);
            QF_PROMISE(splitter.is_within() == (splitter.held() > 0));
        }
    }
    return all;
}

// What was taken is within the bounds of those that read it.
void judge(const std::string &request) {
    QF_PROMISE(!request.empty() && request.ends_with('\n') &&
               request.size() <= longest_policy_request);
    QF_PROMISE(request.front() != '\n' && request.find("\n\n") == std::string::npos);
    const input_result result = read_input(input_format::policy, request);
    QF_PROMISE(!result.read || result.problem.text.empty());
    for (const char *bound :
         {"the line is too long", "the request is too long", "the request has too many lines"}) {
        QF_PROMISE(result.problem.text != bound);
    }
}

} // namespace

void fuzz_one(fuzz_input &input) {
    without_debug_lines();
    std::vector<size_t> sizes;
    for (uint8_t size = input.byte(); size != 0; size = input.byte()) {
        sizes.push_back(size);
    }
    const std::string stream = input.rest();
    const taken whole = take_all(stream, {std::max<size_t>(stream.size(), 1)});
    if (!sizes.empty()) {
        QF_PROMISE(take_all(stream, sizes) == whole);
    }
    for (const std::string &request : whole.requests) {
        judge(request);
    }
}

} // namespace quillfence::testing

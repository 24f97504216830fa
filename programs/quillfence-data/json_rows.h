// A JSON object on standard output whose first member is an array, an element a line: for tables
// that may be long.
//
//     json_rows rows("addresses");
//     rows.next();
//     std::printf("{...}");
//     rows.end();
#pragma once

#include <cstdio>
#include <string>

namespace quillfence::data_tool {

class json_rows {
  public:
    explicit json_rows(const char *name) {
        std::printf("{\"%s\":[", name);
    }
    // In front of each element.
    void next() {
        std::printf("%s", is_empty_ ? "\n" : ",\n");
        is_empty_ = false;
    }
    // Behind the last one; an object that was not ended is no JSON, so that nobody takes half a
    // table for the whole.
    //   members  that come behind the array, as in "\"damaged\":[]"; "" for none
    void end(const std::string &members = "") const {
        std::printf("%s]%s%s}\n", is_empty_ ? "" : "\n", members.empty() ? "" : ",",
                    members.c_str());
    }

  private:
    bool is_empty_ = true;
};

} // namespace quillfence::data_tool

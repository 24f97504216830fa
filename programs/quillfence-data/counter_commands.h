// quillfence-data counter: shows the counters of a log directory.
#pragma once

#include <ostream>
#include <string>

#include "counter_data.h"
#include "data_program.h"

namespace quillfence::data_tool {

enum class counter_form { table, csv, json };

struct counter_arguments {
    std::string directory;
    counter_form form = counter_form::table;
    std::string html; // a file to write instead; "" for none
};
exit_status counter_show(const counter_arguments &arguments, std::ostream &out);

// A page of its own: totals, a chart of the days and one of the hours, a table. It needs nothing
// from elsewhere, and has colours for light and for dark surroundings.
std::string counter_page(const counter_totals &totals);

} // namespace quillfence::data_tool

// A decision record as a page for a browser: one file without scripts that can be mailed with a
// ticket, for light and for dark surroundings. Everything that colour tells is told by words, too.
#pragma once

#include <string>

#include "decision_record.h"

namespace quillfence::programs {

std::string explain_html(const decision::decision_record &record);

} // namespace quillfence::programs

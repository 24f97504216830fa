#include "off_source.h"

namespace quillfence::dns_sources {

answer off_source::ask(const question &) {
    return answer_of_status(status_missing);
}

} // namespace quillfence::dns_sources

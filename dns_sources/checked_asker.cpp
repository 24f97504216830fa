#include "checked_asker.h"

#include <memory>
#include <new>
#include <utility>

#include "platform/error_numbers.h"

namespace quillfence::dns_sources {

namespace {

struct checked_question {
    question asked;
    asker::listener then;
};

} // namespace

static void tell_checked(const checked_question &one, const checked_asker::check &each,
                         answer got) {
    try {
        each(one.asked, &got);
    } catch (const std::bad_alloc &) {
        got = answer_of_status(platform::error_not_enough_memory);
    }
    one.then(std::move(got));
}

void checked_asker::ask(const question &asked, listener then) noexcept {
    listener checked;
    try {
        auto kept = std::make_shared<checked_question>(checked_question{asked, {}});
        checked = [this, kept](answer got) { tell_checked(*kept, each_, std::move(got)); };
        kept->then = std::move(then);
    } catch (const std::bad_alloc &) {
        then(answer_of_status(platform::error_not_enough_memory));
        return;
    }
    next_.ask(asked, std::move(checked));
}

} // namespace quillfence::dns_sources

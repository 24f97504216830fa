#include "log_fields.h"

namespace quillfence::decision {

namespace {

class log_splitter {
  public:
    explicit log_splitter(std::span<const log_field> fields) : fields_(fields) {}

    log_readings split(std::string_view text, std::vector<std::string_view> *values) {
        search(text);
        *values = std::move(first_);
        return tries_ >= most_tries || found_ > 1 ? log_readings::several
               : found_                           ? log_readings::one
                                                  : log_readings::none;
    }

  private:
    static constexpr int most_tries = 1000;

    bool is_enough() const {
        return found_ > 1 || tries_ >= most_tries;
    }
    // Tries every place at which the next field can end.
    void search(std::string_view text) {
        const log_field &field = fields_[values_.size()];
        if (field.end.empty()) {
            take(text, {});
            return;
        }
        for (size_t end = text.find(field.end); end != std::string_view::npos && !is_enough();
             end = text.find(field.end, end + 1)) {
            ++tries_;
            take(text.substr(0, end), text.substr(end + field.end.size()));
        }
    }
    void take(std::string_view value, std::string_view rest) {
        const log_field &field = fields_[values_.size()];
        if (field.accepts && !field.accepts(value)) {
            return;
        }
        values_.push_back(value);
        if (values_.size() < fields_.size()) {
            search(rest);
        } else if (rest.empty()) {
            first_ = found_++ ? first_ : values_;
        }
        values_.pop_back();
    }

    const std::span<const log_field> fields_;
    std::vector<std::string_view> values_; // of the way that is tried
    std::vector<std::string_view> first_;
    int found_ = 0;
    int tries_ = 0;
};

} // namespace

log_readings split_log_fields(std::string_view text, std::span<const log_field> fields,
                              std::vector<std::string_view> *values) {
    return log_splitter(fields).split(text, values);
}

} // namespace quillfence::decision

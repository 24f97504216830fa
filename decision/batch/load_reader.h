// Reads inputs one after the other and puts what they hold on a conveyor, load by load.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "conveyor.h"
#include "input_splitter.h"
#include "open_file.h"

namespace quillfence::decision {

class load_reader {
  public:
    // The paths of the inputs, "-" for standard input; the format of all of them, or nothing for
    // what each looks like. All borrowed.
    load_reader(const std::vector<std::string> &inputs, std::optional<input_format> format,
                conveyor *to);

    // Reads until all inputs are at their end, somebody has stopped the conveyor, or the user wants
    // the program to end (platform/interruption.h), in which case it is stopped here. Then it is
    // closed. Throws nothing.
    void run();

    // Why not all was read: "mail.log: Permission denied"; "" when nothing was wrong.
    const std::string &failure() const {
        return failure_;
    }
    bool interrupted() const {
        return interrupted_;
    }

  private:
    bool read_input(const std::string &path);
    bool read_all(platform::file_handle from);
    bool begin_format(bool at_end);
    bool take_units(bool at_end);
    void add_unit(const input_unit &unit);
    bool put_load();
    bool check_interruption();

    const std::vector<std::string> &inputs_;
    const std::optional<input_format> format_;
    conveyor *const to_;

    std::string input_;                      // the current one
    std::optional<input_splitter> splitter_; // once its format is known
    std::string beginning_;                  // of the input, until then
    input_format used_ = input_format::json;
    std::unique_ptr<batch_load> load_;
    uint64_t bytes_read_ = 0;
    uint64_t count_ = 0; // of all transactions
    std::string failure_;
    bool interrupted_ = false;
};

} // namespace quillfence::decision

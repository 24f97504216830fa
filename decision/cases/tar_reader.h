// Reads a tar file, entry by entry, and believes nothing of it.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "tar_entry.h"
#include "tar_header.h"

namespace quillfence::decision {

// Delivers the file's next bytes, fewer than wanted at its end alone. 0 or a Win32 error number.
using tar_source = std::function<uint32_t(void *bytes, size_t size, size_t *got)>;

// Understood are POSIX ustar and pax headers and what GNU tar writes by default, but for sparse
// files and binary numbers; links, devices and everything else that is no plain file or folder are
// refused, as are names by tar_entry.h's rules. "./" in front of a name is dropped.
class tar_reader {
  public:
    explicit tar_reader(tar_source from, const tar_limits &limits = {});
    tar_reader(const tar_reader &) = delete;
    tar_reader &operator=(const tar_reader &) = delete;

    // The next entry; what is left of the one before is passed over. False behind the last one and
    // for a problem.
    bool next(tar_entry *entry);
    // Contents of the entry. *got receives fewer bytes than wanted at its end alone. False for a
    // problem.
    bool read(void *bytes, size_t size, size_t *got);

    // What is wrong, in words that name the entry: "\"c/x\": is a link". "" so far.
    const std::string &problem() const {
        return problem_;
    }

  private:
    bool fail(const std::string &why);
    bool fail_entry(const std::string &name, const std::string &why);
    bool fill(void *bytes, size_t size);
    bool pass_over_rest();
    bool read_block(tar_block *block);
    bool read_end();
    std::string where_of_header(const std::string &problem) const;
    bool read_headers(tar_header *header);
    bool read_extension(const tar_header &header);
    bool read_text(const tar_header &header, std::string *text);
    bool take_extension(const tar_header &header, std::string *text);
    bool make_entry(const tar_header &header, tar_entry *entry);
    bool accept(const tar_entry &entry);

    tar_source from_;
    tar_limits limits_;
    tar_names names_;
    std::string problem_;
    std::string last_;                // the name of the entry before
    std::optional<pax_records> next_; // what stands in front of a header about it
    uint64_t left_ = 0;               // of the entry's contents
    size_t padding_ = 0;              // behind them
    uint64_t entries_ = 0;
    uint64_t total_ = 0;
    bool ended_ = false;
};

} // namespace quillfence::decision

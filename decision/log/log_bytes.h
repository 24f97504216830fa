// The bytes of a log as they were written: those of a plain file as they are, of a gzip file what
// was compressed. Which of them it is, its first two bytes tell, not its name.
//
// What a compressed file grows to costs time and no memory: it is taken piece by piece.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace quillfence::decision {

class log_bytes {
  public:
    // Gives up to `size` bytes; *got is 0 at the end. 0 or a Win32 error number.
    using source = std::function<uint32_t(void *to, uint32_t size, uint32_t *got)>;

    explicit log_bytes(source from);
    ~log_bytes();
    log_bytes(const log_bytes &) = delete;
    log_bytes &operator=(const log_bytes &) = delete;

    // Up to `size` bytes, 0 at the end. More may come behind the end of a plain file, when the
    // source has some again.
    size_t read(char *to, size_t size);

    // Why it ended too early; "" when nothing is wrong. `error` is the source's number, 0 when the
    // compression is damaged.
    const std::string &problem() const {
        return problem_;
    }
    uint32_t error() const {
        return error_;
    }
    // How many bytes the source has given.
    uint64_t taken() const {
        return taken_;
    }

  private:
    struct inflater; // zlib is known to the source file alone

    bool fill();
    void begin();
    size_t inflate_to(char *to, size_t size);
    bool end_member();
    size_t fail(const std::string &problem);

    const source from_;
    std::string piece_; // compressed, or the beginning of a plain file
    size_t used_ = 0;
    size_t filled_ = 0;
    bool begun_ = false;
    bool ended_ = false; // the compressed data
    std::unique_ptr<inflater> inflater_;
    uint64_t taken_ = 0;
    uint32_t error_ = 0;
    std::string problem_;
};

} // namespace quillfence::decision

// A set of IPv4 addresses in bounded memory: by /16, as a short list of addresses, as a bitmap, or
// as "all of them". A /16 takes at most 8 KiB, an address in a thinly listed one two to four bytes;
// 10 million addresses spread over all networks take about 40 MB, whatever else is listed, and no
// set takes more than 540 MB. Numbers are in host byte order.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

namespace quillfence::data_files {

// The addresses of a /16 as they lie in a block map: address i is bit 0x80 >> i % 8 of byte i / 8.
inline constexpr size_t bitmap_size = 8192;
using bitmap = std::array<uint8_t, bitmap_size>;

enum class coverage : uint8_t { nothing, some, everything };

class network_set {
  public:
    // Adds first to last.
    void add(uint16_t first, uint16_t last);
    coverage covers() const {
        return covers_;
    }
    // How much is listed, exactly; *bits receives the addresses when that is "some".
    coverage bits(bitmap *bits) const;

  private:
    void add_to_few(uint16_t first, uint16_t last);
    void tidy_few();
    void make_many();

    coverage covers_ = coverage::nothing;
    std::vector<uint16_t> few_;    // in any order, some more than once
    std::unique_ptr<bitmap> many_; // in place of few_, when there are many
};

class address_set {
  public:
    address_set() : networks_(65536) {}
    // Adds first to last; last is not below first.
    void add(uint32_t first, uint32_t last);
    const network_set &network(uint32_t number) const {
        return networks_[number];
    }

  private:
    std::vector<network_set> networks_; // by the upper two octets
};

} // namespace quillfence::data_files

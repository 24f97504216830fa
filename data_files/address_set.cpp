#include "address_set.h"

#include <algorithm>

namespace quillfence::data_files {

// Where a list takes as much memory as a bitmap.
static constexpr size_t max_few = bitmap_size / sizeof(uint16_t);

static void set_bits(bitmap *bits, uint32_t first, uint32_t last) {
    uint32_t at = first;
    while (at <= last) {
        if (at % 8 == 0 && last - at >= 7) {
            (*bits)[at / 8] = 0xFF;
            at += 8;
        } else {
            (*bits)[at / 8] = static_cast<uint8_t>((*bits)[at / 8] | 0x80 >> at % 8);
            ++at;
        }
    }
}

static bool all_set(const bitmap &bits) {
    return std::all_of(bits.begin(), bits.end(), [](uint8_t byte) { return byte == 0xFF; });
}

void network_set::make_many() {
    auto many = std::make_unique<bitmap>();
    for (const uint16_t address : few_) {
        set_bits(many.get(), address, address);
    }
    many_ = std::move(many);
    few_ = {};
}

// The list is full: what is in it twice goes; when that does not halve it, a bitmap follows.
void network_set::tidy_few() {
    std::sort(few_.begin(), few_.end());
    few_.erase(std::unique(few_.begin(), few_.end()), few_.end());
    if (few_.size() > max_few / 2) {
        make_many();
    }
}

void network_set::add_to_few(uint16_t first, uint16_t last) {
    for (uint32_t address = first; address <= last; ++address) {
        few_.push_back(static_cast<uint16_t>(address));
    }
    if (few_.size() >= max_few) {
        tidy_few();
    }
}

void network_set::add(uint16_t first, uint16_t last) {
    if (covers_ == coverage::everything) {
        return;
    }
    if (first == 0 && last == 0xFFFF) {
        *this = {};
        covers_ = coverage::everything;
        return;
    }
    covers_ = coverage::some;
    const size_t count = size_t{last} - first + 1;
    if (!many_ && few_.size() + count <= max_few) {
        add_to_few(first, last);
        return;
    }
    if (!many_) {
        make_many();
    }
    set_bits(many_.get(), first, last);
}

coverage network_set::bits(bitmap *bits) const {
    if (covers_ != coverage::some) {
        return covers_;
    }
    if (many_) {
        *bits = *many_;
        return all_set(*bits) ? coverage::everything : coverage::some;
    }
    bits->fill(0);
    for (const uint16_t address : few_) {
        set_bits(bits, address, address);
    }
    return coverage::some;
}

void address_set::add(uint32_t first, uint32_t last) {
    for (uint32_t network = first >> 16; network <= last >> 16; ++network) {
        const uint32_t from = network == first >> 16 ? first & 0xFFFF : 0;
        const uint32_t to = network == last >> 16 ? last & 0xFFFF : 0xFFFF;
        networks_[network].add(static_cast<uint16_t>(from), static_cast<uint16_t>(to));
    }
}

} // namespace quillfence::data_files

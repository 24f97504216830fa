// IP range files: IPv4 ranges with a comment each.
#pragma once

#include <cstdint>

namespace quillfence {

// Network byte order.
struct qf_ip_range {
    uint32_t low;
    uint32_t high;
};

int qf_ip_ge(uint32_t a, uint32_t b, int level);
int qf_valid_ip_range(const qf_ip_range *range);
int qf_ip_in_range(uint32_t address, const qf_ip_range *range);
int file_contains_ip_range_match(const char *name, const char *address, const char *directory);
int ipr_file_contains_range(const char *path, const char *low, const char *high, uint32_t *offset);
int ipr_add(const char *directory, const char *name, const char *low, const char *high,
            const char *comment, const char **error);
int ipr_del_range_from_file(const char *directory, const char *name, const char *low,
                            const char *high, const char **error);
int ipr_convert_file(const char *directory, const char *name);

} // namespace quillfence

#include "platform/error_numbers.h"

#include <cerrno>

#include <gtest/gtest.h>

namespace quillfence::platform {
namespace {

// What each of the seam's numbers is for the C library, and so the text that is logged for it.
TEST(error_numbers, for_the_c_library) {
    static constexpr struct {
        uint32_t error;
        int want;
    } cases[] = {
        {0, 0},        {2, ENOENT},   {3, ENOENT},    {4, EMFILE},      {5, EACCES},
        {6, EBADF},    {8, ENOMEM},   {17, EINVAL},   {18, ENOENT},     {19, EACCES},
        {25, EINVAL},  {31, EIO},     {32, EACCES},   {50, EINVAL},     {80, EEXIST},
        {87, EINVAL},  {109, EPIPE},  {112, ENOSPC},  {122, EINVAL},    {123, ENOENT},
        {126, EINVAL}, {127, EINVAL}, {131, EINVAL},  {145, ENOTEMPTY}, {170, EINVAL},
        {183, EEXIST}, {203, EINVAL}, {206, EINVAL},  {223, EFBIG},     {232, EPIPE},
        {234, EINVAL}, {259, EINVAL}, {267, ENOTDIR}, {288, EINVAL},    {1017, EINVAL},
        {995, EINTR},  {1117, EIO},   {1921, EINVAL}, {9003, EINVAL},   {0xFFFFFFFF, EINVAL},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(errno_of(c.error), c.want) << c.error;
    }
}

} // namespace
} // namespace quillfence::platform

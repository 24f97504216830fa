// What the conveyor holds at once, and how it ends. Many threads at it are batch's test.
#include "conveyor.h"

#include <gtest/gtest.h>

namespace quillfence::testing {
namespace {

using namespace decision;

std::unique_ptr<batch_load> load_of(size_t bytes) {
    auto made = std::make_unique<batch_load>();
    made->text.assign(bytes, 'x');
    made->items.resize(1);
    return made;
}

bool put(conveyor &belt, size_t bytes) {
    std::unique_ptr<batch_load> load = load_of(bytes);
    const bool taken = belt.put(load);
    EXPECT_EQ(load == nullptr, taken);
    return taken;
}

TEST(conveyor, holds_so_many_bytes_and_loads) {
    conveyor bytes({.loads = 9, .bytes = 100});
    EXPECT_TRUE(put(bytes, 60));
    EXPECT_TRUE(put(bytes, 40));
    EXPECT_FALSE(put(bytes, 1));
    EXPECT_EQ(bytes.most_bytes(), 100u);
    conveyor loads({.loads = 2, .bytes = 100});
    EXPECT_TRUE(put(loads, 1));
    EXPECT_TRUE(put(loads, 1));
    EXPECT_FALSE(put(loads, 1));
    EXPECT_EQ(loads.most_loads(), 2u);
}

TEST(conveyor, a_single_load_may_have_more_bytes) {
    conveyor belt({.loads = 9, .bytes = 100});
    EXPECT_TRUE(put(belt, 1000));
    EXPECT_FALSE(put(belt, 1));
    belt.finish(belt.take().load, 1);
    EXPECT_NE(belt.next(), nullptr);
    EXPECT_TRUE(put(belt, 1)) << "there is room again";
}

TEST(conveyor, takes_nothing_once_it_was_stopped) {
    conveyor belt({.loads = 9, .bytes = 100});
    EXPECT_TRUE(put(belt, 1));
    belt.stop();
    EXPECT_FALSE(put(belt, 1));
    EXPECT_EQ(belt.take().load, nullptr);
    EXPECT_TRUE(belt.is_over());
    EXPECT_NE(belt.leftover(), nullptr);
    EXPECT_EQ(belt.leftover(), nullptr);
}

} // namespace
} // namespace quillfence::testing

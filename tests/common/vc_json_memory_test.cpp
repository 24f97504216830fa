// What is said when there is no memory in the middle of an operation.
#include <cerrno>
#include <cstdio>
#include <set>
#include <string>

#include "error_text.h"
#include "failing_memory.h"
#include "vc_json_document.h"

namespace quillfence::testing {
namespace {

TEST_F(vc_json_test, walking_without_memory) {
    const std::string no_iterator = "vc_map_iterator_start_ex: " + text_of(ENOMEM);
    const json root = parsed("{\"a\":{\"b\":1}}");
    vc_json_iterator *walk = nullptr;
    for (unsigned n = 1; n <= 2; ++n) {
        {
            const failing_allocation failing(n);
            walk = vc_json_iterator_start(root.get());
        }
        EXPECT_EQ(walk, nullptr);
        EXPECT_EQ(log.errors(),
                  (lines{n == 1 ? "vc_json_iterator_start: " + text_of(ENOMEM) : no_iterator,
                         "vc_json_iterator_start: Failed to create iterator"}));
    }
    const vc_json *found = root.get();
    {
        const failing_allocation failing(2); // behind the name of the path
        found = vc_json_find_node(root.get(), "b");
    }
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(log.errors(),
              (lines{"vc_json_iterator_start: " + text_of(ENOMEM),
                     "vc_json_iterator_start: Failed to create iterator",
                     "vc_json_find_node: Failed to create json iterator for node: [(null)]"}));
}

TEST_F(vc_json_test, a_first_member_without_memory) {
    const json root(vc_json_create_node_object_ex(nullptr, nullptr));
    const json child(vc_json_create_node_null_ex(nullptr, "a"));
    int added;
    {
        const failing_allocation failing(1);
        added = vc_json_add_node(root.get(), child.get());
    }
    EXPECT_EQ(added, 0);
    EXPECT_EQ(log.errors(),
              (lines{"vc_map_create: " + text_of(ENOMEM),
                     "vc_json_add_node: Failed to create new map for parent object"}));
    EXPECT_EQ(written(root.get()), "{}");
}

// The dump stops where it can't walk, and says so.
TEST_F(vc_json_test, writing_without_memory) {
    const json root = parsed("[1,{\"a\":2},3]");
    FILE *stream = std::fopen(drive.native(path).c_str(), "wb");
    static char buffer[256]; // so that the stream allocates nothing
    ASSERT_EQ(std::setvbuf(stream, buffer, _IOFBF, sizeof buffer), 0);
    int complete;
    {
        const failing_allocation failing(1);
        complete = vc_json_dump(stream, root.get());
    }
    std::fclose(stream);
    EXPECT_EQ(complete, 0);
    EXPECT_EQ(log.errors(), (lines{"vc_map_iterator_start_ex: " + text_of(ENOMEM),
                                   "__vc_json_dump: Failed to create map iterator"}));
    EXPECT_EQ(drive.read(path), "[1,{");
}

} // namespace
} // namespace quillfence::testing

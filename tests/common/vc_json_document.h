// What a test sees of a document.
#pragma once

#include <cstdio>
#include <string>

#include "drive_c.h"
#include "owned_json.h"

namespace quillfence::testing {

inline std::string repeated(const std::string &text, size_t times) {
    std::string result;
    for (size_t i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

inline std::string value_of(const vc_json *node) {
    return node && node->value ? static_cast<const char *>(node->value) : "(none)";
}

class vc_json_test : public drive_test {
  protected:
    static constexpr char path[] = "c:/quillfence/document.json";

    ~vc_json_test() override {
        if (output) {
            std::fclose(output);
        }
    }

    // What a dump writes.
    std::string written(const vc_json *node, int pretty = 0, int expected = 1) {
        if (!output) {
            output = std::fopen(drive.native("c:/quillfence/written").c_str(), "w+b");
        }
        std::rewind(output);
        EXPECT_EQ((pretty ? vc_json_dump_pretty : vc_json_dump)(output, node), expected);
        std::string bytes(static_cast<size_t>(std::ftell(output)), '\0');
        std::rewind(output);
        EXPECT_EQ(std::fread(bytes.data(), 1, bytes.size(), output), bytes.size());
        return bytes;
    }
    std::string pretty(const vc_json *node) {
        return written(node, 1);
    }
    json parsed(const std::string &text) {
        json root(vc_json_parse_string(text.c_str()));
        EXPECT_TRUE(root) << text;
        return root;
    }

  private:
    FILE *output = nullptr;
};

} // namespace quillfence::testing

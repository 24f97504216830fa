#include "data_program.h"
#include "platform/file.h"

int main(int argc, char **argv) {
    quillfence::platform::make_standard_streams_binary();
    return quillfence::data_tool::run(argc, argv);
}

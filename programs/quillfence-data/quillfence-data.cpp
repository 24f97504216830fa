#include "data_program.h"
#include "platform/file.h"

int main(int argc, char **argv) {
    quillfence::platform::prepare_standard_streams();
    return quillfence::data_tool::run(argc, argv);
}

#include "platform/file.h"
#include "quillfence_program.h"

int main(int argc, char **argv) {
    quillfence::platform::prepare_standard_streams();
    return quillfence::programs::run_quillfence(argc, argv);
}

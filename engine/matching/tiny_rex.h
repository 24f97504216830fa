// The regular-expression engine: compiles a pattern into a flat array of nodes and matches byte
// strings against it.
#pragma once

#include <cstdint>

namespace quillfence {

// Case flags of the compiler.
inline constexpr uint8_t trex_fold_case = 0; // as stored expressions always match
inline constexpr uint8_t trex_exact_case = 1;

struct TRexNode {
    int32_t type;
    int32_t left;
    int32_t right;
    int32_t next;
};

struct TRex;

TRex *trex_compile_ex(const char *pattern, uint8_t case_flag);
int trex_match(TRex *expression, const char *subject);
void trex_free(TRex *expression);
char *trex_escape(const char *text);

} // namespace quillfence

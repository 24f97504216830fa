// A library with one function, for the tests of dynamic_library.
extern "C" int sample_sum(int one, int other);
extern "C" int sample_sum(int one, int other) {
    return one + other;
}

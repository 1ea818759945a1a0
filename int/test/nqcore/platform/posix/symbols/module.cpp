// A library that tests open, close, strip and replace. NQ_TEST_NAME begins the names of its functions.
#define NQ_JOIN2(a, b) a##b
#define NQ_JOIN(a, b) NQ_JOIN2(a, b)

namespace {

[[gnu::noinline]] int NQ_JOIN(NQ_TEST_NAME, _hidden)(int number) {
    asm volatile("" : "+r"(number));
    return number;
}

}  // namespace

extern "C" {

[[gnu::visibility("default")]] int NQ_JOIN(NQ_TEST_NAME, _shown)(int number) {
    asm volatile("" : "+r"(number));
    return number + 1;
}

[[gnu::visibility("default")]] const void* places[] = {reinterpret_cast<const void*>(&NQ_JOIN(NQ_TEST_NAME, _shown)),
                                                       reinterpret_cast<const void*>(&NQ_JOIN(NQ_TEST_NAME, _hidden))};
}

// In every program and library: each has counters of its own.
extern "C" void __gcov_dump();
extern "C" void nqcore_coverage_add(void (*dump)());

[[gnu::constructor]] static void add() { nqcore_coverage_add(__gcov_dump); }

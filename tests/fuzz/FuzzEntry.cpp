// libFuzzer's entry for one target, chosen at compile time with VORLO_FUZZ_TARGET (the function's
// name). Without it this file is empty, so that the test binary, which globs every test source,
// can hold it beside the replay test.
#ifdef VORLO_FUZZ_TARGET
#include "fuzz/FuzzTargets.h"
#include "platform/Collation.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vorlo::text::adoptLocaleFromEnvironment();
    return 0;
}

// A broken property escapes as FuzzFailure: the runtime's handler prints its what() and aborts, and
// libFuzzer keeps the input as a finding.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return vorlo::fuzz::VORLO_FUZZ_TARGET(data, size);
}
#endif

#include <cstdint>

#include "entries.h"

/** What the fuzzer calls; each program has one entry. */
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::SENVO_FUZZ_ENTRY(std::string(reinterpret_cast<const char*>(data), size));
    return 0;
}

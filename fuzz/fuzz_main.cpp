// libFuzzer entry of one target: QVGEO_FUZZ_HARNESS names its harness function (set by CMake).
#include <qvgeo/fuzz/harness.h>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* Data, std::size_t Size)
{
    QVGEO_FUZZ_HARNESS(qvfuzz::TBytes(Data, Size));
    return 0;
}

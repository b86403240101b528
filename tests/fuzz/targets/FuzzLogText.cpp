// Arbitrary bytes of the tool become text. The unit tests compare the text with Python's.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "flashing/ToolProcessSetUp.h"
#include "tests/fuzz/targets/Property.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(data, data + size);
    std::string decoded = qelmo::decodedUtf8(bytes);
    qelmo::require(qelmo::decodedUtf8(decoded) == decoded, "decoded text is UTF-8", decoded);

    std::replace(decoded.begin(), decoded.end(), '\r', '\n');
    const std::string logged = qelmo::logTextOfChunk(bytes);
    qelmo::require(logged == decoded, "only carriage returns may change, to line feeds", logged);
    return 0;
}

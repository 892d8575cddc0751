#include "qmp/digitfiles/digit_reader.h"

#include <algorithm>
#include <vector>

namespace qmp {

void DigitReader::load_stats(DigitCounts& counts, DigitHash& hash, uint64_t start, uint64_t end) {
    constexpr uint64_t kBlock = uint64_t(1) << 20;
    std::vector<char> raw(std::min(kBlock, end > start ? end - start : 0));
    for (uint64_t p = start; p < end;) {
        const uint64_t n = std::min(kBlock, end - p);
        load_digits(raw.data(), p, n);
        counts.push(raw.data(), n);
        hash.push(raw.data(), n);
        p += n;
    }
}

}  // namespace qmp

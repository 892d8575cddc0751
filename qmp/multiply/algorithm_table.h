// Routing of products by size: an AlgorithmTable is an ordered list of (threshold, algorithm)
// pairs, thresholds strictly increasing; the algorithm of an entry serves every product size
// (in 64-bit words, AL + BL) above the previous threshold and up to its own. The same table
// answers how much scratch a product of a given size needs, so buffers are sized before any
// multiplication runs. Entries do not own their algorithms unless the table was built from
// named entries through the registry, in which case it keeps them alive (shared, immutable).
// Errors: "Thresholds must be increasing." (StringException), sizes beyond the last threshold
// (LimitExceededException naming the query), short buffers in check_mul() (BufferTooSmall).
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "qmp/multiply/basic_algorithm.h"

namespace qmp {

class AlgorithmRegistry;

// One line of a table description: "algorithm <name> serves product sizes up to
// <threshold> words". `features` are capabilities the table needs from it (for example an
// instruction-set variant such as "AVX512 Float"); the algorithm must support each one.
struct NamedAlgorithmEntry {
    uint64_t threshold_words = 0;
    std::string name;
    std::vector<std::string> features;
};

class AlgorithmTable {
public:
    using Entry = std::pair<uint64_t, const BasicAlgorithm*>;

    AlgorithmTable() = default;

    // Appends an entry. A null algorithm is ignored (profiles leave out algorithms that this
    // build or processor lacks); a threshold not above the last one is a profile error.
    void add(uint64_t threshold_words, const BasicAlgorithm* algorithm);

    // The algorithm of the first entry whose threshold is at least `product_words`.
    const BasicAlgorithm& get_algorithm(uint64_t product_words) const;

    const std::vector<Entry>& entries() const noexcept { return entries_; }
    bool empty() const noexcept { return entries_.empty(); }
    // The largest product size the table serves (0 for an empty table).
    uint64_t max_product_words() const noexcept {
        return entries_.empty() ? 0 : entries_.back().first;
    }

    // Runs every algorithm's own parameter check.
    void assert_valid() const;

protected:
    // Builds the table from named entries through `registry`, keeping the created algorithms.
    AlgorithmTable(const AlgorithmRegistry& registry, const std::vector<NamedAlgorithmEntry>& list,
                   const char* function);

    // Index of the entry serving `product_words`; throws LimitExceeded naming `function`.
    size_t index_for(uint64_t product_words, const char* function) const;
    // The maximum of `need(algorithm)` over entries 0..index, or the chosen entry's own need.
    template <typename Need>
    uint64_t buffer_query(uint64_t product_words, bool include_smaller, const char* function,
                          Need need) const {
        size_t index = index_for(product_words, function);
        if (!include_smaller) return need(*entries_[index].second, product_words);
        uint64_t bytes = 0;
        // A smaller entry only ever serves products up to its own threshold.
        for (size_t i = 0; i <= index; ++i) {
            uint64_t b = need(*entries_[i].second, std::min(product_words, entries_[i].first));
            if (b > bytes) bytes = b;
        }
        return bytes;
    }

private:
    std::vector<Entry> entries_;
    std::vector<std::shared_ptr<const BasicAlgorithm>> owned_;
};

// Tables for products of word arrays in memory.
//
// Buffer queries: with `include_smaller` set, the answer is the maximum requirement over every
// entry up to and including the one chosen for the size, because an algorithm may recurse into
// any smaller one through the table. With it clear, the answer is the chosen algorithm's own
// requirement only: enough when the caller knows that algorithm does not recurse through the
// table (BKT recurses only into itself), and the cheaper answer when it is.
class AlgorithmTableB : public AlgorithmTable {
public:
    AlgorithmTableB() = default;
    AlgorithmTableB(const AlgorithmRegistry& registry, const std::vector<NamedAlgorithmEntry>& list);

    uint64_t max_multiply_buffer_sizes(uint64_t product_words, bool include_smaller = true) const;
    uint64_t max_square_buffer_sizes(uint64_t product_words, bool include_smaller = true) const;
    uint64_t max_transform_buffer_sizes(uint64_t product_words, bool include_smaller = true) const;
};

// Tables for far-memory products: same layout and rules; the in-memory work buffer that a far
// product streams through is what the queries size.
class AlgorithmTableF : public AlgorithmTable {
public:
    AlgorithmTableF() = default;
    AlgorithmTableF(const AlgorithmRegistry& registry, const std::vector<NamedAlgorithmEntry>& list);

    uint64_t max_multiply_buffer_sizes(uint64_t product_words, bool include_smaller = true) const;
    uint64_t max_transform_buffer_sizes(uint64_t product_words, bool include_smaller = true) const;
};

}  // namespace qmp

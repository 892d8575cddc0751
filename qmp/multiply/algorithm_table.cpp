// Table rules: strictly increasing thresholds, first-fit lookup by a linear scan (tables hold a
// handful of entries, so a scan beats a search), and the buffer-size queries of both kinds.
#include "qmp/multiply/algorithm_table.h"

#include "qmp/exception.h"
#include "qmp/multiply/algorithm_registry.h"

namespace qmp {

void AlgorithmTable::add(uint64_t threshold_words, const BasicAlgorithm* algorithm) {
    if (algorithm == nullptr) return;
    if (!entries_.empty() && threshold_words <= entries_.back().first)
        throw StringException("AlgorithmTable::add()", "Thresholds must be increasing.");
    entries_.emplace_back(threshold_words, algorithm);
}

AlgorithmTable::AlgorithmTable(const AlgorithmRegistry& registry,
                               const std::vector<NamedAlgorithmEntry>& list,
                               const char* function) {
    for (const NamedAlgorithmEntry& entry : list) {
        std::shared_ptr<const BasicAlgorithm> algorithm = registry.create(entry, function);
        add(entry.threshold_words, algorithm.get());
        owned_.push_back(std::move(algorithm));
    }
}

size_t AlgorithmTable::index_for(uint64_t product_words, const char* function) const {
    for (size_t i = 0; i < entries_.size(); ++i) {
        if (entries_[i].first >= product_words) return i;
    }
    throw LimitExceededException(function, "Size is beyond the largest table entry: " +
                                               std::to_string(product_words) + " words.");
}

const BasicAlgorithm& AlgorithmTable::get_algorithm(uint64_t product_words) const {
    return *entries_[index_for(product_words, "AlgorithmTable::get_algorithm()")].second;
}

void AlgorithmTable::assert_valid() const {
    for (const Entry& entry : entries_) entry.second->assert_valid();
}

AlgorithmTableB::AlgorithmTableB(const AlgorithmRegistry& registry,
                                 const std::vector<NamedAlgorithmEntry>& list)
    : AlgorithmTable(registry, list, "AlgorithmTableB::AlgorithmTableB()") {}

uint64_t AlgorithmTableB::max_multiply_buffer_sizes(uint64_t product_words,
                                                    bool include_smaller) const {
    return buffer_query(product_words, include_smaller,
                        "AlgorithmTableB::max_multiply_buffer_sizes()",
                        [](const BasicAlgorithm& a, uint64_t words) { return a.multiply_buffer_bytes(words); });
}

uint64_t AlgorithmTableB::max_square_buffer_sizes(uint64_t product_words, bool include_smaller) const {
    return buffer_query(product_words, include_smaller, "AlgorithmTableB::max_square_buffer_sizes()",
                        [](const BasicAlgorithm& a, uint64_t words) { return a.square_buffer_bytes(words); });
}

uint64_t AlgorithmTableB::max_transform_buffer_sizes(uint64_t product_words,
                                                     bool include_smaller) const {
    return buffer_query(product_words, include_smaller,
                        "AlgorithmTableB::max_transform_buffer_sizes()",
                        [](const BasicAlgorithm& a, uint64_t words) { return a.transform_buffer_bytes(words); });
}

AlgorithmTableF::AlgorithmTableF(const AlgorithmRegistry& registry,
                                 const std::vector<NamedAlgorithmEntry>& list)
    : AlgorithmTable(registry, list, "AlgorithmTableF::AlgorithmTableF()") {}

uint64_t AlgorithmTableF::max_multiply_buffer_sizes(uint64_t product_words,
                                                    bool include_smaller) const {
    return buffer_query(product_words, include_smaller,
                        "AlgorithmTableF::max_multiply_buffer_sizes()",
                        [](const BasicAlgorithm& a, uint64_t words) { return a.multiply_buffer_bytes(words); });
}

uint64_t AlgorithmTableF::max_transform_buffer_sizes(uint64_t product_words,
                                                     bool include_smaller) const {
    return buffer_query(product_words, include_smaller,
                        "AlgorithmTableF::max_transform_buffer_sizes()",
                        [](const BasicAlgorithm& a, uint64_t words) { return a.transform_buffer_bytes(words); });
}

}  // namespace qmp

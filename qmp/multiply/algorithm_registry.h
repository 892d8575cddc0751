// The registry of named multiplication algorithms: a map from a registry name ("BKT", "FFTv4")
// to a factory that builds the algorithm for a table entry. Tables described by profiles or
// heuristics are built from names through it. Filled once at start-up, read-only afterwards.
// Errors (InvalidParametersException, named after the caller): "Unknown algorithm: <name>",
// "<name> does not support: \"<feature>\"", and a name registered twice.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "qmp/multiply/algorithm_table.h"
#include "qmp/multiply/basic_algorithm.h"

namespace qmp {

class AlgorithmRegistry {
public:
    // Builds the algorithm for one table entry; the entry's threshold is the largest product
    // (in words) it will be asked for, so transforms can size their tables from it.
    using Factory = std::function<std::unique_ptr<BasicAlgorithm>(const NamedAlgorithmEntry&)>;

    void add(const std::string& name, Factory factory);
    bool contains(const std::string& name) const { return factories_.count(name) != 0; }

    // Creates the entry's algorithm and checks that it supports every requested feature.
    // `function` names the caller in the exceptions.
    std::shared_ptr<const BasicAlgorithm> create(const NamedAlgorithmEntry& entry,
                                                 const char* function) const;

private:
    std::map<std::string, Factory> factories_;
};

}  // namespace qmp

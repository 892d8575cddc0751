// Registry lookups and the feature check of named table entries.
#include "qmp/multiply/algorithm_registry.h"

#include "qmp/exception.h"

namespace qmp {

void AlgorithmRegistry::add(const std::string& name, Factory factory) {
    if (!factory) throw InvalidParametersException("AlgorithmRegistry::add()", "Factory is null.");
    if (!factories_.emplace(name, std::move(factory)).second)
        throw InvalidParametersException("AlgorithmRegistry::add()",
                                         "Algorithm is already registered: " + name);
}

std::shared_ptr<const BasicAlgorithm> AlgorithmRegistry::create(const NamedAlgorithmEntry& entry,
                                                                const char* function) const {
    auto it = factories_.find(entry.name);
    if (it == factories_.end())
        throw InvalidParametersException(function, "Unknown algorithm: " + entry.name);
    std::shared_ptr<const BasicAlgorithm> algorithm = it->second(entry);
    if (!algorithm)
        throw InvalidParametersException(function, "Unknown algorithm: " + entry.name);
    for (const std::string& feature : entry.features) {
        if (!algorithm->supports(feature))
            throw InvalidParametersException(
                function, entry.name + " does not support: \"" + feature + "\"");
    }
    algorithm->assert_valid();
    return algorithm;
}

}  // namespace qmp

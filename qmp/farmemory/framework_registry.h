// The far-memory frameworks by name: "malloc" (MallocFarMemory), "mmap" (MmapFarMemory) and
// "disk-raid0" (DiskRaid0, striped disk arrays). A framework's configuration is an object whose
// String member "Framework" names it, followed by its own settings; it can also be given as
// words (a framework name, then the words that framework reads), which become the same
// object. An unknown name fails with "Invalid FarMemory Framework: " + name; words that run
// out fail with "Expected more parameters.".
#pragma once

#include "config/config_object.h"
#include "qmp/farmemory/far_memory_framework.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qmp {

struct FarMemoryFrameworkEntry {
    const char* name;
    const char* menu_text;
    // Builds the framework from its configuration; open_existing reopens the objects of an
    // earlier run (resuming a checkpoint) where the framework can.
    std::unique_ptr<FarMemoryFramework> (*from_config)(const ConfigObject& config,
                                                       bool open_existing);
    // Reads the framework's own words starting at `cursor` (after its name) into `config`.
    void (*read_words)(const std::vector<std::string>& words, size_t& cursor, ConfigObject& config);
};

// In menu order.
const std::vector<FarMemoryFrameworkEntry>& far_memory_frameworks();
const FarMemoryFrameworkEntry& find_far_memory_framework(std::string_view name);

// Reads "Framework" and hands the whole object to that framework.
std::unique_ptr<FarMemoryFramework> make_far_memory_framework(const ConfigObject& config,
                                                              bool open_existing = false);

// The word after `cursor` ("Expected more parameters." when there is none), advancing it.
const std::string& next_far_memory_parameter(const std::vector<std::string>& words,
                                             size_t& cursor);
// A framework configuration from words: the framework name, then that framework's words.
ConfigObject far_memory_config_from_words(const std::vector<std::string>& words, size_t& cursor);

// The console menu "Select a Far Memory Framework": lists the frameworks by number and reads
// a number or a name until one is valid. Returns nothing at the end of input.
std::optional<std::string> select_far_memory_framework();

}  // namespace qmp

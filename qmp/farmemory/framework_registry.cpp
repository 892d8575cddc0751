// The table of far-memory frameworks and the three ways to choose one: a configuration
// object, a list of words, the console menu.
#include "qmp/farmemory/framework_registry.h"

#include "qmp/console.h"
#include "qmp/exception.h"
#include "qmp/farmemory/disk_raid0.h"
#include "qmp/farmemory/malloc_far_memory.h"
#include "qmp/farmemory/mmap_far_memory.h"

#include <string>

namespace qmp {

namespace {

template <class Framework>
std::unique_ptr<FarMemoryFramework> make(const ConfigObject& config, bool open_existing) {
    return std::make_unique<Framework>(config, open_existing);
}

// RAM back-ends take no words: their few switches are set in configuration files.
void no_words(const std::vector<std::string>&, size_t&, ConfigObject&) {}

}  // namespace

const std::vector<FarMemoryFrameworkEntry>& far_memory_frameworks() {
    static const std::vector<FarMemoryFrameworkEntry> entries = {
        {MallocFarMemory::registry_name, MallocFarMemory::menu_text, &make<MallocFarMemory>,
         &no_words},
        {MmapFarMemory::registry_name, MmapFarMemory::menu_text, &make<MmapFarMemory>, &no_words},
        // Its words: a lane count, then one path per lane.
        {DiskRaid0::registry_name, DiskRaid0::menu_text, &make<DiskRaid0>, &DiskRaid0::read_words},
    };
    return entries;
}

const FarMemoryFrameworkEntry& find_far_memory_framework(std::string_view name) {
    for (const FarMemoryFrameworkEntry& entry : far_memory_frameworks()) {
        if (name == entry.name) return entry;
    }
    throw InvalidParametersException("find_far_memory_framework()",
                                     "Invalid FarMemory Framework: " + std::string(name));
}

std::unique_ptr<FarMemoryFramework> make_far_memory_framework(const ConfigObject& config,
                                                              bool open_existing) {
    const std::string& name = config.get_string("Framework", "make_far_memory_framework()");
    return find_far_memory_framework(name).from_config(config, open_existing);
}

const std::string& next_far_memory_parameter(const std::vector<std::string>& words,
                                             size_t& cursor) {
    if (cursor >= words.size()) {
        throw InvalidParametersException("next_far_memory_parameter()",
                                         "Expected more parameters.");
    }
    return words[cursor++];
}

ConfigObject far_memory_config_from_words(const std::vector<std::string>& words, size_t& cursor) {
    const std::string& name = next_far_memory_parameter(words, cursor);
    const FarMemoryFrameworkEntry& entry = find_far_memory_framework(name);
    ConfigObject config = ConfigObject::make_object();
    config.add_string("Framework", entry.name);
    entry.read_words(words, cursor, config);
    return config;
}

std::optional<std::string> select_far_memory_framework() {
    const auto& entries = far_memory_frameworks();
    for (;;) {
        Console::println();
        Console::println("Select a Far Memory Framework", Console::Colour::Header);
        for (size_t i = 0; i < entries.size(); ++i) {
            Console::println("  " + std::to_string(i) + "  " + entries[i].menu_text,
                             Console::Colour::Label);
        }
        Console::print("Framework: ", Console::Colour::Prompt);
        std::string line;
        if (!Console::read_line(line)) return std::nullopt;
        for (size_t i = 0; i < entries.size(); ++i) {
            if (line == std::to_string(i) || line == entries[i].name) return entries[i].name;
        }
        Console::println("Invalid selection: " + line, Console::Colour::Error);
    }
}

}  // namespace qmp

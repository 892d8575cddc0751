// The usage figures shared by a framework and its objects (peak tracked with a CAS loop, so
// objects may be created from several threads), and the empty NullManager.
#include "qmp/farmemory/far_memory_framework.h"

#include "qmp/console.h"
#include "qmp/exception.h"

#include <cstdio>
#include <string>

namespace qmp {

void FarMemoryFramework::Usage::add(uint64_t bytes) noexcept {
    const uint64_t now = current_bytes.fetch_add(bytes) + bytes;
    uint64_t peak = peak_bytes.load();
    while (now > peak && !peak_bytes.compare_exchange_weak(peak, now)) {
    }
    created_bytes.fetch_add(bytes);
    created_objects.fetch_add(1);
}

void FarMemoryFramework::Usage::remove(uint64_t bytes) noexcept { current_bytes.fetch_sub(bytes); }

ConfigObject FarMemoryFramework::get_runtime_data() const {
    ConfigObject data = ConfigObject::make_object();
    data.add_integer("CurrentBytes", int64_t(usage_->current_bytes.load()));
    data.add_integer("PeakBytes", int64_t(usage_->peak_bytes.load()));
    data.add_integer("CreatedBytes", int64_t(usage_->created_bytes.load()));
    data.add_integer("CreatedObjects", int64_t(usage_->created_objects.load()));
    return data;
}

void FarMemoryFramework::print_description() const {
    char label[64];
    std::snprintf(label, sizeof label, "%-32s", "Framework");
    Console::print(label, Console::Colour::Label);
    Console::println(framework_name(), Console::Colour::Value);
    std::snprintf(label, sizeof label, "%-32s", "Peak Bytes");
    Console::print(label, Console::Colour::Label);
    Console::println(std::to_string(peak_bytes()), Console::Colour::Value);
}

std::unique_ptr<FarMemory> NullManager::create(std::string, uint64_t) {
    throw FarMemoryException("NullManager::create()", "Not supported.");
}

ConfigObject NullManager::get_static_data() const {
    throw FarMemoryException("NullManager::get_static_data()", "Not supported.");
}

ConfigObject NullManager::get_runtime_data() const {
    throw FarMemoryException("NullManager::get_runtime_data()", "Not supported.");
}

}  // namespace qmp

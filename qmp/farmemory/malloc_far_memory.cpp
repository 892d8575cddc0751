// MallocFarMemory: each object is one 4096-aligned heap block; loads and stores are memcpy.
#include "qmp/farmemory/malloc_far_memory.h"

#include "qmp/exception.h"

#include <cstring>
#include <string>

namespace qmp {

namespace {
// Far-memory failures stay in the FarMemoryException family, an allocation failure included.
AlignedBlock allocate(uint64_t size_bytes) {
    static const char* const place = "MallocFarMemory::File()";
    if (size_bytes > SIZE_MAX) throw FarMemoryException(place, "Size exceeds the address space.");
    try {
        return make_aligned_block(size_t(size_bytes), MallocFarMemory::block_alignment);
    } catch (const MemoryAllocationFailedException& e) {
        throw FarMemoryException(place, e.message());
    }
}
}  // namespace

MallocFarMemory::File::File(std::string name, uint64_t size_bytes,
                            std::shared_ptr<FarMemoryFramework::Usage> usage)
    : FarMemory(std::move(name), size_bytes),
      block_(allocate(size_bytes)),
      ticket_(std::move(usage), size_bytes) {}

void MallocFarMemory::File::do_load(void* buffer, uint64_t offset, uint64_t bytes) {
    std::memcpy(buffer, static_cast<const char*>(block_.get()) + offset, bytes);
}

void MallocFarMemory::File::do_store(const void* buffer, uint64_t offset, uint64_t bytes) {
    if (read_only_) throw FarMemoryException("MallocFarMemory::File::store()", "Object is read only.");
    std::memcpy(static_cast<char*>(block_.get()) + offset, buffer, bytes);
}

MallocFarMemory::MallocFarMemory(const ConfigObject& config, bool open_existing) {
    config.as_object("MallocFarMemory()");
    if (open_existing) throw FarMemoryException("MallocFarMemory()", "Open is not supported.");
}

std::unique_ptr<MallocFarMemory::File> MallocFarMemory::create_file(std::string name,
                                                                    uint64_t size_bytes) {
    return std::make_unique<File>(std::move(name), size_bytes, usage());
}

std::unique_ptr<FarMemory> MallocFarMemory::create(std::string name, uint64_t size_bytes) {
    return create_file(std::move(name), size_bytes);
}

ConfigObject MallocFarMemory::get_static_data() const {
    ConfigObject config = ConfigObject::make_object();
    config.add_string("Framework", registry_name);
    return config;
}

}  // namespace qmp

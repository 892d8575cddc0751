// Far memory held in RAM, one heap block per object ("malloc", menu text "Ram Drive - C
// malloc()"): the reference back-end, with the cost of a memcpy per access. Blocks are aligned
// to 4096 bytes so that they can feed direct I/O. Nothing survives the process, so opening
// existing objects is refused ("Open is not supported." at "MallocFarMemory()"). An object
// made read-only refuses store with "Object is read only." at "MallocFarMemory::File::store()".
#pragma once

#include "qmp/farmemory/aligned_malloc.h"
#include "qmp/farmemory/far_memory_framework.h"

#include <cstdint>
#include <memory>
#include <string>

namespace qmp {

class MallocFarMemory : public FarMemoryFramework {
public:
    static constexpr const char* registry_name = "malloc";
    static constexpr const char* menu_text = "Ram Drive - C malloc()";
    static constexpr size_t block_alignment = 4096;

    class File : public FarMemory {
    public:
        File(std::string name, uint64_t size_bytes,
             std::shared_ptr<FarMemoryFramework::Usage> usage);
        void set_read_only(bool read_only) noexcept { read_only_ = read_only; }
        bool read_only() const noexcept { return read_only_; }

    protected:
        void do_load(void* buffer, uint64_t offset, uint64_t bytes) override;
        void do_store(const void* buffer, uint64_t offset, uint64_t bytes) override;

    private:
        AlignedBlock block_;
        FarMemoryUsageTicket ticket_;
        bool read_only_ = false;
    };

    MallocFarMemory() = default;
    // The configuration has no settings beyond "Framework".
    MallocFarMemory(const ConfigObject& config, bool open_existing);

    const char* framework_name() const override { return registry_name; }
    std::unique_ptr<FarMemory> create(std::string name, uint64_t size_bytes) override;
    std::unique_ptr<File> create_file(std::string name, uint64_t size_bytes);
    ConfigObject get_static_data() const override;
};

}  // namespace qmp

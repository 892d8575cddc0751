// Far memory in anonymous mapped memory, one mapping per object ("mmap", menu text "POSIX
// mmap()"). Switches: "LargePages" maps with MAP_HUGETLB (size rounded up to the huge page);
// if the system refuses (no huge pages reserved), the object falls back to normal pages with
// madvise(MADV_HUGEPAGE) and a console warning. "LockedPages" pins the mapping with mlock(),
// which, unlike MAP_LOCKED, reports a refusal; a refusal gives a warning and pageable memory.
// Anonymous memory does not outlive the process: opening is refused ("Open is not
// supported." at "MmapFarMemory()").
#pragma once

#include "qmp/farmemory/far_memory_framework.h"

#include <cstdint>
#include <memory>
#include <string>

namespace qmp {

class MmapFarMemory : public FarMemoryFramework {
public:
    static constexpr const char* registry_name = "mmap";
    static constexpr const char* menu_text = "POSIX mmap()";

    class File : public FarMemory {
    public:
        File(std::string name, uint64_t size_bytes, bool large_pages, bool locked_pages,
             std::shared_ptr<FarMemoryFramework::Usage> usage);
        ~File() override;

        // What the system granted (the request may have been refused with a warning).
        bool has_large_pages() const noexcept { return large_pages_; }
        bool has_locked_pages() const noexcept { return locked_pages_; }
        uint64_t mapped_bytes() const noexcept { return mapped_bytes_; }

    protected:
        void do_load(void* buffer, uint64_t offset, uint64_t bytes) override;
        void do_store(const void* buffer, uint64_t offset, uint64_t bytes) override;

    private:
        void map_large_pages(uint64_t size_bytes);
        void map_normal_pages(uint64_t size_bytes, bool want_huge_pages);
        void lock_pages();

        char* base_ = nullptr;
        uint64_t mapped_bytes_ = 0;
        bool large_pages_ = false;
        bool locked_pages_ = false;
        FarMemoryUsageTicket ticket_;
    };

    MmapFarMemory(bool large_pages = false, bool locked_pages = false);
    // Reads the optional Boolean members "LargePages" and "LockedPages" (default false).
    MmapFarMemory(const ConfigObject& config, bool open_existing);

    bool large_pages() const noexcept { return large_pages_; }
    bool locked_pages() const noexcept { return locked_pages_; }

    const char* framework_name() const override { return registry_name; }
    std::unique_ptr<FarMemory> create(std::string name, uint64_t size_bytes) override;
    std::unique_ptr<File> create_file(std::string name, uint64_t size_bytes);
    ConfigObject get_static_data() const override;

private:
    bool large_pages_;
    bool locked_pages_;
};

}  // namespace qmp

// MmapFarMemory: anonymous mappings with optional huge pages and locking. Every refusal by the
// system is either an exception (no memory at all) or a warning naming the object and the
// errno text (huge pages or locking refused), never a silent downgrade.
#include "qmp/farmemory/mmap_far_memory.h"

#include "qmp/console.h"
#include "qmp/exception.h"
#include "qmp/farmemory/posix_errors.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

namespace qmp {

namespace {

// The default huge page size from /proc/meminfo; 2 MiB (the x86-64 default) when it cannot
// be read. Only used to round the mapping, so a wrong guess costs memory, not correctness:
// the kernel refuses a MAP_HUGETLB length it cannot serve and the fallback takes over.
uint64_t huge_page_bytes() {
    uint64_t kib = 2048;
    if (std::FILE* f = std::fopen("/proc/meminfo", "r")) {
        char line[256];
        while (std::fgets(line, sizeof line, f)) {
            unsigned long long value = 0;
            if (std::sscanf(line, "Hugepagesize: %llu kB", &value) == 1 && value != 0) {
                kib = value;
                break;
            }
        }
        std::fclose(f);
    }
    return kib * 1024;
}

uint64_t round_up(uint64_t bytes, uint64_t unit) { return (bytes + unit - 1) / unit * unit; }

std::string errno_summary(int errnum) {
    return std::string(FileIO::posix_error_text(errnum)) + " (errno " + std::to_string(errnum) + ")";
}

}  // namespace

MmapFarMemory::File::File(std::string name, uint64_t size_bytes, bool large_pages,
                          bool locked_pages, std::shared_ptr<FarMemoryFramework::Usage> usage)
    : FarMemory(std::move(name), size_bytes), ticket_(std::move(usage), size_bytes) {
    if (size_bytes == 0) return;  // mmap refuses length 0; an empty object needs no memory
    if (large_pages) {
        map_large_pages(size_bytes);
    } else {
        map_normal_pages(size_bytes, false);
    }
    if (locked_pages) lock_pages();
}

void MmapFarMemory::File::map_large_pages(uint64_t size_bytes) {
    // No MAP_NORESERVE: the huge pages are reserved now, so a shortage fails here rather than
    // as a SIGBUS on first touch.
    const uint64_t bytes = round_up(size_bytes, huge_page_bytes());
    void* p = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_HUGETLB, -1, 0);
    if (p != MAP_FAILED) {
        base_ = static_cast<char*>(p);
        mapped_bytes_ = bytes;
        large_pages_ = true;
        return;
    }
    Console::warning("Unable to map large pages for far memory \"" + name() +
                     "\": " + errno_summary(errno) +
                     "\nFalling back to normal pages with transparent huge pages requested.");
    map_normal_pages(size_bytes, true);
}

void MmapFarMemory::File::map_normal_pages(uint64_t size_bytes, bool want_huge_pages) {
    const uint64_t bytes = round_up(size_bytes, uint64_t(::sysconf(_SC_PAGESIZE)));
    void* p = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) {
        const int errnum = errno;
        throw FarMemoryException("MmapFarMemory::File()", "Unable to map " + std::to_string(bytes) +
                                                              " bytes.\n" + errno_summary(errnum));
    }
    base_ = static_cast<char*>(p);
    mapped_bytes_ = bytes;
    // Only advice: with transparent huge pages disabled the mapping still works.
    if (want_huge_pages && ::madvise(p, bytes, MADV_HUGEPAGE) != 0) {
        Console::warning("Transparent huge pages are not available either: " +
                         errno_summary(errno));
    }
}

void MmapFarMemory::File::lock_pages() {
    if (::mlock(base_, mapped_bytes_) == 0) {
        locked_pages_ = true;
        return;
    }
    Console::warning("Unable to lock the pages of far memory \"" + name() + "\": " +
                     errno_summary(errno) + "\nContinuing with pageable memory.");
}

MmapFarMemory::File::~File() {
    if (base_ == nullptr) return;
    if (::munmap(base_, mapped_bytes_) != 0) {
        FileIO::report_destruction_error(FarMemoryException(
            "MmapFarMemory::File::~File()", "munmap() failed: " + errno_summary(errno)));
    }
}

void MmapFarMemory::File::do_load(void* buffer, uint64_t offset, uint64_t bytes) {
    std::memcpy(buffer, base_ + offset, bytes);
}

void MmapFarMemory::File::do_store(const void* buffer, uint64_t offset, uint64_t bytes) {
    std::memcpy(base_ + offset, buffer, bytes);
}

MmapFarMemory::MmapFarMemory(bool large_pages, bool locked_pages)
    : large_pages_(large_pages), locked_pages_(locked_pages) {}

MmapFarMemory::MmapFarMemory(const ConfigObject& config, bool open_existing)
    : large_pages_(false), locked_pages_(false) {
    config.as_object("MmapFarMemory()");
    if (open_existing) throw FarMemoryException("MmapFarMemory()", "Open is not supported.");
    if (const ConfigObject* n = config.find("LargePages")) large_pages_ = n->as_bool("LargePages");
    if (const ConfigObject* n = config.find("LockedPages")) locked_pages_ = n->as_bool("LockedPages");
}

std::unique_ptr<MmapFarMemory::File> MmapFarMemory::create_file(std::string name,
                                                                uint64_t size_bytes) {
    return std::make_unique<File>(std::move(name), size_bytes, large_pages_, locked_pages_,
                                  usage());
}

std::unique_ptr<FarMemory> MmapFarMemory::create(std::string name, uint64_t size_bytes) {
    return create_file(std::move(name), size_bytes);
}

ConfigObject MmapFarMemory::get_static_data() const {
    ConfigObject config = ConfigObject::make_object();
    config.add_string("Framework", registry_name);
    config.add_bool("LargePages", large_pages_);
    config.add_bool("LockedPages", locked_pages_);
    return config;
}

}  // namespace qmp

// A far-memory framework: the resource manager that creates far-memory objects of one kind
// (RAM, mapped memory, disk arrays) and keeps the figures of what it handed out. Its static
// data is the configuration object that recreates it ("Framework" first, then its own
// settings); its run-time data is its usage (live, peak and total bytes created), kept for
// reports and checkpoints. The usage record is shared with the objects, so objects and their
// framework may be released in either order.
#pragma once

#include "config/config_object.h"
#include "qmp/farmemory/far_memory.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace qmp {

class FarMemoryFramework {
public:
    struct Usage {
        std::atomic<uint64_t> current_bytes{0};
        std::atomic<uint64_t> peak_bytes{0};
        std::atomic<uint64_t> created_bytes{0};
        std::atomic<uint64_t> created_objects{0};
        void add(uint64_t bytes) noexcept;
        void remove(uint64_t bytes) noexcept;
    };

    FarMemoryFramework() : usage_(std::make_shared<Usage>()) {}
    virtual ~FarMemoryFramework() = default;
    FarMemoryFramework(const FarMemoryFramework&) = delete;
    FarMemoryFramework& operator=(const FarMemoryFramework&) = delete;

    // The registry name ("malloc", "mmap", ...).
    virtual const char* framework_name() const = 0;
    // A new object of size_bytes; its contents are unspecified until stored.
    virtual std::unique_ptr<FarMemory> create(std::string name, uint64_t size_bytes) = 0;
    virtual ConfigObject get_static_data() const = 0;
    virtual ConfigObject get_runtime_data() const;
    virtual void print_description() const;

    uint64_t current_bytes() const noexcept { return usage_->current_bytes.load(); }
    uint64_t peak_bytes() const noexcept { return usage_->peak_bytes.load(); }

protected:
    const std::shared_ptr<Usage>& usage() const noexcept { return usage_; }

private:
    std::shared_ptr<Usage> usage_;
};

// Ties an object's size to its framework's usage for the object's lifetime.
class FarMemoryUsageTicket {
public:
    FarMemoryUsageTicket(std::shared_ptr<FarMemoryFramework::Usage> usage, uint64_t bytes)
        : usage_(std::move(usage)), bytes_(bytes) {
        usage_->add(bytes_);
    }
    ~FarMemoryUsageTicket() { usage_->remove(bytes_); }
    FarMemoryUsageTicket(const FarMemoryUsageTicket&) = delete;
    FarMemoryUsageTicket& operator=(const FarMemoryUsageTicket&) = delete;

private:
    std::shared_ptr<FarMemoryFramework::Usage> usage_;
    uint64_t bytes_;
};

// The empty resource manager, in use when no far memory is configured: it creates nothing and
// has no data ("Not supported.").
class NullManager : public FarMemoryFramework {
public:
    const char* framework_name() const override { return "none"; }
    std::unique_ptr<FarMemory> create(std::string name, uint64_t size_bytes) override;
    ConfigObject get_static_data() const override;
    ConfigObject get_runtime_data() const override;
};

}  // namespace qmp

// Sequential throughput of RawFile: a file of ~1 GiB in the working directory is written and
// then read in transfers of 64 KiB to 64 MiB, with direct I/O and through the page cache, and
// the same transfers are timed with dd (oflag=direct / iflag=direct) for comparison. Buffered
// writes are timed up to fdatasync() so they measure the device, not the page cache; before a
// buffered read the file's cached pages are dropped (posix_fadvise DONTNEED), so the read
// comes from the device as well. MB/s means 10^6 bytes per second, as dd prints it.
// Usage: rawfile_bench [file_MiB = 1024] [directory = .]
#include "qmp/exception.h"
#include "qmp/farmemory/aligned_malloc.h"
#include "qmp/farmemory/raw_file.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

double mb_per_s(uint64_t bytes, Clock::duration t) {
    return double(bytes) / 1e6 / std::chrono::duration<double>(t).count();
}

struct Result {
    double write_mbs;
    double read_mbs;
};

Result time_rawfile(const std::string& path, uint64_t file_bytes, uint64_t transfer_bytes,
                    bool direct, void* buffer) {
    Result r{};
    {
        qmp::RawFile file(path, qmp::RawFile::OpenMode::Create, direct);
        const auto t0 = Clock::now();
        for (uint64_t at = 0; at < file_bytes; at += transfer_bytes) file.store(buffer, at, transfer_bytes);
        file.sync();
        r.write_mbs = mb_per_s(file_bytes, Clock::now() - t0);
    }
    {
        qmp::RawFile file(path, qmp::RawFile::OpenMode::ReadOnly, direct);
        if (!direct) {
            // Needs its own descriptor: RawFile does not expose its own.
            const int fd = ::open(path.c_str(), O_RDONLY);
            if (fd >= 0) {
                ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
                ::close(fd);
            }
        }
        const auto t0 = Clock::now();
        for (uint64_t at = 0; at < file_bytes; at += transfer_bytes) file.load(buffer, at, transfer_bytes);
        r.read_mbs = mb_per_s(file_bytes, Clock::now() - t0);
    }
    return r;
}

// dd's own figure: the number before "MB/s" (or "GB/s", scaled) on its summary line.
double dd_rate(const std::string& command, const std::string& log) {
    if (std::system((command + " 2> " + log).c_str()) != 0) return -1;
    std::ifstream in(log);
    std::string line, last;
    while (std::getline(in, line)) {
        if (line.find("copied") != std::string::npos) last = line;
    }
    const size_t comma = last.rfind(", ");
    if (comma == std::string::npos) return -1;
    double value = 0;
    char unit[8] = {};
    if (std::sscanf(last.c_str() + comma + 2, "%lf %7s", &value, unit) != 2) return -1;
    const std::string u = unit;
    if (u == "GB/s") return value * 1000;
    if (u == "kB/s") return value / 1000;
    return u == "MB/s" ? value : -1;
}

}  // namespace

int main(int argc, char** argv) {
    const uint64_t file_mib = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1024;
    const std::string dir = argc > 2 ? argv[2] : ".";
    const uint64_t file_bytes = file_mib << 20;
    const std::string path = dir + "/rawfile_bench.tmp";
    const std::string log = dir + "/rawfile_bench_dd.log";
    const uint64_t largest = uint64_t(64) << 20;
    try {
        qmp::AlignedBlock buffer = qmp::make_aligned_block(largest, 4096);
        std::memset(buffer.get(), 0x3C, largest);
        std::printf("File: %s, %llu MiB\n", path.c_str(), (unsigned long long)file_mib);
        std::printf("%10s | %9s %9s | %9s %9s | %9s %9s\n", "transfer", "dir W", "dir R",
                    "buf W", "buf R", "dd W", "dd R");
        for (uint64_t transfer = uint64_t(64) << 10; transfer <= largest; transfer *= 4) {
            if (transfer > file_bytes) break;
            const Result direct = time_rawfile(path, file_bytes, transfer, true, buffer.get());
            const Result buffered = time_rawfile(path, file_bytes, transfer, false, buffer.get());
            const uint64_t count = file_bytes / transfer;
            const std::string bs = std::to_string(transfer / 1024) + "K";
            const double dd_w = dd_rate("dd if=/dev/zero of=" + path + " bs=" + bs +
                                            " count=" + std::to_string(count) + " oflag=direct",
                                        log);
            const double dd_r = dd_rate("dd if=" + path + " of=/dev/null bs=" + bs +
                                            " count=" + std::to_string(count) + " iflag=direct",
                                        log);
            std::printf("%8lluKi | %9.0f %9.0f | %9.0f %9.0f | %9.0f %9.0f\n",
                        (unsigned long long)(transfer >> 10), direct.write_mbs, direct.read_mbs,
                        buffered.write_mbs, buffered.read_mbs, dd_w, dd_r);
            std::fflush(stdout);
        }
        std::printf("(MB/s = 10^6 bytes/s; buffered writes include fdatasync, buffered reads "
                    "start with the file's pages dropped from the cache)\n");
    } catch (const qmp::Exception& e) {
        e.print();
        std::remove(path.c_str());
        std::remove(log.c_str());
        return 1;
    }
    std::remove(path.c_str());
    std::remove(log.c_str());
    return 0;
}

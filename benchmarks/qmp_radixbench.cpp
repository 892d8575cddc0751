// Timing of the decimal radix conversion of a random number x in [1, 2) to DIGITS digits
// through FloatWriterB with the standard multiplication table: conversion, then its
// verification (power, product and hash), each timed once (the output line of the peer
// timing tools).
//   qmp_radixbench DIGITS [THREADS]
//     THREADS: above 1, a "pushpool" framework of that many workers and a task decomposition of
//              THREADS for the tree's halves and the products.
// Output: "digits=N convert_s=T verify_s=T write_txt_s=T write_qcd_s=T". The writes send the
// converted digits, in blocks of 2^20, to a .txt file and to a one-file .qcd set in the directory
// named by QMP_BENCH_DIR (default: the working directory), from memory to the page cache; the
// files are removed afterwards. Each write is the best of 3: the first write of a run also pays
// for the page cache's first touch of fresh memory (on the measuring machine 100M digits took
// 0.10 s the first time and 0.04 s after), which is the machine's cost, not the writer's.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "benchmarks/bench_support.h"
#include "qmp/console.h"
#include "qmp/digitfiles/qcd_set_writer.h"
#include "qmp/digitfiles/text_writer.h"
#include "qmp/exception.h"
#include "qmp/multiply/algorithm_registry.h"
#include "qmp/multiply/builtin_algorithms.h"
#include "qmp/multiply/tuning_profile.h"
#include "qmp/numbers/aligned_buffer.h"
#include "qmp/numbers/big_float.h"
#include "qmp/parallel/parallel_framework.h"
#include "qmp/radix/float_writer.h"

namespace {

using qmp::bench::SplitMix64;
constexpr auto now_seconds = qmp::bench::wall_seconds;



// Sends the writer's digits through `sink` in blocks (unpacking included, as a job writes them).
void send_digits(const qmp::FloatWriterB& writer, uint64_t digits, qmp::DigitSink& sink) {
    constexpr uint64_t kBlock = uint64_t(1) << 20;
    std::vector<char> raw(kBlock);
    for (uint64_t pos = 0; pos < digits; pos += kBlock) {
        const uint64_t n = digits - pos < kBlock ? digits - pos : kBlock;
        writer.digits(raw.data(), pos, n);
        sink.store_digits(raw.data(), pos, n);
    }
}

int bench(uint64_t digits, uint64_t threads) {
    std::unique_ptr<qmp::ParallelFramework> framework;
    if (threads > 1) {
        qmp::ConfigObject settings = qmp::find_parallel_framework("pushpool").default_config();
        settings.get("WorkerThreads", "qmp_radixbench") = qmp::ConfigObject::make_integer(int64_t(threads));
        framework = qmp::make_parallel_framework(settings);
    }
    qmp::AlgorithmRegistry registry;
    qmp::register_builtin_algorithms(registry);
    const qmp::AlgorithmTableB table = qmp::make_default_table(registry);

    // x = 1 + a random fraction of as many words as the digits need, plus two.
    const uint64_t fraction_words = digits / 19 + 5;
    std::vector<uint64_t> words(fraction_words + 1);
    SplitMix64 rng{0x0123456789ABCDEFull};
    for (uint64_t i = 0; i < fraction_words; ++i) words[i] = rng.next();
    words[fraction_words] = 1;
    qmp::BigFloat<uint64_t> x(words.data(), words.size());
    x.L = words.size();
    x.exp = -int64_t(fraction_words);

    qmp::FloatWriterB writer(x, 10, digits, digits, true, nullptr, table, framework.get(), threads);
    const uint64_t bytes = qmp::AlignedBufferC::round_up(writer.memory_bytes());
    std::vector<uint64_t> storage(bytes / 8 + 16);
    const uintptr_t p = (reinterpret_cast<uintptr_t>(storage.data()) + 127) & ~uintptr_t(127);
    const qmp::AlignedBufferC memory(reinterpret_cast<void*>(p), bytes);

    double t0 = now_seconds();
    writer.convert(memory);
    const double convert_s = now_seconds() - t0;
    t0 = now_seconds();
    writer.verify(memory);
    const double verify_s = now_seconds() - t0;

    const char* dir_env = std::getenv("QMP_BENCH_DIR");
    const std::string dir = (dir_env != nullptr && dir_env[0] != '\0') ? dir_env : ".";
    const std::string first = std::to_string(writer.integer_part()) + ".";
    double write_txt_s = 1e30, write_qcd_s = 1e30;
    for (int round = 0; round < 3; ++round) {
        {
            const std::string path = dir + "/qmp_radixbench.txt";
            qmp::BasicTextWriter txt(path, first, 10, digits);
            const double t0 = now_seconds();
            send_digits(writer, digits, txt);
            txt.close();
            write_txt_s = std::min(write_txt_s, now_seconds() - t0);
            std::remove(path.c_str());
        }
        {
            qmp::BasicQcdSetWriter qcd(dir, "qmp_radixbench", first, 10, 0, digits);
            const double t0 = now_seconds();
            send_digits(writer, digits, qcd);
            qcd.close();
            write_qcd_s = std::min(write_qcd_s, now_seconds() - t0);
            for (const std::string& path : qcd.file_paths()) std::remove(path.c_str());
        }
    }
    char extra[96];
    std::snprintf(extra, sizeof extra, " write_txt_s=%.6g write_qcd_s=%.6g", write_txt_s, write_qcd_s);
    const std::string extra_fields = extra;
    std::printf("digits=%llu convert_s=%.6g verify_s=%.6g%s\n", (unsigned long long)digits, convert_s, verify_s,
                extra_fields.c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: qmp_radixbench DIGITS [THREADS]\n");
        return 2;
    }
    const uint64_t digits = std::strtoull(argv[1], nullptr, 10);
    const uint64_t threads = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
    if (digits == 0 || threads == 0) {
        std::fprintf(stderr, "DIGITS and THREADS must be positive\n");
        return 2;
    }
    try {
        return bench(digits, threads);
    } catch (const qmp::Exception& e) {
        e.print();
        return 1;
    }
}

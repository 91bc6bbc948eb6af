// How long it takes to read a method body and write it again, over every method body of a real
// runtime, against copying the same bytes and against Mono.Cecil decoding them; and how that time
// grows when every branch of a body widens.
//
//   rewrite_bench BODIES CECIL      (what tests/tools/il_reader.cs writes by "bodies" and by
//   "time")
#include "rewrite/body/body_reader.h"
#include "rewrite/body/body_writer.h"
#include "tests/support/body_corpus.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace corvane {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;

constexpr int kRounds = 9;

template <typename Work>
double microseconds(Work work) {
    const auto start = Clock::now();
    work();
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

// The mean of many rounds, in processor time of this process, so that a long measurement is not
// charged with what else the machine does. On Windows the clock is the wall's.
template <typename Work>
double mean_microseconds(std::size_t rounds, Work work) {
    const std::clock_t start = std::clock();
    for (std::size_t round = 0; round < rounds; ++round) {
        work();
    }
    return static_cast<double>(std::clock() - start) * 1e6 /
           (static_cast<double>(CLOCKS_PER_SEC) * static_cast<double>(rounds));
}

double quantile(std::vector<double> values, double part) {
    const auto at =
        values.begin() + static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

double median(const std::vector<double>& values) {
    return quantile(values, 0.5);
}

void expect_ok(BodyResult result) {
    if (result != BodyResult::kOk) {
        throw std::runtime_error("a body cannot be rewritten");
    }
}

// Keeps the work from being optimised away.
std::size_t bytes_made = 0;

void rewrite(std::span<const std::uint8_t> bytes) {
    MethodBody body;
    Bytes written;
    expect_ok(read_body(bytes, body));
    expect_ok(write_body(body, written));
    bytes_made += written.size();
}

void read_only(std::span<const std::uint8_t> bytes) {
    MethodBody body;
    expect_ok(read_body(bytes, body));
    bytes_made += body.instruction_count();
}

void copy(std::span<const std::uint8_t> bytes) {
    const Bytes written(bytes.begin(), bytes.end());
    bytes_made += written.empty() ? 0u : written.back() + 1u;
}

struct Figures {
    std::vector<double> bodies; // microseconds for each, the median of the rounds
    double total = 0;           // microseconds for all, the mean of the rounds
};

template <typename Work>
Figures measure(const std::vector<CorpusBody>& bodies, Work work) {
    Figures figures;
    figures.total = mean_microseconds(kRounds, [&] {
        for (const CorpusBody& body : bodies) {
            work(body.bytes);
        }
    });
    for (const CorpusBody& body : bodies) {
        std::vector<double> times;
        for (int round = 0; round < kRounds; ++round) {
            times.push_back(microseconds([&] { work(body.bytes); }));
        }
        figures.bodies.push_back(median(times));
    }
    return figures;
}

void print_row(const char* name, const Figures& figures, double bytes) {
    const auto count = static_cast<double>(figures.bodies.size());
    std::printf("%-14s %10.3f %10.3f %12.0f %10.1f\n", name, median(figures.bodies),
                quantile(figures.bodies, 0.99), count / figures.total * 1e6, bytes / figures.total);
}

// A body of conditional branches, each of which just reaches over the 63 behind it.
Bytes chain_of(std::size_t instructions) {
    Bytes bytes;
    ByteWriter writer(bytes);
    MethodHeader header;
    header.max_stack = 1;
    header.code_size = static_cast<std::uint32_t>(2 * instructions);
    encode_header(writer, header);
    for (std::size_t i = 0; i < instructions; ++i) {
        writer.write(static_cast<std::uint8_t>(Opcode::kBrtrueS));
        writer.write(static_cast<std::uint8_t>(i + 64 < instructions ? 2 * 63 : -2));
    }
    return bytes;
}

// Two nops near the end: the branches that jump across them widen, which widens those that jump
// across these, up to the front.
double widen_chain(std::size_t instructions) {
    const Bytes bytes = chain_of(instructions);
    return mean_microseconds(10000000 / instructions, [&] {
        MethodBody body;
        Bytes written;
        expect_ok(read_body(bytes, body));
        Instruction* anchor = body.sentinel();
        for (int back = 0; back < 65; ++back) {
            anchor = anchor->previous;
        }
        body.insert_before(anchor->next, Opcode::kNop);
        body.insert_before(anchor->next, Opcode::kNop);
        expect_ok(write_body(body, written));
        if (body.first()->opcode != Opcode::kBrtrue) {
            throw std::runtime_error("the chain did not widen");
        }
        bytes_made += written.size();
    });
}

// "NAME=" in the line that il_reader.cs writes.
double figure_of(const std::string& line, const std::string& name) {
    const std::size_t at = line.find(name + "=");
    if (at == std::string::npos) {
        throw std::runtime_error("no " + name + " in: " + line);
    }
    return std::strtod(line.c_str() + at + name.size() + 1, nullptr);
}

void run(const char* bodies_path, const char* cecil_path) {
    const BodyCorpus corpus(bodies_path);
    const std::vector<CorpusBody>& bodies = corpus.bodies();
    std::ifstream cecil_file(cecil_path);
    const std::string cecil{std::istreambuf_iterator<char>(cecil_file), {}};
    double bytes = 0;
    for (const CorpusBody& body : bodies) {
        bytes += static_cast<double>(body.bytes.size());
    }

    std::printf("%zu method bodies, %.1f MB\n\n", bodies.size(), bytes / 1e6);
    std::printf("%-14s %10s %10s %12s %10s\n", "", "median us", "p99 us", "bodies/s", "MB/s");
    const Figures rewriting = measure(bodies, rewrite);
    const Figures copying = measure(bodies, copy);
    print_row("read + write", rewriting, bytes);
    print_row("read", measure(bodies, read_only), bytes);
    print_row("copy", copying, bytes);
    const double cecil_bodies = figure_of(cecil, "bodies");
    const double cecil_total = 1000 * figure_of(cecil, "total_ms");
    std::printf("%-14s %10.3f %10.3f %12.0f %10.1f\n\n", "Cecil, decode",
                figure_of(cecil, "median_us"), figure_of(cecil, "p99_us"),
                cecil_bodies / cecil_total * 1e6, bytes / cecil_total);
    if (cecil_bodies != static_cast<double>(bodies.size())) {
        throw std::runtime_error("Cecil saw other bodies");
    }

    std::printf("%-14s %10s %10s\n", "all widening", "us", "ns each");
    double shortest = 0;
    double longest = 0;
    for (const std::size_t instructions : {1000u, 10000u, 100000u}) {
        longest = widen_chain(instructions);
        shortest = shortest == 0 ? longest : shortest;
        std::printf("%-14zu %10.1f %10.1f\n", instructions, longest,
                    1000 * longest / static_cast<double>(instructions));
    }
    std::printf("\n%zu bytes made on the way\n", bytes_made);
    // copy: times the cost of copying; cecil: times faster than Cecil's decoding alone, by the
    // medians.
    std::printf("rewrite: median_us=%.3f copy=%.1f cecil=%.1f growth=%.1f\n",
                median(rewriting.bodies), rewriting.total / copying.total,
                figure_of(cecil, "median_us") / median(rewriting.bodies), longest / shortest);
}

} // namespace
} // namespace corvane

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: rewrite_bench BODIES CECIL\n", stderr);
        return 2;
    }
    try {
        corvane::run(argv[1], argv[2]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "rewrite_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}

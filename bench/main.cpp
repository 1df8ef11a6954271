// The work on packets, each beside the plain chain of steps and beside its floor.
//
// Times on a shared machine change by half within seconds, and medians of variants that run one
// after the other with them. So the three variants of a row take turns every few calls and are
// compared within one repetition; the table gives the medians of these ratios.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <iostream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "allocations.h"
#include "floor.h"
#include "json_helper.h"
#include "logger.h"
#include "packet_files.h"
#include "proto_helper.h"
#include "reference/plain_chain.h"
#include "samples.h"
#include "vyn_header_v3.pb.h"

namespace bench {
namespace {

const uint8_t* bytes_of(const std::string& text) {
    return reinterpret_cast<const uint8_t*>(text.data());
}
uint32_t length_of(const std::string& text) { return static_cast<uint32_t>(text.size()); }

// Whether a conversion to JSON succeeded; stores the length of its text.
bool take_text(uint32_t result, Output& out) {
    out.length = static_cast<uint32_t>(std::strlen(reinterpret_cast<const char*>(out.bytes)));
    return result == VYN_OK;
}

namespace library {

bool wire_to_json(const Sample& sample, Output& out) {
    return take_text(
        cnvrt_protobuf_to_json_hdr(bytes_of(sample.received), reinterpret_cast<char*>(out.bytes),
                                   length_of(sample.received), sizeof out.bytes),
        out);
}

bool json_to_wire(const Sample& sample, Output& out) {
    return cnvrt_json_hdr_to_protobuf(sample.envelope.c_str(), out.bytes, sizeof out.bytes,
                                      &out.length) == VYN_OK;
}

bool header_to_wire(const Sample& sample, Output& out) {
    return cnvrt_hdr_to_protobuf(&sample.header, out.bytes, sizeof out.bytes, &out.length,
                                 bytes_of(sample.body), length_of(sample.body)) == VYN_OK;
}

bool restamp(const Sample& sample, Output& out) {
    uint32_t type = 0;
    return deser_nd_alter_pkt_st(bytes_of(sample.packet), length_of(sample.packet), out.bytes,
                                 sizeof out.bytes, &out.length, HISTORY, &type) == VYN_OK;
}

}  // namespace library

namespace plain {

bool wire_to_json(const Sample& sample, Output& out) {
    return take_text(
        plain_chain::wire_to_json(bytes_of(sample.received), length_of(sample.received),
                                  reinterpret_cast<char*>(out.bytes), sizeof out.bytes),
        out);
}

bool json_to_wire(const Sample& sample, Output& out) {
    const char* json = sample.envelope.c_str();
    // The only helper for numbers of 64 bits takes a text, and parses it each time. The library's
    // get_msg_hdr() reads them from its tree, so these two parses of a chain are added here.
    int64_t time = 0;
    int64_t ttl = 0;
    return get_key_json_int64(json, "time", &time) == 1 &&
           get_key_json_int64(json, "ttl", &ttl) == 1 &&
           plain_chain::json_to_wire(json, out.bytes, sizeof out.bytes, &out.length) == VYN_OK;
}

bool header_to_wire(const Sample& sample, Output& out) {
    return plain_chain::header_to_wire(sample.header, bytes_of(sample.body), length_of(sample.body),
                                       out.bytes, sizeof out.bytes, &out.length) == VYN_OK;
}

bool restamp(const Sample& sample, Output& out) {
    return plain_chain::restamp(bytes_of(sample.packet), length_of(sample.packet), HISTORY,
                                out.bytes, sizeof out.bytes, &out.length) == VYN_OK;
}

}  // namespace plain

struct Work {
    const char* name = nullptr;
    std::size_t longest_json_body = 0;
    Conversion library = nullptr;
    Conversion plain = nullptr;
    Conversion floor = nullptr;
    // Prepares a series of calls; reads its result into the output when that is elsewhere.
    void (*start)(const Sample& sample) = nullptr;
    void (*look)(Output& out) = nullptr;
};

constexpr Work kWorks[] = {
    {"wire_to_json", VYN_PACKET_CAPACITY, library::wire_to_json, plain::wire_to_json,
     floor::wire_to_json},
    {"json_to_wire", VYN_JSON_BODY_MAX_CHARS, library::json_to_wire, plain::json_to_wire,
     floor::json_to_wire},
    {"header_to_wire", VYN_PACKET_CAPACITY, library::header_to_wire, plain::header_to_wire,
     floor::header_to_wire},
    {"restamp", VYN_PACKET_CAPACITY, library::restamp, plain::restamp, floor::restamp},
    {"store", packet_files::kLongestBody, packet_files::store, packet_files::store_plainly,
     packet_files::store_floor, packet_files::start_storing, packet_files::look},
    {"read", packet_files::kLongestBody, packet_files::read, packet_files::read_plainly,
     packet_files::read_floor, packet_files::start_reading},
};

// What the library is to reach with bodies of this length or more; the last line that fits counts.
struct Goal {
    std::string_view work;
    std::size_t body_length;
    double times_faster;  // with a binary body
    double above_floor;
};
constexpr double kNone = 0;
constexpr Goal kGoals[] = {
    {"wire_to_json", 0, 12, kNone},    {"wire_to_json", 1000, 6, 2},
    {"wire_to_json", 6000, 3, 1.25},   {"json_to_wire", 1000, kNone, 1.25},
    {"header_to_wire", 0, kNone, 1.6}, {"restamp", 0, 2, kNone},
    {"store", 0, kNone, 1.3},          {"read", 0, kNone, 1.3},
};

// The table's columns, and the counters of a row.
constexpr char kLibraryTime[] = "library us";
constexpr char kTimesFaster[] = "plain/library";
constexpr char kAboveFloor[] = "library/floor";
constexpr char kAllocations[] = "allocations";

// One line of the table.
struct Row {
    const Work& work;
    const Sample& sample;

    [[nodiscard]] std::string name() const { return std::string(work.name) + "/" + sample.name; }
};

Goal goal_of(const Row& row) {
    Goal goal{};
    for (const Goal& candidate : kGoals) {
        if (candidate.work == row.work.name && candidate.body_length <= row.sample.body.size()) {
            goal = candidate;
        }
    }
    if (row.sample.header.encoding_type != MSG_ENCODING_BINARY) {
        goal.times_faster = kNone;
    }
    return goal;
}

std::vector<Row> make_rows(const std::vector<Sample>& samples) {
    std::vector<Row> rows;
    for (const Work& work : kWorks) {
        for (const Sample& sample : samples) {
            if (sample.json_body.size() <= work.longest_json_body) {
                rows.push_back({work, sample});
            }
        }
    }
    return rows;
}

// Times are comparable only where the work is the same: library and chain must write the same bytes,
// and these must contain the body that the floor writes.
bool writes_the_same(const Row& row) {
    Output library{};
    Output plain{};
    Output floor{};
    const auto run = [&row](Conversion convert, Output& out) {
        if (row.work.start != nullptr) {
            row.work.start(row.sample);
        }
        const bool done = convert(row.sample, out);
        if (row.work.look != nullptr) {
            row.work.look(out);
        }
        return done;
    };
    const auto bytes = [](const Output& out) {
        return std::string_view(reinterpret_cast<const char*>(out.bytes), out.length);
    };
    const char* fault = nullptr;
    if (!run(row.work.library, library) || !run(row.work.plain, plain) ||
        !run(row.work.floor, floor)) {
        fault = "a conversion failed";
    } else if (bytes(library) != bytes(plain)) {
        fault = "library and plain chain write different bytes";
    } else if (floor.length < row.sample.body.size() ||
               bytes(library).find(bytes(floor)) == std::string_view::npos) {
        fault = "what the floor writes is not the body that the library writes";
    }
    if (fault != nullptr) {
        std::fprintf(stderr, "%s: %s\n", row.name().c_str(), fault);
    }
    return fault == nullptr;
}

double cpu_seconds() {
    timespec now{};
    (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// The CPU time of one call in seconds; not a number when it failed.
double time_call(const Row& row, Conversion convert) {
    // Enough calls that reading the clock does not count, few enough that the variants take turns
    // often.
    constexpr int kCalls = 32;
    static Output out;
    bool done = true;
    if (row.work.start != nullptr) {
        row.work.start(row.sample);
    }
    const double start = cpu_seconds();
    for (int call = 0; call < kCalls; ++call) {
        done = convert(row.sample, out) && done;
        benchmark::ClobberMemory();
    }
    const double seconds = (cpu_seconds() - start) / kCalls;
    return done ? seconds : std::nan("");
}

void measure(benchmark::State& state, const Row& row) {
    double library = 0;
    double plain = 0;
    double floor = 0;
    for (auto _ : state) {
        library += time_call(row, row.work.library);
        plain += time_call(row, row.work.plain);
        floor += time_call(row, row.work.floor);
    }
    state.counters[kLibraryTime] = 1e6 * library / static_cast<double>(state.iterations());
    state.counters[kTimesFaster] = plain / library;
    state.counters[kAboveFloor] = library / floor;
    const std::size_t before = allocations();
    static Output out;
    (void)row.work.library(row.sample, out);
    state.counters[kAllocations] = static_cast<double>(allocations() - before);
}

std::string shown_goal(const char* relation, double goal) {
    char text[16] = "";
    if (goal != kNone) {
        std::snprintf(text, sizeof text, "%s%g", relation, goal);
    }
    return text;
}

// Keeps the median of each row's counters.
class Medians : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& context) override {
        PrintBasicContext(&std::cerr, context);
        return true;
    }

    // Repetitions are reported first and aggregates after them; a single one has none.
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration || run.aggregate_name == "median") {
                counters_[run.run_name.function_name] = run.counters;
            }
        }
    }

    // Nothing was measured when the arguments asked for something else, such as the list of names.
    void print_table(const std::vector<Row>& rows) const {
        if (counters_.empty()) {
            return;
        }
        std::printf(
            "\nMedians of CPU time: plain/library is how many times faster the library is "
            "than the plain\nchain, library/floor how many times slower than the floor.\n");
        std::printf("%-15s %-12s %11s %14s %7s %14s %7s %12s\n", "work", "body", kLibraryTime,
                    kTimesFaster, "goal", kAboveFloor, "goal", kAllocations);
        for (const Row& row : rows) {
            const auto found = counters_.find(row.name());
            if (found == counters_.end()) {
                continue;
            }
            const benchmark::UserCounters& counters = found->second;
            const Goal goal = goal_of(row);
            std::printf("%-15s %-12s %11.2f %14.2f %7s %14.2f %7s %12.0f\n", row.work.name,
                        row.sample.name.c_str(), counters.at(kLibraryTime).value,
                        counters.at(kTimesFaster).value,
                        shown_goal(">=", goal.times_faster).c_str(), counters.at(kAboveFloor).value,
                        shown_goal("<=", goal.above_floor).c_str(),
                        counters.at(kAllocations).value);
        }
    }

private:
    std::map<std::string, benchmark::UserCounters> counters_;
};

int run(int argc, char** argv) {
    // Our flags stand first, so that the ones of the command line override them.
    char interleaving[] = "--benchmark_enable_random_interleaving=true";
    char repetitions[] = "--benchmark_repetitions=5";
    char min_time[] = "--benchmark_min_time=0.2";
    std::vector<char*> arguments = {argv[0], interleaving, repetitions, min_time};
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return 1;
    }

    update_log_level(LOG_LEVEL_NONE);
    const std::vector<Sample> samples = make_samples();
    const std::vector<Row> rows = make_rows(samples);
    bool comparable = true;
    for (const Row& row : rows) {
        comparable = writes_the_same(row) && comparable;
    }
    if (!comparable) {
        return 1;
    }
    for (const Row& row : rows) {
        benchmark::RegisterBenchmark(row.name().c_str(), measure, row);
    }
    Medians medians;
    if (benchmark::RunSpecifiedBenchmarks(&medians) == 0) {
        return 1;
    }
    medians.print_table(rows);
    return 0;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    try {
        return bench::run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
